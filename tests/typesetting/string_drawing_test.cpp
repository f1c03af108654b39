#include "zentrel/typesetting/string_drawing.h"

#include <cairo.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
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

std::string sentences(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += "The quick brown fox jumps over the lazy dog. ";
  return text;
}

// The result of fn, run on a thread of its own, if it comes within the limit; nullopt if not (the
// thread is then left behind, still running, and the test has failed).
template <typename T>
std::optional<T> returnsWithin(std::chrono::milliseconds limit, std::function<T()> fn) {
  struct Outcome {
    std::mutex mutex;
    std::condition_variable done;
    std::optional<T> value;
  };
  auto outcome = std::make_shared<Outcome>();
  std::thread([outcome, fn = std::move(fn)] {
    T value = fn();
    std::lock_guard lock(outcome->mutex);
    outcome->value = std::move(value);
    outcome->done.notify_all();
  }).detach();
  std::unique_lock lock(outcome->mutex);
  outcome->done.wait_for(lock, limit, [&] { return outcome->value.has_value(); });
  return outcome->value;
}

// Counts the warnings and criticals that GLib-based libraries (Pango, GObject) log while it lives:
// a desktop application run with G_DEBUG=fatal-warnings would abort on any of them. GLib takes one
// log writer per process; it is installed on first use and passes every message on.
class GLibWarnings {
 public:
  GLibWarnings() : start_(total().load()) {
    static std::once_flag installed;
    std::call_once(installed, [] { g_log_set_writer_func(write, nullptr, nullptr); });
  }
  int count() const { return total().load() - start_; }

 private:
  static std::atomic<int>& total() {
    static std::atomic<int> counter{0};
    return counter;
  }
  static GLogWriterOutput write(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer data) {
    if (level & (G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL)) ++total();
    return g_log_writer_default(level, fields, count, data);
  }
  int start_;
};

// A font of the family, or nullptr when fontconfig chose another (the family is not installed).
std::shared_ptr<ZTFont> installedFont(const std::string& family, double size) {
  auto font = ZTFont::create(family, size);
  return font && font->familyName() == family ? font : nullptr;
}

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
  EXPECT_NEAR(twice->advanceWidth("Hello"), 2 * font->advanceWidth("Hello"), 0.01);
  EXPECT_GT(font->advanceWidth("WWW"), font->advanceWidth("iii"));
  EXPECT_DOUBLE_EQ(font->advanceWidth(""), 0);
  // Invalid UTF-8 is measured, not rejected.
  EXPECT_GT(font->advanceWidth("\xFF\xFE"), 0);

  auto system = ZTFont::systemFontOfSize(12);
  ASSERT_TRUE(system);
  EXPECT_DOUBLE_EQ(system->pointSize(), 12);
}

TEST(Font, SizesNoFontEngineRendersAreRefused) {
  for (double size : {0.0, -12.0, std::nan(""), HUGE_VAL, 0.05, 10000.5, 1e5, 1e300}) {
    ZTError error;
    EXPECT_FALSE(ZTFont::create("sans-serif", size, &error)) << size;
    EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
    EXPECT_EQ(error.code(), 1024);
    // The error says what the limits are.
    EXPECT_NE(error.localizedDescription().find("10000"), std::string::npos) << error.localizedDescription();
  }
  // The limits themselves are sizes a font may have, and it measures at them.
  for (double size : {ZTFont::kMinimumPointSize, ZTFont::kMaximumPointSize}) {
    auto font = testFont(size);
    ASSERT_TRUE(font) << size;
    const double width = font->advanceWidth("Hello");
    EXPECT_GT(width, size) << size;
    EXPECT_LT(width, 5 * size) << size;
  }
}

