#include "zentrel/platform/file_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/unprivileged.h"
#include "support/temporary_folder.h"
#include "zentrel/platform/log.h"

namespace {

using zt::test::pathExists;
using zt::test::readBytes;
using zt::test::TemporaryFolder;
using zt::test::writeBytes;

std::vector<std::string> namesIn(const std::string& folder) {
  auto names = ZTFileManager::defaultManager()->contentsOfDirectoryAtPath(folder).value_or(std::vector<std::string>{});
  std::sort(names.begin(), names.end());
  return names;
}

void expectFileError(const ZTError& error, std::int64_t code, int errnoValue) {
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain) << error.description();
  EXPECT_EQ(error.code(), code) << error.description();
  const auto underlying = error.underlyingError();
  ASSERT_TRUE(underlying) << error.description();
  EXPECT_EQ(underlying->domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(underlying->code(), errnoValue);
}

struct LogLines {
  std::vector<std::string> lines;
  LogLines() {
    ZTSetLogSink([this](std::string_view line) { lines.emplace_back(line); });
  }
  ~LogLines() { ZTSetLogSink({}); }
};

// Records every question and answers from a table of refusals; may throw on a named path.
class RecordingDelegate : public ZTFileManager::Delegate {
 public:
  std::vector<std::string> asked;
  std::vector<std::string> refuse;
  std::string throwAt;

  bool answer(const std::string& kind, const std::string& source, const std::string& destination) {
    asked.push_back(kind + " " + source + (destination.empty() ? "" : " -> " + destination));
    if (!throwAt.empty() && source == throwAt) throw std::runtime_error("refused by test");
    return std::find(refuse.begin(), refuse.end(), source) == refuse.end();
  }
  bool shouldCopyItemAtPath(ZTFileManager&, const std::string& s, const std::string& d) override {
    return answer("copy", s, d);
  }
  bool shouldMoveItemAtPath(ZTFileManager&, const std::string& s, const std::string& d) override {
    return answer("move", s, d);
  }
  bool shouldRemoveItemAtPath(ZTFileManager&, const std::string& p) override { return answer("remove", p, {}); }
  bool shouldLinkItemAtPath(ZTFileManager&, const std::string& s, const std::string& d) override {
    return answer("link", s, d);
  }
};

// A small tree: a/file (0640), a/sub/deep, a/link -> "file" (relative), a/fifo.
void makeTree(const std::string& root) {
  ASSERT_EQ(mkdir(root.c_str(), 0750), 0);
  writeBytes(root + "/file", "file contents");
  chmod((root + "/file").c_str(), 0640);
  ASSERT_EQ(mkdir((root + "/sub").c_str(), 0700), 0);
  writeBytes(root + "/sub/deep", std::string(100000, 'x'));
  ASSERT_EQ(symlink("file", (root + "/link").c_str()), 0);
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0600), 0);
}

TEST(FileManager, AttributesDescribeTheItemAndLinksOnlyWhenAsked) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  writeBytes(folder / "file", "12345");
  chmod((folder / "file").c_str(), 0604);
  ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);

  const auto file = manager->attributesOfItemAtPath(folder / "file");
  ASSERT_TRUE(file);
  EXPECT_EQ((*file)[ZTFileType].stringValue(), ZTFileTypeRegular);
  EXPECT_EQ((*file)[ZTFileSize].uintValue(), 5u);
  EXPECT_EQ((*file)[ZTFilePosixPermissions].uintValue(), 0604u);
  EXPECT_EQ((*file)[ZTFileOwnerAccountID].uintValue(), geteuid());
  ASSERT_TRUE((*file)[ZTFileModificationDate].isDate());
  EXPECT_LT(std::abs((*file)[ZTFileModificationDate].getIf<ZTDate>()->timeIntervalSinceNow()), 60.0);

  EXPECT_EQ((*manager->attributesOfItemAtPath(folder / "link"))[ZTFileType].stringValue(), ZTFileTypeSymbolicLink);
  EXPECT_EQ((*manager->attributesOfItemAtPath(folder / "link", nullptr, ZTLinkTraversal::Follow))[ZTFileType]
                .stringValue(),
            ZTFileTypeRegular);
  EXPECT_EQ((*manager->attributesOfItemAtPath(folder.path()))[ZTFileType].stringValue(), ZTFileTypeDirectory);
  EXPECT_EQ((*manager->attributesOfItemAtPath(folder / "fifo"))[ZTFileType].stringValue(), ZTFileTypeUnknown);

  // A date set through the manager reads back.
  ZTValue change = ZTValue::dictionary();
  change[ZTFileModificationDate] = ZTDate::dateWithTimeIntervalSince1970(1000000000.5);
  change[ZTFilePosixPermissions] = 0600u;
  ASSERT_TRUE(manager->setAttributes(change, folder / "file"));
  const auto changed = manager->attributesOfItemAtPath(folder / "file");
  EXPECT_DOUBLE_EQ(changed->operator[](ZTFileModificationDate).getIf<ZTDate>()->timeIntervalSince1970(), 1000000000.5);
  EXPECT_EQ((*changed)[ZTFilePosixPermissions].uintValue(), 0600u);

  ZTError error;
  EXPECT_FALSE(manager->attributesOfItemAtPath(folder / "missing", &error));
  expectFileError(error, ZTFileReadNoSuchFileError, ENOENT);
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "missing");
  EXPECT_EQ(error.localizedDescription(), "No such file or directory");
}

