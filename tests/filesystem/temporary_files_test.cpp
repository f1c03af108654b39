#include "zentrel/filesystem/temporary_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "filesystem/internal/temporary_folder.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/filesystem/unique_names.h"

namespace {

using zt::test::ScopedEnvironment;
using zt::test::ScratchFolder;

// A real folder (not a link), owned by this process's user, that nobody else may enter.
::testing::AssertionResult isPrivateFolder(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return ::testing::AssertionFailure() << path << " does not exist";
  if (!S_ISDIR(st.st_mode)) return ::testing::AssertionFailure() << path << " is not a folder";
  if (st.st_uid != ::geteuid()) return ::testing::AssertionFailure() << path << " belongs to uid " << st.st_uid;
  if ((st.st_mode & 07777) != 0700) {
    return ::testing::AssertionFailure() << path << " has mode " << std::oct << (st.st_mode & 07777);
  }
  return ::testing::AssertionSuccess();
}

std::size_t entriesIn(const std::string& folder) {
  std::error_code error;
  std::size_t count = 0;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) ++count;
  return count;
}

// Every test gets its own $TMPDIR; the library's folder is made inside it.
class TemporaryFiles : public ::testing::Test {
 protected:
  ScratchFolder dir;
  ScopedEnvironment tmpdir{"TMPDIR", dir.path().c_str()};
  ScopedEnvironment noRuntimeFolder{"XDG_RUNTIME_DIR", nullptr};
  std::string privateFolder = dir / ("zentrel-" + std::to_string(::geteuid()));
};

TEST_F(TemporaryFiles, TheTemporaryFolderIsPrivateToTheUser) {
  EXPECT_EQ(ZTTemporaryDirectory(), privateFolder);
  EXPECT_TRUE(isPrivateFolder(privateFolder));
  EXPECT_EQ(ZTTemporaryDirectoryAdd("a/b"), privateFolder + "/a/b");
  // A trailing slash in $TMPDIR changes nothing.
  ScopedEnvironment slash{"TMPDIR", (dir.path() + "/").c_str()};
  EXPECT_EQ(ZTTemporaryDirectory(), privateFolder);
}

TEST_F(TemporaryFiles, OnlyAnAbsoluteTMPDIRCounts) {
  using zt::fs_internal::temporaryBase;
  const auto env = [](std::optional<std::string> value) {
    return [value](const char* name) { return std::string(name) == "TMPDIR" ? value : std::nullopt; };
  };
  EXPECT_EQ(temporaryBase(env(std::nullopt)), "/tmp");
  EXPECT_EQ(temporaryBase(env("")), "/tmp");
  EXPECT_EQ(temporaryBase(env("relative/tmp")), "/tmp");
  EXPECT_EQ(temporaryBase(env("/var/tmp//")), "/var/tmp");
  EXPECT_EQ(temporaryBase(env(std::string("/var\0/tmp", 9))), "/tmp");
}

