#include "zentrel/typesetting/string_drawing.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/platform/utf16.h"
#include "zentrel/text/character_set.h"
#include "zentrel/text/string_utilities.h"

namespace {

using namespace zt;

// Whatever sans-serif font fontconfig picks on this machine: the tests compare the font with
// itself, never with fixed widths of one particular font.
std::shared_ptr<ZTFont> testFont(double size = 14) {
  ZTError error;
  auto font = ZTFont::create("sans-serif", size, &error);
  EXPECT_TRUE(font) << error.localizedDescription();
  return font;
}

double widthOf(const std::string& text, const std::shared_ptr<ZTFont>& font) {
  return ztSizeWithFont(text, font).width;
}

std::size_t utf16Units(const std::string& text) { return zt::utf16Length(text); }

TEST(Font, FoundThroughFontconfigWithMetrics) {
  auto font = testFont(12);
  ASSERT_TRUE(font);
  EXPECT_FALSE(font->familyName().empty());
  EXPECT_FALSE(font->filePath().empty());
  EXPECT_DOUBLE_EQ(font->pointSize(), 12);
  EXPECT_GT(font->ascender(), 0);
  EXPECT_LT(font->descender(), 0);
  EXPECT_GE(font->lineHeight(), font->ascender() - font->descender() - 1e-9);
  EXPECT_GT(font->boundingBox().size.width, 0);
  // Widths scale with the size.
  auto twice = testFont(24);
  ASSERT_TRUE(twice);
  EXPECT_NEAR(twice->advanceWidth("Hello"), 2 * font->advanceWidth("Hello"), 1e-6);
  EXPECT_GT(font->advanceWidth("WWW"), font->advanceWidth("iii"));
  EXPECT_DOUBLE_EQ(font->advanceWidth(""), 0);
  // Invalid UTF-8 is measured, not rejected.
  EXPECT_GT(font->advanceWidth("\xFF\xFE"), 0);

  auto system = ZTFont::systemFontOfSize(12);
  ASSERT_TRUE(system);
  EXPECT_DOUBLE_EQ(system->pointSize(), 12);
  ZTError error;
  EXPECT_FALSE(ZTFont::create("sans-serif", 0, &error));
  EXPECT_FALSE(error.localizedDescription().empty());
  EXPECT_FALSE(ZTFont::create("sans-serif", std::nan(""), nullptr));
}

TEST(TextSize, RoundedUpAndLaidOutInLines) {
  auto font = testFont();
  ASSERT_TRUE(font);
  const ZTSize one = ztSizeWithFont("Hello, world", font);
  EXPECT_EQ(one.width, std::ceil(font->advanceWidth("Hello, world")));
  EXPECT_EQ(one.height, std::ceil(font->lineHeight()));
  const ZTSize two = ztSizeWithFont("Hello\r\nworld, again", font);
  EXPECT_EQ(two.height, std::ceil(2 * font->lineHeight()));
  EXPECT_EQ(two.width, std::ceil(font->advanceWidth("world, again")));
  EXPECT_EQ(ztSizeWithFont("", font).width, 0);
  // A null font is the system font of size 12.
  EXPECT_EQ(ztSizeWithFont("abc", nullptr).width, ztSizeWithFont("abc", ZTFont::systemFontOfSize(12)).width);
}

TEST(TextSize, WrappingWithinAWidth) {
  auto font = testFont();
  ASSERT_TRUE(font);
  const std::string text = "the quick brown fox jumps over the lazy dog";
  const double wordWidth = font->advanceWidth("the quick brown");
  const ZTSize wrapped = ztSizeWithFont(text, font, ZTSize{wordWidth + 1, 1000});
  EXPECT_LE(wrapped.width, std::ceil(wordWidth + 1));
  EXPECT_GE(wrapped.height, std::ceil(3 * font->lineHeight()));
  // Only the lines that fit in the height count, but always one.
  const ZTSize clipped = ztSizeWithFont(text, font, ZTSize{wordWidth + 1, font->lineHeight() * 2.5});
  EXPECT_EQ(clipped.height, std::ceil(2 * font->lineHeight()));
  EXPECT_EQ(ztSizeWithFont(text, font, ZTSize{wordWidth + 1, 1}).height, std::ceil(font->lineHeight()));
  // A word wider than the line is broken between characters; no line exceeds the width.
  const ZTSize longWord = ztSizeWithFont("Donaudampfschifffahrtsgesellschaft", font, ZTSize{40, 1000});
  EXPECT_LE(longWord.width, 40);
  EXPECT_GT(longWord.height, 3 * font->lineHeight());
  // The single-line form truncates instead of wrapping.
  const ZTSize tail = ztSizeWithFont(text, font, 100, ZTLineBreakMode::ByTruncatingTail);
  EXPECT_LE(tail.width, 100);
  EXPECT_EQ(tail.height, std::ceil(font->lineHeight()));
}

TEST(BreakToWidth, TailTruncationFollowsTheMeasuredAlgorithm) {
  auto font = testFont();
  ASSERT_TRUE(font);
  std::string line;
  for (int i = 0; i < 10; ++i) line += "Lorem ipsum dolor sit amet. ";
  const double limit = 150;
  const std::string result = stringByBreakToWidth(line, limit, ZTLineBreakMode::ByTruncatingTail, font);
  ASSERT_TRUE(result.ends_with("\u2026"));
  const std::string kept = result.substr(0, result.size() - 3);
  EXPECT_TRUE(line.starts_with(kept));
  // The result may pass the limit, but by less than half a bounding-box width.
  EXPECT_LT(widthOf(result, font), limit + font->boundingBox().size.width / 2 + 1);
  // And it is not needlessly short: one more bounding box of text would not have fitted.
  EXPECT_GT(widthOf(result, font) + font->boundingBox().size.width, limit - 1);
  // Text that fits, and other modes, are left alone.
  EXPECT_EQ(stringByBreakToWidth("short", limit, ZTLineBreakMode::ByTruncatingTail, font), "short");
  EXPECT_EQ(stringByBreakToWidth(line, limit, ZTLineBreakMode::ByWordWrapping, font), line);
  EXPECT_EQ(stringByBreakToWidth(line, limit, ZTLineBreakMode::ByClipping, font), line);
}

TEST(BreakToWidth, MiddleTruncationKeepsBothEndsAndFits) {
  auto font = testFont();
  ASSERT_TRUE(font);
  std::string line = "BEGIN";
  for (int i = 0; i < 40; ++i) line += " middle";
  line += " END";
  const double limit = 200;
  const std::string result = stringByBreakToWidth(line, limit, ZTLineBreakMode::ByTruncatingMiddle, font);
  const std::size_t ellipsis = result.find("\u2026");
  ASSERT_NE(ellipsis, std::string::npos);
  EXPECT_TRUE(result.starts_with("BEGIN"));
  EXPECT_TRUE(result.ends_with(" END"));
  EXPECT_LE(widthOf(result, font), limit);
  // Head and tail keep the same number of UTF-16 units.
  EXPECT_EQ(utf16Units(result.substr(0, ellipsis)), utf16Units(result.substr(ellipsis + 3)));
  // A width too small for anything but the ellipsis.
  EXPECT_EQ(stringByBreakToWidth(line, 1, ZTLineBreakMode::ByTruncatingMiddle, font), "\u2026");
}

TEST(BreakToWidth, SurrogatePairsAndCombiningMarksSurviveTheCuts) {
  auto font = testFont();
  ASSERT_TRUE(font);
  std::string line;
  for (int i = 0; i < 60; ++i) line += "a😀e\u0301";
  for (auto mode : {ZTLineBreakMode::ByTruncatingMiddle, ZTLineBreakMode::ByTruncatingTail}) {
    const std::string result = stringByBreakToWidth(line, 120, mode, font);
    EXPECT_NE(result.find("\u2026"), std::string::npos);
    // Valid UTF-8 throughout: no half of a surrogate pair was left behind (it would be U+FFFD).
    EXPECT_EQ(result.find("\uFFFD"), std::string::npos);
    std::string copy = result;
    EXPECT_EQ(replaceString(copy, "\xED", ""), 0u);  // no encoded lone surrogate either
  }
}

TEST(BreakToWidth, NegativeWidthOrNoFontShortensByLength) {
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  EXPECT_EQ(stringByBreakToWidth(thirty, 20.7, ZTLineBreakMode::ByTruncatingTail, nullptr),
            shortStringWithMaxLength(thirty, 20));
  EXPECT_EQ(stringByBreakToWidth(thirty, -1, ZTLineBreakMode::ByTruncatingMiddle, testFont()),
            shortStringWithMaxLength(thirty, -1));
  EXPECT_EQ(stringByBreakToWidth("", 50, ZTLineBreakMode::ByTruncatingTail, testFont()), "");
}

struct Canvas {
  explicit Canvas(int width, int height)
      : surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)), context(cairo_create(surface)) {
    cairo_set_source_rgb(context, 1, 1, 1);
    cairo_paint(context);
    cairo_set_source_rgb(context, 0, 0, 0);
  }
  ~Canvas() {
    cairo_destroy(context);
    cairo_surface_destroy(surface);
  }
  // Columns [x0, x1) and rows [y0, y1) that hold any non-white pixel.
  bool inked(int x0, int y0, int x1, int y1) {
    cairo_surface_flush(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int y = y0; y < y1; ++y) {
      const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
      for (int x = x0; x < x1; ++x) {
        if ((row[x] & 0xFFFFFF) != 0xFFFFFF) return true;
      }
    }
    return false;
  }
  cairo_surface_t* surface;
  cairo_t* context;
};

