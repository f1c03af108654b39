#include "zentrel/typesetting/string_drawing.h"

#include <cairo.h>
#include <hb-ot.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "text/internal/unicode.h"  // the text area's UTF-8 <-> ICU conversions (inline, ICU only)
#include "typesetting/internal/font_impl.h"
#include "typesetting/internal/text_layout.h"
#include "zentrel/text/string_utilities.h"

namespace zt {
namespace {

constexpr std::string_view kEllipsis = "\u2026";

// The ems a context can draw text at, in device pixels. FreeType renders at most 65,535 pixels
// per em. Bitmap glyphs (colour emoji) are scaled as images in memory: 2,048 pixels per em take
// some 40 MB and a fifth of a second, twice that four times as much; below a tenth of a pixel
// cairo fails to scale them at all.
constexpr double kLargestDeviceEm = 65535;
constexpr double kLargestBitmapEm = 2048;
constexpr double kSmallestBitmapEm = 0.1;

const ZTFont* resolve(const std::shared_ptr<ZTFont>& font) {
  if (font) return font.get();
  static const std::shared_ptr<ZTFont> system = ZTFont::systemFontOfSize(12);
  return system.get();
}

double points(int pangoUnits) { return static_cast<double>(pangoUnits) / PANGO_SCALE; }

ZTSize sizeOf(double widest, std::size_t lines, const ZTFont& font) {
  return ZTSize{std::ceil(widest), std::ceil(static_cast<double>(lines) * font.lineHeight())};
}

std::size_t linesFitting(double height, const ZTFont& font) {
  if (!(height > 0) || std::isinf(height) || font.lineHeight() <= 0) return std::numeric_limits<std::size_t>::max();
  const double fit = std::floor(height / font.lineHeight() + 1e-9);
  return fit < 1 ? 1 : static_cast<std::size_t>(std::min(fit, 1e15));
}

ZTSize measure(std::string_view text, const ZTFont& font, double width, ZTLineBreakMode mode, std::size_t maxLines) {
  const internal::CleanText clean(text);
  internal::TextLayout layout(font, width, mode);
  double widest = 0;
  std::size_t lines = 0;
  layout.run(clean.view(), maxLines, [&](const internal::LaidLine& line) {
    widest = std::max(widest, line.width);
    ++lines;
  });
  return sizeOf(widest, lines, font);
}

// Whether the font's glyphs are bitmaps (PNG strikes, or no outlines at all).
bool hasBitmapGlyphs(PangoFont* font) {
  hb_font_t* hbFont = pango_font_get_hb_font(font);
  if (!hbFont) return false;
  hb_face_t* face = hb_font_get_face(hbFont);
  if (hb_ot_color_has_png(face)) return true;
  auto hasTable = [face](hb_tag_t tag) {
    hb_blob_t* table = hb_face_reference_table(face, tag);
    const bool present = hb_blob_get_length(table) > 0;
    hb_blob_destroy(table);
    return present;
  };
  return !hasTable(HB_TAG('g', 'l', 'y', 'f')) && !hasTable(HB_TAG('C', 'F', 'F', ' ')) &&
         !hasTable(HB_TAG('C', 'F', 'F', '2'));
}

// Whether every font can be drawn through the context's transformation (with the surface's
// device scale): cairo is asked for each font at that scale before anything is drawn, since a
// font that fails there would leave the context in an error state for good.
bool drawable(cairo_t* context, const std::vector<PangoFont*>& fonts) {
  cairo_matrix_t userToDevice;
  cairo_get_matrix(context, &userToDevice);
  double scaleX = 1;
  double scaleY = 1;
  cairo_surface_get_device_scale(cairo_get_target(context), &scaleX, &scaleY);
  cairo_matrix_t deviceScale;
  cairo_matrix_init_scale(&deviceScale, scaleX, scaleY);
  cairo_matrix_multiply(&userToDevice, &userToDevice, &deviceScale);
  userToDevice.x0 = userToDevice.y0 = 0;
  for (PangoFont* font : fonts) {
    cairo_scaled_font_t* scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(font));
    if (!scaled || cairo_scaled_font_status(scaled) != CAIRO_STATUS_SUCCESS) return false;
    cairo_matrix_t fontMatrix;
    cairo_scaled_font_get_font_matrix(scaled, &fontMatrix);
    cairo_matrix_t em;
    cairo_matrix_multiply(&em, &fontMatrix, &userToDevice);
    const double pixelsPerEm = std::max(std::hypot(em.xx, em.yx), std::hypot(em.xy, em.yy));
    if (!(pixelsPerEm <= kLargestDeviceEm)) return false;
    if (hasBitmapGlyphs(font) && !(pixelsPerEm >= kSmallestBitmapEm && pixelsPerEm <= kLargestBitmapEm)) return false;
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_scaled_font_get_font_options(scaled, options);
    cairo_scaled_font_t* probe =
        cairo_scaled_font_create(cairo_scaled_font_get_font_face(scaled), &fontMatrix, &userToDevice, options);
    const bool usable = cairo_scaled_font_status(probe) == CAIRO_STATUS_SUCCESS;
    cairo_scaled_font_destroy(probe);
    cairo_font_options_destroy(options);
    if (!usable) return false;
  }
  return true;
}

// The lines of a drawing, each holding its layout until drawn, as long as they are not too many:
// past kMostHeldBytes of text they are let go, to be laid out again as they are drawn.
class HeldLines {
 public:
  static constexpr std::size_t kMostHeldBytes = 64 * 1024;

