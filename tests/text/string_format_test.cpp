#include "zentrel/text/string_format.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <sys/wait.h>

#include "zentrel/geometry/edge_insets.h"
#include "zentrel/geometry/line.h"
#include "zentrel/geometry/rect.h"

namespace {

using zt::copyZentrelStringWithFormat;
using zt::runtimeFormat;

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
  // "%%" followed by a conversion: the piece after the empty one is still a conversion (a compile
  // error in a literal format, so these are formats given at run time).
  EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat("%%d"), 12), "%12");
  EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat("Progress: %d%% done"), 5, 7), "Progress: 5% 7one");
  // Every empty piece but the last gives one "%": four "%" make three.
  EXPECT_EQ(copyZentrelStringWithFormat("%%%%"), "%%%");
  // The piece after "%%" is a conversion, or copied with its "%" when it is none.
  EXPECT_EQ(copyZentrelStringWithFormat("a%%b"), "a%%b");
  EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat("%%x"), 255), "%ff");
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

// Formats given at run time are checked when used (literal ones when compiled, see below).
TEST(FormatEngine, MismatchesInRunTimeFormatsAreClearErrors) {
  auto message = [](auto&& call) {
    try {
      call();
    } catch (const ZTFormatException& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  const std::string wrongKind =
      message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%d and %point"), 1, std::string("x")); });
  EXPECT_NE(wrongKind.find("%point"), std::string::npos) << wrongKind;
  EXPECT_NE(wrongKind.find("argument 2"), std::string::npos) << wrongKind;
  EXPECT_NE(wrongKind.find("std::string"), std::string::npos) << wrongKind;

  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%d %d"), 1); }).find("only 1"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%d"), 1, 2); }).find("2 arguments"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%s"), 3); }).find("%s"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%f"), "text"); }).find("number"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%5.1f"), "text"); }).find("number"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%n"), 1); }).find("%n"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%1$d"), 1); }).find("positional"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%999999999d"), 1); }).find("too large"), std::string::npos);
  EXPECT_NE(message([] { (void)copyZentrelStringWithFormat(runtimeFormat("%size"), ZTPoint{1, 2}); }).find("size"), std::string::npos);
  // A rectangle is not a point, even though it has x and y in some forms.
  struct FlatRect {
    double x, y, width, height;
  };
  EXPECT_EQ(copyZentrelStringWithFormat("%rect", FlatRect{1, 2, 3, 4}), "[(1.000000, 2.000000) 3.000000x4.000000]");
  EXPECT_THROW((void)copyZentrelStringWithFormat(runtimeFormat("%point"), FlatRect{1, 2, 3, 4}), ZTFormatException);
}

TEST(FormatEngine, ArgumentListFormAndLongFormats) {
  const int count = 3;
  EXPECT_EQ(zt::copyZentrelStringWithFormatArguments("%d-%s", {count, "x"}), "3-x");
  std::string longFormat;
  for (int i = 0; i < 1000; ++i) longFormat += "%%-";
  EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(longFormat)).size(), 3000u);
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
          EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(prefix + "l" + conversion + "|"), -1234LL), expected)
              << theirs;
          ++checked;
        }
        for (char conversion : std::string("xXou")) {
          const std::string theirs = prefix + "ll" + conversion + "|";
          std::snprintf(expected, sizeof expected, theirs.c_str(), 1234ULL);
          EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(prefix + "l" + conversion + "|"), 1234ULL), expected)
              << theirs;
          ++checked;
        }
        for (char conversion : std::string("eEgGaA")) {
          const std::string format = prefix + conversion + "|";
          std::snprintf(expected, sizeof expected, format.c_str(), -1234.5678);
          EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(format), -1234.5678), expected) << format;
          ++checked;
        }
      }
    }
  }
  EXPECT_EQ(checked, 8 * 3 * 3 * 12);
  // Strings take the "-" flag, the width and the precision.
  EXPECT_EQ(copyZentrelStringWithFormat("[%-7.3s]", "texts"), "[tex    ]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%7s]", std::string("texts")), "[  texts]");
}

