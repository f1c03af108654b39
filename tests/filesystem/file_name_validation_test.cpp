#include "zentrel/filesystem/file_name_validation.h"

#include <gtest/gtest.h>

namespace {

const std::string kEmpty = "Empty name cannot be used";
const std::string kTooLong = "File name exceeds maximum limit of symbols";
const std::string kDot = "File name cannot be started with dot";

std::string repeat(std::string_view piece, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out.append(piece);
  return out;
}

TEST(FileNameValidation, EmptyAndBlankNames) {
  EXPECT_EQ(ZTValidateLocalFileName(""), kEmpty);
  EXPECT_EQ(ZTValidateLocalFileName("   "), kEmpty);
  EXPECT_EQ(ZTValidateLocalFileName("\t\n\r "), kEmpty);
  EXPECT_EQ(ZTValidateLocalFileName("\u00A0\u2028\u3000"), kEmpty);  // Unicode separators count as blank
  EXPECT_EQ(ZTValidateLocalFileName(" a "), std::nullopt);
}

TEST(FileNameValidation, LengthIsCountedInUTF16Units) {
  EXPECT_EQ(ZTValidateLocalFileName(repeat("a", 255)), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("a", 256)), kTooLong);
  // "ä" is two UTF-8 bytes but one unit: 255 of them pass.
  EXPECT_EQ(ZTValidateLocalFileName(repeat("ä", 255)), std::nullopt);
  // An emoji is two units: 127 emoji and one letter are 255 units, 128 emoji are 256.
  EXPECT_EQ(ZTValidateLocalFileName(repeat("😀", 127) + "a"), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("😀", 128)), kTooLong);
  // The untrimmed name is measured; blank names are reported as empty first.
  EXPECT_EQ(ZTValidateLocalFileName("a" + repeat(" ", 255)), kTooLong);
  EXPECT_EQ(ZTValidateLocalFileName(repeat(" ", 300)), kEmpty);
  // Too long wins over a leading dot.
  EXPECT_EQ(ZTValidateLocalFileName("." + repeat("a", 300)), kTooLong);
}

TEST(FileNameValidation, LeadingDot) {
  EXPECT_EQ(ZTValidateLocalFileName(".hidden"), kDot);
  EXPECT_EQ(ZTValidateLocalFileName("."), kDot);
  EXPECT_EQ(ZTValidateLocalFileName(" .a"), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileName("a."), std::nullopt);
}

TEST(FileNameValidation, ForbiddenCharacters) {
  EXPECT_EQ(ZTValidateLocalFileName("a/b"), "The name \u201Ca/b\u201D cannot be used because of / character");
  EXPECT_EQ(ZTValidateLocalFileName("a:b"), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters("a:b", std::string(":?")),
            "The name \u201Ca:b\u201D cannot be used because of : character");
  // Compared ignoring case; the character is reported as the name spells it.
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters("aXb", std::string("x")),
            "The name \u201CaXb\u201D cannot be used because of X character");
  // The first offending character of the name is reported, whatever the set's order.
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters("a?b:c", std::string(":?")),
            "The name \u201Ca?b:c\u201D cannot be used because of ? character");
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters("x😀y", std::string("😀")),
            "The name \u201Cx😀y\u201D cannot be used because of 😀 character");
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters("a/b", std::nullopt), std::nullopt);
}

TEST(FileNameValidation, InvalidUTF8IsMeasuredNotRejected) {
  EXPECT_EQ(ZTValidateLocalFileName("bad\xff\xfename"), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("\xff", 256)), kTooLong);
}

}  // namespace
