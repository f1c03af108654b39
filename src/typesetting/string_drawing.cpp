#include "zentrel/typesetting/string_drawing.h"

#include <cairo.h>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>

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
#include "zentrel/text/string_utilities.h"

namespace zt {
namespace {

constexpr std::string_view kEllipsis = "\u2026";

const ZTFont* resolve(const std::shared_ptr<ZTFont>& font) {
  if (font) return font.get();
  static const std::shared_ptr<ZTFont> system = ZTFont::systemFontOfSize(12);
  return system.get();
}

struct Line {
  std::string text;
  double width;
};

// Paragraphs of a text: the pieces between line break characters ("\r\n" is one break).
std::vector<std::string_view> paragraphs(std::string_view text) {
  std::vector<std::string_view> out;
  std::size_t start = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t breakLength = 0;
    if (c == '\n' || c == '\v' || c == '\f')
      breakLength = 1;
    else if (c == '\r')
      breakLength = (i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
    else if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) == 0x85)
      breakLength = 2;
    else if (c == 0xE2 && i + 2 < text.size() && static_cast<unsigned char>(text[i + 1]) == 0x80 &&
             (static_cast<unsigned char>(text[i + 2]) == 0xA8 || static_cast<unsigned char>(text[i + 2]) == 0xA9))
      breakLength = 3;
    if (breakLength) {
      out.push_back(text.substr(start, i - start));
      i += breakLength;
      start = i;
    } else {
      ++i;
    }
  }
  out.push_back(text.substr(start));
  return out;
}

class Layout {
 public:
  Layout(const ZTFont& font, double maxWidth, ZTLineBreakMode mode)
      : font_(font),
        maxWidth_(maxWidth > 0 && std::isfinite(maxWidth) ? maxWidth : std::numeric_limits<double>::infinity()),
        mode_(mode) {}

  std::vector<Line> run(std::string_view text, std::size_t maxLines) {
    std::vector<Line> lines;
    if (text.empty()) return lines;
    for (std::string_view paragraph : paragraphs(text)) {
      if (lines.size() >= maxLines) break;
      layParagraph(internal::toUnicode(paragraph), lines, maxLines);
    }
    return lines;
  }

 private:
  double width(const icu::UnicodeString& text) const { return internal::shape(font_, internal::toUTF8(text), nullptr); }

  // Width of a piece of a wrapped line: trailing white space hangs outside the line.
  double wrappedWidth(const icu::UnicodeString& paragraph, int32_t start, int32_t end) const {
    while (end > start && u_isWhitespace(paragraph.char32At(end - 1))) end = paragraph.moveIndex32(end, -1);
    return width(icu::UnicodeString(paragraph, start, end - start));
  }

  void emit(std::vector<Line>& lines, const icu::UnicodeString& paragraph, int32_t start, int32_t end) const {
    int32_t visibleEnd = end;
    while (visibleEnd > start && u_isWhitespace(paragraph.char32At(visibleEnd - 1))) {
      visibleEnd = paragraph.moveIndex32(visibleEnd, -1);
    }
    icu::UnicodeString text(paragraph, start, visibleEnd - start);
    lines.push_back({internal::toUTF8(text), width(text)});
  }

  static std::vector<int32_t> boundaries(icu::BreakIterator* iterator, const icu::UnicodeString& text) {
    std::vector<int32_t> out;
    iterator->setText(text);
    for (int32_t b = iterator->first(); b != icu::BreakIterator::DONE; b = iterator->next()) out.push_back(b);
    return out;
  }

