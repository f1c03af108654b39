#include "zentrel/text/string_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "zentrel/geometry/rect.h"

namespace {

using zt::copyZentrelStringWithFormat;

struct Widget {
  virtual ~Widget() = default;
};
struct FancyWidget : Widget {};

struct Temperature {
  double celsius;
  std::string description() const { return std::to_string(static_cast<int>(celsius)) + " C"; }
};

struct PlainRange {
  std::uint64_t location;
  std::uint64_t length;
};

TEST(FormatEngine, GeometryAndRangeConversionsUseFixedTexts) {
  EXPECT_EQ(copyZentrelStringWithFormat("%point at %d%%", ZTPoint{1, 2}, 7), "(1.000000, 2.000000) at 7%");
  EXPECT_EQ(copyZentrelStringWithFormat("%size", ZTSize{3.5, -4}), "3.500000x-4.000000");
  EXPECT_EQ(copyZentrelStringWithFormat("%rect|%frame", ZTRect{{1, 2}, {3, 4}}, ZTRect{{0, 0}, {0.25, 1}}),
            "[(1.000000, 2.000000) 3.000000x4.000000]|[(0.000000, 0.000000) 0.250000x1.000000]");
  EXPECT_EQ(copyZentrelStringWithFormat("%range", PlainRange{3, 4}), "[3 +4]");
  EXPECT_EQ(copyZentrelStringWithFormat("%range", PlainRange{UINT64_MAX, 0}), "[18446744073709551615 +0]");
}

TEST(FormatEngine, PrefixOrderDecidesWhichConversionMatches) {
  // "frame" before "f", "size" before "s", "point" before "p", "class" before "c".
  EXPECT_EQ(copyZentrelStringWithFormat("%framed", ZTRect{{1, 1}, {1, 1}}),
            "[(1.000000, 1.000000) 1.000000x1.000000]d");
  EXPECT_EQ(copyZentrelStringWithFormat("%fr", 1.5), "1.500000r");
  EXPECT_EQ(copyZentrelStringWithFormat("%sizes", ZTSize{1, 2}), "1.000000x2.000000s");
  EXPECT_EQ(copyZentrelStringWithFormat("%six", "ab"), "abix");
  EXPECT_EQ(copyZentrelStringWithFormat("%classX", std::string("text")), "std::stringX");
  EXPECT_EQ(copyZentrelStringWithFormat("%cl", 'Z'), "Zl");
  // The rest of a piece after its prefix is copied as text.
  EXPECT_EQ(copyZentrelStringWithFormat("%dth of %u", 4, 5u), "4th of 5");
}

TEST(FormatEngine, PercentRules) {
  EXPECT_EQ(copyZentrelStringWithFormat("100%%"), "100%");
  EXPECT_EQ(copyZentrelStringWithFormat("a%%.b"), "a%%.b");
  // A lone "%" at the very end prints nothing.
  EXPECT_EQ(copyZentrelStringWithFormat("50%"), "50");
  EXPECT_EQ(copyZentrelStringWithFormat("%"), "");
  // "%%" followed by a conversion: the piece after the empty one is still a conversion.
  EXPECT_EQ(copyZentrelStringWithFormat("%%d", 12), "%12");
  // Every empty piece but the last gives one "%": four "%" make three.
  EXPECT_EQ(copyZentrelStringWithFormat("%%%%"), "%%%");
  // The piece after "%%" is a conversion, or copied with its "%" when it is none.
  EXPECT_EQ(copyZentrelStringWithFormat("a%%b"), "a%%b");
  EXPECT_EQ(copyZentrelStringWithFormat("%%x", 255), "%ff");
  EXPECT_EQ(copyZentrelStringWithFormat("no conversions"), "no conversions");
  EXPECT_EQ(copyZentrelStringWithFormat(""), "");
}

TEST(FormatEngine, TableConversionsMatchPrintfTexts) {
  char expected[128];
  std::snprintf(expected, sizeof expected, "%d %u %lld %f %s %c", -42, 42u, -1234567890123LL, 3.14159, "str", 'q');
  EXPECT_EQ(copyZentrelStringWithFormat("%d %u %lld %f %s %c", -42, 42u, -1234567890123LL, 3.14159, "str", 'q'),
            expected);
  EXPECT_EQ(copyZentrelStringWithFormat("%f", 1e20), "100000000000000000000.000000");
  EXPECT_EQ(copyZentrelStringWithFormat("%f", -0.0000004), "-0.000000");
  EXPECT_EQ(copyZentrelStringWithFormat("%f %f", 1.0 / 0.0, -1.0 / 0.0), "inf -inf");
  // %u of a negative value wraps at the width of the argument's own type, as C does for int.
  EXPECT_EQ(copyZentrelStringWithFormat("%u", -1), "4294967295");
  EXPECT_EQ(copyZentrelStringWithFormat("%d", UINT64_MAX), "18446744073709551615");
}

TEST(FormatEngine, PointersCharactersAndTexts) {
  int value = 0;
  char expected[32];
  std::snprintf(expected, sizeof expected, "%p", static_cast<void*>(&value));
  EXPECT_EQ(copyZentrelStringWithFormat("%p", &value), expected);
  EXPECT_EQ(copyZentrelStringWithFormat("%p", nullptr), "0x0");
  const char* none = nullptr;
  EXPECT_EQ(copyZentrelStringWithFormat("[%s]", none), "[(null)]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%s]", std::string_view("view")), "[view]");
  EXPECT_EQ(copyZentrelStringWithFormat("%c%c", U'é', 0x1F600), "é😀");
  EXPECT_EQ(copyZentrelStringWithFormat("%c", static_cast<char>(0xE9)), "é");
}