// The form to use: the caller gets the file and its only descriptor, and nothing stays open once
// the handle is gone.
TEST_F(TemporaryFiles, TempFileHandsBackItsOnlyDescriptor) {
  const std::size_t openBefore = entriesIn("/proc/self/fd");
  std::vector<std::string> paths;
  for (int i = 0; i < 64; ++i) {
    ZTError error;
    std::optional<ZTTemporaryFile> file = ZTTempFile("", ".part", &error);
    ASSERT_TRUE(file) << error.description();
    ASSERT_TRUE(file->descriptor);
    EXPECT_EQ(zt::stringByDeletingLastPathComponent(file->path), privateFolder);
    EXPECT_EQ(zt::lastPathComponent(file->path).size(), 6u + 5u);
    EXPECT_EQ(::write(file->descriptor.get(), "data", 4), 4);
    EXPECT_NE(::fcntl(file->descriptor.get(), F_GETFD) & FD_CLOEXEC, 0);
    struct stat st {};
    ASSERT_EQ(::lstat(file->path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(st.st_size, 4);
    paths.push_back(file->path);
  }
  EXPECT_EQ(entriesIn("/proc/self/fd"), openBefore);
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(std::unique(paths.begin(), paths.end()), paths.end());

  // Ownership moves; the moved-from handle is empty and closes nothing.
  std::optional<ZTTemporaryFile> file = ZTTempFile(dir.path(), "");
  ASSERT_TRUE(file);
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(file->path), dir.path());
  ZTFileDescriptor taken = std::move(file->descriptor);
  EXPECT_FALSE(file->descriptor);
  EXPECT_EQ(file->descriptor.get(), -1);
  const int raw = taken.get();
  EXPECT_GE(::fcntl(raw, F_GETFD), 0);
  ZTFileDescriptor other;
  other = std::move(taken);
  EXPECT_EQ(other.get(), raw);
  EXPECT_TRUE(other.close());
  EXPECT_FALSE(other);
  EXPECT_EQ(entriesIn("/proc/self/fd"), openBefore);
}

TEST_F(TemporaryFiles, TempFileReportsWhatWentWrong) {
  ZTError error;
  EXPECT_EQ(ZTTempFile(dir / "missing", "", &error), std::nullopt);
  EXPECT_EQ(error.domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(ZTTempFile("", "/../escaped", &error), std::nullopt);
  EXPECT_EQ(error.code(), EINVAL);
  EXPECT_EQ(ZTTempFile("", std::string("a\0b", 3), &error), std::nullopt);
  EXPECT_EQ(error.code(), EINVAL);
  EXPECT_EQ(ZTTempFile("", std::string(250, 'x'), &error), std::nullopt);
  EXPECT_EQ(error.code(), ENAMETOOLONG);
  zt::test::writeFile(dir / "file", "x");
  EXPECT_EQ(ZTTempFile(dir / "file", "", &error), std::nullopt);
  EXPECT_EQ(error.code(), ENOTDIR);
}

TEST_F(TemporaryFiles, TempNameIsFreeAndKeepsTheSuffix) {
  const std::string first = ZTTempName(dir.path(), ".part");
  const std::string second = ZTTempName("", ".part");
  EXPECT_NE(first, second);
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(first), dir.path());
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(second), privateFolder);
  for (const std::string& path : {first, second}) {
    EXPECT_EQ(zt::lastPathComponent(path).size(), 6u + 5u);
    EXPECT_EQ(zt::pathExtension(path), "part");
    EXPECT_FALSE(zt::test::exists(path));
  }
  EXPECT_EQ(zt::lastPathComponent(ZTTempName(dir.path(), "")).size(), 6u);
}

TEST_F(TemporaryFiles, TempNameInAMissingFolderLogsAndAnswersTheTemplate) {
  zt::test::LogCapture log;
  const std::string path = ZTTempName(dir / "missing", "x");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(path), dir / "missing");
  EXPECT_EQ(zt::lastPathComponent(path).size(), 7u);
  EXPECT_EQ(path.back(), 'x');
  EXPECT_FALSE(zt::test::exists(path));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"*** WARNING ZTTempName: can't create file at path " + path}));
}

