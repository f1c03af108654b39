#include "zentrel/filesystem/file_name_validation.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "filesystem/support/scratch_folder.h"

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

// At most 255 UTF-16 units and at most 255 bytes of UTF-8, the most a Linux file system stores.
// Every unit takes at least one byte, so the byte limit is the one a name meets first; names
// within the unit limit but longer in UTF-8 (100 CJK characters, 80 emoji) cannot be created.
TEST(FileNameValidation, LengthLimits) {
  EXPECT_EQ(ZTValidateLocalFileName(repeat("a", 255)), std::nullopt);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("a", 256)), kTooLong);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("ä", 127) + "a"), std::nullopt);  // 255 bytes
  EXPECT_EQ(ZTValidateLocalFileName(repeat("ä", 128)), kTooLong);            // 256 bytes, 128 units
  EXPECT_EQ(ZTValidateLocalFileName(repeat("中", 85)), std::nullopt);        // 255 bytes
  EXPECT_EQ(ZTValidateLocalFileName(repeat("中", 86)), kTooLong);            // 258 bytes, 86 units
  EXPECT_EQ(ZTValidateLocalFileName(repeat("中", 100) + ".txt"), kTooLong);
  EXPECT_EQ(ZTValidateLocalFileName(repeat("😀", 63) + "abc"), std::nullopt);  // 255 bytes, 129 units
  EXPECT_EQ(ZTValidateLocalFileName(repeat("😀", 80)), kTooLong);              // 320 bytes, 160 units
  EXPECT_EQ(ZTValidateLocalFileName(repeat("😀", 128)), kTooLong);             // 256 units
  // The untrimmed name is measured; blank names are reported as empty first.
  EXPECT_EQ(ZTValidateLocalFileName("a" + repeat(" ", 255)), kTooLong);
  EXPECT_EQ(ZTValidateLocalFileName(repeat(" ", 300)), kEmpty);
  // Too long wins over a leading dot.
  EXPECT_EQ(ZTValidateLocalFileName("." + repeat("a", 300)), kTooLong);
  EXPECT_EQ(ZTValidateLocalFileName("." + repeat("中", 90)), kTooLong);
}

// Whatever the caller forbids, NUL ends the name for the kernel: it is never valid, and the message
// shows it as the visible symbol U+2400 so the text stays printable.
// The answer agrees with the kernel: what passes can be created, what is too long cannot.
TEST(FileNameValidation, AgreesWithTheFileSystem) {
  zt::test::ScratchFolder dir;
  for (const std::string& name : {repeat("a", 255), repeat("中", 85), repeat("😀", 63) + "abc", repeat("ä", 127) + "a"}) {
    ASSERT_EQ(ZTValidateLocalFileName(name), std::nullopt);
    const int fd = ::open((dir / name).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_GE(fd, 0) << name.size() << " bytes: " << std::strerror(errno);
    if (fd >= 0) ::close(fd);
  }
  for (const std::string& name : {repeat("中", 86), repeat("😀", 80), repeat("ä", 128)}) {
    ASSERT_EQ(ZTValidateLocalFileName(name), kTooLong);
    errno = 0;
    EXPECT_EQ(::open((dir / name).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
  }
}

TEST(FileNameValidation, NULIsAnIllegalCharacter) {
  const std::string name("a\0b", 3);
  EXPECT_EQ(ZTValidateLocalFileName(name), "The name \u201Ca\u2400b\u201D cannot be used because of \u2400 character");
  EXPECT_EQ(ZTValidateLocalFileNameWithForbiddenCharacters(name, std::nullopt),
            "The name \u201Ca\u2400b\u201D cannot be used because of \u2400 character");
  // The first offending character decides, NUL or one of the caller's.
  EXPECT_EQ(ZTValidateLocalFileName(std::string("x/y\0", 4)),
            "The name \u201Cx/y\u2400\u201D cannot be used because of / character");
  EXPECT_EQ(ZTValidateLocalFileName(std::string("\0", 1)),
            "The name \u201C\u2400\u201D cannot be used because of \u2400 character");
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