TEST(FileManager, ExistenceFollowsLinksUnlessToldNot) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  ASSERT_EQ(symlink(folder.path().c_str(), (folder / "to-folder").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (folder / "dangling").c_str()), 0);

  bool isDirectory = false;
  EXPECT_TRUE(manager->fileExistsAtPath(folder / "to-folder", &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_TRUE(manager->fileExistsAtPath(folder / "to-folder", &isDirectory, ZTLinkTraversal::DontFollow));
  EXPECT_FALSE(isDirectory);
  EXPECT_FALSE(manager->fileExistsAtPath(folder / "dangling"));
  EXPECT_TRUE(manager->fileExistsAtPath(folder / "dangling", nullptr, ZTLinkTraversal::DontFollow));
  EXPECT_EQ(manager->destinationOfSymbolicLinkAtPath(folder / "dangling"), "nowhere");

  ZTError error;
  EXPECT_FALSE(manager->destinationOfSymbolicLinkAtPath(folder.path(), &error));
  expectFileError(error, ZTFileReadUnknownError, EINVAL);
}

TEST(FileManager, UnusablePathsFailWithAClearError) {
  auto manager = ZTFileManager::defaultManager();
  const std::string withNul("/tmp/a\0b", 8);
  ZTError error;
  EXPECT_FALSE(manager->fileExistsAtPath(""));
  EXPECT_FALSE(manager->fileExistsAtPath(withNul));
  EXPECT_FALSE(manager->attributesOfItemAtPath("", &error));
  EXPECT_EQ(error.code(), ZTFileReadNoSuchFileError);
  EXPECT_FALSE(manager->removeItemAtPath(withNul, &error));
  EXPECT_EQ(error.code(), ZTFileWriteInvalidFileNameError);
  EXPECT_FALSE(manager->copyItemAtPath(withNul, "/tmp/x", &error));
  EXPECT_EQ(error.code(), ZTFileReadInvalidFileNameError);
  EXPECT_FALSE(manager->createDirectoryAtPath("", true, ZTValue(), &error));
  EXPECT_EQ(error.code(), ZTFileNoSuchFileError);
  EXPECT_FALSE(manager->contentsEqualAtPath("", ""));
}

TEST(FileManager, CreatesFoldersWithOrWithoutTheirParents) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  ZTValue mode = ZTValue::dictionary();
  mode[ZTFilePosixPermissions] = 0701u;
  ASSERT_TRUE(manager->createDirectoryAtPath(folder / "a/b/c", true, mode));
  EXPECT_EQ((*manager->attributesOfItemAtPath(folder / "a/b"))[ZTFilePosixPermissions].uintValue(), 0701u);
  EXPECT_TRUE(manager->createDirectoryAtPath(folder / "a/b/c", true));

  ZTError error;
  EXPECT_FALSE(manager->createDirectoryAtPath(folder / "a/b/c", false, ZTValue(), &error));
  expectFileError(error, ZTFileWriteFileExistsError, EEXIST);
  EXPECT_FALSE(manager->createDirectoryAtPath(folder / "x/y", false, ZTValue(), &error));
  expectFileError(error, ZTFileNoSuchFileError, ENOENT);

  writeBytes(folder / "file", "");
  EXPECT_FALSE(manager->createDirectoryAtPath(folder / "file/sub", true, ZTValue(), &error));
  EXPECT_EQ(error.code(), ZTFileWriteFileExistsError);
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "file");
}

