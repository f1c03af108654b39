#include "zentrel/text/string_utilities.h"

#include <gtest/gtest.h>

#include <unicode/unistr.h>

#include <chrono>

#include "zentrel/text/email.h"
#include "zentrel/text/version_compare.h"

namespace {

using namespace zt;

TEST(StringSlashes, DeleteOneSlashOnlyFromTextsOfTwoOrMore) {
  EXPECT_EQ(stringByDeletingLastSlash("/a/b/"), "/a/b");
  EXPECT_EQ(stringByDeletingLastSlash("a//"), "a/");
  EXPECT_EQ(stringByDeletingLastSlash("/"), "/");
  EXPECT_EQ(stringByDeletingLastSlash(""), "");
  EXPECT_EQ(stringByDeletingFirstSlash("/a"), "a");
  EXPECT_EQ(stringByDeletingFirstSlash("/"), "/");
  EXPECT_EQ(stringByDeletingPrivate("/private/var/folders/x"), "/var/folders/x");
  EXPECT_EQ(stringByDeletingPrivate("/tmp/private"), "/tmp/private");
}

TEST(FileNameCharacters, IllegalOnesAreRemovedAndColonsReplaced) {
  EXPECT_EQ(stringByDeletingIllegalFileNameChararacters("a/b\\c?d%e*f|g\"h<i>j,k:é"), "abcdefghijk:é");
  EXPECT_EQ(stringByNormalizingSuspiciousFileNameChararacters("12:30:00 é"), "12_30_00 é");
  EXPECT_EQ(ZTStringWithBool(true), "YES");
  EXPECT_EQ(stringWithBool(false), "NO");
}

TEST(Trimming, WhiteSpaceAndNewlinesAreDistinguished) {
  EXPECT_EQ(trim(" \t\u00A0text  \u3000"), "text");
  EXPECT_EQ(trim("\n text \n"), "\n text \n");
  EXPECT_EQ(stringByTrimmingWhitespaceAndNewline("\r\n\t text\u2028\u0085 "), "text");
  EXPECT_EQ(stringByTrimmingWhitespaceAndNewline("   "), "");
  EXPECT_EQ(stringByReplacingNewlineCharactersWithSpace("a\nb\r\nc\u2029d"), "a b  c d");
  EXPECT_EQ(stringByReplacingNewlineCharactersWithSpace(""), "");
  // Invalid UTF-8 is kept out of the trimming but does not stop it.
  EXPECT_EQ(trim(" \xFF "), "\xFF");
}

TEST(CharacterSets, ReplacementAndLastCharacterTests) {
  const auto vowels = ZTCharacterSet::withCharactersInString("aeioué");
  EXPECT_EQ(stringByReplacingCharactersInSet("beautiful café", vowels, "_"), "b___t_f_l c_f_");
  EXPECT_EQ(stringByReplacingCharactersInSet("aa", vowels, ""), "");
  EXPECT_TRUE(endsWithCharacterFromSet("café", vowels));
  EXPECT_FALSE(endsWithCharacterFromSet("cafe!", vowels));
  EXPECT_FALSE(endsWithCharacterFromSet("", vowels));
  EXPECT_TRUE(endsWithCharacterFromSet("smile 😀", emojiCharacterSet()));
  EXPECT_FALSE(endsWithCharacterFromSet("x", ZTCharacterSet()));

  EXPECT_TRUE(emojiCharacterSet().contains(U'😀'));
  EXPECT_TRUE(emojiCharacterSet().contains(U'\u2764'));      // heavy black heart
  EXPECT_TRUE(emojiCharacterSet().contains(U'\U0001F1FA'));  // regional indicator U
  EXPECT_TRUE(emojiCharacterSet().contains(U'\U0001F3FD'));  // skin tone modifier
  EXPECT_FALSE(emojiCharacterSet().contains(U'1'));
  EXPECT_FALSE(emojiCharacterSet().contains(U'#'));
  EXPECT_FALSE(emojiCharacterSet().contains(U'A'));
  EXPECT_GT(emojiCharacterSet().count(), 1000u);

  ZTError error;
  EXPECT_FALSE(ZTCharacterSet::withPattern("[a-", &error));
  EXPECT_NE(error.localizedDescription().find("[a-"), std::string::npos);
  auto inverted = ZTCharacterSet::withRange(U'a', 26).inverted();
  EXPECT_FALSE(inverted.contains(U'q'));
  EXPECT_TRUE(inverted.contains(U'Q'));
  // A copy is independent of the set it came from.
  ZTCharacterSet copy = vowels;
  copy.addRange(U'x', U'z');
  EXPECT_TRUE(copy.contains(U'y'));
  EXPECT_FALSE(vowels.contains(U'y'));
}

TEST(ShortString, CountsUtf16UnitsAndNeverSplitsASurrogatePair) {
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  // 0 means 25: 25/2 - 3 = 9 units, "...", the last 12 units.
  EXPECT_EQ(shortStringWithMaxLength(thirty, 0), "abcdefghi...stuvwxyz0123");
  EXPECT_EQ(shortStringWithMaxLength(thirty, 30), thirty);
  EXPECT_EQ(shortStringWithMaxLength("short", 10), "short");
  // Twelve emoji are 24 UTF-16 units: longer than 20, so head 7 units, tail 10 units. Seven units
  // would end inside the fourth emoji: the head keeps three.
  std::string emoji;
  for (int i = 0; i < 12; ++i) emoji += "😀";
  std::string expected = "😀😀😀...😀😀😀😀😀";
  EXPECT_EQ(shortStringWithMaxLength(emoji, 20), expected);
  // A combining mark counts as its own unit: "é" written e + U+0301 is 2 units.
  std::string decomposed;
  for (int i = 0; i < 10; ++i) decomposed += "e\u0301";  // 20 units, 30 bytes
  EXPECT_EQ(shortStringWithMaxLength(decomposed, 20), decomposed);
  EXPECT_EQ(shortStringWithMaxLength(decomposed, 19), "e\u0301e\u0301e\u0301...\u0301e\u0301e\u0301e\u0301e\u0301");
  // Very small limits leave no head.
  EXPECT_EQ(shortStringWithMaxLength("abcdefgh", 4), "...gh");
  EXPECT_EQ(shortStringWithMaxLength("abcdefgh", -3), "...");
}

TEST(Searching, PlainAndCaseInsensitive) {
  EXPECT_TRUE(hasString("Hello world", "o w"));
  EXPECT_FALSE(hasString("Hello world", "O W"));
  EXPECT_FALSE(hasString("Hello", ""));
  EXPECT_TRUE(hasStringInsensitive("Hello World", "o w"));
  EXPECT_TRUE(hasStringInsensitive("Die Straße", "STRASSE"));
  EXPECT_TRUE(hasStringInsensitive("ΣΊΣΥΦΟΣ", "σίσυφος"));
  EXPECT_FALSE(hasStringInsensitive("abc", "abcd"));
  // Matches begin and end on whole characters: ß folds to "ss", but half of it is not an "s".
  EXPECT_TRUE(hasStringInsensitive("Maße", "SS"));
  EXPECT_FALSE(hasStringInsensitive("Maße", "as"));
  EXPECT_TRUE(hasStringInsensitive("x😀Y", "😀y"));
  EXPECT_TRUE(hasStringInsensitive("ﬁne", "FINE")) << "the ligature folds to two letters";
  EXPECT_FALSE(hasStringInsensitive("ﬁne", "ine"));
  EXPECT_TRUE(hasContent("x"));
  EXPECT_FALSE(hasContent(""));
}

TEST(Searching, CaseInsensitiveSearchOfLargeTextsFoldsOnce) {
  // 8 MiB with the needle at the very end: one folding of the whole text, one search, at the speed
  // of doing just that with ICU. Folding every character into a string of its own was eleven times
  // slower and took hundreds of megabytes.
  std::string text;
  text.reserve((8u << 20) + 32);
  while (text.size() < (8u << 20)) text += "Die Straße ist LANG und ";
  text += "das Ende der Straße";
  const std::string needle = "Das ENDE der STRASSE";
  auto seconds = [](auto&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  bool found = false;
  const double ours = seconds([&] { found = hasStringInsensitive(text, needle); });
  EXPECT_TRUE(found);
  const double icuAlone = seconds([&] {
    icu::UnicodeString folded = icu::UnicodeString::fromUTF8(text);
    icu::UnicodeString target = icu::UnicodeString::fromUTF8(needle);
    EXPECT_GE(folded.foldCase().indexOf(target.foldCase()), 0);
  });
  EXPECT_LT(ours, 4 * icuAlone + 0.05) << ours << " s against " << icuAlone << " s for ICU alone";
}

TEST(Joining, ExactlyOneSeparator) {
  EXPECT_EQ(stringByAppendingURLComponent("http://a/", "/b"), "http://a/b");
  EXPECT_EQ(stringByAppendingURLComponent("http://a/", "b"), "http://a/b");
  EXPECT_EQ(stringByAppendingURLComponent("http://a", "/b"), "http://a/b");
  EXPECT_EQ(stringByAppendingURLComponent("http://a", "b"), "http://a/b");
  EXPECT_EQ(stringByAppendingURLComponent("http://a", ""), "http://a");
  EXPECT_EQ(stringByAppendingURLExtension("file", "txt"), "file.txt");
  EXPECT_EQ(stringByAppendingSomething("a::", "::b", "::"), "a::b");
}

TEST(DigitTests, EmptyIsTrueAndNonAsciiDigitsAreNot) {
  EXPECT_TRUE(isContainOnlyDigitChars(""));
  EXPECT_TRUE(isContainOnlyDigitChars("0123456789"));
  EXPECT_FALSE(isContainOnlyDigitChars("12.5"));
  EXPECT_FALSE(isContainOnlyDigitChars("١٢"));  // Arabic-Indic digits
  EXPECT_TRUE(isContainOnlyNumberChars("-1,234.5"));
  EXPECT_FALSE(isContainOnlyNumberChars("1e5"));
}

TEST(PercentEncoding, UrlCharactersStayAndOthersAreEscaped) {
  EXPECT_EQ(urlPercentEncodedString("http://h/a b/é?x=1&y=%41#f"), "http://h/a%20b/%C3%A9?x=1&y=%41#f");
  EXPECT_EQ(urlPercentEncodedString("100%"), "100%25");
  EXPECT_EQ(urlPercentEncodedString("%4"), "%254");
  EXPECT_EQ(percentEncodedWithoutUnreservedString("a-b_c.d~e f/g?é"), "a-b_c.d~e%20f%2Fg%3F%C3%A9");
  EXPECT_EQ(percentEncodedWithoutUnreservedString(""), "");
}

TEST(Durations, HoursMinutesSeconds) {
  EXPECT_EQ(durationStringWithTimeInterval(0), "0:00");
  EXPECT_EQ(durationStringWithTimeInterval(59), "0:59");
  EXPECT_EQ(durationStringWithTimeInterval(59.9), "0:59");
  EXPECT_EQ(durationStringWithTimeInterval(61), "1:01");
  EXPECT_EQ(durationStringWithTimeInterval(3600), "1:00:00");
  EXPECT_EQ(durationStringWithTimeInterval(3661), "1:01:01");
  EXPECT_EQ(durationStringWithTimeInterval(360000), "100:00:00");
  EXPECT_EQ(durationStringWithTimeInterval(-61), "-1:01");
  EXPECT_EQ(durationStringWithTimeInterval(std::numeric_limits<double>::quiet_NaN()), "0:00");
  EXPECT_EQ(durationStringWithTimeInterval(1e300), "2562047788015215:30:07");
}

TEST(Replacing, EveryOccurrenceInPlace) {
  std::string text = "a-b-c";
  EXPECT_EQ(replaceString(text, "-", "--"), 2u);
  EXPECT_EQ(text, "a--b--c");
  EXPECT_EQ(replaceString(text, "", "x"), 0u);
  EXPECT_EQ(replaceString(text, "zz", "x"), 0u);
  EXPECT_EQ(text, "a--b--c");
  std::string overlapping = "aaaa";
  EXPECT_EQ(replaceString(overlapping, "aa", "b"), 2u);
  EXPECT_EQ(overlapping, "bb");

  std::string mixed = "Café CAFÉ café";
  EXPECT_EQ(replaceStringInsensitive(mixed, "café", "tea"), 3u);
  EXPECT_EQ(mixed, "tea tea tea");
  std::string german = "Maße und MASSE";
  EXPECT_EQ(replaceStringInsensitive(german, "masse", "X"), 2u);
  EXPECT_EQ(german, "X und X");
  std::string ligature = "ﬁne FINE";
  EXPECT_EQ(replaceStringInsensitive(ligature, "fine", "ok"), 2u);
  EXPECT_EQ(ligature, "ok ok");
  std::string halves = "Maße";
  EXPECT_EQ(replaceStringInsensitive(halves, "s", "z"), 0u) << "half of ß is not replaced";
  std::string untouched = "abc";
  EXPECT_EQ(replaceStringInsensitive(untouched, "d", "x"), 0u);
  EXPECT_EQ(untouched, "abc");
}

TEST(Versions, FourPartsCompareNumerically) {
  EXPECT_EQ(compareVersion("1.2", "1.2.0"), std::strong_ordering::equal);
  EXPECT_EQ(compareVersion("1.10", "1.9"), std::strong_ordering::greater);
  EXPECT_EQ(compareVersion("1.9", "1.10"), std::strong_ordering::less);
  EXPECT_EQ(compareVersion("", "0.0.0.0"), std::strong_ordering::equal);
  // Only four parts count.
  EXPECT_EQ(compareVersion("1.2.3.4.5", "1.2.3.4.9"), std::strong_ordering::equal);
  // Reading stops at the first part that is not a number.
  EXPECT_EQ(compareVersion("2.0b3", "2.0"), std::strong_ordering::equal);
  EXPECT_EQ(compareVersion("2.x.5", "2"), std::strong_ordering::equal);
  EXPECT_EQ(compareVersion("v2.1", "v2.0", "v"), std::strong_ordering::greater);
  EXPECT_EQ(compareVersion("v2.1", "0"), std::strong_ordering::equal);
  EXPECT_EQ(compareToVersion("1-2-3", "1-2-4", "-"), std::strong_ordering::less);
  EXPECT_EQ(compareVersion("99999999999999999999", "1"), std::strong_ordering::greater);

  EXPECT_EQ(twoNumberVersionFromVersion(""), "0");
  EXPECT_EQ(twoNumberVersionFromVersion("3"), "3.0");
  EXPECT_EQ(twoNumberVersionFromVersion("3."), "3.0");
  EXPECT_EQ(twoNumberVersionFromVersion("3..1"), "3.0");
  EXPECT_EQ(twoNumberVersionFromVersion("3.1"), "3.1");
  EXPECT_EQ(twoNumberVersionFromVersion("3.1.4"), "3.1");
}

TEST(Email, DisplayNamesAreFilteredBeforeChecking) {
  EXPECT_EQ(filterStringFromFirstLastName("Jane Doe <jane@example.org>"), "jane@example.org");
  EXPECT_EQ(filterStringFromFirstLastName("jane@example.org"), "jane@example.org");
  EXPECT_TRUE(isStringMail("Jane Doe <jane.doe+tag@mail.example.museum>"));
  EXPECT_TRUE(isStringMail("a_b%c@sub-domain.example.co"));
  EXPECT_FALSE(isStringMail("jane@localhost"));
  EXPECT_FALSE(isStringMail("jane@example.c"));
  EXPECT_FALSE(isStringMail("jane@example.abcdefghijk"));
  EXPECT_FALSE(isStringMail("Jane <>"));
  EXPECT_FALSE(isStringMail(""));
  EXPECT_FALSE(isStringMail("two@@example.org"));
}

}  // namespace
