#include "zentrel/filesystem/standard_directories.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

#include "filesystem/internal/xdg_dirs.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/path_strings.h"

namespace {

using namespace zt::fs_internal;
using zt::test::ScopedEnvironment;
using zt::test::ScratchFolder;

EnvironmentLookup environment(std::map<std::string, std::string> values) {
  return [values = std::move(values)](const char* name) -> std::optional<std::string> {
    const auto it = values.find(name);
    if (it == values.end()) return std::nullopt;
    return it->second;
  };
}

TEST(XdgFolders, VariablesCountOnlyWhenAbsolute) {
  EXPECT_EQ(xdgDataHome("/home/u", environment({})), "/home/u/.local/share");
  EXPECT_EQ(xdgDataHome("/home/u", environment({{"XDG_DATA_HOME", "/data/"}})), "/data");
  EXPECT_EQ(xdgDataHome("/home/u", environment({{"XDG_DATA_HOME", "relative/data"}})), "/home/u/.local/share");
  EXPECT_EQ(xdgCacheHome("/home/u", environment({{"XDG_CACHE_HOME", ""}})), "/home/u/.cache");
  EXPECT_EQ(xdgCacheHome("/home/u", environment({{"XDG_CACHE_HOME", "/c"}})), "/c");
  EXPECT_EQ(xdgConfigHome("/home/u", environment({})), "/home/u/.config");
}

TEST(XdgFolders, DocumentsFromUserDirsFile) {
  const std::string file =
      "# written by xdg-user-dirs-update\n"
      "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
      "XDG_DOCUMENTS_DIR=\"$HOME/My Documents\"\n";
  EXPECT_EQ(userDirectoryFromUserDirsFile(file, "XDG_DOCUMENTS_DIR", "/home/u"), "/home/u/My Documents");
  EXPECT_EQ(userDirectoryFromUserDirsFile("XDG_DOCUMENTS_DIR=\"/srv/docs/\"\n", "XDG_DOCUMENTS_DIR", "/home/u"),
            "/srv/docs");
  EXPECT_EQ(userDirectoryFromUserDirsFile("XDG_DOCUMENTS_DIR=\"$HOME\"", "XDG_DOCUMENTS_DIR", "/home/u"), "/home/u");
  EXPECT_EQ(userDirectoryFromUserDirsFile("XDG_DOCUMENTS_DIR=\"$HOMEX/a\"", "XDG_DOCUMENTS_DIR", "/home/u"),
            std::nullopt);
  EXPECT_EQ(userDirectoryFromUserDirsFile("XDG_DOCUMENTS_DIR=relative", "XDG_DOCUMENTS_DIR", "/home/u"), std::nullopt);
  EXPECT_EQ(userDirectoryFromUserDirsFile("XDG_DOCUMENTS_DIRX=\"/x\"", "XDG_DOCUMENTS_DIR", "/home/u"), std::nullopt);
  EXPECT_EQ(userDirectoryFromUserDirsFile("", "XDG_DOCUMENTS_DIR", "/home/u"), std::nullopt);

  ScratchFolder config;
  zt::test::writeFile(config / "user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n");
  EXPECT_EQ(documentsDirectory("/home/u", environment({{"XDG_CONFIG_HOME", config.path()}})), "/home/u/Papers");
  EXPECT_EQ(documentsDirectory("/home/u", environment({{"XDG_CONFIG_HOME", config / "none"}})), "/home/u/Documents");
}

// The home trash is $XDG_DATA_HOME/Trash whether or not the data home exists yet: it is made, with
// its files/ and info/ folders, so the answer does not depend on what ran before.
TEST(XdgFolders, TrashIsMadeInTheDataHome) {
  ScratchFolder home;
  zt::test::LogCapture log;
  EXPECT_EQ(trashDirectory(home.path(), environment({})), home / ".local/share/Trash");
  for (const char* folder : {".local/share/Trash", ".local/share/Trash/files", ".local/share/Trash/info"}) {
    struct stat st {};
    ASSERT_EQ(::lstat((home / folder).c_str(), &st), 0) << folder;
    EXPECT_TRUE(S_ISDIR(st.st_mode)) << folder;
    EXPECT_EQ(st.st_mode & 07777, 0700u) << folder;
  }
  EXPECT_EQ(trashDirectory(home.path(), environment({})), home / ".local/share/Trash");
  ScratchFolder data;
  EXPECT_EQ(trashDirectory(home.path(), environment({{"XDG_DATA_HOME", data / "new"}})), data / "new/Trash");
  EXPECT_TRUE(zt::test::exists(data / "new/Trash/info"));
  EXPECT_TRUE(log.lines().empty());
}

TEST(XdgFolders, TrashFallsBackToDotTrashWithALogLineWhenItCannotBeMade) {
  ScratchFolder home;
  zt::test::writeFile(home / ".local", "a file where the data home would be");
  zt::test::LogCapture log;
  EXPECT_EQ(trashDirectory(home.path(), environment({})), home / ".Trash");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Failed to get trash directory using "
                                                   "NSSearchPathForDirectoriesInDomains(). Trying to generate path "
                                                   "to trash..."}));
}