// The engine writes numbers itself; these are the values where printf's rules have corners.
TEST(FormatEngine, NumbersAgreeWithTheCLibraryInTheCLocale) {
  const double values[] = {0.0,     -0.0,   1.0,     0.5,     -1234.5678, 9.9999999, 0.000123456, 1e-5,
                           123456789.0, 1e21, 1e300, DBL_MAX, DBL_MIN,    5e-324,    2.5,         0.125,
                           std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  const char* directives[] = {"%f",   "%F",   "%e",    "%E",   "%g",    "%G",   "%a",   "%A",    "%.0f",  "%#.0f",
                              "%.0e", "%#.0e", "%.3g", "%#g",  "%#.3g", "%.0g", "%.1a", "%.0a",  "%#.0a", "%+012.3f",
                              "% e",  "%-12g|", "%012g", "%012a", "%.20f", "%.17g", "%012F", "%+.1e", "%.30e",  "%5.1f"};
  char expected[512];
  for (const char* directive : directives) {
    for (double value : values) {
      std::snprintf(expected, sizeof expected, directive, value);
      EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(directive), value), expected) << directive << " " << value;
    }
  }
  const long long integers[] = {0, 1, -1, 42, -1234, INT64_MAX, INT64_MIN};
  const char* integerDirectives[] = {"%lld", "%+lld", "% lld", "%08lld", "%-8lld|", "%.0lld", "%.5lld", "%+.3lld",
                                     "%llx", "%#llx", "%#llX", "%#llo", "%#.0llo", "%#08llx", "%.0llx", "%'lld"};
  for (const char* directive : integerDirectives) {
    for (long long value : integers) {
      std::snprintf(expected, sizeof expected, directive, value);
      // Our length modifiers do not change the value's own type, so "l" or nothing reads the same.
      EXPECT_EQ(copyZentrelStringWithFormat(runtimeFormat(directive), value), expected) << directive << " " << value;
    }
  }
  // Large precisions are honoured, not cut.
  std::snprintf(expected, sizeof expected, "%.300f", 1e-300);
  EXPECT_EQ(copyZentrelStringWithFormat("%.300f", 1e-300), expected);
  EXPECT_EQ(copyZentrelStringWithFormat("%.1000000f", 1.0).size(), 1'000'002u);
}

TEST(FormatEngine, TextWidthsAndPrecisionsCountUTF16UnitsAndNeverSplitACharacter) {
  EXPECT_EQ(copyZentrelStringWithFormat("%.1@", std::string("éa")), "é");
  EXPECT_EQ(copyZentrelStringWithFormat("%.1s", "éa"), "é");
  EXPECT_EQ(copyZentrelStringWithFormat("[%.3@]", std::string("😀x")), "[😀x]") << "the emoji is two units";
  EXPECT_EQ(copyZentrelStringWithFormat("[%.1@]", std::string("😀")), "[]") << "half an emoji is no emoji";
  EXPECT_EQ(copyZentrelStringWithFormat("[%.2@]", std::string("a😀")), "[a]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%4@]", std::string("😀")), "[  😀]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%-4s]", "é"), "[é   ]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%3c]", U'€'), "[  €]");
  // Combining marks are units of their own, as everywhere in the library's lengths.
  EXPECT_EQ(copyZentrelStringWithFormat("[%.1s]", "e\u0301x"), "[e]");
  // Embedded NULs are text like any other.
  const std::string withNul("a\0b", 3);
  EXPECT_EQ(copyZentrelStringWithFormat("[%5s]", withNul), "[  " + withNul + "]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%.2s]", withNul), std::string("[a\0]", 4));
  // Invalid UTF-8 counts one unit per bad sequence and is copied as it is, never cut inside.
  const std::string invalid("\xE2\x82" "ab", 4);  // a truncated three-byte sequence, then "ab"
  EXPECT_EQ(copyZentrelStringWithFormat("[%.2s]", invalid), "[" + invalid.substr(0, 3) + "]");
  EXPECT_EQ(copyZentrelStringWithFormat("[%4s]", invalid), "[ " + invalid + "]");
  // A char array is read no further than its size, even without a terminating NUL.
  const char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_EQ(copyZentrelStringWithFormat("[%s]", unterminated), "[abc]");
}