TEST(FormatEngine, ObjectsAndClassNames) {
  auto widget = std::make_shared<FancyWidget>();
  const Widget* base = widget.get();
  EXPECT_NE(copyZentrelStringWithFormat("%class", base).find("FancyWidget"), std::string::npos);
  EXPECT_EQ(copyZentrelStringWithFormat("%class", std::shared_ptr<Widget>()), "(null)");
  EXPECT_EQ(copyZentrelStringWithFormat("%@ / %@", Temperature{21}, std::string("plain")), "21 C / plain");
  EXPECT_EQ(copyZentrelStringWithFormat("%@ %@ %@", 42, 2.5, true), "42 2.5 1");
  EXPECT_EQ(copyZentrelStringWithFormat("%@", ZTValue("text")), "text");
  const Temperature* missing = nullptr;
  EXPECT_EQ(copyZentrelStringWithFormat("%@", missing), "(null)");
  auto held = std::make_shared<Temperature>(Temperature{5});
  EXPECT_EQ(copyZentrelStringWithFormat("%@", held), "5 C");
  // A type with no description of its own reads as "<Type: address>".
  const std::string opaque = copyZentrelStringWithFormat("%@", PlainRange{1, 2});
  EXPECT_EQ(opaque.rfind("<", 0), 0u);
  EXPECT_NE(opaque.find("PlainRange: 0x"), std::string::npos);
}

TEST(FormatEngine, OtherConversionsGoThroughPrintfAndAdvanceTheArguments) {
  char expected[128];
  std::snprintf(expected, sizeof expected, "%5.2f|%-4s|%08x|%ld|%+d|%e", 3.14159, "ab", 255u, 123456789012L, 5, 0.5);
  EXPECT_EQ(copyZentrelStringWithFormat("%5.2f|%-4s|%08x|%ld|%+d|%e", 3.14159, "ab", 255u, 123456789012L, 5, 0.5),
            expected);
  // Each printf conversion takes exactly its own arguments: the one after it gets the next.
  EXPECT_EQ(copyZentrelStringWithFormat("%.1f then %d then %s", 2.25, 9, "end"), "2.2 then 9 then end");
  // "*" widths and precisions take an argument each, before the value.
  std::snprintf(expected, sizeof expected, "[%*d][%-*d][%.*f]", 6, 42, 4, 7, 2, 1.23456);
  EXPECT_EQ(copyZentrelStringWithFormat("[%*d][%-*d][%.*f]", 6, 42, 4, 7, 2, 1.23456), expected);
  EXPECT_EQ(copyZentrelStringWithFormat("[%*d]", -5, 1), "[1    ]");
  EXPECT_EQ(copyZentrelStringWithFormat("%lu items", std::size_t{3}), "3 items");
  EXPECT_EQ(copyZentrelStringWithFormat("%X", -1), "FFFFFFFF");
  EXPECT_EQ(copyZentrelStringWithFormat("%5@|", std::string("ab")), "   ab|");
  // Not a conversion at all: copied as it stands, no argument taken.
  EXPECT_EQ(copyZentrelStringWithFormat("50%! %d", 1), "50%! 1");
}

