#include "zentrel/filesystem/file_attributes.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>

#include "filesystem/support/scratch_folder.h"

namespace {

using zt::test::ScratchFolder;

bool supportsUserAttributes(const std::string& path) {
  if (::setxattr(path.c_str(), "user.zt-probe", "1", 1, 0) != 0) return false;
  ::removexattr(path.c_str(), "user.zt-probe");
  return true;
}

std::string rawMark(const std::string& path) {
  char value[64];
  const ssize_t length = ::getxattr(path.c_str(), "user.xdg.robots.backup", value, sizeof value);
  return length < 0 ? std::string("<none>") : std::string(value, static_cast<std::size_t>(length));
}

TEST(BackupMark, RoundTripThroughTheFreedesktopAttribute) {
  ScratchFolder dir;
  const std::string file = dir / "data.bin";
  zt::test::writeFile(file, "x");
  if (!supportsUserAttributes(file)) {
    EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(file, true), 0);
    GTEST_SKIP() << "the temporary folder's file system has no user extended attributes";
  }
  EXPECT_FALSE(ZTHasSkipMobileBackupAttributeForFile(file));
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(file, true), 1);
  EXPECT_EQ(rawMark(file), "false");
  EXPECT_TRUE(ZTHasSkipMobileBackupAttributeForFile(file));
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(file, true), 1);  // idempotent
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(file, false), 1);
  EXPECT_EQ(rawMark(file), "<none>");
  EXPECT_FALSE(ZTHasSkipMobileBackupAttributeForFile(file));
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(file, false), 1);  // already included

  // Folders carry the mark too; a value other than "false" means included.
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(dir.path(), true), 1);
  EXPECT_TRUE(ZTHasSkipMobileBackupAttributeForFile(dir.path()));
  ASSERT_EQ(::setxattr(file.c_str(), "user.xdg.robots.backup", "true", 4, 0), 0);
  EXPECT_FALSE(ZTHasSkipMobileBackupAttributeForFile(file));
}

TEST(BackupMark, MissingItemsAndEmptyPaths) {
  ScratchFolder dir;
  zt::test::LogCapture log;
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(dir / "missing", true), 0);
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(dir / "missing", false), 0);
  EXPECT_FALSE(ZTHasSkipMobileBackupAttributeForFile(dir / "missing"));
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile(std::string("/tmp\0x", 6), true), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile("", true), -1);
  EXPECT_EQ(ZTSkipMobileBackupAttributeForFile("", false), -1);
  EXPECT_FALSE(ZTHasSkipMobileBackupAttributeForFile(""));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"file == nil in ZTSkipMobileBackupAttributeForFile, attribute = 1",
                                      "file == nil in ZTSkipMobileBackupAttributeForFile, attribute = 0"}));
}

TEST(ChangeDate, WholeSecondsOfTheInodeChange) {
  ScratchFolder dir;
  const std::string file = dir / "a";
  const ZTDate before = ZTDate::now();
  zt::test::writeFile(file, "x");
  const std::optional<ZTDate> changed = ZTUnixChangeDateForFile(file);
  ASSERT_TRUE(changed);
  const double seconds = changed->timeIntervalSince1970();
  EXPECT_EQ(seconds, static_cast<double>(static_cast<long long>(seconds)));
  // The kernel stamps inodes from a coarse clock that may lag the precise one by a tick.
  EXPECT_GE(seconds, static_cast<double>(static_cast<long long>(before.timeIntervalSince1970())) - 1.0);
  EXPECT_LE(seconds, ZTDate::now().timeIntervalSince1970());
  EXPECT_EQ(ZTUnixChangeDateForFile(dir / "missing"), std::nullopt);
  EXPECT_EQ(ZTUnixChangeDateForFile(""), std::nullopt);
}

}  // namespace