  HeldLines() = default;
  HeldLines(const HeldLines&) = delete;
  HeldLines& operator=(const HeldLines&) = delete;
  ~HeldLines() { release(); }

  void add(const internal::LaidLine& line) {
    if (!complete_) return;
    std::size_t bytes = line.layoutLine ? static_cast<std::size_t>(line.layoutLine->length) : 0;
    for (std::string_view piece : line.pieces) bytes += piece.size();
    heldBytes_ += bytes;
    if (heldBytes_ > kMostHeldBytes) {
      release();
      complete_ = false;
      return;
    }
    lines_.push_back(line);
    if (line.layout) g_object_ref(line.layout);
  }
  // Whether every line is held.
  bool complete() const { return complete_; }
  const std::vector<internal::LaidLine>& lines() const { return lines_; }

 private:
  void release() {
    for (const internal::LaidLine& line : lines_) {
      if (line.layout) g_object_unref(line.layout);
    }
    lines_.clear();
  }

  std::vector<internal::LaidLine> lines_;
  std::size_t heldBytes_ = 0;
  bool complete_ = true;
};

// Draws a line whose visible part starts at `left`, on the baseline.
void drawLine(cairo_t* context, const internal::TextLayout& layout, const internal::LaidLine& line, double left,
              double baseline) {
  if (line.layoutLine) {
    PangoRectangle logical{};
    pango_layout_line_get_extents(line.layoutLine, nullptr, &logical);
    // A right-to-left line has its hanging white space on the left.
    cairo_move_to(context, left - points(logical.x) - (line.rightToLeft ? line.hangingWidth : 0), baseline);
    pango_cairo_show_layout_line(context, line.layoutLine);
    return;
  }
  // A long line in pieces, placed one after the other in the paragraph's direction; only the
  // pieces that reach into the clip are laid out again and drawn.
  double clipLeft = 0;
  double clipRight = 0;
  double ignored = 0;
  cairo_clip_extents(context, &clipLeft, &ignored, &clipRight, &ignored);
  double x = line.rightToLeft ? left + line.width : left;
  for (std::string_view text : line.pieces) {
    if (line.rightToLeft ? x < clipLeft : x > clipRight) break;
    const internal::LayoutRef piece = layout.layOutPiece(text, line.rightToLeft);
    int width = 0;
    pango_layout_get_size(piece.get(), &width, nullptr);
    const double start = line.rightToLeft ? x - points(width) : x;
    if (start <= clipRight && start + points(width) >= clipLeft) {
      cairo_move_to(context, start, baseline);
      pango_cairo_show_layout_line(context, pango_layout_get_line_readonly(piece.get(), 0));
    }
    x = line.rightToLeft ? start : start + points(width);
  }
}

}  // namespace

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return measure(text, *f, 0, ZTLineBreakMode::ByClipping, std::numeric_limits<std::size_t>::max());
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize) {
  return ztSizeWithFont(text, font, constrainedToSize, ZTLineBreakMode::ByWordWrapping);
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, double forWidth,
                      ZTLineBreakMode lineBreakMode) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return measure(text, *f, forWidth, lineBreakMode, 1);
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize,
                      ZTLineBreakMode lineBreakMode) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return measure(text, *f, constrainedToSize.width, lineBreakMode, linesFitting(constrainedToSize.height, *f));
}

