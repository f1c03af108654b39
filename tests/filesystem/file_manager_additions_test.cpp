#include "zentrel/filesystem/file_manager_additions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "common/unprivileged.h"
#include "support/scratch_folder.h"
#include "zentrel/filesystem/file_handle_copy.h"
#include "zentrel/filesystem/file_manager_delegate.h"
#include "zentrel/platform/file_handle.h"

namespace {

using zt::test::LogCapture;
using zt::test::ScratchFolder;
using zt::test::writeFile;

void setModificationTime(const std::string& path, time_t seconds) {
  const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

double modificationTime(const ZTValue& attributes) {
  const ZTDate* date = attributes[ZTFileModificationDate].getIf<ZTDate>();
  return date ? date->timeIntervalSince1970() : -1;
}

std::string readAll(const std::string& path) {
  auto handle = ZTFileHandle::fileHandleForReadingAtPath(path);
  if (!handle) return "<missing>";
  auto bytes = handle->readDataToEndOfFile();
  return bytes ? std::string(bytes->begin(), bytes->end()) : "<failed>";
}

TEST(FileManagerDelegate, TheHandlerDecidesEachItemAndSeesTheDestination) {
  ScratchFolder folder;
  zt::test::makeDirectory(folder / "a");
  writeFile(folder / "a/keep.txt", "k");
  writeFile(folder / "a/skip.tmp", "s");
  auto manager = ZTFileManager::create();
  auto delegate = ZTFileManagerDelegate::create();
  manager->setDelegate(delegate);

  // Without a handler every answer is yes.
  EXPECT_TRUE(delegate->shouldRemoveItemAtURL(*manager, ZTFileURL::fileURLWithPath(folder / "a")));

  std::vector<std::string> seen;
  delegate->setProgressHandler([&](const ZTFileURL& source, const std::optional<ZTFileURL>& destination, bool* proceed) {
    EXPECT_TRUE(*proceed);  // preset
    seen.push_back(source.path() + " -> " + (destination ? destination->path() : "none"));
    if (source.path().ends_with(".tmp")) *proceed = false;
  });
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a", folder / "b"));
  EXPECT_TRUE(zt::test::exists(folder / "b/keep.txt"));
  EXPECT_FALSE(zt::test::exists(folder / "b/skip.tmp"));
  EXPECT_NE(std::find(seen.begin(), seen.end(), (folder / "a/keep.txt") + " -> " + (folder / "b/keep.txt")),
            seen.end());

  seen.clear();
  ASSERT_TRUE(manager->removeItemAtPath(folder / "b/keep.txt"));
  EXPECT_EQ(seen, (std::vector<std::string>{(folder / "b/keep.txt") + " -> none"}));

  // A handler that throws cancels the operation; the manager logs it.
  delegate->setProgressHandler([](const ZTFileURL&, const std::optional<ZTFileURL>&, bool*) {
    throw std::runtime_error("no");
  });
  LogCapture log;
  ZTError error;
  EXPECT_FALSE(manager->moveItemAtPath(folder / "a", folder / "c", &error));
  EXPECT_EQ(error.code(), ZTUserCancelledError);
  EXPECT_TRUE(zt::test::exists(folder / "a/keep.txt"));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(FileHandleCopy, CopiesFromTheCurrentOffsetInFixedChunks) {
  ScratchFolder folder;
  std::string data(100000, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  for (const std::size_t size : {std::size_t{0}, std::size_t{32768}, std::size_t{65536}, data.size()}) {
    SCOPED_TRACE(size);
    writeFile(folder / "source", std::string_view(data).substr(0, size));
    writeFile(folder / "destination", "");
    auto source = ZTFileHandle::fileHandleForReadingAtPath(folder / "source");
    auto destination = ZTFileHandle::fileHandleForWritingAtPath(folder / "destination");
    ASSERT_TRUE(source && destination);
    ZTError error;
    ZTCopyDataFromFileHandleToFileHandle(*source, *destination, &error);
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(readAll(folder / "destination"), data.substr(0, size));
    EXPECT_EQ(source->offsetInFile(), size);
  }

  // From the middle of the source onto the end of what the destination holds.
  writeFile(folder / "source", "0123456789");
  writeFile(folder / "destination", "head:");
  auto source = ZTFileHandle::fileHandleForReadingAtPath(folder / "source");
  auto destination = ZTFileHandle::fileHandleForWritingAtPath(folder / "destination");
  ASSERT_TRUE(source->seekToOffset(6) && destination->seekToEndReturningOffset());
  ZTCopyDataFromFileHandleToFileHandle(*source, *destination);
  EXPECT_EQ(readAll(folder / "destination"), "head:6789");
  EXPECT_NE(source->fileDescriptor(), -1);  // neither handle is closed
  EXPECT_NE(destination->fileDescriptor(), -1);
}

TEST(FileHandleCopy, AStreamIsCopiedToItsEndAndAFullDiskStopsTheCopy) {
  // 65,536 bytes through a pipe arrive in pieces; the copy still reads whole chunks until the end.
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  auto reader = ZTFileHandle::create(fds[0], true);
  auto writer = ZTFileHandle::create(fds[1], true);
  std::thread producer([&] {
    for (int i = 0; i < 16; ++i) writer->writeData(std::string(4096, static_cast<char>('a' + i)));
    writer->close();
  });
  ScratchFolder folder;
  writeFile(folder / "out", "");
  auto out = ZTFileHandle::fileHandleForWritingAtPath(folder / "out");
  ZTCopyDataFromFileHandleToFileHandle(*reader, *out);
  producer.join();
  const std::string copied = readAll(folder / "out");
  ASSERT_EQ(copied.size(), 65536u);
  EXPECT_EQ(copied[65535], 'p');

  auto full = ZTFileHandle::fileHandleForWritingAtPath("/dev/full");
  if (!full) GTEST_SKIP() << "/dev/full is not available";
  writeFile(folder / "source", std::string(40000, 'z'));
  auto source = ZTFileHandle::fileHandleForReadingAtPath(folder / "source");
  ZTError error;
  ZTCopyDataFromFileHandleToFileHandle(*source, *full, &error);
  EXPECT_EQ(error.code(), ZTFileWriteOutOfSpaceError);
  EXPECT_EQ(source->offsetInFile(), 32768u);  // stopped after the first chunk failed to land
}

TEST(FileManagerAdditions, APackageReportsItsNewestInnerFileDate) {
  ScratchFolder folder;
  auto manager = ZTFileManager::defaultManager();
  for (const char* name : {"Report.pages", "Plain"}) {
    const std::string root = folder / name;
    zt::test::makeDirectory(root);
    zt::test::makeDirectory(root + "/Data");
    writeFile(root + "/Data/new.xml", "n");
    writeFile(root + "/old.xml", "o");
    ASSERT_EQ(mkdir((root + "/Empty").c_str(), 0755), 0);
    setModificationTime(root + "/Data/new.xml", 2000000000);
    setModificationTime(root + "/old.xml", 1000000000);
    setModificationTime(root + "/Empty", 2100000000);  // folders do not count, only regular files
    setModificationTime(root + "/Data", 1000000000);
    setModificationTime(root, 1500000000);
  }
  auto package = zt::attributesOfItemAtPath(*manager, folder / "Report.pages", ZTAttributesPackageModificationDateOption);
  ASSERT_TRUE(package);
  EXPECT_EQ(modificationTime(*package), 2000000000);
  EXPECT_EQ((*package)[ZTFileType].stringValue(), ZTFileTypeDirectory);
  EXPECT_EQ(modificationTime(*zt::attributesOfItemAtPath(*manager, folder / "Report.pages", 0)), 1500000000);
  EXPECT_EQ(modificationTime(*zt::attributesOfItemAtPath(*manager, folder / "Plain", 1)), 1500000000);

  // A package whose contents are all older keeps its own date.
  setModificationTime(folder / "Report.pages/Data/new.xml", 1000000000);
  EXPECT_EQ(modificationTime(*zt::attributesOfItemAtPath(*manager, folder / "Report.pages", 1)), 1500000000);

  ZTError error;
  EXPECT_FALSE(zt::attributesOfItemAtPath(*manager, folder / "Missing.pages", 1, &error));
  EXPECT_EQ(error.code(), ZTFileReadNoSuchFileError);
}

TEST(FileManagerAdditions, AnUnreadableEntryInAPackageIsLoggedAndPassedOver) {
  if (zt::test::ranUnprivilegedInAChild()) return;  // root passes permission checks
  ScratchFolder folder;
  const std::string root = folder / "Deck.key";
  zt::test::makeDirectory(root);
  zt::test::makeDirectory(root + "/listable");
  writeFile(root + "/listable/inner", "x");
  writeFile(root + "/visible", "v");
  setModificationTime(root + "/visible", 2000000000);
  setModificationTime(root, 1500000000);
  // Readable but not searchable: its names can be listed, their attributes cannot be read.
  ASSERT_EQ(chmod((root + "/listable").c_str(), 0444), 0);
  LogCapture log;
  auto attributes = zt::attributesOfItemAtPath(*ZTFileManager::defaultManager(), root, 1);
  chmod((root + "/listable").c_str(), 0755);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(modificationTime(*attributes), 2000000000);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"ERROR: Failed to get file attributes at path " + root +
                                                   "listable/inner."}));
}

TEST(FileManagerAdditions, LoadsAttributesThroughALink) {
  ScratchFolder folder;
  auto manager = ZTFileManager::defaultManager();
  writeFile(folder / "file", "12345");
  ASSERT_EQ(symlink((folder / "file").c_str(), (folder / "link").c_str()), 0);
  ASSERT_EQ(symlink((folder / "gone").c_str(), (folder / "dangling").c_str()), 0);

  std::optional<ZTValue> own, destination;
  ASSERT_TRUE(zt::loadAttributesOfItemAtPath(*manager, folder / "file", &own, &destination));
  EXPECT_EQ((*own)[ZTFileSize].uintValue(), 5u);
  EXPECT_FALSE(destination);

  ASSERT_TRUE(zt::loadAttributesOfItemAtPath(*manager, folder / "link", &own, &destination));
  EXPECT_EQ((*own)[ZTFileType].stringValue(), ZTFileTypeSymbolicLink);
  ASSERT_TRUE(destination);
  EXPECT_EQ((*destination)[ZTFileType].stringValue(), ZTFileTypeRegular);
  EXPECT_EQ((*destination)[ZTFileSize].uintValue(), 5u);

  ZTError error;
  EXPECT_FALSE(zt::loadAttributesOfItemAtPath(*manager, folder / "dangling", &own, &destination, &error));
  EXPECT_EQ(error.code(), ZTFileReadNoSuchFileError);
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "gone");
}