TEST(FileManager, CopiesTreesWithLinksAsLinksAndKeepsModesAndTimes) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  makeTree(folder / "a");
  struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  utimensat(AT_FDCWD, (folder / "a/file").c_str(), old, AT_SYMLINK_NOFOLLOW);

  ZTError error;
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a", folder / "b", &error)) << error.description();
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"a", "b"}));  // no temporary left
  EXPECT_EQ(readBytes(folder / "b/file"), "file contents");
  EXPECT_EQ(readBytes(folder / "b/sub/deep"), std::string(100000, 'x'));
  EXPECT_EQ(manager->destinationOfSymbolicLinkAtPath(folder / "b/link"), "file");
  struct stat info;
  ASSERT_EQ(lstat((folder / "b/fifo").c_str(), &info), 0);
  EXPECT_TRUE(S_ISFIFO(info.st_mode));
  ASSERT_EQ(stat((folder / "b/file").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_EQ(info.st_mtim.tv_sec, 1000000000);
  ASSERT_EQ(stat((folder / "b").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0750u);
  ASSERT_EQ(stat((folder / "b/sub").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700u);
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a", folder / "b"));

  // A single file, and a link on its own stays a link.
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a/file", folder / "c"));
  EXPECT_EQ(readBytes(folder / "c"), "file contents");
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a/link", folder / "d"));
  EXPECT_EQ(manager->destinationOfSymbolicLinkAtPath(folder / "d"), "file");
}

TEST(FileManager, CopyNeverReplacesAndLeavesNothingBehindOnFailure) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  writeBytes(folder / "source", "new");
  writeBytes(folder / "taken", "old");
  ZTError error;
  EXPECT_FALSE(manager->copyItemAtPath(folder / "source", folder / "taken", &error));
  expectFileError(error, ZTFileWriteFileExistsError, EEXIST);
  EXPECT_EQ(error.userInfo()[ZTDestinationFilePathErrorKey].stringValue(), folder / "taken");
  EXPECT_EQ(readBytes(folder / "taken"), "old");

  EXPECT_FALSE(manager->copyItemAtPath(folder / "missing", folder / "x", &error));
  expectFileError(error, ZTFileReadNoSuchFileError, ENOENT);

  // A socket deep in a folder cannot be copied: the whole copy fails and its half-built tree goes.
  ASSERT_EQ(mkdir((folder / "tree").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((folder / "tree/inner").c_str(), 0755), 0);
  writeBytes(folder / "tree/a-file", "a");
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string socketPath = folder / "tree/inner/zsocket";
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::copy(socketPath.begin(), socketPath.end(), address.sun_path);
  ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(manager->copyItemAtPath(folder / "tree", folder / "tree-copy", &error));
  close(sock);
  EXPECT_EQ(error.code(), ZTFileReadUnknownError);
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"source", "taken", "tree"}));

  // A copy into a folder inside itself is refused rather than recursing.
  EXPECT_FALSE(manager->copyItemAtPath(folder / "tree", folder / "tree/inner/again", &error));
  EXPECT_FALSE(pathExists(folder / "tree/inner/again"));
}

TEST(FileManager, CopyThatRunsOutOfRoomFailsAndRemovesItsPartialFile) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  writeBytes(folder / "big", std::string(4 << 20, 'b'));
  // RLIMIT_FSIZE makes the kernel refuse to grow a file past the limit (EFBIG), as a full disk
  // refuses with ENOSPC.
  struct rlimit saved;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  const auto previous = signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = saved;
  small.rlim_cur = 1 << 20;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  ZTError error;
  const bool copied = manager->copyItemAtPath(folder / "big", folder / "copy", &error);
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, previous);
  EXPECT_FALSE(copied);
  expectFileError(error, ZTFileWriteUnknownError, EFBIG);
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), folder / "copy");
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"big"}));
}

