#pragma once
// ZTFont: a font chosen through fontconfig, at a size in points, that measures shaped text
// (HarfBuzz) and can be drawn with cairo (FreeType). Points are typographic points: a 12-point
// font's em square is 12 units of the cairo user space it is drawn into.
//
// Immutable after creation and held by std::shared_ptr; one font may be used from any number of
// threads at once. Measurement uses the font's own glyphs only: characters the font has no glyph
// for are measured (and drawn) with its missing-glyph box, not with a fallback font.

#include <memory>
#include <string>
#include <string_view>

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

// cairo's font face, declared here as cairo.h declares it, so that including this header does not
// need cairo's include path.
typedef struct _cairo_font_face cairo_font_face_t;

class ZT_API ZTFont {
 public:
  // The font fontconfig matches best for `family`, which may be a family name ("DejaVu Sans"), a
  // generic one ("sans-serif", "monospace") or a full fontconfig pattern ("DejaVu Sans:bold").
  // fontconfig falls back to its default font for a family it does not know; familyName() says
  // which one was chosen. nullptr, with a ZTCocoaErrorDomain error, when the size is not a
  // positive finite number, when fontconfig finds no font at all or the font file cannot be read.
  [[nodiscard]] static std::shared_ptr<ZTFont> create(std::string_view family, double pointSize,
                                                      ZTError* error = nullptr);
  // The desktop's user-interface font (fontconfig's "sans-serif") at the size.
  [[nodiscard]] static std::shared_ptr<ZTFont> systemFontOfSize(double pointSize, ZTError* error = nullptr);

  ~ZTFont();
  ZTFont(const ZTFont&) = delete;
  ZTFont& operator=(const ZTFont&) = delete;

  const std::string& familyName() const;
  const std::string& filePath() const;
  double pointSize() const;

  // Above the baseline (positive) and below it (negative), and the distance between baselines.
  double ascender() const;
  double descender() const;
  double lineHeight() const;
  // The box that holds every glyph of the font, in points, with y growing upwards from the
  // baseline: origin (xMin, yMin), size (xMax - xMin, yMax - yMin).
  ZTRect boundingBox() const;

  // The advance width of the text shaped as one line (kerning and ligatures applied). Line breaks
  // are not interpreted here. Invalid UTF-8 is measured as U+FFFD.
  double advanceWidth(std::string_view text) const;

  // For drawing: the cairo face of this font (owned by the font; add a reference to keep it).
  cairo_font_face_t* cairoFontFace() const;

 private:
  // The FreeType, HarfBuzz and cairo objects behind the font. The layout and drawing code of this
  // library reaches them through ZTFontAccess (src/typesetting/internal/font_impl.h).
  struct Impl;
  friend struct ZTFontAccess;

  explicit ZTFont(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};