TEST(Font, CharactersTheFontLacksComeFromAFallbackFont) {
  // Debian's emoji font; scripts/install-deps installs it.
  auto emoji = installedFont("Noto Color Emoji", 40);
  if (!emoji) GTEST_SKIP() << "no Noto Color Emoji font installed";
  auto font = testFont(40);
  ASSERT_TRUE(font);
  // Measured with the emoji font's glyph, not the text font's missing-glyph box.
  EXPECT_NEAR(font->advanceWidth("🎉"), emoji->advanceWidth("🎉"), 0.01);
  EXPECT_NEAR(font->advanceWidth("a🎉b"), font->advanceWidth("ab") + emoji->advanceWidth("🎉"), 0.5);
  EXPECT_EQ(ztSizeWithFont("🎉", font).width, std::ceil(emoji->advanceWidth("🎉")));
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

TEST(BreakToWidth, WidthsTooSmallForTheEllipsisEndTheProcedure) {
  // With a monospace font and width 0, the tail procedure's overshoot stays the width of "…" once
  // the text is empty; it must end there all the same.
  std::vector<std::shared_ptr<ZTFont>> fonts = {testFont(12), ZTFont::create("monospace", 12),
                                                ZTFont::create("monospace", 40)};
  if (auto mono = installedFont("DejaVu Sans Mono", 9)) fonts.push_back(mono);
  for (const auto& font : fonts) {
    ASSERT_TRUE(font);
    for (const std::string text : {"abc", "a", "😀😀😀", "Lorem ipsum dolor sit amet, consectetur adipiscing"}) {
      for (double width : {0.0, 0.5, 1.0, widthOf("\u2026", font) - 1}) {
        if (widthOf(text, font) <= width) continue;  // fits: returned unchanged
        for (auto mode : {ZTLineBreakMode::ByTruncatingTail, ZTLineBreakMode::ByTruncatingMiddle}) {
          const auto result = returnsWithin<std::string>(std::chrono::seconds(5), [=] {
            return stringByBreakToWidth(text, width, mode, font);
          });
          ASSERT_TRUE(result) << font->familyName() << " " << font->pointSize() << ": \"" << text << "\" to " << width
                              << " in mode " << static_cast<int>(mode) << " does not return";
          ASSERT_NE(result->find("\u2026"), std::string::npos) << *result;
          // What is kept comes from the text, and is at most what half a bounding box holds.
          const std::string kept = result->substr(0, result->find("\u2026"));
          EXPECT_TRUE(text.starts_with(kept)) << *result;
          if (mode == ZTLineBreakMode::ByTruncatingTail) {
            EXPECT_LT(widthOf(kept, font), font->boundingBox().size.width / 2 + 1) << *result;
          }
        }
      }
    }
  }
}

TEST(BreakToWidth, InvisibleCharactersAtTheEndTakeNoMeasurementEach) {
  // Each turn of the tail procedure drops over / bounding-box width units; when they have no
  // width the overshoot stays and the next turn drops as many again: 20,000 zero-width spaces
  // once took that many measurements of the whole text.
  auto font = testFont(13);
  ASSERT_TRUE(font);
  std::string text(60, 'W');
  for (int i = 0; i < 20000; ++i) text += "\u200B";
  const auto result = returnsWithin<std::string>(std::chrono::seconds(3), [=] {
    return stringByBreakToWidth(text, 300, ZTLineBreakMode::ByTruncatingTail, font);
  });
  ASSERT_TRUE(result) << "tail truncation of 20,000 zero-width spaces takes more than 3 s";
  // What the procedure keeps: as many W as leave an overshoot below half a bounding box.
  ASSERT_TRUE(result->ends_with("\u2026"));
  const std::string kept = result->substr(0, result->size() - 3);
  EXPECT_TRUE(text.starts_with(kept));
  EXPECT_EQ(kept.find("\u200B"), std::string::npos);
  EXPECT_LT(widthOf(*result, font), 300 + font->boundingBox().size.width / 2 + 1);
  EXPECT_GT(widthOf(*result, font) + font->boundingBox().size.width, 299);
}

TEST(BreakToWidth, NegativeWidthOrNoFontShortensByLength) {
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  EXPECT_EQ(stringByBreakToWidth(thirty, 20.7, ZTLineBreakMode::ByTruncatingTail, nullptr),
            shortStringWithMaxLength(thirty, 20));
  EXPECT_EQ(stringByBreakToWidth(thirty, -1, ZTLineBreakMode::ByTruncatingMiddle, testFont()),
            shortStringWithMaxLength(thirty, -1));
  EXPECT_EQ(stringByBreakToWidth("", 50, ZTLineBreakMode::ByTruncatingTail, testFont()), "");
}

TEST(TextSize, WrappingAParagraphTakesOneLayoutWhateverTheWidth) {
  auto font = testFont(13);
  ASSERT_TRUE(font);
  const std::string paragraph = sentences(24 * 1024 / 45);
  const ZTSize unlimited = ztSizeWithFont(paragraph, font, ZTSize{0, 0});
  // Widths that leave the paragraph on one line (the largest double included) and widths that
  // break it into a few very long lines: each was once laid out again at every break opportunity.
  for (double width : {1e9, DBL_MAX, 1e6, 50000.0, 20000.0}) {
    const auto start = std::chrono::steady_clock::now();
    const auto size =
        returnsWithin<ZTSize>(std::chrono::seconds(3), [=] { return ztSizeWithFont(paragraph, font, ZTSize{width, 0}); });
    ASSERT_TRUE(size) << "wrapping 24 KB at width " << width << " takes more than 3 s";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    if (width >= unlimited.width) {
      EXPECT_EQ(size->width, unlimited.width) << width;
      EXPECT_EQ(size->height, std::ceil(font->lineHeight())) << width;
    } else {
      const double lines = size->height / font->lineHeight();
      EXPECT_LE(size->width, width);
      EXPECT_GE(lines, std::floor(unlimited.width / width)) << width;
      EXPECT_LE(lines, std::ceil(unlimited.width / width) + 1) << width;
    }
  }
}

TEST(TextSize, LongParagraphsAreMeasuredAndWrappedExactly) {
  auto font = testFont(13);
  ASSERT_TRUE(font);
  const std::string sentence = sentences(1);
  const double sentenceWidth = font->advanceWidth(sentence);
  // 3,000 sentences on one line: some 3.2 million points, more than one Pango layout holds.
  const std::string paragraph = sentences(3000);
  EXPECT_NEAR(ztSizeWithFont(paragraph, font).width, 3000 * sentenceWidth, 3000 * sentenceWidth * 1e-4);
  EXPECT_NEAR(font->advanceWidth(paragraph), 3000 * sentenceWidth, 3000 * sentenceWidth * 1e-4);
  // The largest size on a shorter line.
  auto huge = testFont(ZTFont::kMaximumPointSize);
  ASSERT_TRUE(huge);
  const double hugeSentence = huge->advanceWidth(sentence);
  EXPECT_NEAR(huge->advanceWidth(sentences(40)), 40 * hugeSentence, 40 * hugeSentence * 1e-4);
  EXPECT_NEAR(ztSizeWithFont(sentences(40), huge).width, 40 * hugeSentence, 40 * hugeSentence * 1e-3 + 1);
  // Wrapped where each sentence just fits on a line (its final space hangs): exactly one line per
  // sentence, however the paragraph is cut up to be laid out.
  const double lineWidth = font->advanceWidth(sentence.substr(0, sentence.size() - 1)) + 0.5;
  const ZTSize wrapped = ztSizeWithFont(paragraph, font, ZTSize{lineWidth, 0});
  EXPECT_EQ(wrapped.height, std::ceil(3000 * font->lineHeight()));
  EXPECT_LE(wrapped.width, std::ceil(lineWidth));
  // Only the lines asked for are laid out; truncated, a long line keeps its ends.
  EXPECT_EQ(ztSizeWithFont(paragraph, font, ZTSize{lineWidth, 2.5 * font->lineHeight()}).height,
            std::ceil(2 * font->lineHeight()));
  for (auto mode : {ZTLineBreakMode::ByTruncatingHead, ZTLineBreakMode::ByTruncatingMiddle,
                    ZTLineBreakMode::ByTruncatingTail}) {
    const ZTSize truncated = ztSizeWithFont(paragraph, font, 300, mode);
    EXPECT_LE(truncated.width, 300);
    EXPECT_GT(truncated.width, 250);
  }
}

TEST(TextSize, BadTextIsMeasuredAsReplacementCharactersWithoutWarnings) {
  auto font = testFont();
  ASSERT_TRUE(font);
  GLibWarnings warnings;
  const std::string bad("a\0b\xFF\xC3 \xE2\x82 \xED\xA0\x80z", 13);
  const std::string replaced = "a\uFFFDb\uFFFD\uFFFD \uFFFD \uFFFD\uFFFD\uFFFDz";
  EXPECT_EQ(ztSizeWithFont(bad, font).width, ztSizeWithFont(replaced, font).width);
  EXPECT_NEAR(font->advanceWidth(bad), font->advanceWidth(replaced), 1e-9);
  EXPECT_GT(ztSizeWithFont(std::string(1000, '\0'), font, ZTSize{50, 0}).height, font->lineHeight());
  // Pango cuts a text at a NUL without a word, and warns of other bad bytes.
  EXPECT_EQ(ztSizeWithFont("x\xFF\xFEy", font, 100, ZTLineBreakMode::ByTruncatingTail).width,
            ztSizeWithFont("x\uFFFD\uFFFDy", font).width);
  EXPECT_EQ(warnings.count(), 0);
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

// Whether any pixel of the canvas is coloured (its channels differ), as colour emoji are.
bool hasColour(Canvas& canvas, int width, int height) {
  cairo_surface_flush(canvas.surface);
  const unsigned char* data = cairo_image_surface_get_data(canvas.surface);
  const int stride = cairo_image_surface_get_stride(canvas.surface);
  for (int y = 0; y < height; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
    for (int x = 0; x < width; ++x) {
      const int r = (row[x] >> 16) & 0xFF, g = (row[x] >> 8) & 0xFF, b = row[x] & 0xFF;
      if (std::abs(r - g) > 40 || std::abs(g - b) > 40 || std::abs(r - b) > 40) return true;
    }
  }
  return false;
}

TEST(Drawing, EmojiAreDrawnInColourFromTheirFont) {
  if (!installedFont("Noto Color Emoji", 12)) GTEST_SKIP() << "no Noto Color Emoji font installed";
  auto font = testFont(40);
  ASSERT_TRUE(font);
  Canvas canvas(200, 100);
  EXPECT_GT(ztDrawInRect("x🎉", canvas.context, ZTRect{{0, 0}, {200, 100}}, font, ZTLineBreakMode::ByClipping).width, 0);
  EXPECT_TRUE(hasColour(canvas, 200, 100));
  EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
}

TEST(Drawing, RightToLeftParagraphsAlignToTheirOwnSide) {
  auto font = testFont(16);
  ASSERT_TRUE(font);
  const std::string hebrew = "\u05E9\u05DC\u05D5\u05DD \u05E2\u05D5\u05DC\u05DD";  // "hello world"
  for (auto alignment : {ZTTextAlignment::Natural, ZTTextAlignment::Justified}) {
    Canvas canvas(400, 60);
    ztDrawInRect(hebrew, canvas.context, ZTRect{{0, 0}, {400, 60}}, font, ZTLineBreakMode::ByWordWrapping, alignment);
    EXPECT_TRUE(canvas.inked(250, 0, 400, 60));
    EXPECT_FALSE(canvas.inked(0, 0, 250, 60));
  }
  {
    Canvas canvas(400, 60);
    ztDrawInRect("Natural", canvas.context, ZTRect{{0, 0}, {400, 60}}, font, ZTLineBreakMode::ByWordWrapping,
                 ZTTextAlignment::Natural);
    EXPECT_TRUE(canvas.inked(0, 0, 150, 60));
    EXPECT_FALSE(canvas.inked(150, 0, 400, 60));
  }
  {
    Canvas canvas(400, 60);
    ztDrawInRect(hebrew, canvas.context, ZTRect{{0, 0}, {400, 60}}, font, ZTLineBreakMode::ByWordWrapping,
                 ZTTextAlignment::Left);
    EXPECT_TRUE(canvas.inked(0, 0, 150, 60));
    EXPECT_FALSE(canvas.inked(150, 0, 400, 60));
  }
}

// The state a drawing call must give back as it found it.
struct ContextState {
  explicit ContextState(cairo_t* context)
      : source(cairo_get_source(context)), face(cairo_get_font_face(context)), status(cairo_status(context)) {
    cairo_get_matrix(context, &matrix);
    cairo_get_current_point(context, &x, &y);
  }
  bool operator==(const ContextState& other) const {
    return std::memcmp(&matrix, &other.matrix, sizeof matrix) == 0 && source == other.source &&
           face == other.face && status == other.status && x == other.x && y == other.y;
  }
  cairo_matrix_t matrix;
  cairo_pattern_t* source;
  cairo_font_face_t* face;
  cairo_status_t status;
  double x = 0;
  double y = 0;
};

TEST(Drawing, TextTooLargeOrSmallForTheDeviceLeavesTheContextUsable) {
  GLibWarnings warnings;
  struct Case {
    const char* what;
    double pointSize;
    double scale;
    const char* text;
  };
  const Case cases[] = {
      {"100 pt on a x700 canvas", 100, 700, "Hi"},
      {"the largest font on a x7 canvas", ZTFont::kMaximumPointSize, 7, "Hi"},
      {"colour emoji at 10,000 pixels per em", ZTFont::kMaximumPointSize, 1, "Hi \U0001F389"},
      {"colour emoji at a thousandth of a pixel per em", 12, 0.0001, "\U0001F389"},
  };
  for (const Case& c : cases) {
    auto font = testFont(c.pointSize);
    ASSERT_TRUE(font);
    Canvas canvas(100, 100);
    cairo_scale(canvas.context, c.scale, c.scale);
    const ContextState before(canvas.context);
    const ZTSize drawn = ztDrawInRect(c.text, canvas.context, ZTRect{{0, 0}, {HUGE_VAL, HUGE_VAL}}, font,
                                      ZTLineBreakMode::ByClipping);
    EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS) << c.what;
    EXPECT_TRUE(ContextState(canvas.context) == before) << c.what;
    EXPECT_EQ(drawn.width, 0) << c.what;
    EXPECT_FALSE(canvas.inked(0, 0, 100, 100)) << c.what;
    // The context still draws.
    cairo_identity_matrix(canvas.context);
    EXPECT_GT(ztDrawInRect("ok", canvas.context, ZTRect{{10, 10}, {80, 80}}, testFont(20), ZTLineBreakMode::ByClipping)
                  .width,
              0)
        << c.what;
    EXPECT_TRUE(canvas.inked(10, 10, 90, 90)) << c.what;
  }
  {
    // A device scale counts as much as the user-space scale.
    auto font = testFont(ZTFont::kMaximumPointSize);
    Canvas canvas(100, 100);
    cairo_surface_set_device_scale(canvas.surface, 8, 8);
    EXPECT_EQ(ztDrawInRect("Hi", canvas.context, ZTRect{{0, 0}, {0, 0}}, font, ZTLineBreakMode::ByClipping).width, 0);
    EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
  }
  {
    // Outline glyphs at the largest size draw, in a few milliseconds.
    auto font = testFont(ZTFont::kMaximumPointSize);
    Canvas canvas(100, 100);
    EXPECT_GT(ztDrawInRect("H", canvas.context, ZTRect{{-1000, -9000}, {0, 0}}, font, ZTLineBreakMode::ByClipping).width,
              0);
    EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
    EXPECT_TRUE(canvas.inked(0, 0, 100, 100));
  }
  {
    // Far-away rectangles draw nothing visible and break nothing.
    auto font = testFont(12);
    Canvas canvas(100, 100);
    for (double far : {1e300, -1e300, 1e15, 1e8}) {
      ztDrawInRect("far", canvas.context, ZTRect{{far, far}, {far, 50}}, font, ZTLineBreakMode::ByWordWrapping,
                   ZTTextAlignment::Center);
      EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS) << far;
    }
  }
  EXPECT_EQ(warnings.count(), 0);
}