TEST(FileManager, MovesByRenameOrAcrossFileSystemsAndNeverReplaces) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  makeTree(folder / "a");
  ASSERT_TRUE(manager->moveItemAtPath(folder / "a", folder / "b"));
  EXPECT_FALSE(pathExists(folder / "a"));
  EXPECT_EQ(readBytes(folder / "b/file"), "file contents");

  writeBytes(folder / "other", "other");
  ZTError error;
  EXPECT_FALSE(manager->moveItemAtPath(folder / "other", folder / "b", &error));
  expectFileError(error, ZTFileWriteFileExistsError, EEXIST);
  EXPECT_TRUE(pathExists(folder / "other"));
  EXPECT_FALSE(manager->moveItemAtPath(folder / "missing", folder / "x", &error));
  expectFileError(error, ZTFileNoSuchFileError, ENOENT);

  TemporaryFolder elsewhere("/dev/shm");
  struct stat here, there;
  ASSERT_EQ(stat(folder.path().c_str(), &here), 0);
  ASSERT_EQ(stat(elsewhere.path().c_str(), &there), 0);
  if (here.st_dev == there.st_dev) GTEST_SKIP() << "/dev/shm and the temporary folder share a file system";
  ASSERT_TRUE(manager->moveItemAtPath(folder / "b", elsewhere / "b", &error)) << error.description();
  EXPECT_FALSE(pathExists(folder / "b"));
  EXPECT_EQ(readBytes(elsewhere / "b/sub/deep"), std::string(100000, 'x'));
  EXPECT_EQ(manager->destinationOfSymbolicLinkAtPath(elsewhere / "b/link"), "file");
  EXPECT_EQ(namesIn(elsewhere.path()), (std::vector<std::string>{"b"}));
  ASSERT_TRUE(manager->moveItemAtPath(folder / "other", elsewhere / "other"));
  EXPECT_EQ(readBytes(elsewhere / "other"), "other");
}

TEST(FileManager, RemovesTreesWithoutFollowingLinks) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  makeTree(folder / "a");
  ASSERT_EQ(mkdir((folder / "outside").c_str(), 0755), 0);
  writeBytes(folder / "outside/keep", "keep");
  ASSERT_EQ(symlink((folder / "outside").c_str(), (folder / "a/sub/out").c_str()), 0);
  ASSERT_TRUE(manager->removeItemAtPath(folder / "a"));
  EXPECT_FALSE(pathExists(folder / "a"));
  EXPECT_EQ(readBytes(folder / "outside/keep"), "keep");

  ZTError error;
  EXPECT_FALSE(manager->removeItemAtPath(folder / "a", &error));
  expectFileError(error, ZTFileNoSuchFileError, ENOENT);
}

TEST(FileManager, PermissionDeniedFoldersFailWithNoPermission) {
  if (zt::test::ranUnprivilegedInAChild()) return;  // root passes permission checks
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  ASSERT_EQ(mkdir((folder / "locked").c_str(), 0755), 0);
  writeBytes(folder / "locked/file", "x");
  ASSERT_EQ(mkdir((folder / "locked/unreadable").c_str(), 0000), 0);
  chmod((folder / "locked").c_str(), 0555);
  ZTError error;
  EXPECT_FALSE(manager->removeItemAtPath(folder / "locked/file", &error));
  expectFileError(error, ZTFileWriteNoPermissionError, EACCES);
  EXPECT_FALSE(manager->copyItemAtPath(folder / "locked", folder / "copy", &error));
  expectFileError(error, ZTFileReadNoPermissionError, EACCES);
  EXPECT_FALSE(pathExists(folder / "copy"));

  auto enumerator = manager->enumeratorAtPath(folder / "locked");
  ASSERT_TRUE(enumerator);
  std::vector<std::string> failed;
  enumerator->setErrorHandler([&](const std::string& path, const ZTError&) {
    failed.push_back(path);
    return true;
  });
  std::vector<std::string> seen;
  while (auto next = enumerator->nextObject()) seen.push_back(*next);
  EXPECT_EQ(seen, (std::vector<std::string>{"file", "unreadable"}));
  EXPECT_EQ(failed, (std::vector<std::string>{folder / "locked/unreadable"}));
}

