#include "typesetting/internal/text_layout.h"

#include <pango/pangocairo.h>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include "typesetting/internal/font_impl.h"

namespace zt::internal {
namespace {

// A piece of a long paragraph is at most as many bytes as could, at 8 ems a byte (a tab stop is
// about 2.5 ems, the widest glyphs of common fonts 3 or 4), reach this width.
constexpr double kPieceWidth = 500000;
constexpr double kEmsPerByte = 8;

int pangoUnits(double points) { return static_cast<int>(std::lround(points * PANGO_SCALE)); }
double points(int pangoUnits) { return static_cast<double>(pangoUnits) / PANGO_SCALE; }

// The thread's two Pango contexts, one per paragraph direction. Neither is changed after it is
// made: a layout is laid out again whenever its context changes, which would invalidate the lines
// handed out.
PangoContext* threadContext(bool rightToLeft) {
  struct Contexts {
    PangoContext* context[2] = {nullptr, nullptr};
    ~Contexts() {
      for (PangoContext* c : context) {
        if (c) g_object_unref(c);
      }
    }
  };
  thread_local Contexts contexts;
  PangoContext*& context = contexts.context[rightToLeft ? 1 : 0];
  if (!context) {
    // The thread's own font map (Pango gives each thread one), fontconfig's choice of fonts.
    context = pango_font_map_create_context(pango_cairo_font_map_get_default());
    // Unhinted and unrounded: widths do not depend on the device and scale with the size.
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context, FALSE);
    pango_context_set_base_dir(context, rightToLeft ? PANGO_DIRECTION_RTL : PANGO_DIRECTION_LTR);
  }
  return context;
}

// Calls fn(paragraph) for the pieces between line break characters ("\r\n" is one break) until
// it answers false.
template <typename Fn>
void forEachParagraph(std::string_view text, Fn&& fn) {
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
      if (!fn(text.substr(start, i - start))) return;
      i += breakLength;
      start = i;
    } else {
      ++i;
    }
  }
  fn(text.substr(start));
}

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// A place to cut `text` no later than `limit` (0 < limit < size): after a space in the second
// half if there is one, else at the last grapheme boundary before the limit, else (a grapheme
// longer than 256 bytes) at the last code point boundary. Never 0, as the limit is at least 64.
std::size_t cutBefore(std::string_view text, std::size_t limit) {
  for (std::size_t i = limit; i > limit / 2; --i) {
    if (text[i - 1] == ' ') return i;
  }
  std::size_t cut = limit;
  while (cut > 0 && isContinuationByte(text[cut])) --cut;
  // A grapheme (a letter with its marks, an emoji sequence) is not cut: ICU looks at the bytes
  // just before the cut.
  std::size_t windowStart = cut > 256 ? cut - 256 : 0;
  while (windowStart > 0 && isContinuationByte(text[windowStart])) --windowStart;
  std::size_t windowEnd = std::min(text.size(), cut + 64);
  while (windowEnd < text.size() && isContinuationByte(text[windowEnd])) ++windowEnd;
  const std::string_view before = text.substr(windowStart, cut - windowStart);
  const icu::UnicodeString head =
      icu::UnicodeString::fromUTF8(icu::StringPiece(before.data(), static_cast<int32_t>(before.size())));
  const std::string_view window = text.substr(windowStart, windowEnd - windowStart);
  const icu::UnicodeString all =
      icu::UnicodeString::fromUTF8(icu::StringPiece(window.data(), static_cast<int32_t>(window.size())));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> graphemes(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_SUCCESS(status) && graphemes) {
    graphemes->setText(all);
    const int32_t boundary = graphemes->isBoundary(head.length()) ? head.length() : graphemes->preceding(head.length());
    if (boundary > 0 && boundary != icu::BreakIterator::DONE) {
      std::string kept;
      all.tempSubString(0, boundary).toUTF8String(kept);
      if (kept.size() <= before.size()) cut = windowStart + kept.size();
    }
  }
  return cut;
}

// The direction of a (clean) paragraph: that of its first strong character, left to right if none.
bool isRightToLeft(std::string_view paragraph) {
  const char* p = paragraph.data();
  const char* end = p + paragraph.size();
  while (p < end) {
    switch (u_charDirection(static_cast<UChar32>(g_utf8_get_char(p)))) {
      case U_LEFT_TO_RIGHT:
        return false;
      case U_RIGHT_TO_LEFT:
      case U_RIGHT_TO_LEFT_ARABIC:
        return true;
      default:
        p = g_utf8_next_char(p);
    }
  }
  return false;
}

