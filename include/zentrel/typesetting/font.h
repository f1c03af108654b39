#pragma once
// ZTFont: a font chosen through fontconfig, at a size in points, with which text is measured and
// drawn (Pango on cairo). Points are typographic points: a 12-point font's em square is 12 units
// of the cairo user space it is drawn into.
//
// Immutable after creation and held by std::shared_ptr; one font may be used from any number of
// threads at once. Characters the font has no glyph for are measured and drawn with the font that
// fontconfig lists next for them (an emoji font for emoji, another script's font for its letters),
// as every desktop application does; only a character no installed font has gets a missing-glyph
// box.

#include <memory>
#include <string>
#include <string_view>

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

// cairo's font face, declared here as cairo.h declares it, so that including this header does not
// need cairo's include path.
typedef struct _cairo_font_face cairo_font_face_t;

// A font chosen through fontconfig at a size in points, to measure and draw text with.
class ZT_API ZTFont {
 public:
  // The sizes a font may have. FreeType renders at most 65,535 pixels per em and Pango counts
  // lengths in 1/1024 of a point in 32-bit integers: 10,000 points leaves room for a drawing scale
  // of 6 on top, and below 0.1 point the measurements lose their precision.
  static constexpr double kMinimumPointSize = 0.1;
  static constexpr double kMaximumPointSize = 10000;

  // The font fontconfig matches best for `family`, which may be a family name ("DejaVu Sans"), a
  // generic one ("sans-serif", "monospace") or a full fontconfig pattern ("DejaVu Sans:bold").
  // fontconfig falls back to its default font for a family it does not know; familyName() says
  // which one was chosen. nullptr, with a ZTCocoaErrorDomain error, when the size is outside
  // kMinimumPointSize ... kMaximumPointSize (code 1024; NaN and infinities included), when
  // fontconfig finds no font at all or the font file cannot be read (code 260).
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

  // The advance width of the text laid out as one line (kerning, ligatures and fallback fonts
  // applied). Line breaks are not interpreted here. Invalid UTF-8 and NUL characters are measured
  // as U+FFFD.
  double advanceWidth(std::string_view text) const;

  // The cairo face of this font alone, without fallback, for a caller that draws glyphs itself
  // (owned by the font; add a reference to keep it).
  cairo_font_face_t* cairoFontFace() const;

 private:
  // The FreeType, cairo and Pango objects behind the font. The layout and drawing code of this
  // library reaches them through ZTFontAccess (src/typesetting/internal/font_impl.h).
  struct Impl;
  friend struct ZTFontAccess;

  explicit ZTFont(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};
