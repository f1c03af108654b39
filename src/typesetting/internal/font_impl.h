#pragma once
// What a ZTFont holds, for the layout and drawing code of this area.

#include <cairo.h>
#include <hb.h>

#include <string>
#include <string_view>
#include <vector>

#include "zentrel/geometry/rect.h"
#include "zentrel/typesetting/font.h"

struct ZTFont::Impl {
  std::string family;
  std::string path;
  double size = 0;
  double scale = 0;  // points per font unit
  double ascender = 0;
  double descender = 0;
  double lineHeight = 0;
  ZTRect boundingBox;
  hb_font_t* hbFont = nullptr;  // scaled in font units; shaping with it is thread-safe
  cairo_font_face_t* cairoFace = nullptr;

  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    if (hbFont) hb_font_destroy(hbFont);
    if (cairoFace) cairo_font_face_destroy(cairoFace);
  }
};

// The private side of a font, for the code of this area.
struct ZTFontAccess {
  static const ZTFont::Impl& impl(const ZTFont& font) { return *font.impl_; }
};

namespace zt::internal {

struct ShapedGlyph {
  unsigned int index;
  double x;  // pen position of the glyph origin, in points, from the start of the run
  double y;
};

// Shapes one line of text with the font: the glyphs and the total advance width.
double shape(const ZTFont& font, std::string_view text, std::vector<ShapedGlyph>* glyphs);

}  // namespace zt::internal