TEST(FileManagerAdditions, EnsuresAFolderExistsAndExplainsWhenItCannot) {
  ScratchFolder folder;
  auto manager = ZTFileManager::defaultManager();
  LogCapture log;
  ZTError error(ZTPOSIXErrorDomain, 99);
  ASSERT_TRUE(zt::ensureDirectoryExistsAtPath(*manager, folder / "a/b/c", &error));
  EXPECT_EQ(error, ZTError());  // cleared after the creation succeeded
  EXPECT_TRUE(zt::ensureDirectoryExistsAtPath(*manager, folder / "a/b/c"));
  EXPECT_TRUE(log.lines().empty());

  writeFile(folder / "file", "");
  const ZTError untouched(ZTPOSIXErrorDomain, 99);
  error = untouched;
  EXPECT_FALSE(zt::ensureDirectoryExistsAtPath(*manager, folder / "file", &error));
  EXPECT_EQ(error, untouched);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"failed to create directory at " + (folder / "file") +
                                                   ", as regular file exists at the path."}));

  EXPECT_FALSE(zt::ensureDirectoryExistsAtPath(*manager, folder / "file/sub", &error));
  EXPECT_EQ(error.code(), ZTFileWriteFileExistsError);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[1], "failed to create directory. error = " + error.description());
}

TEST(FileManagerAdditions, RemovesManyItemsAndReportsTheLastFailure) {
  ScratchFolder folder;
  auto manager = ZTFileManager::defaultManager();
  writeFile(folder / "existing", "");
  ZTError error;
  EXPECT_FALSE(zt::removeItemsAtPaths(*manager, {folder / "missing", folder / "existing"}, true, &error));
  EXPECT_TRUE(zt::test::exists(folder / "existing"));  // stopped at the first failure

  EXPECT_FALSE(zt::removeItemsAtPaths(*manager, {folder / "missing", folder / "existing"}, false, &error));
  EXPECT_FALSE(zt::test::exists(folder / "existing"));
  EXPECT_EQ(error.code(), ZTFileNoSuchFileError);
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "missing");

  writeFile(folder / "x", "");
  EXPECT_FALSE(zt::removeItemsAtPaths(*manager, {folder / "x", folder / "gone1", folder / "gone2"}, false, &error));
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "gone2");
  EXPECT_TRUE(zt::removeItemsAtPaths(*manager, {}, true, &error));
}

}  // namespace
