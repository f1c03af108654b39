// The public UTF-16 counter must agree with ICU's conversion, which is what every UTF-16 index the
// library hands out is measured against.
#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <random>
#include <string>

#include "zentrel/platform/utf16.h"

namespace {

std::size_t icuLength(const std::string& text) {
  return static_cast<std::size_t>(
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size()))).length());
}

TEST(UTF16Length, CountsCharactersOutsideTheBasicPlaneTwice) {
  EXPECT_EQ(zt::utf16Length(""), 0u);
  EXPECT_EQ(zt::utf16Length("abc"), 3u);
  EXPECT_EQ(zt::utf16Length("\xC3\xA9"), 1u);             // é
  EXPECT_EQ(zt::utf16Length("\xE2\x82\xAC"), 1u);         // €
  EXPECT_EQ(zt::utf16Length("\xF0\x9F\x8E\x89"), 2u);     // 🎉
  EXPECT_EQ(zt::utf16Length(std::string("a\0b", 3)), 3u);  // NUL is a character
}

TEST(UTF16Length, CountsIllFormedInputAsICUReplacesIt) {
  const char* cases[] = {"\x80", "\xC3", "\xE2\x82", "\xF0\x9F\x8E", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                         "\xC0\xAF", "\xFF\xFE", "\xE0\x80\x80", "\xF0\x9F\x8E\x41", "a\xF0\x9F\xC3\xA9"};
  for (const char* text : cases) EXPECT_EQ(zt::utf16Length(text), icuLength(text)) << text;

  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> length(0, 12);
  // Bytes drawn mostly from the ranges where UTF-8 sequences start and continue.
  const unsigned char alphabet[] = {0x41, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC2, 0xDF,
                                    0xE0, 0xE1, 0xED, 0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xFF};
  std::uniform_int_distribution<std::size_t> pick(0, sizeof alphabet - 1);
  for (int round = 0; round < 200000; ++round) {
    std::string text(static_cast<std::size_t>(length(random)), '\0');
    for (char& c : text) c = static_cast<char>(alphabet[pick(random)]);
    ASSERT_EQ(zt::utf16Length(text), icuLength(text)) << ::testing::PrintToString(text);
  }
}

}  // namespace