TEST(FormatEngine, MismatchesAreClearErrors) {
  auto message = [](auto&& call) {
    try {
      call();
    } catch (const ZTFormatException& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  const std::string wrongKind =
      message([] { (void)copyZentrelStringWithFormat("%d and %point", 1, std::string("x")); });
  EXPECT_NE(wrongKind.find("%point"), std::string::npos) << wrongKind;
  EXPECT_NE(wrongKind.find("argument 2"), std::string::npos) << wrongKind;
  EXPECT_NE(wrongKind.find("std::string"), std::string::npos) << wrongKind;

  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%d %d", 1); }).find("only 1"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%d", 1, 2); }).find("2 arguments"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%s", 3); }).find("%s"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%f", "text"); }).find("number"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%5.1f", "text"); }).find("number"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%n", 1); }).find("%n"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%1$d", 1); }).find("positional"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%999999999d", 1); }).find("too large"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat("%size", ZTPoint{1, 2}); }).find("size"), std::string::npos);
  // A rectangle is not a point, even though it has x and y in some forms.
  struct FlatRect {
    double x, y, width, height;
  };
  EXPECT_EQ(copyZentrelStringWithFormat("%rect", FlatRect{1, 2, 3, 4}), "[(1.000000, 2.000000) 3.000000x4.000000]");
  EXPECT_THROW((void)copyZentrelStringWithFormat("%point", FlatRect{1, 2, 3, 4}), ZTFormatException);
}

TEST(FormatEngine, ArgumentListFormAndLongFormats) {
  const int count = 3;
  EXPECT_EQ(zt::copyZentrelStringWithFormatArguments("%d-%s", {count, "x"}), "3-x");
  std::string longFormat;
  for (int i = 0; i < 1000; ++i) longFormat += "%%-";
  EXPECT_EQ(copyZentrelStringWithFormat(longFormat).size(), 3000u);
  const std::string big(1 << 20, 'a');
  EXPECT_EQ(copyZentrelStringWithFormat("<%s>", big).size(), big.size() + 2);
}

}  // namespace

namespace {

// Every combination of flags, width and precision the parser must hand on unchanged.
TEST(FormatEngine, PrintfDirectivesAgreeWithSnprintf) {
  const char* flags[] = {"", "-", "+", " ", "#", "0", "-+", "0#"};
  const char* widths[] = {"", "1", "9"};
  const char* precisions[] = {"", ".0", ".3"};
  char expected[128];
  int checked = 0;
  for (const char* flag : flags) {
    for (const char* width : widths) {
      for (const char* precision : precisions) {
        const std::string prefix = std::string("%") + flag + width + precision;
        for (char conversion : std::string("di")) {
          const std::string theirs = prefix + "ll" + conversion + "|";
          std::snprintf(expected, sizeof expected, theirs.c_str(), -1234LL);
          EXPECT_EQ(copyZentrelStringWithFormat(prefix + "l" + conversion + "|", -1234LL), expected) << theirs;
          ++checked;
        }
        for (char conversion : std::string("xXou")) {
          const std::string theirs = prefix + "ll" + conversion + "|";
          std::snprintf(expected, sizeof expected, theirs.c_str(), 1234ULL);
          EXPECT_EQ(copyZentrelStringWithFormat(prefix + "l" + conversion + "|", 1234ULL), expected) << theirs;
          ++checked;
        }
        for (char conversion : std::string("eEgGaA")) {
          const std::string format = prefix + conversion + "|";
          std::snprintf(expected, sizeof expected, format.c_str(), -1234.5678);
          EXPECT_EQ(copyZentrelStringWithFormat(format, -1234.5678), expected) << format;
          ++checked;
        }
      }
    }
  }
  EXPECT_EQ(checked, 8 * 3 * 3 * 12);
  // Strings take the "-" flag, the width and the precision (in bytes).
  EXPECT_EQ(copyZentrelStringWithFormat("[%-7.3s]", "texts"), "[tex    ]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%7s]", std::string("texts")), "[  texts]");
}

}  // namespace
