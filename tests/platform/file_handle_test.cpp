#include "zentrel/platform/file_handle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_folder.h"
#include "zentrel/platform/file_manager.h"

namespace {

using zt::test::readBytes;
using zt::test::TemporaryFolder;
using zt::test::writeBytes;

std::string text(const std::optional<ZTBytes>& bytes) {
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<failed>");
}

void expectFileError(const ZTError& error, std::int64_t code, int errnoValue) {
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain) << error.description();
  EXPECT_EQ(error.code(), code) << error.description();
  const auto underlying = error.underlyingError();
  ASSERT_TRUE(underlying) << error.description();
  EXPECT_EQ(underlying->domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(underlying->code(), errnoValue);
}

TEST(FileHandle, ReadsWritesSeeksAndTruncates) {
  TemporaryFolder folder;
  writeBytes(folder / "file", "0123456789");
  auto handle = ZTFileHandle::fileHandleForUpdatingAtPath(folder / "file");
  ASSERT_TRUE(handle);
  EXPECT_EQ(text(handle->readDataUpToLength(4)), "0123");
  EXPECT_EQ(handle->offsetInFile(), 4u);
  EXPECT_EQ(text(handle->readDataToEndOfFile()), "456789");
  EXPECT_EQ(text(handle->readDataUpToLength(4)), "");  // at the end: empty, not a failure
  ASSERT_TRUE(handle->seekToOffset(2));
  ASSERT_TRUE(handle->writeData(std::string_view("ab")));
  EXPECT_EQ(handle->seekToEndReturningOffset(), 10u);
  ASSERT_TRUE(handle->writeData(std::string_view("XY")));
  ASSERT_TRUE(handle->synchronize());
  EXPECT_EQ(readBytes(folder / "file"), "01ab456789XY");
  ASSERT_TRUE(handle->truncateAtOffset(3));
  EXPECT_EQ(handle->offsetInFile(), 3u);
  ASSERT_TRUE(handle->close());
  EXPECT_EQ(readBytes(folder / "file"), "01a");

  // Writing to a handle opened for writing starts at the beginning and does not truncate.
  auto writer = ZTFileHandle::fileHandleForWritingAtPath(folder / "file");
  ASSERT_TRUE(writer && writer->writeData(std::string_view("Z")));
  EXPECT_EQ(readBytes(folder / "file"), "Z1a");
}

TEST(FileHandle, AClosedHandleAndMissingFilesGiveErrors) {
  TemporaryFolder folder;
  ZTError error;
  EXPECT_FALSE(ZTFileHandle::fileHandleForReadingAtPath(folder / "missing", &error));
  expectFileError(error, ZTFileReadNoSuchFileError, ENOENT);
  EXPECT_FALSE(ZTFileHandle::fileHandleForWritingAtPath(folder / "missing", &error));
  expectFileError(error, ZTFileNoSuchFileError, ENOENT);
  EXPECT_FALSE(ZTFileHandle::fileHandleForReadingAtPath(std::string("a\0b", 3), &error));

  writeBytes(folder / "file", "x");
  auto handle = ZTFileHandle::fileHandleForReadingAtPath(folder / "file");
  ASSERT_TRUE(handle);
  ZTError writeError;
  EXPECT_FALSE(handle->writeData(std::string_view("y"), &writeError));  // opened for reading only
  expectFileError(writeError, ZTFileWriteUnknownError, EBADF);
  ASSERT_TRUE(handle->close());
  EXPECT_TRUE(handle->close());
  EXPECT_EQ(handle->fileDescriptor(), -1);
  EXPECT_FALSE(handle->readDataToEndOfFile(&error));
  expectFileError(error, ZTFileReadUnknownError, EBADF);
  EXPECT_FALSE(handle->seekToOffset(0, &error));
  EXPECT_FALSE(handle->synchronize(&error));
}

TEST(FileHandle, AFullDeviceIsOutOfSpace) {
  auto handle = ZTFileHandle::fileHandleForWritingAtPath("/dev/full");
  if (!handle) GTEST_SKIP() << "/dev/full is not available";
  ZTError error;
  EXPECT_FALSE(handle->writeData(std::string_view("data"), &error));
  expectFileError(error, ZTFileWriteOutOfSpaceError, ENOSPC);
  EXPECT_EQ(error.localizedDescription(), "No space left on device");
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), "/dev/full");

  auto null = ZTFileHandle::fileHandleWithNullDevice();
  ASSERT_TRUE(null);
  EXPECT_TRUE(null->writeData(std::string_view("discarded")));
  EXPECT_EQ(text(null->readDataToEndOfFile()), "");
}

TEST(FileHandle, ReadsFromAPipeUntilTheLengthOrTheEnd) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  auto reader = ZTFileHandle::create(fds[0], true);
  auto writer = ZTFileHandle::create(fds[1], true);
  std::thread producer([&] {
    for (int i = 0; i < 10; ++i) writer->writeData(std::string(1000, static_cast<char>('a' + i)));
    writer->close();
  });
  const auto first = reader->readDataUpToLength(2500);
  const auto rest = reader->readDataToEndOfFile();
  producer.join();
  ASSERT_TRUE(first && rest);
  EXPECT_EQ(first->size(), 2500u);
  EXPECT_EQ(rest->size(), 7500u);
  EXPECT_EQ((*rest)[7499], 'j');
  EXPECT_TRUE(reader->synchronize());  // nothing to flush on a pipe
  EXPECT_FALSE(reader->offsetInFile());  // a pipe has no offset: an error, not a crash
}

TEST(FileHandle, WritesFromManyThreadsStayWhole) {
  TemporaryFolder folder;
  writeBytes(folder / "log", "");
  auto handle = ZTFileHandle::fileHandleForWritingAtPath(folder / "log");
  ASSERT_TRUE(handle);
  constexpr int kThreads = 4, kRecords = 500, kLength = 64;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const std::string record(kLength - 1, static_cast<char>('A' + t));
      for (int i = 0; i < kRecords; ++i) handle->writeData(record + "\n");
    });
  }
  for (auto& thread : threads) thread.join();
  const std::string written = readBytes(folder / "log");
  ASSERT_EQ(written.size(), static_cast<std::size_t>(kThreads * kRecords * kLength));
  for (std::size_t at = 0; at < written.size(); at += kLength) {
    ASSERT_EQ(written.substr(at, kLength - 1), std::string(kLength - 1, written[at])) << "record at " << at;
  }
}

TEST(FileHandle, StandardStreamsAreNotClosedWithTheHandle) {
  const int duplicate = dup(STDERR_FILENO);
  ASSERT_GE(duplicate, 0);
  {
    auto handle = ZTFileHandle::create(duplicate, false);
    EXPECT_EQ(handle->fileDescriptor(), duplicate);
  }
  EXPECT_NE(fcntl(duplicate, F_GETFD), -1);  // still open
  { auto owned = ZTFileHandle::create(duplicate, true); }
  EXPECT_EQ(fcntl(duplicate, F_GETFD), -1);
  EXPECT_EQ(ZTFileHandle::fileHandleWithStandardError()->fileDescriptor(), STDERR_FILENO);
}

}  // namespace