  static std::unique_ptr<icu::BreakIterator> iterator(bool words) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> it(
        words ? icu::BreakIterator::createLineInstance(icu::Locale::getRoot(), status)
              : icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) it.reset();
    return it;
  }

  void layParagraph(const icu::UnicodeString& paragraph, std::vector<Line>& lines, std::size_t maxLines) {
    const bool wraps = mode_ == ZTLineBreakMode::ByWordWrapping || mode_ == ZTLineBreakMode::ByCharWrapping;
    if (!wraps || std::isinf(maxWidth_)) {
      lines.push_back(truncated(paragraph));
      return;
    }
    auto characters = iterator(false);
    auto words = mode_ == ZTLineBreakMode::ByWordWrapping ? iterator(true) : nullptr;
    if (!characters) {
      lines.push_back({internal::toUTF8(paragraph), width(paragraph)});
      return;
    }
    const std::vector<int32_t> graphemes = boundaries(characters.get(), paragraph);
    const std::vector<int32_t> breaks = words ? boundaries(words.get(), paragraph) : graphemes;

    int32_t lineStart = 0;
    std::size_t k = 1;
    int32_t fitted = 0;  // end of the longest run of whole segments that fits
    while (k < breaks.size() && lines.size() < maxLines) {
      const int32_t end = breaks[k];
      if (wrappedWidth(paragraph, lineStart, end) <= maxWidth_) {
        fitted = end;
        ++k;
        continue;
      }
      if (fitted > lineStart) {
        emit(lines, paragraph, lineStart, fitted);
        lineStart = fitted;
        continue;
      }
      // A single segment wider than the line: break it between characters, at least one per line.
      int32_t cut = lineStart;
      for (int32_t g : graphemes) {
        if (g <= lineStart) continue;
        if (g > end) break;
        if (cut > lineStart && wrappedWidth(paragraph, lineStart, g) > maxWidth_) break;
        cut = g;
      }
      emit(lines, paragraph, lineStart, cut);
      lineStart = cut;
      fitted = cut;
      if (cut >= end) ++k;
    }
    if (lineStart < paragraph.length() && lines.size() < maxLines)
      emit(lines, paragraph, lineStart, paragraph.length());
    if (paragraph.isEmpty() && lines.size() < maxLines) lines.push_back({"", 0});
  }

  // One paragraph on one line, shortened with an ellipsis when the mode truncates and it is too wide.
  Line truncated(const icu::UnicodeString& paragraph) const {
    const double full = width(paragraph);
    const bool truncates = mode_ == ZTLineBreakMode::ByTruncatingHead || mode_ == ZTLineBreakMode::ByTruncatingTail ||
                           mode_ == ZTLineBreakMode::ByTruncatingMiddle;
    if (!truncates || full <= maxWidth_) return {internal::toUTF8(paragraph), full};
    auto characters = iterator(false);
    const std::vector<int32_t> g =
        characters ? boundaries(characters.get(), paragraph) : std::vector<int32_t>{0, paragraph.length()};
    const std::size_t count = g.size() - 1;
    const icu::UnicodeString ellipsis = internal::toUnicode(kEllipsis);
    auto candidate = [&](std::size_t kept) {
      icu::UnicodeString out;
      switch (mode_) {
        case ZTLineBreakMode::ByTruncatingHead:
          out = ellipsis;
          out.append(paragraph, g[count - kept], paragraph.length() - g[count - kept]);
          break;
        case ZTLineBreakMode::ByTruncatingMiddle: {
          const std::size_t head = (kept + 1) / 2;
          const std::size_t tail = kept / 2;
          out = icu::UnicodeString(paragraph, 0, g[head]);
          out.append(ellipsis);
          out.append(paragraph, g[count - tail], paragraph.length() - g[count - tail]);
          break;
        }
        default:
          out = icu::UnicodeString(paragraph, 0, g[kept]);
          out.append(ellipsis);
          break;
      }
      return out;
    };
    // The most characters that still fit, found by bisection (width grows with what is kept).
    std::size_t low = 0;
    std::size_t high = count - 1;
    while (low < high) {
      const std::size_t mid = (low + high + 1) / 2;
      if (width(candidate(mid)) <= maxWidth_)
        low = mid;
      else
        high = mid - 1;
    }
    const icu::UnicodeString best = candidate(low);
    return {internal::toUTF8(best), width(best)};
  }

  const ZTFont& font_;
  double maxWidth_;
  ZTLineBreakMode mode_;
};

ZTSize sizeOf(const std::vector<Line>& lines, const ZTFont& font) {
  double widest = 0;
  for (const Line& line : lines) widest = std::max(widest, line.width);
  return ZTSize{std::ceil(widest), std::ceil(static_cast<double>(lines.size()) * font.lineHeight())};
}

std::size_t linesFitting(double height, const ZTFont& font) {
  if (!(height > 0) || std::isinf(height) || font.lineHeight() <= 0) return std::numeric_limits<std::size_t>::max();
  const double fit = std::floor(height / font.lineHeight() + 1e-9);
  return fit < 1 ? 1 : static_cast<std::size_t>(std::min(fit, 1e15));
}