TEST(FormatEngine, GeometryValuesDescribeThemselvesInTheirTextForms) {
  EXPECT_EQ(copyZentrelStringWithFormat("%@ in %@", ZTPoint{1, 2.5}, ZTRectMake(0, 0, 10, 1e300)),
            "{1, 2.5} in {{0, 0}, {10, 1e+300}}");
  EXPECT_EQ(copyZentrelStringWithFormat("%@ %@ %@", ZTSize{3, 4}, ZTEdgeInsetsNull, ZTLineMake({0, 0}, {1, 1})),
            "{3, 4} {inf, inf, inf, inf} {{0, 0}, {1, 1}}");
  EXPECT_EQ(copyZentrelStringWithFormat("[%12@]", ZTPoint{1, 2}), "[      {1, 2}]");
}

// ---- Locale independence -------------------------------------------------------------------

// A German numeric locale for this process: an installed one, or one generated with localedef
// into a temporary folder found through LOCPATH. nullopt (with the reason) when neither works.
std::optional<std::string> germanNumericLocale(std::string& why) {
  static std::string reason;
  static const std::optional<std::string> name = []() -> std::optional<std::string> {
    for (const char* candidate : {"de_DE.UTF-8", "de_DE.utf8"}) {
      if (std::setlocale(LC_NUMERIC, candidate)) {
        std::setlocale(LC_NUMERIC, "C");
        return candidate;
      }
    }
    if (!std::filesystem::exists("/usr/share/i18n/locales/de_DE")) {
      reason = "no de_DE locale is installed and the locale sources (package locales) are missing";
      return std::nullopt;
    }
    // A private folder for this process, removed when it exits.
    static struct Folder {
      char path[32] = "/tmp/zt-locale-XXXXXX";
      bool made = mkdtemp(path) != nullptr;
      ~Folder() {
        std::error_code ignored;
        if (made) std::filesystem::remove_all(path, ignored);
      }
    } temporary;
    if (!temporary.made) {
      reason = "no temporary folder";
      return std::nullopt;
    }
    const char* folder = temporary.path;
    const std::string target = std::string(folder) + "/de_DE.UTF-8";
    const std::string command = "localedef -i de_DE -f UTF-8 '" + target + "' >/dev/null 2>&1";
    const int status = std::system(command.c_str());
    if (status == -1 || !WIFEXITED(status) || (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != 1) ||
        !std::filesystem::exists(target)) {
      reason = "localedef could not generate de_DE.UTF-8";
      return std::nullopt;
    }
    setenv("LOCPATH", folder, 1);
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
      reason = "the generated de_DE.UTF-8 locale does not load";
      return std::nullopt;
    }
    std::setlocale(LC_NUMERIC, "C");
    return "de_DE.UTF-8";
  }();
  why = reason;
  return name;
}

// What every GTK application does at start: the user's locale for everything, here LC_NUMERIC
// German. Restored to "C" afterwards.
class GermanNumericLocale : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    const auto name = germanNumericLocale(why);
    if (!name) GTEST_SKIP() << "No German locale to test with: " << why;
    setenv("LC_NUMERIC", name->c_str(), 1);
    unsetenv("LC_ALL");
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 1.5);
    ASSERT_STREQ(probe, "1,5") << "the locale must really be German for the test to mean anything";
  }
  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    unsetenv("LC_NUMERIC");
  }
};