// Names are single path components: nothing is created outside the folder.
TEST_F(TemporaryFiles, NamesThatWouldLeaveTheFolderAreRefused) {
  const std::size_t before = entriesIn(dir.path());
  EXPECT_EQ(ZTGenerateTempFilePath("../escaped.txt"), std::nullopt);
  EXPECT_EQ(ZTGenerateTempFilePath("sub/x.txt"), std::nullopt);
  EXPECT_EQ(ZTGenerateTempFilePath(".."), std::nullopt);
  EXPECT_EQ(ZTGenerateTempFilePath("."), std::nullopt);
  EXPECT_EQ(ZTGenerateTempFilePath(std::string("a\0b.txt", 7)), std::nullopt);
  EXPECT_EQ(ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::string("../x.txt"), true), std::nullopt);
  EXPECT_EQ(ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::string(".."), true), std::nullopt);
  zt::test::LogCapture log;
  const std::string refused = ZTTempName("", "/../escaped");
  EXPECT_FALSE(zt::test::exists(refused));
  EXPECT_EQ(log.lines().size(), 1u);
  // Only the private folder itself may have appeared beside the test's own files.
  EXPECT_LE(entriesIn(dir.path()), before + 1);
  for (std::filesystem::directory_iterator it(dir.path()), end; it != end; ++it) {
    EXPECT_EQ(it->path().filename().string().find("escaped"), std::string::npos) << it->path();
  }
}

TEST_F(TemporaryFiles, GeneratedPathReservesTheStemInThePrivateFolder) {
  const std::optional<std::string> path = ZTGenerateTempFilePath("report.pdf");
  ASSERT_TRUE(path);
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(*path), privateFolder);
  const std::string name = zt::lastPathComponent(*path);
  ASSERT_EQ(name.size(), std::string("report-XXXXXX.pdf").size());
  EXPECT_EQ(name.substr(0, 7), "report-");
  const std::string reserved = zt::stringByDeletingPathExtension(*path);
  EXPECT_TRUE(zt::test::isRegularFile(reserved));
  EXPECT_EQ(zt::test::fileSize(reserved), 0u);
  EXPECT_FALSE(zt::test::exists(*path));
  EXPECT_NE(ZTGenerateTempFilePath("report.pdf"), path);

  const std::optional<std::string> notes = ZTGenerateTempFilePath("notes");
  ASSERT_TRUE(notes);
  ASSERT_EQ(notes->back(), '.');
  EXPECT_TRUE(zt::test::isRegularFile(notes->substr(0, notes->size() - 1)));
}

TEST_F(TemporaryFiles, UUIDPathsAndFolders) {
  const std::string withExtension = ZTTemporaryFilePathWithExtension("png");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(withExtension), privateFolder);
  EXPECT_EQ(zt::lastPathComponent(withExtension).size(), 36u + 4u);
  EXPECT_EQ(zt::pathExtension(withExtension), "png");
  EXPECT_FALSE(zt::test::exists(withExtension));
  EXPECT_EQ(zt::lastPathComponent(ZTTemporaryFilePathWithExtension("")).size(), 36u);
  EXPECT_NE(ZTTemporaryFilePathWithExtension("png"), withExtension);

  const std::optional<std::string> created = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside("a.txt", true);
  ASSERT_TRUE(created);
  EXPECT_EQ(zt::lastPathComponent(*created), "a.txt");
  EXPECT_TRUE(isPrivateFolder(zt::stringByDeletingLastPathComponent(*created)));
  EXPECT_FALSE(zt::test::exists(*created));
  const std::optional<std::string> notCreated = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside("a.txt", false);
  ASSERT_TRUE(notCreated);
  EXPECT_FALSE(zt::test::exists(zt::stringByDeletingLastPathComponent(*notCreated)));
  EXPECT_EQ(ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::nullopt, true), std::nullopt);

  const std::optional<ZTFileURL> url = ZTURLToTemporaryUniqueDirectoryWithFileNamedInside("b c.txt", false);
  ASSERT_TRUE(url);
  EXPECT_TRUE(url->isFileURL());
  EXPECT_FALSE(url->hasDirectoryPath());
  EXPECT_EQ(zt::lastPathComponent(url->path()), "b c.txt");
  EXPECT_EQ(ZTURLToTemporaryUniqueDirectoryWithFileNamedInside(std::nullopt, false), std::nullopt);
}