TEST(Drawing, LongLinesDrawWhatTheClipShows) {
  auto font = testFont(13);
  ASSERT_TRUE(font);
  // A line far longer than one Pango layout holds: drawn from its start, piece by piece.
  const std::string paragraph = sentences(3000);
  Canvas canvas(300, 40);
  const ZTSize drawn = ztDrawInRect(paragraph, canvas.context, ZTRect{{0, 0}, {HUGE_VAL, 40}}, font,
                                    ZTLineBreakMode::ByClipping);
  EXPECT_EQ(drawn.width, ztSizeWithFont(paragraph, font).width);
  EXPECT_TRUE(canvas.inked(0, 0, 30, 40));
  EXPECT_TRUE(canvas.inked(270, 0, 300, 40));
  EXPECT_EQ(cairo_status(canvas.context), CAIRO_STATUS_SUCCESS);
  {
    // More text than a drawing keeps laid out at once (it is laid out again as it is drawn), in
    // paragraphs, wrapped, without a height limit: every line counts, the first ones show.
    const std::string text = sentences(800) + "\n\n" + sentences(800);
    Canvas tall(300, 100);
    const ZTSize size = ztDrawInRect(text, tall.context, ZTRect{{0, 0}, {300, 0}}, font, ZTLineBreakMode::ByWordWrapping);
    EXPECT_EQ(size.height, ztSizeWithFont(text, font, ZTSize{300, 0}).height);
    EXPECT_GT(size.height, 1600 * font->lineHeight());
    EXPECT_TRUE(tall.inked(0, 0, 100, 100));
    EXPECT_EQ(cairo_status(tall.context), CAIRO_STATUS_SUCCESS);
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

TEST(Concurrency, ShortLivedThreadsMeasureAndDraw) {
  auto font = testFont();
  ASSERT_TRUE(font);
  const double expected = ztSizeWithFont("Measured on a thread 😀", font).width;
  std::atomic<int> mismatches{0};
  for (int round = 0; round < 4; ++round) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&] {
        if (ztSizeWithFont("Measured on a thread 😀", font).width != expected) ++mismatches;
        Canvas canvas(200, 40);
        if (ztDrawInRect("Drawn on a thread", canvas.context, ZTRect{{0, 0}, {200, 40}}, font,
                         ZTLineBreakMode::ByWordWrapping)
                .width <= 0) {
          ++mismatches;
        }
      });
    }
    for (auto& thread : threads) thread.join();
  }
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