std::function<std::string()> fallback(std::string folder) {
  return [folder] { return folder; };
}

TEST(XdgFolders, ApplicationSupportIsCreatedOrFallsBackToTemporaryFolder) {
  ScratchFolder data;
  zt::test::LogCapture log;
  EXPECT_EQ(applicationSupportDirectory(data / "deep/share", "tool", fallback("/tmp")), data / "deep/share/tool");
  EXPECT_TRUE(zt::test::exists(data / "deep/share/tool"));
  EXPECT_EQ(applicationSupportDirectory(data / "deep/share", "tool", fallback("/tmp")), data / "deep/share/tool");
  EXPECT_TRUE(log.lines().empty());

  zt::test::writeFile(data / "file", "x");
  EXPECT_EQ(applicationSupportDirectory(data.path(), "file", fallback("/fallback")), "/fallback");
  zt::test::writeFile(data / "blocker", "x");
  EXPECT_EQ(applicationSupportDirectory(data / "blocker", "tool", fallback("/fallback")), "/fallback");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "*** WARNING " + (data / "file") + " directory is not a directory, fail",
                             "*** Returning NSTemporaryDirectory but this is FAIL-FAIL",
                             "*** Unable to create " + (data / "blocker/tool"),
                             "*** Returning NSTemporaryDirectory but this is FAIL-FAIL",
                         }));
}

TEST(StandardFolders, HomeComesFromTheUserDatabaseNotTheEnvironment) {
  ScopedEnvironment home{"HOME", "/zt-not-the-home"};
  ASSERT_TRUE(userDatabaseHome());
  EXPECT_EQ(ZTHomeDirectory(), *userDatabaseHome());
  EXPECT_NE(ZTHomeDirectory(), "/zt-not-the-home");
}

TEST(StandardFolders, ExecutableNameIsThisProgram) { EXPECT_EQ(executableName(), "zt_filesystem_tests"); }

// The cached folders are computed once per process; this runs them in a child process whose
// environment points every XDG folder into a temporary folder.
TEST(StandardFoldersDeathTest, CachedFoldersFollowTheEnvironmentOfTheirFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScratchFolder root;
  zt::test::makeDirectory(root / "config");
  zt::test::writeFile(root / "config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"" + (root / "Docs") + "\"\n");
  EXPECT_EXIT(
      {
        ::setenv("XDG_DATA_HOME", (root / "data").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (root / "cache").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
        ::setenv("TMPDIR", root.path().c_str(), 1);
        bool ok = ZTDocumentsDirectory() == root / "Docs" && ZTDocumentsDirectoryAdd("x") == root / "Docs/x" &&
                  ZTApplicationDirectory() == root.path() && ZTTrashDirectory() == root / "data/Trash" &&
                  zt::test::exists(root / "data/Trash/files") && zt::test::exists(root / "data/Trash/info") &&
                  ZTLibraryDirectory() == root / "data" && ZTLibraryDirectoryAdd("y") == root / "data/y" &&
                  ZTCachesDirectory() == root / "cache" && ZTCachesDirectoryAdd("z") == root / "cache/z" &&
                  ZTApplicationSupportDirectory() == root / "data/zt_filesystem_tests" &&
                  zt::test::exists(root / "data/zt_filesystem_tests") &&
                  ZTApplicationSupportDirectoryAdd("s") == root / "data/zt_filesystem_tests/s";
        // Later changes are not seen by cached folders, but are by the uncached library folder.
        ::setenv("XDG_DATA_HOME", (root / "other").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (root / "other").c_str(), 1);
        ok = ok && ZTLibraryDirectory() == root / "data" && ZTCachesDirectory() == root / "cache" &&
             ZTTrashDirectory() == root / "data/Trash" && ZTApplicationLibraryDirectory() == root / "other" &&
             ZTApplicationLibraryDirectoryAdd("q") == root / "other/q";
        zt::test::finishChildProcess(ok);
      },
      ::testing::ExitedWithCode(0), "");
}

// A documents folder set to the home folder itself is how xdg-user-dirs disables it; the
// application folder is then the home folder, not its parent.
TEST(StandardFoldersDeathTest, ApplicationFolderIsHomeWhenDocumentsAreDisabled) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScratchFolder config;
  zt::test::writeFile(config / "user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/\"\n");
  EXPECT_EXIT(
      {
        ::setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
        zt::test::finishChildProcess(ZTDocumentsDirectory() == ZTHomeDirectory() &&
                                     ZTApplicationDirectory() == ZTHomeDirectory());
      },
      ::testing::ExitedWithCode(0), "");
}