TEST(Drawing, InkStaysInTheRectangleAndFollowsTheAlignment) {
  auto font = testFont(16);
  ASSERT_TRUE(font);
  {
    Canvas canvas(400, 100);
    const ZTSize drawn = ztDrawInRect("Left", canvas.context, ZTRect{{10, 10}, {300, 40}}, font,
                                      ZTLineBreakMode::ByClipping, ZTTextAlignment::Left);
    EXPECT_GT(drawn.width, 0);
    EXPECT_TRUE(canvas.inked(10, 10, 160, 50));
    EXPECT_FALSE(canvas.inked(160, 0, 400, 100));
    EXPECT_FALSE(canvas.inked(0, 50, 400, 100));
  }
  {
    Canvas canvas(400, 100);
    ztDrawInRect("Right", canvas.context, ZTRect{{10, 10}, {300, 40}}, font, ZTLineBreakMode::ByClipping,
                 ZTTextAlignment::Right);
    EXPECT_TRUE(canvas.inked(160, 10, 310, 50));
    EXPECT_FALSE(canvas.inked(0, 0, 160, 100));
  }
  {
    // Clipped to the rectangle: a long line stops at its edge.
    Canvas canvas(400, 100);
    ztDrawInRect("WWWWWWWWWWWWWWWWWWWWWWWWWWWWWW", canvas.context, ZTRect{{0, 0}, {100, 50}}, font,
                 ZTLineBreakMode::ByClipping);
    EXPECT_TRUE(canvas.inked(0, 0, 100, 50));
    EXPECT_FALSE(canvas.inked(100, 0, 400, 100));
  }
  {
    // Wrapped lines beyond the rectangle's height are not drawn.
    Canvas canvas(200, 200);
    const ZTSize drawn =
        ztDrawInRect("one two three four five six seven eight nine ten", canvas.context,
                     ZTRect{{0, 0}, {60, font->lineHeight() * 2}}, font, ZTLineBreakMode::ByWordWrapping);
    EXPECT_EQ(drawn.height, std::ceil(2 * font->lineHeight()));
    EXPECT_FALSE(canvas.inked(0, static_cast<int>(std::ceil(font->lineHeight() * 2)), 200, 200));
  }
  EXPECT_EQ(ztDrawInRect("x", nullptr, ZTRect{{0, 0}, {10, 10}}, font, ZTLineBreakMode::ByClipping).width, 0);
  {
    // Nonsense rectangles draw nothing and leave the caller's context usable.
    Canvas canvas(100, 100);
    const double nan = std::nan("");
    EXPECT_EQ(ztDrawInRect("x", canvas.context, ZTRect{{nan, 0}, {10, 10}}, font, ZTLineBreakMode::ByClipping).width,
              0);
    EXPECT_EQ(ztDrawInRect("x", canvas.context, ZTRect{{0, 0}, {nan, 10}}, font, ZTLineBreakMode::ByClipping).width, 0);
    EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
    EXPECT_FALSE(canvas.inked(0, 0, 100, 100));
    // An unlimited rectangle draws every line, unclipped.
    const ZTSize drawn =
        ztDrawInRect("a\nb\nc", canvas.context, ZTRect{{0, 0}, {INFINITY, 0}}, font, ZTLineBreakMode::ByWordWrapping);
    EXPECT_EQ(drawn.height, std::ceil(3 * font->lineHeight()));
    EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
    EXPECT_TRUE(canvas.inked(0, static_cast<int>(2 * font->lineHeight()), 100, 100));
  }
}

TEST(Concurrency, OneFontAndTheSharedSetsServeManyThreads) {
  auto font = testFont();
  ASSERT_TRUE(font);
  std::string line;
  for (int i = 0; i < 8; ++i) line += "Concurrent text 😀 measured. ";
  const std::string expected = stringByBreakToWidth(line, 120, ZTLineBreakMode::ByTruncatingTail, font);
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        if (stringByBreakToWidth(line, 120, ZTLineBreakMode::ByTruncatingTail, font) != expected) ++mismatches[t];
        if (!emojiCharacterSet().contains(U'😀')) ++mismatches[t];
        if (trim("  x ") != "x") ++mismatches[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int m : mismatches) EXPECT_EQ(m, 0);
}

}  // namespace