TEST_F(GermanNumericLocale, EveryConversionKeepsTheDecimalPoint) {
  EXPECT_EQ(copyZentrelStringWithFormat("%f vs %.2f vs %e", 3.5, 3.5, 3.5), "3.500000 vs 3.50 vs 3.500000e+00");
  EXPECT_EQ(copyZentrelStringWithFormat("%g %G %a %5.1F %point", 0.25, 1e-7, 1.5, 2.25, ZTPoint{0.5, 1}),
            "0.25 1E-07 0x1.8p+0   2.2 (0.500000, 1.000000)");
  EXPECT_EQ(copyZentrelStringWithFormat("%'d %'.2f %@", 1234567, 1234.5, 0.5), "1234567 1234.50 0.5");
}

}  // namespace

// ---- Literal formats are checked when the program is compiled ------------------------------

namespace {

using zt::format_detail::checkFormat;
using zt::format_detail::FormatProblem;

template <class... Args>
constexpr FormatProblem problemOf(std::string_view format) {
  return checkFormat<Args...>(format).problem;
}

enum class Colour { Red };

// The check reads formats exactly as the engine does.
static_assert(problemOf<ZTPoint, int>("%point at %d%%") == FormatProblem::None);
static_assert(problemOf<ZTRect, ZTSize, const char*>("%frame %sizes %s") == FormatProblem::None);
static_assert(problemOf<int, int, double>("[%*.*f]") == FormatProblem::None);
static_assert(problemOf<Colour, std::size_t, char>("%d %lu %c") == FormatProblem::None);
static_assert(problemOf<>("a%%.b, %! and 100%%") == FormatProblem::None);
static_assert(problemOf<>("100%% and more") == FormatProblem::ConversionAfterPercents);  // "% a" is %a
static_assert(problemOf<std::string>("%@%class") == FormatProblem::TooFewArguments);
static_assert(problemOf<std::string>("%d items") == FormatProblem::WrongArgument);
static_assert(problemOf<double>("%s") == FormatProblem::WrongArgument);
static_assert(problemOf<ZTPoint>("%size") == FormatProblem::WrongArgument);
static_assert(problemOf<double, double>("[%*f]") == FormatProblem::WrongArgument);  // a width is an integer
static_assert(problemOf<int, int>("%d") == FormatProblem::TooManyArguments);
static_assert(problemOf<int>("Progress: %d%% done") == FormatProblem::ConversionAfterPercents);
static_assert(problemOf<int>("%%d") == FormatProblem::ConversionAfterPercents);
static_assert(problemOf<int>("%1$d") == FormatProblem::Positional);
static_assert(problemOf<int*>("%n") == FormatProblem::Count);
static_assert(problemOf<int>("%2000000d") == FormatProblem::TooLarge);
static_assert(checkFormat<int, std::string>("ok %d, bad %d").argument == 2);
static_assert(checkFormat<int, std::string>("ok %d, bad %d").offset == 11);

// The compiler this test was built with, run on small programs: one that must compile, and one
// whose every line marked "// error: <name>" must be refused with that name.
struct Compiler {
  std::string command;  // compiler and flags, up to the source file
  std::string skipReason;
};

Compiler findCompiler() {
  // CTest gives the tests folder; run by hand, the presets' build/<name>/tests is three levels in.
  std::filesystem::path include;
  std::error_code ignored;
  if (const char* sourceDir = std::getenv("ZT_TEST_SOURCE_DIR")) {
    include = std::filesystem::path(sourceDir) / ".." / "include";
  } else {
    include = std::filesystem::canonical("/proc/self/exe", ignored).parent_path() / ".." / ".." / ".." / "include";
  }
  if (!std::filesystem::exists(include / "zentrel/text/string_format.h", ignored)) {
    return {"", "the library's headers were not found (run through ctest, which sets ZT_TEST_SOURCE_DIR)"};
  }
#if defined(__clang__)
  const char* compiler = "clang++";
#else
  const char* compiler = "g++";
#endif
  if (std::system((std::string("command -v ") + compiler + " >/dev/null 2>&1").c_str()) != 0) {
    return {"", std::string(compiler) + " is not on the PATH"};
  }
  return {std::string(compiler) + " -std=c++20 -fsyntax-only -I'" + include.string() + "' ", ""};
}

struct Compilation {
  bool succeeded;
  std::string diagnostics;
};

Compilation compile(const Compiler& compiler, const std::string& name, const std::string& source) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / ("zt-format-check-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::filesystem::path file = folder / (name + ".cpp");
  const std::filesystem::path log = folder / (name + ".log");
  {
    std::FILE* out = std::fopen(file.c_str(), "w");
    std::fputs(source.c_str(), out);
    std::fclose(out);
  }
  const int status = std::system((compiler.command + "'" + file.string() + "' >'" + log.string() + "' 2>&1").c_str());
  std::string diagnostics;
  if (std::FILE* in = std::fopen(log.c_str(), "r")) {
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, in)) > 0;) diagnostics.append(buffer, n);
    std::fclose(in);
  }
  std::filesystem::remove_all(folder);
  return {status == 0, diagnostics};
}

