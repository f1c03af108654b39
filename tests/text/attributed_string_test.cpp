// Attributed strings and the marker mark-up: runs over UTF-16 ranges.

#include "zentrel/text/attributed_string.h"

#include <gtest/gtest.h>

#include "zentrel/platform/exceptions.h"
#include "zentrel/text/attributed_string_formatter.h"

namespace {

using TextRun = ZTAttributedString::Run;

ZTValue bold() {
  ZTValue attributes;
  attributes["bold"] = true;
  return attributes;
}

ZTValue plain() { return ZTValue::dictionary(); }

TEST(MarkerFormatting, PairsOfMarkersPutTheAttributesBetweenThem) {
  const auto result = ZTAttributedStringFormatter::applyFormattingToAttributedString(ZTAttributedString("a~b~c"), "~", bold());
  EXPECT_EQ(result.string(), "abc");
  EXPECT_EQ(result.runs(), (std::vector<TextRun>{{0, 1, plain()}, {1, 1, bold()}, {2, 1, plain()}}));

  const auto two = ZTAttributedStringFormatter::applyFormattingToAttributedString(
      ZTAttributedString("**one** and **two**"), "**", bold());
  EXPECT_EQ(two.string(), "one and two");
  EXPECT_EQ(two.runs(), (std::vector<TextRun>{{0, 3, bold()}, {3, 5, plain()}, {8, 3, bold()}}));
}

TEST(MarkerFormatting, AnUnpairedMarkerCancelsEverything) {
  const ZTAttributedString input("a~b~c~d");
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(input, "~", bold()), input);
  const ZTAttributedString none("no markers");
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(none, "~", bold()), none);
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(input, "", bold()), input);
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(ZTAttributedString(), "~", bold()),
            ZTAttributedString());
}

TEST(MarkerFormatting, RangesCountUTF16UnitsAndExistingAttributesStay) {
  ZTValue italic;
  italic["italic"] = true;
  const ZTAttributedString input("😀~ok~!", italic);
  const auto result = ZTAttributedStringFormatter::applyFormattingToAttributedString(input, "~", bold());
  EXPECT_EQ(result.string(), "😀ok!");
  ZTValue both = italic;
  both["bold"] = true;
  EXPECT_EQ(result.runs(), (std::vector<TextRun>{{0, 2, italic}, {2, 2, both}, {4, 1, italic}}));
  // Adjacent markers make an empty pair; a marker of several characters outside the BMP works too.
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(ZTAttributedString("x~~y"), "~", bold()).runs(),
            (std::vector<TextRun>{{0, 2, plain()}}));
  EXPECT_EQ(ZTAttributedStringFormatter::applyFormattingToAttributedString(ZTAttributedString("🔥a🔥b"), "🔥", bold()).runs(),
            (std::vector<TextRun>{{0, 1, bold()}, {1, 1, plain()}}));
}

TEST(AttributedString, RunsCoverTheTextAndMerge) {
  ZTAttributedString text("hello world");
  text.addAttributes(bold(), 0, 5);
  text.addAttributes(bold(), 5, 1);
  EXPECT_EQ(text.runs(), (std::vector<TextRun>{{0, 6, bold()}, {6, 5, plain()}}));
  TextRun run;
  EXPECT_EQ(text.attributesAtIndex(7, &run), plain());
  EXPECT_EQ(run, (TextRun{6, 5, plain()}));
  text.setAttributes(ZTValue(), 0, 11);
  EXPECT_EQ(text, ZTAttributedString("hello world"));
  text.deleteCharactersInRange(5, 6);
  EXPECT_EQ(text.string(), "hello");
  text.append(ZTAttributedString("!", bold()));
  EXPECT_EQ(text.runs(), (std::vector<TextRun>{{0, 5, plain()}, {5, 1, bold()}}));
}

TEST(AttributedString, BadRangesThrowAndBadTextIsRepaired) {
  ZTAttributedString text("a😀b");
  EXPECT_EQ(text.length(), 4u);
  EXPECT_THROW(text.addAttributes(bold(), 2, 1), ZTRangeException) << "inside a surrogate pair";
  EXPECT_THROW(text.addAttributes(bold(), 3, 2), ZTRangeException);
  EXPECT_THROW(text.deleteCharactersInRange(~0ull, 2), ZTRangeException);
  EXPECT_THROW((void)text.attributesAtIndex(4), ZTRangeException);
  EXPECT_EQ(text.string(), "a😀b");
  const ZTAttributedString broken("a\xff" "b");
  EXPECT_EQ(broken.string(), "a\uFFFD" "b");
  EXPECT_EQ(broken.length(), 3u);
}

}  // namespace