// Someone else got to the folder's name first. Whatever is there, the library does not use it:
// it says so once and works in a private folder of its own instead.
class HostileTemporaryFolder : public TemporaryFiles {
 protected:
  // Checks that the library avoided `planted`, that files land in a private folder, and that the
  // refusal was logged once.
  void expectAvoided(const std::string& planted) {
    zt::test::LogCapture log;
    const std::string used = ZTTemporaryDirectory();
    EXPECT_NE(used, planted);
    EXPECT_TRUE(isPrivateFolder(used));
    const std::string name = ZTTempName("", ".part");
    EXPECT_EQ(zt::stringByDeletingLastPathComponent(name), used);
    const std::optional<std::string> reserved = ZTGenerateTempFilePath("a.txt");
    ASSERT_TRUE(reserved);
    EXPECT_EQ(zt::stringByDeletingLastPathComponent(*reserved), used);
    EXPECT_EQ(ZTTemporaryDirectory(), used);
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("ERROR: ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(planted), std::string::npos) << lines[0];
  }
};

// The attack of a world-writable /tmp without protected symlinks: a link at the folder's name
// into a folder the victim owns and may write (here a 0700 folder of this user).
TEST_F(HostileTemporaryFolder, ALinkInItsPlaceIsNotFollowed) {
  zt::test::makeDirectory(dir / "victim");
  ASSERT_EQ(::chmod((dir / "victim").c_str(), 0700), 0);
  ASSERT_EQ(::symlink((dir / "victim").c_str(), privateFolder.c_str()), 0);
  expectAvoided(privateFolder);
  EXPECT_EQ(entriesIn(dir / "victim"), 0u);
}

TEST_F(HostileTemporaryFolder, AFolderOthersMayEnterIsNotUsed) {
  zt::test::makeDirectory(privateFolder);
  ASSERT_EQ(::chmod(privateFolder.c_str(), 0777), 0);
  expectAvoided(privateFolder);
  EXPECT_EQ(entriesIn(privateFolder), 0u);
}

TEST_F(HostileTemporaryFolder, AFolderOfAnotherUserIsNotUsed) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give a folder to another user";
  zt::test::makeDirectory(privateFolder);
  ASSERT_EQ(::chmod(privateFolder.c_str(), 0700), 0);
  ASSERT_EQ(::chown(privateFolder.c_str(), 65534, 65534), 0);  // nobody
  expectAvoided(privateFolder);
  EXPECT_EQ(entriesIn(privateFolder), 0u);
}

TEST_F(HostileTemporaryFolder, TheRuntimeFolderIsTheFirstFallback) {
  ScratchFolder runtime;
  ScopedEnvironment variable{"XDG_RUNTIME_DIR", runtime.path().c_str()};
  ASSERT_EQ(::symlink((dir / "victim").c_str(), privateFolder.c_str()), 0);
  expectAvoided(privateFolder);
  EXPECT_EQ(ZTTemporaryDirectory(), runtime / "zentrel");
}

// Threads that meet the refused folder at once agree on one fallback and log the refusal once.
TEST_F(HostileTemporaryFolder, ThreadsAgreeOnOneFallback) {
  zt::test::writeFile(privateFolder, "not a folder");
  zt::test::LogCapture log;
  constexpr int kThreads = 4;
  std::vector<std::string> used(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&used, t] {
      for (int i = 0; i < 20; ++i) {
        std::optional<ZTTemporaryFile> file = ZTTempFile("", "");
        if (!file) return;
        used[static_cast<std::size_t>(t)] = zt::stringByDeletingLastPathComponent(file->path);
        ::unlink(file->path.c_str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(isPrivateFolder(used[0]));
  for (const std::string& folder : used) EXPECT_EQ(folder, used[0]);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(HostileTemporaryFolder, AFileInItsPlaceIsNotUsed) {
  zt::test::writeFile(privateFolder, "not a folder");
  expectAvoided(privateFolder);
  EXPECT_EQ(zt::test::fileSize(privateFolder), 12u);
}

}  // namespace
