#pragma once
// Measuring and drawing text with a ZTFont, and shortening a line to a width.
//
// Text is laid out in lines, by Pango: every line break character (U+000A-U+000D, U+0085, U+2028,
// U+2029; "\r\n" counts once) starts a new paragraph. With word wrapping a paragraph is broken
// between words where Unicode line breaking allows it (a word wider than the line is broken
// between characters); with character wrapping between any two characters; with clipping and the
// three truncating modes each paragraph stays on one line, clipped or shortened with "…" at its
// head, middle or tail. Breaks and cuts fall between graphemes (a letter with its accents, an
// emoji sequence), never inside one. A paragraph runs in the direction of its first strong
// character; right-to-left and mixed text are ordered as the Unicode bidirectional algorithm says.
// Characters the font lacks come from fallback fonts (see font.h).
// A line's width is its advance width; in the wrapping modes the white space at the end of a line
// hangs outside it and does not count. A width limit of 0 or less, above 1,000,000 points, or infinite, means no
// limit. Sizes are in points and rounded up to whole points; the height is the number of lines
// times the font's line height. A null font means the system font of size 12. Text of any length
// is measured exactly, however wide: long paragraphs are laid out in pieces.
//
// Stateless; may be called from any thread (each call its own cairo context: cairo contexts are
// not thread-safe). Invalid UTF-8 and NUL characters are measured and drawn as U+FFFD.

#include <memory>
#include <string>
#include <string_view>

#include "zentrel/geometry/point.h"
#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"
#include "zentrel/typesetting/font.h"

// The caller's cairo context; declared here as cairo.h declares it, so that including this header
// does not need cairo's include path.
typedef struct _cairo cairo_t;

// The values of the desktop platform's paragraph styles: 4 is tail, 5 is middle truncation.
enum class ZTLineBreakMode : int {
  ByWordWrapping = 0,
  ByCharWrapping = 1,
  ByClipping = 2,
  ByTruncatingHead = 3,
  ByTruncatingTail = 4,
  ByTruncatingMiddle = 5,
};

// Natural follows each paragraph's direction: left for left-to-right text, right for right-to-left
// text. Justified lines are drawn as Natural ones, without stretching.
enum class ZTTextAlignment : int { Left = 0, Right = 1, Center = 2, Justified = 3, Natural = 4 };

namespace zt {

// The size of the text laid out without a width limit: the widest paragraph by the number of
// paragraphs times the font's line height. The empty text is 0 x 0.
ZT_API ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font);
// Laid out with word wrapping within size.width; only the lines that fit within size.height are
// counted (always at least one).
ZT_API ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize);
// The first line only, laid out in the mode within `width`.
ZT_API ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, double forWidth,
                             ZTLineBreakMode lineBreakMode);
ZT_API ZTSize ztSizeWithFont(std::string_view text, const std::shared_ptr<ZTFont>& font, ZTSize constrainedToSize,
                             ZTLineBreakMode lineBreakMode);

// Draws the text into the caller's cairo context, inside the rectangle (user-space units = points,
// y growing downwards, the first baseline one ascender below the rectangle's top), with the
// context's current source (colour emoji keep their colours), clipped to the rectangle. Lines that
// do not fit in the rectangle's height are not drawn (the first always is). A dimension of 0 or
// less, or infinite, sets no limit and then nothing is clipped. The context's state is restored
// afterwards. Answers the size of what was drawn.
// Draws nothing and answers 0 x 0 for a null context, a context already in an error state, a
// rectangle with a NaN or an infinite origin, and text that cannot be drawn at the context's
// scale: more than 65,535 device pixels per em in any of its fonts (the most FreeType renders), or,
// for text with bitmap glyphs (colour emoji, scaled as images in memory), outside 0.1 to 2,048
// device pixels per em. Every font of the text is checked at the context's scale before anything
// is drawn, so the text never leaves the caller's context in an error state.
ZT_API ZTSize ztDrawInRect(std::string_view text, cairo_t* context, ZTRect rect, const std::shared_ptr<ZTFont>& font,
                           ZTLineBreakMode lineBreakMode, ZTTextAlignment alignment = ZTTextAlignment::Left);

// A one-line text shortened to a width in points, as measured by ztSizeWithFont.
// - A negative width or a null font: shortStringWithMaxLength with the width as a whole number.
// - Middle truncation: h = min(round(length / 2), round(width / width of "i" / 2)) UTF-16 units;
//   then repeatedly head = the first h - 1 units, tail = the last h - 1 units, the candidate is
//   head + "…" + tail, the text becomes head + tail and h = round(its length / 2), until a
//   candidate fits (or nothing is left to remove: a width too small even for "…" answers "…").
//   Answers the last candidate.
// - Tail truncation: avail = width - width of "…"; unit = width of the font's bounding box;
//   repeatedly over = current width - avail, n = round(over / unit); the last n units are dropped
//   (all of them when n exceeds the length or over is negative) and the text measured again,
//   while over > 0, n != 0 and some text is left. Answers the text + "…". The result can be
//   wider than `width` by less than half a bounding-box width.
// - Other modes, and a text that fits, are returned unchanged.
// Cuts never split a surrogate pair.
ZT_API std::string stringByBreakToWidth(std::string_view text, double width, ZTLineBreakMode lineBreakMode,
                                        const std::shared_ptr<ZTFont>& font);

}  // namespace zt
