#include "zentrel/filesystem/trash.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "filesystem/internal/trash_can.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/path_strings.h"

namespace {

using zt::test::ScopedEnvironment;
using zt::test::ScratchFolder;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    names.insert(it->path().filename().string());
  }
  return names;
}

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      out.push_back(static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

struct Entry {
  std::string path;  // decoded
  std::string rawPath;
  std::string date;
};

// Reads a .trashinfo entry the way a file manager does, checking its layout.
Entry readEntry(const std::string& file) {
  const std::string text = readFile(file);
  std::istringstream lines(text);
  std::string header, path, date, extra;
  std::getline(lines, header);
  std::getline(lines, path);
  std::getline(lines, date);
  EXPECT_EQ(header, "[Trash Info]") << text;
  EXPECT_EQ(path.rfind("Path=", 0), 0u) << text;
  EXPECT_EQ(date.rfind("DeletionDate=", 0), 0u) << text;
  EXPECT_FALSE(std::getline(lines, extra)) << text;
  return {percentDecoded(path.substr(5)), path.substr(5), date.substr(13)};
}

// Every test has a data home of its own; its trash does not exist before the first move.
class Trash : public ::testing::Test {
 protected:
  ScratchFolder home;
  ScopedEnvironment dataHome{"XDG_DATA_HOME", (home / "data").c_str()};
  std::string trash = home / "data/Trash";
  std::string files = trash + "/files";
  std::string info = trash + "/info";

  std::string item(const std::string& relative, std::string_view contents = "contents") {
    const std::string path = home / relative;
    zt::test::makeDirectory(zt::stringByDeletingLastPathComponent(path));
    zt::test::writeFile(path, contents);
    return path;
  }
};

TEST_F(Trash, MovesTheItemAndWritesAnEntryTheDesktopReads) {
  const std::string path = item("Documents/Quarterly report.txt", "numbers");
  const std::time_t before = std::time(nullptr);
  ZTError error;
  const std::optional<std::string> trashed = zt::moveItemToTrash(path, &error);
  const std::time_t after = std::time(nullptr);
  ASSERT_TRUE(trashed) << error.description();
  EXPECT_EQ(*trashed, files + "/Quarterly report.txt");
  EXPECT_FALSE(zt::test::exists(path));
  EXPECT_EQ(readFile(*trashed), "numbers");

  const Entry entry = readEntry(info + "/Quarterly report.txt.trashinfo");
  EXPECT_EQ(entry.path, path);
  EXPECT_EQ(entry.rawPath.find(' '), std::string::npos);  // spaces are encoded
  // Local time, to the second.
  std::tm parsed {};
  ASSERT_NE(::strptime(entry.date.c_str(), "%Y-%m-%dT%H:%M:%S", &parsed), nullptr) << entry.date;
  EXPECT_EQ(entry.date.size(), 19u);
  parsed.tm_isdst = -1;
  const std::time_t when = std::mktime(&parsed);
  EXPECT_GE(when, before - 1);
  EXPECT_LE(when, after + 1);
}

TEST_F(Trash, FoldersAndLinksGoAsTheyAre) {
  const std::string folder = home / "Project";
  item("Project/a.txt");
  item("Project/sub/b.txt");
  ASSERT_EQ(::symlink("Project/a.txt", (home / "link").c_str()), 0);
  ASSERT_TRUE(zt::moveItemToTrash(folder));
  EXPECT_EQ(readFile(files + "/Project/sub/b.txt"), "contents");
  ASSERT_TRUE(zt::moveItemToTrash(home / "link"));
  struct stat st {};
  ASSERT_EQ(::lstat((files + "/link").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(readEntry(info + "/Project.trashinfo").path, folder);
  // A trailing slash names the folder itself.
  item("Other/c.txt");
  ASSERT_TRUE(zt::moveItemToTrash(home / "Other/"));
  EXPECT_EQ(readEntry(info + "/Other.trashinfo").path, home / "Other");
}

TEST_F(Trash, TakenNamesGetNumbersAndEveryItemKeepsItsEntry) {
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(zt::moveItemToTrash(item("a.txt", std::to_string(i))));
  for (int i = 0; i < 2; ++i) {
    item("dir/x");
    ASSERT_TRUE(zt::moveItemToTrash(home / "dir"));
  }
  // An item left in files/ without its entry (an interrupted trash) keeps its name too.
  zt::test::writeFile(files + "/b", "orphan");
  ASSERT_TRUE(zt::moveItemToTrash(item("b", "mine")));
  EXPECT_EQ(namesIn(files), (std::set<std::string>{"a.txt", "a.2.txt", "a.3.txt", "dir", "dir.2", "b", "b.2"}));
  EXPECT_EQ(namesIn(info), (std::set<std::string>{"a.txt.trashinfo", "a.2.txt.trashinfo", "a.3.txt.trashinfo",
                                                  "dir.trashinfo", "dir.2.trashinfo", "b.2.trashinfo"}));
  EXPECT_EQ(readFile(files + "/a.3.txt"), "2");
  EXPECT_EQ(readFile(files + "/b"), "orphan");
  EXPECT_EQ(readEntry(info + "/a.2.txt.trashinfo").path, home / "a.txt");
}

TEST_F(Trash, AwkwardNamesAreEncodedAndLongNamesShortened) {
  const std::string awkward = item("weird\nname%#\u00E4 [1].txt");
  ASSERT_TRUE(zt::moveItemToTrash(awkward));
  const Entry entry = readEntry(info + "/weird\nname%#\u00E4 [1].txt.trashinfo");
  EXPECT_EQ(entry.path, awkward);
  EXPECT_NE(entry.rawPath.find("weird%0Aname%25%23%C3%A4%20%5B1%5D.txt"), std::string::npos) << entry.rawPath;

  // 83 three-byte characters and ".txt": 253 bytes, too long for "<name>.trashinfo".
  std::string longName;
  for (int i = 0; i < 83; ++i) longName += "\u4E2D";
  longName += ".txt";
  for (int i = 0; i < 2; ++i) {
    const std::string path = item(longName);
    const std::optional<std::string> trashed = zt::moveItemToTrash(path);
    ASSERT_TRUE(trashed);
    const std::string name = zt::lastPathComponent(*trashed);
    EXPECT_LE(name.size() + 10, 255u);
    EXPECT_EQ(zt::pathExtension(name), "txt");
    EXPECT_EQ(readEntry(info + "/" + name + ".trashinfo").path, path);
  }
}

TEST_F(Trash, RefusalsLeaveEverythingInPlace) {
  ZTError error;
  EXPECT_EQ(zt::moveItemToTrash(home / "missing.txt", &error), std::nullopt);
  EXPECT_EQ(error.code(), ENOENT);
  for (const std::string& bad : {std::string(), std::string("/"), home / ".", home / "..", std::string("a\0b", 3)}) {
    EXPECT_EQ(zt::moveItemToTrash(bad, &error), std::nullopt) << bad;
    EXPECT_EQ(error.code(), EINVAL) << bad;
  }
  const std::optional<std::string> trashed = zt::moveItemToTrash(item("once.txt"));
  ASSERT_TRUE(trashed);
  EXPECT_EQ(zt::moveItemToTrash(*trashed, &error), std::nullopt);
  EXPECT_EQ(error.code(), EINVAL);
  EXPECT_EQ(zt::moveItemToTrash(trash, &error), std::nullopt);
  EXPECT_EQ(error.code(), EINVAL);

  // A move the file system refuses (a folder into its own trash) removes the entry it wrote.
  EXPECT_EQ(zt::moveItemToTrash(home / "data", &error), std::nullopt);
  EXPECT_EQ(error.domain(), ZTPOSIXErrorDomain);
  EXPECT_TRUE(zt::test::exists(home / "data/Trash/files/once.txt"));
  EXPECT_EQ(namesIn(info), (std::set<std::string>{"once.txt.trashinfo"}));
}

TEST_F(Trash, ConcurrentMovesNeverShareAName) {
  constexpr int kThreads = 4;
  constexpr int kItems = 10;
  std::vector<std::string> paths;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kItems; ++i) paths.push_back(item("t" + std::to_string(t) + "/" + std::to_string(i) + "/same.txt"));
  }
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kItems; ++i) {
        if (!zt::moveItemToTrash(paths[static_cast<std::size_t>(t * kItems + i)])) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  const std::set<std::string> trashed = namesIn(files);
  EXPECT_EQ(trashed.size(), static_cast<std::size_t>(kThreads * kItems));
  std::set<std::string> recorded;
  for (const std::string& name : trashed) recorded.insert(readEntry(info + "/" + name + ".trashinfo").path);
  EXPECT_EQ(recorded, std::set<std::string>(paths.begin(), paths.end()));
}

// The top-folder rules, on a scratch folder standing in for a mounted file system.
TEST(TopFolderTrash, SharedTrashWithStickyBitElseAFolderOfTheUser) {
  using zt::fs_internal::topFolderTrash;
  const uid_t uid = ::geteuid();
  const std::string mine = std::to_string(uid);
  {
    ScratchFolder top;
    const auto can = topFolderTrash(top.path(), uid);
    ASSERT_TRUE(can);
    EXPECT_EQ(can->root, top / (".Trash-" + mine));
    EXPECT_EQ(can->topdir, top.path());
    struct stat st {};
    ASSERT_EQ(::lstat(can->root.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_TRUE(zt::test::exists(can->root + "/files"));
    EXPECT_TRUE(zt::test::exists(can->root + "/info"));
  }
  {
    ScratchFolder top;
    zt::test::makeDirectory(top / ".Trash");
    ASSERT_EQ(::chmod((top / ".Trash").c_str(), 01777), 0);
    const auto can = topFolderTrash(top.path(), uid);
    ASSERT_TRUE(can);
    EXPECT_EQ(can->root, top / (".Trash/" + mine));
  }
  {
    // Without the sticky bit anyone could remove others' items: not used.
    ScratchFolder top;
    zt::test::makeDirectory(top / ".Trash");
    ASSERT_EQ(::chmod((top / ".Trash").c_str(), 0777), 0);
    const auto can = topFolderTrash(top.path(), uid);
    ASSERT_TRUE(can);
    EXPECT_EQ(can->root, top / (".Trash-" + mine));
  }
  {
    // A link in place of .Trash is not followed, even to a proper shared trash.
    ScratchFolder top;
    zt::test::makeDirectory(top / "real");
    ASSERT_EQ(::chmod((top / "real").c_str(), 01777), 0);
    ASSERT_EQ(::symlink((top / "real").c_str(), (top / ".Trash").c_str()), 0);
    const auto can = topFolderTrash(top.path(), uid);
    ASSERT_TRUE(can);
    EXPECT_EQ(can->root, top / (".Trash-" + mine));
    EXPECT_TRUE(namesIn(top / "real").empty());
  }
  {
    // A .Trash-<uid> others may enter, or a link in its place, is refused.
    ScratchFolder top;
    zt::test::makeDirectory(top / (".Trash-" + mine));
    ASSERT_EQ(::chmod((top / (".Trash-" + mine)).c_str(), 0777), 0);
    EXPECT_EQ(topFolderTrash(top.path(), uid), std::nullopt);
    ScratchFolder linked;
    zt::test::makeDirectory(linked / "elsewhere");
    ASSERT_EQ(::chmod((linked / "elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(::symlink((linked / "elsewhere").c_str(), (linked / (".Trash-" + mine)).c_str()), 0);
    EXPECT_EQ(topFolderTrash(linked.path(), uid), std::nullopt);
  }
  if (::geteuid() == 0) {
    ScratchFolder top;
    zt::test::makeDirectory(top / ".Trash-0");
    ASSERT_EQ(::chmod((top / ".Trash-0").c_str(), 0700), 0);
    ASSERT_EQ(::chown((top / ".Trash-0").c_str(), 65534, 65534), 0);
    EXPECT_EQ(topFolderTrash(top.path(), 0), std::nullopt);
  }
}

// An item on another file system goes to that file system's trash, with a Path relative to its top
// folder. /dev/shm is a separate tmpfs on most systems; what the test adds there it removes.
TEST_F(Trash, AnItemOnAnotherFileSystemGoesToThatFileSystemsTrash) {
  struct stat shm {}, here {};
  if (::stat("/dev/shm", &shm) != 0 || ::stat(home.path().c_str(), &here) != 0 || shm.st_dev == here.st_dev ||
      ::access("/dev/shm", W_OK) != 0) {
    GTEST_SKIP() << "no writable /dev/shm on another file system";
  }
  const std::string top = zt::fs_internal::mountPointOf("/dev/shm");
  const std::string userTrash = top + "/.Trash-" + std::to_string(::geteuid());
  const bool hadTrash = zt::test::exists(userTrash);
  std::string folder = top + "/zt-trash-test-XXXXXX";
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  zt::test::writeFile(folder + "/on tmpfs.txt", "far");

  ZTError error;
  if (!hadTrash) {
    // A trash folder others may enter is not used, and nothing is copied across: EXDEV.
    ASSERT_EQ(::mkdir(userTrash.c_str(), 0777), 0);
    ASSERT_EQ(::chmod(userTrash.c_str(), 0777), 0);
    EXPECT_EQ(zt::moveItemToTrash(folder + "/on tmpfs.txt", &error), std::nullopt);
    EXPECT_EQ(error.code(), EXDEV);
    EXPECT_NE(error.localizedDescription().find("on tmpfs.txt"), std::string::npos) << error.description();
    EXPECT_TRUE(zt::test::exists(folder + "/on tmpfs.txt"));
    EXPECT_TRUE(namesIn(userTrash).empty());
    ASSERT_EQ(::rmdir(userTrash.c_str()), 0);
  }
  const std::optional<std::string> trashed = zt::moveItemToTrash(folder + "/on tmpfs.txt", &error);
  std::string entry;
  if (trashed) {
    entry = zt::stringByDeletingLastPathComponent(zt::stringByDeletingLastPathComponent(*trashed)) + "/info/" +
            zt::lastPathComponent(*trashed) + ".trashinfo";
    EXPECT_EQ(zt::stringByDeletingLastPathComponent(*trashed), userTrash + "/files");
    EXPECT_EQ(readFile(*trashed), "far");
    EXPECT_EQ(readEntry(entry).path, folder.substr(top.size() + 1) + "/on tmpfs.txt");
  } else {
    ADD_FAILURE() << error.description();
  }
  EXPECT_TRUE(namesIn(files).empty());
  if (trashed) {
    ::unlink(trashed->c_str());
    ::unlink(entry.c_str());
  }
  zt::test::removeTree(folder);
  if (!hadTrash) zt::test::removeTree(userTrash);
}

}  // namespace