void setText(PangoLayout* layout, std::string_view text) {
  pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
}

}  // namespace

CleanText::CleanText(std::string_view text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  std::size_t i = 0;
  std::size_t copied = 0;  // bytes of `text` already in storage_
  bool changed = false;
  while (i < size) {
    const unsigned char c = bytes[i];
    std::size_t length = 0;  // of a valid sequence starting at i, or 0
    std::size_t invalid = 1;  // bytes one U+FFFD stands for otherwise
    if (c >= 0x01 && c < 0x80) {
      length = 1;
    } else if (c >= 0xC2 && c <= 0xF4) {
      const std::size_t need = c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
      // The range of the second byte, tighter after E0, ED, F0 and F4 (no overlong forms, no
      // surrogates, nothing past U+10FFFF).
      const unsigned char low = c == 0xE0 ? 0xA0 : c == 0xF0 ? 0x90 : 0x80;
      const unsigned char high = c == 0xED ? 0x9F : c == 0xF4 ? 0x8F : 0xBF;
      std::size_t k = 1;
      while (k < need && i + k < size) {
        const unsigned char next = bytes[i + k];
        if (k == 1 ? (next < low || next > high) : (next & 0xC0) != 0x80) break;
        ++k;
      }
      if (k == need)
        length = need;
      else
        invalid = k;
    }
    if (length) {
      i += length;
      continue;
    }
    if (!changed) {
      storage_.reserve(size + 16);
      changed = true;
    }
    storage_.append(text.substr(copied, i - copied));
    storage_.append("\xEF\xBF\xBD");
    i += invalid;
    copied = i;
  }
  if (!changed) {
    view_ = text;
    return;
  }
  storage_.append(text.substr(copied));
  view_ = storage_;
}

TextLayout::TextLayout(const ZTFont& font, double maxWidth, ZTLineBreakMode mode)
    : font_(font),
      maxWidth_(maxWidth > 0 && maxWidth <= kMaximumLineWidth ? maxWidth : 0),
      mode_(mode),
      pieceBytes_(static_cast<std::size_t>(
          std::max(64.0, std::floor(kPieceWidth / (kEmsPerByte * font.pointSize()))))) {}

TextLayout::~TextLayout() {
  for (PangoFont* font : fonts_) g_object_unref(font);
}

LayoutRef TextLayout::newLayout(bool rightToLeft) const {
  LayoutRef layout(pango_layout_new(threadContext(rightToLeft)));
  pango_layout_set_auto_dir(layout.get(), FALSE);
  pango_layout_set_font_description(layout.get(), ZTFontAccess::impl(font_).description);
  return layout;
}

LayoutRef TextLayout::layOutPiece(std::string_view piece, bool rightToLeft, bool singleParagraph) const {
  LayoutRef layout = newLayout(rightToLeft);
  pango_layout_set_single_paragraph_mode(layout.get(), singleParagraph);
  setText(layout.get(), piece);
  return layout;
}

void TextLayout::noteFonts(PangoLayoutLine* line) {
  if (!collectFonts_) return;
  for (GSList* run = line->runs; run; run = run->next) {
    PangoFont* font = static_cast<PangoGlyphItem*>(run->data)->item->analysis.font;
    if (font && std::find(fonts_.begin(), fonts_.end(), font) == fonts_.end()) {
      fonts_.push_back(static_cast<PangoFont*>(g_object_ref(font)));
    }
  }
}

double TextLayout::pieceWidth(std::string_view piece, bool rightToLeft) {
  const LayoutRef layout = layOutPiece(piece, rightToLeft);
  int width = 0;
  pango_layout_get_size(layout.get(), &width, nullptr);
  for (GSList* line = pango_layout_get_lines_readonly(layout.get()); line; line = line->next) {
    noteFonts(static_cast<PangoLayoutLine*>(line->data));
  }
  return points(width);
}

std::vector<std::string_view> TextLayout::pieces(std::string_view paragraph) const {
  std::vector<std::string_view> out;
  while (paragraph.size() > pieceBytes_) {
    const std::size_t cut = cutBefore(paragraph, pieceBytes_);
    out.push_back(paragraph.substr(0, cut));
    paragraph.remove_prefix(cut);
  }
  out.push_back(paragraph);
  return out;
}

