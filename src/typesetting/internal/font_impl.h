#pragma once
// What a ZTFont holds, for the layout and drawing code of this area.

#include <cairo.h>
#include <pango/pango-font.h>

#include <string>

#include "zentrel/geometry/rect.h"
#include "zentrel/typesetting/font.h"

struct ZTFont::Impl {
  std::string family;
  std::string path;
  double size = 0;
  double ascender = 0;
  double descender = 0;
  double lineHeight = 0;
  ZTRect boundingBox;
  // The face fontconfig chose, at the font's size in points, as Pango asks for it: Pango's
  // fontset for it adds the fallback fonts.
  PangoFontDescription* description = nullptr;
  cairo_font_face_t* cairoFace = nullptr;

  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    if (description) pango_font_description_free(description);
    if (cairoFace) cairo_font_face_destroy(cairoFace);
  }
};

// The private side of a font, for the code of this area.
struct ZTFontAccess {
  static const ZTFont::Impl& impl(const ZTFont& font) { return *font.impl_; }
};