ZTSize ztDrawInRect(std::string_view text, cairo_t* context, ZTRect rect, const std::shared_ptr<ZTFont>& font,
                    ZTLineBreakMode lineBreakMode, ZTTextAlignment alignment) {
  const ZTFont* f = resolve(font);
  if (!f || !context || cairo_status(context) != CAIRO_STATUS_SUCCESS) return {};
  // A NaN anywhere, or an origin at infinity, would put the caller's context into an error state.
  if (!std::isfinite(rect.origin.x) || !std::isfinite(rect.origin.y) || std::isnan(rect.size.width) ||
      std::isnan(rect.size.height)) {
    return {};
  }
  const bool limitedWidth = std::isfinite(rect.size.width) && rect.size.width > 0;
  const bool limitedHeight = std::isfinite(rect.size.height) && rect.size.height > 0;
  const internal::CleanText clean(text);
  const double maxWidth = limitedWidth ? rect.size.width : 0;
  const std::size_t maxLines = linesFitting(rect.size.height, *f);
  // Every font of the text is checked at the context's scale before anything is drawn.
  internal::TextLayout layout(*f, maxWidth, lineBreakMode);
  layout.collectFonts(true);
  HeldLines held;
  std::size_t lines = 0;
  layout.run(clean.view(), maxLines, [&](const internal::LaidLine& line) {
    held.add(line);
    ++lines;
  });
  if (lines == 0 || !drawable(context, layout.fonts())) return {};

  cairo_save(context);
  if (limitedWidth && limitedHeight) {
    cairo_rectangle(context, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    cairo_clip(context);
  }
  double widest = 0;
  double baseline = rect.origin.y + f->ascender();
  // Lines well outside the clip are counted, not drawn (a margin of two lines for fallback glyphs
  // taller than the font's own).
  double clipTop = 0;
  double clipBottom = 0;
  double ignored = 0;
  cairo_clip_extents(context, &ignored, &clipTop, &ignored, &clipBottom);
  const double margin = 2 * std::max(f->lineHeight(), f->pointSize());
  auto draw = [&](const internal::TextLayout& source, const internal::LaidLine& line) {
    double left = rect.origin.x;
    ZTTextAlignment side = alignment;
    if (side == ZTTextAlignment::Natural || side == ZTTextAlignment::Justified) {
      side = line.paragraphRightToLeft ? ZTTextAlignment::Right : ZTTextAlignment::Left;
    }
    if (limitedWidth && side == ZTTextAlignment::Right)
      left += rect.size.width - line.width;
    else if (limitedWidth && side == ZTTextAlignment::Center)
      left += (rect.size.width - line.width) / 2;
    if (baseline + margin >= clipTop && baseline - margin <= clipBottom) drawLine(context, source, line, left, baseline);
    widest = std::max(widest, line.width);
    baseline += f->lineHeight();
  };
  if (held.complete()) {
    for (const internal::LaidLine& line : held.lines()) draw(layout, line);
  } else {
    internal::TextLayout again(*f, maxWidth, lineBreakMode);
    again.run(clean.view(), maxLines, [&](const internal::LaidLine& line) { draw(again, line); });
  }
  cairo_restore(context);
  if (cairo_status(context) != CAIRO_STATUS_SUCCESS) return {};
  return sizeOf(widest, lines, *f);
}

std::string stringByBreakToWidth(std::string_view text, double width, ZTLineBreakMode lineBreakMode,
                                 const std::shared_ptr<ZTFont>& font) {
  if (width < 0 || !font || std::isnan(width)) {
    const double clamped = std::isnan(width) ? 0 : std::clamp(width, -9.0e18, 9.0e18);
    return shortStringWithMaxLength(text, static_cast<std::int64_t>(clamped));
  }
  if (lineBreakMode != ZTLineBreakMode::ByTruncatingMiddle && lineBreakMode != ZTLineBreakMode::ByTruncatingTail) {
    return std::string(text);
  }
  const ZTFont& f = *font;
  // Measured as ztSizeWithFont measures: laid out without a limit, rounded up to whole points.
  auto measuredWidth = [&f](const icu::UnicodeString& candidate) {
    return measure(internal::toUTF8(candidate), f, 0, ZTLineBreakMode::ByClipping,
                   std::numeric_limits<std::size_t>::max())
        .width;
  };
  icu::UnicodeString work = internal::toUnicode(text);
  double current = measuredWidth(work);
  if (current <= width) return std::string(text);
  const icu::UnicodeString ellipsis = internal::toUnicode(kEllipsis);

  // Both procedures take at least one unit away on every turn that does not end them, so neither
  // turns more often than the text has units.
  if (lineBreakMode == ZTLineBreakMode::ByTruncatingMiddle) {
    const double iWidth = measuredWidth(icu::UnicodeString(u"i"));
    const double byLength = std::round(work.length() / 2.0);
    const double byWidth = iWidth > 0 ? std::round(width / iWidth / 2.0) : byLength;
    auto h = static_cast<int32_t>(std::min(byLength, byWidth));
    icu::UnicodeString candidate;
    for (std::int64_t turns = std::int64_t{work.length()} + 1; turns > 0; --turns) {
      const int32_t n = std::max(h - 1, 0);
      const int32_t headEnd = internal::adjustCutToCodePoint(work, n, true);
      const int32_t tailStart = internal::adjustCutToCodePoint(work, work.length() - n, false);
      icu::UnicodeString head(work, 0, headEnd);
      icu::UnicodeString tail(work, tailStart, work.length() - tailStart);
      candidate = head;
      candidate.append(ellipsis).append(tail);
      if (measuredWidth(candidate) <= width) break;
      icu::UnicodeString shorter = head;
      shorter.append(tail);
      if (shorter.length() >= work.length()) break;  // nothing left to take away
      work = shorter;
      h = static_cast<int32_t>(std::round(work.length() / 2.0));
    }
    return internal::toUTF8(candidate);
  }

  // The procedure would go on for ever once the text is empty and the width is below that of
  // "…" (the overshoot then stays the same): an empty text ends it.
  const double available = width - measuredWidth(ellipsis);
  double unit = f.boundingBox().size.width;
  if (!(unit > 0)) unit = f.pointSize();
  const icu::UnicodeString original = work;
  int32_t kept = work.length();  // the text is the first `kept` units of the original
  // The length after one turn that drops n units from `length` (all of them if n is too many).
  auto afterCut = [&original](int32_t length, double n) {
    return n <= length ? internal::adjustCutToCodePoint(original, length - static_cast<int32_t>(n), true) : 0;
  };
  auto widthOfFirst = [&](int32_t length) { return measuredWidth(icu::UnicodeString(original, 0, length)); };
  for (std::int64_t turns = std::int64_t{kept} + 1; turns > 0 && kept > 0; --turns) {
    const double over = current - available;
    const double n = std::round(over / unit);
    const int32_t before = kept;
    kept = over >= 0 ? afterCut(kept, n) : 0;
    const double measured = widthOfFirst(kept);
    if (!(over > 0 && n != 0)) {
      current = measured;
      break;
    }
    if (measured == current && kept > 0 && kept < before) {
      // The cut took away nothing visible (zero-width characters): the procedure repeats the same
      // cut, turn after turn, as long as the width stays. Those turns are found by bisection over
      // their number, as the width of a prefix only shrinks with it, instead of one measurement
      // each (a long run of such characters made this quadratic).
      std::vector<int32_t> lengths{kept};
      while (lengths.back() > 0 && static_cast<std::int64_t>(lengths.size()) < turns) {
        lengths.push_back(afterCut(lengths.back(), n));
      }
      std::size_t same = 0;  // lengths[same] still measures `current`
      std::size_t differs = lengths.size();
      while (differs - same > 1) {
        const std::size_t middle = same + (differs - same) / 2;
        if (widthOfFirst(lengths[middle]) == current)
          same = middle;
        else
          differs = middle;
      }
      turns -= static_cast<std::int64_t>(same);
      kept = lengths[same];
      if (differs == lengths.size()) continue;  // the width never changed within the bound
      kept = lengths[differs];
      turns -= 1;
      current = widthOfFirst(kept);
      continue;
    }
    current = measured;
  }
  work = icu::UnicodeString(original, 0, kept);
  work.append(ellipsis);
  return internal::toUTF8(work);
}

}  // namespace zt
