#include "zentrel/filesystem/standard_directories.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

#include "filesystem/internal/xdg_dirs.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/temporary_files.h"

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
  EXPECT_EQ(temporaryDirectory(environment({})), "/tmp");
  EXPECT_EQ(temporaryDirectory(environment({{"TMPDIR", "/var/tmp/"}})), "/var/tmp");
  EXPECT_EQ(temporaryDirectory(environment({{"TMPDIR", ""}})), "/tmp");
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

TEST(XdgFolders, TrashIsInTheDataHomeWhenThereIsOne) {
  ScratchFolder home;
  EXPECT_EQ(freedesktopTrash(home.path(), environment({})), std::nullopt);
  zt::test::makeDirectory(home / ".local/share");
  EXPECT_EQ(freedesktopTrash(home.path(), environment({})), home / ".local/share/Trash");
  EXPECT_EQ(freedesktopTrash(home.path(), environment({{"XDG_DATA_HOME", "/elsewhere"}})), "/elsewhere/Trash");
}

TEST(XdgFolders, TrashFallsBackToDotTrashWithALogLine) {
  ScratchFolder home;
  zt::test::LogCapture log;
  EXPECT_EQ(trashDirectory(home.path(), environment({})), home / ".Trash");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Failed to get trash directory using "
                                                   "NSSearchPathForDirectoriesInDomains(). Trying to generate path "
                                                   "to trash..."}));
  zt::test::makeDirectory(home / ".local/share");
  EXPECT_EQ(trashDirectory(home.path(), environment({})), home / ".local/share/Trash");
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(XdgFolders, ApplicationSupportIsCreatedOrFallsBackToTemporaryFolder) {
  ScratchFolder data;
  zt::test::LogCapture log;
  EXPECT_EQ(applicationSupportDirectory(data / "deep/share", "tool", "/tmp"), data / "deep/share/tool");
  EXPECT_TRUE(zt::test::exists(data / "deep/share/tool"));
  EXPECT_EQ(applicationSupportDirectory(data / "deep/share", "tool", "/tmp"), data / "deep/share/tool");
  EXPECT_TRUE(log.lines().empty());

  zt::test::writeFile(data / "file", "x");
  EXPECT_EQ(applicationSupportDirectory(data.path(), "file", "/fallback"), "/fallback");
  zt::test::writeFile(data / "blocker", "x");
  EXPECT_EQ(applicationSupportDirectory(data / "blocker", "tool", "/fallback"), "/fallback");
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

TEST(StandardFolders, TemporaryFolderFollowsTMPDIR) {
  ScopedEnvironment tmp{"TMPDIR", "/var/zt-tmp/"};
  EXPECT_EQ(ZTTemporaryDirectory(), "/var/zt-tmp");
  EXPECT_EQ(ZTTemporaryDirectoryAdd("a/b"), "/var/zt-tmp/a/b");
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
        bool ok = ZTDocumentsDirectory() == root / "Docs" && ZTDocumentsDirectoryAdd("x") == root / "Docs/x" &&
                  ZTApplicationDirectory() == root.path() && ZTTrashDirectory() == root / "data/Trash" &&
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

class TemporaryNames : public ::testing::Test {
 protected:
  ScratchFolder dir;
  ScopedEnvironment tmpdir{"TMPDIR", dir.path().c_str()};
};

TEST_F(TemporaryNames, TempNameIsFreeAndKeepsTheSuffix) {
  const std::string first = ZTTempName(dir.path(), ".part");
  const std::string second = ZTTempName("", ".part");
  EXPECT_NE(first, second);
  for (const std::string& path : {first, second}) {
    EXPECT_EQ(zt::stringByDeletingLastPathComponent(path), dir.path());
    EXPECT_EQ(zt::lastPathComponent(path).size(), 6u + 5u);
    EXPECT_EQ(zt::pathExtension(path), "part");
    EXPECT_FALSE(zt::test::exists(path));
  }
  EXPECT_EQ(zt::lastPathComponent(ZTTempName(dir.path(), "")).size(), 6u);
}

TEST_F(TemporaryNames, TempNameInAMissingFolderLogsAndAnswersTheTemplate) {
  zt::test::LogCapture log;
  const std::string path = ZTTempName(dir / "missing", "x");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(path), dir / "missing");
  EXPECT_EQ(zt::lastPathComponent(path).size(), 7u);
  EXPECT_EQ(path.back(), 'x');
  EXPECT_FALSE(zt::test::exists(path));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"*** WARNING ZTTempName: can't create file at path " + path}));
}

TEST_F(TemporaryNames, UUIDPathsAndFolders) {
  const std::string withExtension = ZTTemporaryFilePathWithExtension("png");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent(withExtension), dir.path());
  EXPECT_EQ(zt::lastPathComponent(withExtension).size(), 36u + 4u);
  EXPECT_EQ(zt::pathExtension(withExtension), "png");
  EXPECT_FALSE(zt::test::exists(withExtension));
  EXPECT_EQ(zt::lastPathComponent(ZTTemporaryFilePathWithExtension("")).size(), 36u);
  EXPECT_NE(ZTTemporaryFilePathWithExtension("png"), withExtension);

  const std::optional<std::string> created = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside("a.txt", true);
  ASSERT_TRUE(created);
  EXPECT_EQ(zt::lastPathComponent(*created), "a.txt");
  EXPECT_TRUE(zt::test::exists(zt::stringByDeletingLastPathComponent(*created)));
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

}  // namespace