namespace {

// The width of the white space at the end of the line, which hangs outside it when wrapping
// (Pango has already given no width to the space at a break, but not to others, nor to those at
// the paragraph's end), in Pango units.
int hangingWidth(PangoLayout* layout, PangoLayoutLine* line) {
  const char* text = pango_layout_get_text(layout);
  const char* end = text + line->start_index + line->length;
  const char* visibleEnd = end;
  while (visibleEnd > text + line->start_index) {
    const char* previous = g_utf8_prev_char(visibleEnd);
    if (!g_unichar_isspace(g_utf8_get_char(previous))) break;
    visibleEnd = previous;
  }
  if (visibleEnd == end) return 0;
  const int hangStart = static_cast<int>(visibleEnd - text);
  int hanging = 0;
  for (GSList* run = line->runs; run; run = run->next) {
    const auto* glyphItem = static_cast<PangoGlyphItem*>(run->data);
    const PangoGlyphString* glyphs = glyphItem->glyphs;
    for (int i = 0; i < glyphs->num_glyphs; ++i) {
      if (glyphItem->item->offset + glyphs->log_clusters[i] >= hangStart) hanging += glyphs->glyphs[i].geometry.width;
    }
  }
  return hanging;
}

}  // namespace

void TextLayout::emitLine(PangoLayout* layout, PangoLayoutLine* line, bool paragraphRightToLeft,
                          const std::function<void(const LaidLine&)>& visit) {
  noteFonts(line);
  PangoRectangle logical{};
  pango_layout_line_get_extents(line, nullptr, &logical);
  const int hanging = wrapping() ? hangingWidth(layout, line) : 0;
  LaidLine laid;
  laid.layout = layout;
  laid.layoutLine = line;
  laid.rightToLeft = line->resolved_dir == PANGO_DIRECTION_RTL;
  laid.paragraphRightToLeft = paragraphRightToLeft;
  laid.width = points(std::max(0, logical.width - hanging));
  laid.hangingWidth = points(hanging);
  visit(laid);
}