// A process whose user has no entry in the user database (a container started with an arbitrary
// uid) takes its home from $HOME and says so once, not on every call.
TEST(StandardFoldersDeathTest, UserWithoutADatabaseEntryUsesHOMEAndLogsOnce) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become a user without an entry";
  constexpr uid_t kUnlistedUser = 54321;
  if (::getpwuid(kUnlistedUser) != nullptr) GTEST_SKIP() << "uid " << kUnlistedUser << " has an entry here";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        bool ok = ::setgid(kUnlistedUser) == 0 && ::setuid(kUnlistedUser) == 0;
        ::setenv("HOME", "/zt-home-of-an-unlisted-user", 1);
        zt::test::LogCapture log;
        for (int i = 0; i < 3; ++i) ok = ok && ZTHomeDirectory() == "/zt-home-of-an-unlisted-user";
        ok = ok && zt::stringByStandardizingPath("~/notes") == "/zt-home-of-an-unlisted-user/notes";
        ok = ok && log.lines() == std::vector<std::string>{"getpwuid() failed. Fallback to NSHomeDirectory()."};
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CloudContainer, FirstPublicContainerInKeyOrder) {
  ZTValue info;
  EXPECT_EQ(ZTiCloudContainerIdentifier(info), std::nullopt);
  info["NSUbiquitousContainers"]["iCloud.b.private"]["NSUbiquitousContainerIsDocumentScopePublic"] = false;
  EXPECT_EQ(ZTiCloudContainerIdentifier(info), std::nullopt);
  info["NSUbiquitousContainers"]["iCloud.c.public"]["NSUbiquitousContainerIsDocumentScopePublic"] = true;
  info["NSUbiquitousContainers"]["iCloud.d.public"]["NSUbiquitousContainerIsDocumentScopePublic"] = true;
  EXPECT_EQ(ZTiCloudContainerIdentifier(info), "iCloud.c.public");
  ZTValue wrongKind;
  wrongKind["NSUbiquitousContainers"] = "not a dictionary";
  EXPECT_EQ(ZTiCloudContainerIdentifier(wrongKind), std::nullopt);
}

TEST(CloudContainer, URLReplacesDotsWithTildes) {
  const std::optional<ZTFileURL> url = ZTiCloudContainerURLFromIdentifier(std::string("iCloud.a.b.c"));
  ASSERT_TRUE(url);
  EXPECT_TRUE(url->isFileURL());
  EXPECT_TRUE(url->hasDirectoryPath());
  EXPECT_EQ(url->path(), ZTHomeDirectory() + "/Library/Mobile Documents/iCloud~a~b~c");
  EXPECT_EQ(ZTiCloudContainerURLFromIdentifier(std::nullopt), std::nullopt);
  EXPECT_EQ(ZTiCloudContainerURLFromIdentifier(std::string()), std::nullopt);
}

}  // namespace