TEST(FileManager, TheDelegateIsAskedPerItemAndMayPruneOrCancel) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::create();
  auto delegate = std::make_shared<RecordingDelegate>();
  manager->setDelegate(delegate);
  ASSERT_EQ(mkdir((folder / "a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((folder / "a/skip").c_str(), 0755), 0);
  writeBytes(folder / "a/skip/inner", "");
  writeBytes(folder / "a/take", "t");
  delegate->refuse = {folder / "a/skip"};

  ASSERT_TRUE(manager->copyItemAtPath(folder / "a", folder / "b"));
  // Parents first, and the destinations are the final paths, never a temporary name.
  EXPECT_EQ(delegate->asked, (std::vector<std::string>{"copy " + (folder / "a") + " -> " + (folder / "b"),
                                                       "copy " + (folder / "a/skip") + " -> " + (folder / "b/skip"),
                                                       "copy " + (folder / "a/take") + " -> " + (folder / "b/take")}));
  EXPECT_EQ(namesIn(folder / "b"), (std::vector<std::string>{"take"}));

  // Removal: a refused folder is kept with its contents, and so are its parents; that is success.
  delegate->asked.clear();
  ASSERT_TRUE(manager->removeItemAtPath(folder / "a"));
  EXPECT_EQ(namesIn(folder / "a"), (std::vector<std::string>{"skip"}));
  EXPECT_TRUE(pathExists(folder / "a/skip/inner"));

  // A move is one question; a "no" leaves both sides as they were.
  delegate->asked.clear();
  delegate->refuse = {folder / "b"};
  EXPECT_TRUE(manager->moveItemAtPath(folder / "b", folder / "c"));
  EXPECT_EQ(delegate->asked, (std::vector<std::string>{"move " + (folder / "b") + " -> " + (folder / "c")}));
  EXPECT_TRUE(pathExists(folder / "b"));
  EXPECT_FALSE(pathExists(folder / "c"));

  // A delegate that throws cancels: logged, ZTUserCancelledError, nothing at the destination.
  delegate->refuse.clear();
  delegate->throwAt = folder / "b/take";
  LogLines log;
  ZTError error;
  EXPECT_FALSE(manager->copyItemAtPath(folder / "b", folder / "d", &error));
  EXPECT_EQ(error.code(), ZTUserCancelledError);
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_NE(log.lines[0].find("refused by test"), std::string::npos);
  EXPECT_FALSE(pathExists(folder / "d"));
  EXPECT_FALSE(manager->removeItemAtPath(folder / "b", &error));
  EXPECT_EQ(error.code(), ZTUserCancelledError);
  EXPECT_TRUE(pathExists(folder / "b/take"));

  // The delegate is held weakly.
  delegate.reset();
  EXPECT_EQ(manager->delegate(), nullptr);
  EXPECT_TRUE(manager->removeItemAtPath(folder / "b"));
}

TEST(FileManager, ItemsThatVanishDuringAWalkAreLeftOut) {
  TemporaryFolder folder;
  ASSERT_EQ(mkdir((folder / "a").c_str(), 0755), 0);
  for (const char* name : {"1", "2", "3", "4"}) writeBytes(folder / "a" + "/" + name, name);

  // During a copy: asked about its first file, the delegate deletes that file's siblings.
  auto manager = ZTFileManager::create();
  struct Deleter : ZTFileManager::Delegate {
    std::string folder, first;
    bool shouldCopyItemAtPath(ZTFileManager&, const std::string& source, const std::string&) override {
      if (source == folder || !first.empty()) return true;
      first = source.substr(folder.size() + 1);
      for (const char* name : {"1", "2", "3", "4"}) {
        if (first != name) unlink((folder + "/" + name).c_str());
      }
      return true;
    }
  };
  auto deleter = std::make_shared<Deleter>();
  deleter->folder = folder / "a";
  manager->setDelegate(deleter);
  ZTError error;
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a", folder / "b", &error)) << error.description();
  EXPECT_EQ(namesIn(folder / "b"), (std::vector<std::string>{deleter->first}));
  for (const char* name : {"1", "2", "3", "4"}) writeBytes(folder / "a" + "/" + name, name);

  // During an enumeration.
  auto enumerator = manager->enumeratorAtPath(folder / "a");
  ASSERT_TRUE(enumerator);
  EXPECT_EQ(enumerator->nextObject(), "1");
  unlink((folder / "a/2").c_str());
  unlink((folder / "a/3").c_str());
  EXPECT_EQ(enumerator->nextObject(), "4");
  EXPECT_EQ(enumerator->nextObject(), std::nullopt);
}

TEST(FileManager, EnumeratesDeeplyParentsFirstAndCanSkipAFolder) {
  TemporaryFolder folder;
  makeTree(folder / "a");
  ASSERT_EQ(mkdir((folder / "a/sub/more").c_str(), 0755), 0);
  writeBytes(folder / "a/sub/more/x", "");
  auto manager = ZTFileManager::defaultManager();
  EXPECT_EQ(manager->subpathsOfDirectoryAtPath(folder / "a"),
            (std::vector<std::string>{"fifo", "file", "link", "sub", "sub/deep", "sub/more", "sub/more/x"}));

  auto enumerator = manager->enumeratorAtPath(folder / "a");
  std::vector<std::string> seen;
  while (auto next = enumerator->nextObject()) {
    seen.push_back(*next);
    if (*next == "sub/more") {
      EXPECT_EQ(enumerator->level(), 2u);
      EXPECT_EQ(enumerator->fileAttributes()[ZTFileType].stringValue(), ZTFileTypeDirectory);
      enumerator->skipDescendants();
    }
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"fifo", "file", "link", "sub", "sub/deep", "sub/more"}));

  ZTError error;
  EXPECT_EQ(manager->enumeratorAtPath(folder / "a/file", &error), nullptr);
  expectFileError(error, ZTFileReadNoSuchFileError, ENOTDIR);
}