bool TextLayout::layParagraph(std::string_view paragraph, std::size_t maxLines, std::size_t& emitted,
                              const std::function<void(const LaidLine&)>& visit) {
  if (paragraph.empty()) {  // an empty line, without asking Pango (a text may hold millions)
    visit(LaidLine{});
    return ++emitted < maxLines;
  }
  const bool rightToLeft = isRightToLeft(paragraph);
  const bool wraps = maxWidth_ > 0 && wrapping();
  const bool truncates = maxWidth_ > 0 && (mode_ == ZTLineBreakMode::ByTruncatingHead ||
                                           mode_ == ZTLineBreakMode::ByTruncatingTail ||
                                           mode_ == ZTLineBreakMode::ByTruncatingMiddle);
  if (wraps) {
    // Chunk after chunk; the last line of a chunk may go on in the next one, so it is laid out
    // again with it. Lines before it are final: each broke where the next word did not fit, and
    // that word is in the chunk. Each chunk has a layout of its own, which a visitor may keep.
    std::string chunk;
    std::size_t position = 0;
    for (;;) {
      const std::size_t rest = paragraph.size() - position;
      const std::size_t take = rest <= pieceBytes_ ? rest : cutBefore(paragraph.substr(position), pieceBytes_);
      chunk.append(paragraph.substr(position, take));
      position += take;
      const bool last = position == paragraph.size();
      const LayoutRef layout = newLayout(rightToLeft);
      pango_layout_set_width(layout.get(), pangoUnits(maxWidth_));
      pango_layout_set_wrap(layout.get(),
                            mode_ == ZTLineBreakMode::ByWordWrapping ? PANGO_WRAP_WORD_CHAR : PANGO_WRAP_CHAR);
      setText(layout.get(), chunk);
      int carryFrom = 0;
      bool full = false;
      for (GSList* item = pango_layout_get_lines_readonly(layout.get()); item; item = item->next) {
        auto* line = static_cast<PangoLayoutLine*>(item->data);
        const bool final = item->next == nullptr;
        if (final && !last) {
          carryFrom = line->start_index;
          break;
        }
        emitLine(layout.get(), line, rightToLeft, visit);
        if (++emitted >= maxLines) {
          full = true;
          break;
        }
      }
      if (last || full) return !full;
      chunk.erase(0, static_cast<std::size_t>(carryFrom));
    }
  }

  const PangoEllipsizeMode ellipsis = mode_ == ZTLineBreakMode::ByTruncatingHead   ? PANGO_ELLIPSIZE_START
                                      : mode_ == ZTLineBreakMode::ByTruncatingTail ? PANGO_ELLIPSIZE_END
                                                                                   : PANGO_ELLIPSIZE_MIDDLE;
  auto oneLine = [&](std::string_view text, bool ellipsized) {
    const LayoutRef layout = newLayout(rightToLeft);
    if (ellipsized) {
      pango_layout_set_width(layout.get(), pangoUnits(maxWidth_));
      pango_layout_set_ellipsize(layout.get(), ellipsis);
    }
    setText(layout.get(), text);
    emitLine(layout.get(), pango_layout_get_line_readonly(layout.get(), 0), rightToLeft, visit);
    return ++emitted < maxLines;
  };
  if (paragraph.size() <= pieceBytes_) return oneLine(paragraph, truncates);

  // A long paragraph on one line: measured piece by piece.
  const std::vector<std::string_view> all = pieces(paragraph);
  if (truncates) {
    // Only the pieces at the ends that the ellipsis leaves matter: as many from the start (tail
    // truncation), the end (head) or both (middle) as reach past the width, or half of it.
    const bool keepsHead = mode_ != ZTLineBreakMode::ByTruncatingHead;
    const bool keepsTail = mode_ != ZTLineBreakMode::ByTruncatingTail;
    const double reach = keepsHead && keepsTail ? maxWidth_ / 2 : maxWidth_;
    std::size_t headCount = 0;
    std::size_t tailCount = 0;
    double headWidth = 0;
    double tailWidth = 0;
    while (keepsHead && headCount < all.size() && headWidth <= reach) headWidth += pieceWidth(all[headCount++], rightToLeft);
    while (keepsTail && headCount + tailCount < all.size() && tailWidth <= reach) {
      tailWidth += pieceWidth(all[all.size() - 1 - tailCount++], rightToLeft);
    }
    if (headCount + tailCount >= all.size()) {
      if (headWidth + tailWidth > maxWidth_) return oneLine(paragraph, true);
    } else {
      std::string window(paragraph.substr(0, static_cast<std::size_t>(all[headCount].data() - paragraph.data())));
      if (tailCount > 0) window.append(paragraph.substr(static_cast<std::size_t>(all[all.size() - tailCount].data() - paragraph.data())));
      return oneLine(window, true);
    }
  }
  LaidLine laid;
  laid.rightToLeft = rightToLeft;
  laid.paragraphRightToLeft = rightToLeft;
  laid.pieces = all;
  for (std::string_view piece : all) laid.width += pieceWidth(piece, rightToLeft);
  if (wrapping()) {
    const LayoutRef last = layOutPiece(all.back(), rightToLeft);
    const double hanging = points(hangingWidth(last.get(), pango_layout_get_line_readonly(last.get(), 0)));
    laid.width = std::max(0.0, laid.width - hanging);
    laid.hangingWidth = hanging;
  }
  visit(laid);
  ++emitted;
  return emitted < maxLines;
}

void TextLayout::run(std::string_view text, std::size_t maxLines, const std::function<void(const LaidLine&)>& visit) {
  if (text.empty() || maxLines == 0) return;
  std::size_t emitted = 0;
  forEachParagraph(text, [&](std::string_view paragraph) { return layParagraph(paragraph, maxLines, emitted, visit); });
}

double advanceWidth(const ZTFont& font, std::string_view text) {
  if (text.empty()) return 0;
  const CleanText clean(text);
  TextLayout layout(font, 0, ZTLineBreakMode::ByClipping);
  double width = 0;
  std::string_view rest = clean.view();
  const std::size_t pieceBytes =
      static_cast<std::size_t>(std::max(64.0, std::floor(kPieceWidth / (kEmsPerByte * font.pointSize()))));
  while (!rest.empty()) {
    const std::size_t take = rest.size() <= pieceBytes ? rest.size() : cutBefore(rest, pieceBytes);
    const LayoutRef piece = layout.layOutPiece(rest.substr(0, take), false, true);
    int w = 0;
    pango_layout_get_size(piece.get(), &w, nullptr);
    width += points(w);
    rest.remove_prefix(take);
  }
  return width;
}

}  // namespace zt::internal
