#pragma once
// Lines of text laid out by Pango, for measuring and drawing (string_drawing.cpp) and for a font's
// advance width (font.cpp).
//
// Each thread has its own Pango contexts (Pango's font maps and contexts are per thread); a
// TextLayout and the lines it hands out belong to the thread that made them.
//
// Pango counts lengths in 1/1024 of a point in 32-bit integers, so no single layout may be wider
// than about 2,000,000 points. Width limits above kMaximumLineWidth therefore mean no limit, and a
// paragraph longer than a piece (a length that cannot reach 500,000 points at the font's size) is
// laid out in pieces: an unwrapped line is measured (and drawn) piece after piece, a wrapped one
// chunk after chunk with the unfinished last line carried into the next chunk, and a truncated
// one from just the pieces at the ends that the ellipsis leaves.

#include <pango/pango.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/typesetting/font.h"
#include "zentrel/typesetting/string_drawing.h"

namespace zt::internal {

inline constexpr double kMaximumLineWidth = 1e6;

// A reference to a Pango layout, given back when it goes.
struct LayoutRelease {
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};
using LayoutRef = std::unique_ptr<PangoLayout, LayoutRelease>;

// The text as Pango takes it: valid UTF-8 without NUL. Each invalid sequence (a maximal subpart,
// as ICU counts them) and each NUL becomes U+FFFD. Views the original when it needs no change.
class CleanText {
 public:
  explicit CleanText(std::string_view text);
  CleanText(const CleanText&) = delete;
  CleanText& operator=(const CleanText&) = delete;
  std::string_view view() const { return view_; }

 private:
  std::string storage_;
  std::string_view view_;
};

// One line of the layout. `layoutLine` is the line as Pango laid it out, valid while the visit
// lasts (or while a reference to `layout` is held); for a long unwrapped line it is null and the
// line is `pieces`, to be laid out and drawn one after the other.
struct LaidLine {
  double width = 0;            // in points; in the wrapping modes without the white space at its end
  double hangingWidth = 0;     // the width of that white space, which hangs outside the line
  bool rightToLeft = false;    // the line's direction (its paragraph's, for pieces)
  bool paragraphRightToLeft = false;
  PangoLayout* layout = nullptr;
  PangoLayoutLine* layoutLine = nullptr;
  std::vector<std::string_view> pieces;  // views into the text given to run()
};

class TextLayout {
 public:
  // A width limit of 0 or less, NaN, or above kMaximumLineWidth sets none.
  TextLayout(const ZTFont& font, double maxWidth, ZTLineBreakMode mode);
  ~TextLayout();
  TextLayout(const TextLayout&) = delete;
  TextLayout& operator=(const TextLayout&) = delete;

  // Lays out the clean text and hands over its first `maxLines` lines in order; an empty text has
  // none, an empty paragraph one line of width 0.
  void run(std::string_view text, std::size_t maxLines, const std::function<void(const LaidLine&)>& visit);

  // Every font the visited lines use, each with a reference held until this layout goes.
  void collectFonts(bool collect) { collectFonts_ = collect; }
  const std::vector<PangoFont*>& fonts() const { return fonts_; }

  // One piece of a long unwrapped line, laid out on one line. In a single paragraph, line break
  // characters are characters.
  LayoutRef layOutPiece(std::string_view piece, bool rightToLeft, bool singleParagraph = false) const;

 private:
  LayoutRef newLayout(bool rightToLeft) const;
  bool layParagraph(std::string_view paragraph, std::size_t maxLines, std::size_t& emitted,
                    const std::function<void(const LaidLine&)>& visit);
  bool wrapping() const {
    return mode_ == ZTLineBreakMode::ByWordWrapping || mode_ == ZTLineBreakMode::ByCharWrapping;
  }
  void emitLine(PangoLayout* layout, PangoLayoutLine* line, bool paragraphRightToLeft,
                const std::function<void(const LaidLine&)>& visit);
  void noteFonts(PangoLayoutLine* line);
  std::vector<std::string_view> pieces(std::string_view paragraph) const;
  double pieceWidth(std::string_view piece, bool rightToLeft);

  const ZTFont& font_;
  double maxWidth_;  // 0: no limit
  ZTLineBreakMode mode_;
  std::size_t pieceBytes_;
  bool collectFonts_ = false;
  std::vector<PangoFont*> fonts_;
};

// The advance width of the text as one line, line break characters included as characters.
double advanceWidth(const ZTFont& font, std::string_view text);

}  // namespace zt::internal