TEST(FileManager, NamesThatAreNotUtf8AreHandledByteForByte) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  const std::string odd = "bad\xff\xfe name\x80";
  ASSERT_TRUE(manager->createDirectoryAtPath(folder / odd, false));
  writeBytes(folder / odd + "/" + odd, "bytes");
  ASSERT_TRUE(manager->copyItemAtPath(folder / odd, folder / "copy"));
  EXPECT_EQ(manager->contentsOfDirectoryAtPath(folder / "copy"), (std::vector<std::string>{odd}));
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / odd, folder / "copy"));
  EXPECT_EQ(manager->subpathsOfDirectoryAtPath(folder / odd), (std::vector<std::string>{odd}));
  ASSERT_TRUE(manager->removeItemAtPath(folder / odd));
  EXPECT_FALSE(pathExists(folder / odd));
}

TEST(FileManager, HardLinksFilesAndRebuildsFoldersOfLinks) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  makeTree(folder / "a");
  ASSERT_TRUE(manager->linkItemAtPath(folder / "a/file", folder / "single"));
  ASSERT_TRUE(manager->linkItemAtPath(folder / "a", folder / "b"));
  struct stat original, single, inTree;
  ASSERT_EQ(stat((folder / "a/file").c_str(), &original), 0);
  ASSERT_EQ(stat((folder / "single").c_str(), &single), 0);
  ASSERT_EQ(stat((folder / "b/file").c_str(), &inTree), 0);
  EXPECT_EQ(original.st_ino, single.st_ino);
  EXPECT_EQ(original.st_ino, inTree.st_ino);
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a", folder / "b"));
  ZTError error;
  EXPECT_FALSE(manager->linkItemAtPath(folder / "a/file", folder / "single", &error));
  expectFileError(error, ZTFileWriteFileExistsError, EEXIST);
}

TEST(FileManager, ComparesContentsByteForByteAndFoldersRecursively) {
  TemporaryFolder folder;
  auto manager = ZTFileManager::defaultManager();
  makeTree(folder / "a");
  ASSERT_TRUE(manager->copyItemAtPath(folder / "a", folder / "b"));
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a", folder / "b"));
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a", folder / "a"));

  std::string deep(100000, 'x');
  deep[99999] = 'y';
  writeBytes(folder / "b/sub/deep", deep);
  EXPECT_FALSE(manager->contentsEqualAtPath(folder / "a", folder / "b"));
  writeBytes(folder / "b/sub/deep", std::string(100000, 'x'));
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a", folder / "b"));

  unlink((folder / "b/link").c_str());
  ASSERT_EQ(symlink("sub", (folder / "b/link").c_str()), 0);
  EXPECT_FALSE(manager->contentsEqualAtPath(folder / "a", folder / "b"));
  unlink((folder / "b/link").c_str());
  ASSERT_EQ(symlink("file", (folder / "b/link").c_str()), 0);
  writeBytes(folder / "b/extra", "");
  EXPECT_FALSE(manager->contentsEqualAtPath(folder / "a", folder / "b"));

  EXPECT_FALSE(manager->contentsEqualAtPath(folder / "a/file", folder / "a/sub"));
  EXPECT_FALSE(manager->contentsEqualAtPath(folder / "a/file", folder / "missing"));
  EXPECT_TRUE(manager->contentsEqualAtPath(folder / "a/link", folder / "a/file"));  // the link is followed
}

}  // namespace