TEST(FormatEngineCompileTimeCheck, MistakesInLiteralFormatsDoNotCompile) {
  static const Compiler compiler = findCompiler();
  if (!compiler.skipReason.empty()) GTEST_SKIP() << compiler.skipReason;
  const std::string prelude = "#include \"zentrel/text/string_format.h\"\n#include <string>\nvoid f(int n, std::string s) {\n";
  // Cached for repeated runs: each compilation takes seconds.
  static const Compilation good = compile(compiler, "good",
      prelude + "  (void)zt::copyZentrelStringWithFormat(\"%d of %s: %5.1f%%\", n, s, 2.5);\n"
                "  (void)zt::copyZentrelStringWithFormat(zt::runtimeFormat(s), n);\n}\n");
  ASSERT_TRUE(good.succeeded) << "a correct program must compile, or the test proves nothing:\n" << good.diagnostics;

  const char* mistakes[][2] = {
      {"  (void)zt::copyZentrelStringWithFormat(\"%d items\", s);", "anArgumentDoesNotMatchItsConversion"},
      {"  (void)zt::copyZentrelStringWithFormat(\"Progress: %d%% done\", n);",
       "percentPercentIsFollowedByAConversion"},
      {"  (void)zt::copyZentrelStringWithFormat(\"%d and %d\", n);", "theFormatHasMoreConversionsThanArguments"},
      {"  (void)zt::copyZentrelStringWithFormat(\"%d\", n, s);", "theFormatHasFewerConversionsThanArguments"},
      {"  (void)zt::copyZentrelStringWithFormat(s, n);", nullptr},  // a run-time text needs runtimeFormat
  };
  std::string source = prelude;
  for (const auto& mistake : mistakes) source += std::string(mistake[0]) + "\n";
  source += "}\n";
  static const Compilation bad = compile(compiler, "bad", source);
  EXPECT_FALSE(bad.succeeded);
  // Each line's diagnostics run from the first mention of "bad.cpp:<line>:" to that of the next
  // line; GCC and Clang both name the failing check function in them.
  auto mentionOf = [&](std::size_t line) { return bad.diagnostics.find("bad.cpp:" + std::to_string(line) + ":"); };
  for (std::size_t i = 0; i < std::size(mistakes); ++i) {
    const std::size_t line = 4 + i;  // after the prelude's three lines
    const std::size_t begin = mentionOf(line);
    ASSERT_NE(begin, std::string::npos) << "nothing said about line " << line << ":\n" << bad.diagnostics;
    const std::string said = bad.diagnostics.substr(begin, mentionOf(line + 1) - begin);
    EXPECT_NE(said.find("error"), std::string::npos) << mistakes[i][0] << "\n" << said;
    if (mistakes[i][1]) {
      EXPECT_NE(said.find(mistakes[i][1]), std::string::npos) << mistakes[i][1] << "\n" << said;
    }
  }
}

}  // namespace