double measuredWidth(const ZTFont& font, const icu::UnicodeString& text) {
  return std::ceil(internal::shape(font, internal::toUTF8(text), nullptr));
}

}  // namespace

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return sizeOf(Layout(*f, 0, ZTLineBreakMode::ByClipping).run(text, std::numeric_limits<std::size_t>::max()), *f);
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize) {
  return ztSizeWithFont(text, font, constrainedToSize, ZTLineBreakMode::ByWordWrapping);
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, double forWidth,
                      ZTLineBreakMode lineBreakMode) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return sizeOf(Layout(*f, forWidth, lineBreakMode).run(text, 1), *f);
}

ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize,
                      ZTLineBreakMode lineBreakMode) {
  const ZTFont* f = resolve(font);
  if (!f) return {};
  return sizeOf(
      Layout(*f, constrainedToSize.width, lineBreakMode).run(text, linesFitting(constrainedToSize.height, *f)), *f);
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
  const std::vector<Line> lines =
      Layout(*f, rect.size.width, lineBreakMode).run(text, linesFitting(rect.size.height, *f));
  cairo_save(context);
  if (limitedWidth && limitedHeight) {
    cairo_rectangle(context, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    cairo_clip(context);
  }
  cairo_set_font_face(context, f->cairoFontFace());
  cairo_set_font_size(context, f->pointSize());
  std::vector<internal::ShapedGlyph> shaped;
  std::vector<cairo_glyph_t> glyphs;
  double baseline = rect.origin.y + f->ascender();
  for (const Line& line : lines) {
    double x = rect.origin.x;
    if (limitedWidth && alignment == ZTTextAlignment::Right)
      x += rect.size.width - line.width;
    else if (limitedWidth && alignment == ZTTextAlignment::Center)
      x += (rect.size.width - line.width) / 2;
    shaped.clear();
    internal::shape(*f, line.text, &shaped);
    glyphs.resize(shaped.size());
    for (std::size_t i = 0; i < shaped.size(); ++i) {
      glyphs[i] = cairo_glyph_t{shaped[i].index, x + shaped[i].x, baseline + shaped[i].y};
    }
    if (!glyphs.empty()) cairo_show_glyphs(context, glyphs.data(), static_cast<int>(glyphs.size()));
    baseline += f->lineHeight();
  }
  cairo_restore(context);
  return sizeOf(lines, *f);
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
  icu::UnicodeString work = internal::toUnicode(text);
  double current = measuredWidth(f, work);
  if (current <= width) return std::string(text);
  const icu::UnicodeString ellipsis = internal::toUnicode(kEllipsis);

  if (lineBreakMode == ZTLineBreakMode::ByTruncatingMiddle) {
    const double iWidth = measuredWidth(f, icu::UnicodeString(u"i"));
    const double byLength = std::round(work.length() / 2.0);
    const double byWidth = iWidth > 0 ? std::round(width / iWidth / 2.0) : byLength;
    auto h = static_cast<int32_t>(std::min(byLength, byWidth));
    icu::UnicodeString candidate;
    for (;;) {
      const int32_t n = std::max(h - 1, 0);
      const int32_t headEnd = internal::adjustCutToCodePoint(work, n, true);
      const int32_t tailStart = internal::adjustCutToCodePoint(work, work.length() - n, false);
      icu::UnicodeString head(work, 0, headEnd);
      icu::UnicodeString tail(work, tailStart, work.length() - tailStart);
      candidate = head;
      candidate.append(ellipsis).append(tail);
      if (measuredWidth(f, candidate) <= width) break;
      icu::UnicodeString shorter = head;
      shorter.append(tail);
      if (shorter.length() >= work.length()) break;  // nothing left to take away
      work = shorter;
      h = static_cast<int32_t>(std::round(work.length() / 2.0));
    }
    return internal::toUTF8(candidate);
  }

  const double available = width - measuredWidth(f, ellipsis);
  double unit = f.boundingBox().size.width;
  if (!(unit > 0)) unit = f.pointSize();
  double over = 0;
  double n = 0;
  do {
    over = current - available;
    n = std::round(over / unit);
    if (over >= 0 && n <= work.length()) {
      const int32_t cut = internal::adjustCutToCodePoint(work, work.length() - static_cast<int32_t>(n), true);
      work.truncate(cut);
    } else {
      work.remove();
    }
    current = measuredWidth(f, work);
  } while (over > 0 && n != 0);
  work.append(ellipsis);
  return internal::toUTF8(work);
}

}  // namespace zt
