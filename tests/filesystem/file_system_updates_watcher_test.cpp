// The file-change watcher against real files in a scratch folder, changed the ways editors, sync
// clients and shell tools change them, with the main run loop turned by the test itself.

#include "zentrel/filesystem/file_system_updates_watcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "filesystem/internal/inotify_hooks.h"
#include "common/unprivileged.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/run_loop.h"

using namespace std::chrono_literals;
using zt::test::ScratchFolder;
using zt::test::writeFile;
using Watcher = ZTFileSystemUpdatesWatcher;

namespace {

constexpr auto kSettle = 0.15s;  // the compare interval the tests use instead of one second
constexpr auto kPatience = 10s;  // the longest any expected report may take on a loaded machine

struct Report {
  bool finished;
  std::string path;
  ZTValue state;
};

class Recorder : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(Watcher& watcher, const std::string& path,
                                                            const ZTValue& state) override {
    reports.push_back({false, path, state});
    if (onStart) onStart(watcher, path);
  }
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(Watcher&, const std::string& path,
                                                             const ZTValue& state) override {
    reports.push_back({true, path, state});
    if (onFinish) onFinish(path);
  }

  std::size_t count(bool finished, const std::string& path = {}) const {
    std::size_t n = 0;
    for (const auto& r : reports) n += r.finished == finished && (path.empty() || r.path == path);
    return n;
  }
  const Report* last(bool finished, const std::string& path = {}) const {
    for (auto it = reports.rbegin(); it != reports.rend(); ++it) {
      if (it->finished == finished && (path.empty() || it->path == path)) return &*it;
    }
    return nullptr;
  }

  std::vector<Report> reports;
  std::function<void(Watcher&, const std::string&)> onStart;
  std::function<void(const std::string&)> onFinish;
};

// Turns the main run loop until the condition holds or the patience runs out.
bool runUntil(const std::function<bool()>& condition, std::chrono::duration<double> limit = kPatience) {
  ZTRunLoop::main()->runWithCondition([&] { return !condition(); }, limit);
  return condition();
}
// Turns the main run loop for a while, to see that nothing more arrives.
void runFor(std::chrono::duration<double> duration) {
  ZTRunLoop::main()->runUntil(ZTRunLoop::Clock::now() + std::chrono::duration_cast<ZTRunLoop::Clock::duration>(duration));
}

std::shared_ptr<Watcher> watch(const std::vector<std::string>& paths, const std::shared_ptr<Recorder>& recorder) {
  auto watcher = Watcher::create(paths, recorder);
  if (watcher) watcher->setSettleInterval(kSettle);
  return watcher;
}

void append(const std::string& path, std::string_view bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  ::close(fd);
}

// Saves the way editors and sync clients do: a temporary file beside, renamed over the item.
void saveAtomically(const std::string& path, std::string_view bytes) {
  const std::string temporary = path + ".tmp~";
  writeFile(temporary, bytes);
  ASSERT_EQ(::rename(temporary.c_str(), path.c_str()), 0);
}

int runProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::uint64_t sizeIn(const ZTValue& state) { return state[Watcher::kSizeKey].uintValue(~0ULL); }

}  // namespace

TEST(FileSystemUpdatesWatcher, CreationAndTheIgnoringCalls) {
  ScratchFolder scratch;
  const std::string a = scratch / "a.txt", b = scratch / "b.txt";
  writeFile(a, "a");
  writeFile(b, "b");
  auto recorder = std::make_shared<Recorder>();

  EXPECT_EQ(Watcher::create(std::vector<std::string>{}, recorder), nullptr);

  auto single = Watcher::create(a, recorder);
  ASSERT_NE(single, nullptr);
  EXPECT_EQ(single->watchedFiles(), std::vector<std::string>{a});
  EXPECT_FALSE(single->isIgnoringFileSystemUpdates());
  EXPECT_EQ(single->settleInterval(), Watcher::kDefaultSettleInterval);

  auto watcher = watch({a, b}, recorder);
  ASSERT_NE(watcher, nullptr);
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(a));
  EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(scratch / "not-in-the-list"));
  watcher->beginIgnoringFileSystemUpdatesForFileAtPath(scratch / "not-in-the-list");  // skipped
  watcher->beginIgnoringFileSystemUpdatesForFileAtPath(a);
  EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(a));
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdates());
  watcher->beginIgnoringFileSystemUpdatesForFileAtIndex(1);
  EXPECT_TRUE(watcher->isIgnoringFileSystemUpdates());
  watcher->endIgnoringFileSystemUpdates();
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(a));
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(b));
  EXPECT_THROW(watcher->beginIgnoringFileSystemUpdatesForFileAtIndex(2), ZTRangeException);
  EXPECT_THROW(watcher->handleFilesUpdatesForFileAtIndex(7), ZTRangeException);
  EXPECT_TRUE(watcher->delegate().lock() == recorder);
}

TEST(FileSystemUpdatesWatcher, StatesDescribeFilesAndDirectChildrenOfFolders) {
  ScratchFolder scratch;
  const std::string file = scratch / "file.txt";
  writeFile(file, "12345");
  const ZTValue fileState = Watcher::captureStateForPath(file);
  EXPECT_EQ(fileState.size(), 2u);
  EXPECT_EQ(sizeIn(fileState), 5u);
  EXPECT_TRUE(fileState[Watcher::kModificationDateKey].isDate());

  zt::test::makeDirectory(scratch / "sub");
  writeFile(scratch / "sub/deep.txt", "not listed");
  ASSERT_EQ(::symlink("file.txt", (scratch / "link").c_str()), 0);
  const ZTValue folderState = Watcher::captureStateForPath(scratch.path());
  ASSERT_EQ(folderState.size(), 3u) << folderState.description();
  EXPECT_EQ(sizeIn(folderState[file]), 5u);
  EXPECT_TRUE(folderState[scratch / "sub"][Watcher::kModificationDateKey].isDate());
  EXPECT_FALSE(folderState[scratch / "sub"].contains(Watcher::kSizeKey));
  EXPECT_FALSE(folderState[scratch / "link"].contains(Watcher::kSizeKey));
  EXPECT_FALSE(folderState.contains(scratch / "sub/deep.txt"));

  EXPECT_EQ(Watcher::captureStateForPath(scratch / "missing"), ZTValue::dictionary());
  EXPECT_FALSE(Watcher::isFileState(fileState, Watcher::captureStateForPath(file)));
  append(file, "6");
  EXPECT_TRUE(Watcher::isFileState(fileState, Watcher::captureStateForPath(file)));
}

TEST(FileSystemUpdatesWatcher, WritesInABurstGiveOneStartWithThePriorStateAndOneSettledFinish) {
  ScratchFolder scratch;
  const std::string file = scratch / "notes.txt";
  writeFile(file, "abc");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({file}, recorder);
  ASSERT_NE(watcher, nullptr);

  for (int i = 0; i < 3; ++i) append(file, "more");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  runFor(3 * kSettle);
  ASSERT_EQ(recorder->reports.size(), 2u);
  EXPECT_FALSE(recorder->reports[0].finished);
  EXPECT_EQ(recorder->reports[0].path, file);
  EXPECT_EQ(sizeIn(recorder->reports[0].state), 3u);  // from before the first write
  EXPECT_EQ(sizeIn(recorder->reports[1].state), 15u);

  // Appends closer together than the settle interval keep one burst open until they stop.
  watcher->setSettleInterval(0.5s);
  recorder->reports.clear();
  for (int i = 0; i < 4; ++i) {
    append(file, "x");
    runFor(0.1s);
  }
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_EQ(recorder->count(false), 1u);
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 19u);

  // A change that leaves date and size as they were ends the burst at the first compare.
  recorder->reports.clear();
  watcher->setSettleInterval(kSettle);
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_EQ(recorder->reports[0].state, recorder->reports[1].state);
}

TEST(FileSystemUpdatesWatcher, AtomicSavesAndSedInPlaceKeepBeingWatched) {
  ScratchFolder scratch;
  const std::string file = scratch / "document.txt";
  writeFile(file, "alpha\n");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({file}, recorder);
  ASSERT_NE(watcher, nullptr);

  saveAtomically(file, "alpha beta\n");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_EQ(sizeIn(recorder->reports[0].state), 6u);
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 11u);

  saveAtomically(file, "alpha beta gamma\n");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 2; }));
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 17u);

  // The replacement file itself is watched: a write in place is noticed too.
  append(file, "delta\n");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 3; }));
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 23u);

  ASSERT_EQ(runProgram({"sed", "-i", "s/alpha/ALPHA-ALPHA/", file}), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 4; }));
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 29u);
  ASSERT_EQ(runProgram({"sed", "-i", "s/beta//", file}), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 5; }));
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 25u);
  EXPECT_EQ(recorder->count(false), 5u);
}

TEST(FileSystemUpdatesWatcher, DeleteAndRecreateAndItemsThatAppearLater) {
  ScratchFolder scratch;
  const std::string file = scratch / "data.bin";
  const std::string later = scratch / "later.txt";
  writeFile(file, "1234");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({file, later}, recorder);
  ASSERT_NE(watcher, nullptr);
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(later));  // watched through its folder

  ASSERT_EQ(::unlink(file.c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true, file) == 1; }));
  EXPECT_EQ(recorder->last(true, file)->state, ZTValue::dictionary());

  writeFile(file, "123456");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true, file) == 2; }));
  EXPECT_EQ(recorder->last(false, file)->state, ZTValue::dictionary());
  EXPECT_EQ(sizeIn(recorder->last(true, file)->state), 6u);
  append(file, "78");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true, file) == 3; }));
  EXPECT_EQ(sizeIn(recorder->last(true, file)->state), 8u);

  writeFile(later, "here now");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true, later) == 1; }));
  EXPECT_EQ(sizeIn(recorder->last(true, later)->state), 8u);
  EXPECT_EQ(recorder->count(false), 4u);
}

TEST(FileSystemUpdatesWatcher, AFolderReportsChildrenAppearingChangingAndLeaving) {
  ScratchFolder scratch;
  const std::string folder = scratch / "inbox";
  zt::test::makeDirectory(folder);
  zt::test::makeDirectory(folder + "/child");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({folder}, recorder);
  ASSERT_NE(watcher, nullptr);
  const std::string letter = folder + "/letter.txt";

  writeFile(letter, "hello");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_FALSE(recorder->last(false)->state.contains(letter));
  EXPECT_EQ(sizeIn(recorder->last(true)->state[letter]), 5u);

  append(letter, ", world");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 2; }));
  EXPECT_EQ(sizeIn(recorder->last(true)->state[letter]), 12u);

  // A grandchild shows only through the child folder's own modification date.
  const ZTValue before = recorder->last(true)->state[folder + "/child"];
  writeFile(folder + "/child/grandchild.txt", "deep");
  runFor(4 * kSettle);
  EXPECT_EQ(recorder->count(false), 2u);
  EXPECT_FALSE(Watcher::captureStateForPath(folder).contains(folder + "/child/grandchild.txt"));
  EXPECT_NE(Watcher::captureStateForPath(folder)[folder + "/child"], before);

  ASSERT_EQ(::unlink(letter.c_str()), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 3; }));
  EXPECT_FALSE(recorder->last(true)->state.contains(letter));
  EXPECT_TRUE(recorder->last(true)->state.contains(folder + "/child"));

  // The folder removed and made again is still watched, children included.
  ASSERT_TRUE(zt::test::removeTree(folder));
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 4; }));
  EXPECT_EQ(recorder->last(true)->state, ZTValue::dictionary());
  zt::test::makeDirectory(folder);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 5; }));
  writeFile(folder + "/new.txt", "n");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 6; }));
  EXPECT_TRUE(recorder->last(true)->state.contains(folder + "/new.txt"));
}

TEST(FileSystemUpdatesWatcher, AQueueOverflowCountsAsAChangeOfEveryItem) {
  ScratchFolder scratch;
  const std::string busy = scratch / "busy";
  const std::string quiet = scratch / "quiet.txt";
  zt::test::makeDirectory(busy);
  writeFile(quiet, "untouched");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({busy, quiet}, recorder);
  ASSERT_NE(watcher, nullptr);

  // More events than the kernel queues (fs.inotify.max_queued_events, 16384 by default) while the
  // loop is not reading; alternating names so that the kernel cannot merge them.
  long queued = 16384;
  if (FILE* limit = std::fopen("/proc/sys/fs/inotify/max_queued_events", "r")) {
    if (std::fscanf(limit, "%ld", &queued) != 1) queued = 16384;
    std::fclose(limit);
  }
  ASSERT_LT(queued, 2'000'000) << "the machine queues too many events to overflow here";
  const int first = ::open((busy + "/one").c_str(), O_WRONLY | O_CREAT, 0644);
  const int second = ::open((busy + "/two").c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(first, 0);
  ASSERT_GE(second, 0);
  for (long i = 0; i < queued + 100; ++i) {
    ASSERT_EQ(::pwrite(i % 2 ? first : second, "x", 1, 0), 1);
  }
  ::close(first);
  ::close(second);

  ASSERT_TRUE(runUntil([&] { return recorder->count(true, quiet) == 1 && recorder->count(true, busy) == 1; }));
  EXPECT_EQ(recorder->last(false, quiet)->state, recorder->last(true, quiet)->state);
  EXPECT_EQ(recorder->last(true, busy)->state.size(), 2u);

  // Watching goes on normally afterwards.
  append(quiet, "!");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true, quiet) == 2; }));
  EXPECT_EQ(sizeIn(recorder->last(true, quiet)->state), 10u);
}

TEST(FileSystemUpdatesWatcher, IgnoringDuringABurstEndsItSilently) {
  ScratchFolder scratch;
  const std::string file = scratch / "mine.txt";
  writeFile(file, "v1");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({file}, recorder);
  ASSERT_NE(watcher, nullptr);

  append(file, "+");
  ASSERT_TRUE(runUntil([&] { return recorder->count(false) == 1; }));
  watcher->beginIgnoringFileSystemUpdatesForFileAtPath(file);
  EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(file));
  append(file, "written by the application itself");
  runFor(4 * kSettle);
  EXPECT_EQ(recorder->reports.size(), 1u);

  watcher->endIgnoringFileSystemUpdatesForFileAtPath(file);
  append(file, "!");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_EQ(recorder->count(false), 2u);
  EXPECT_EQ(sizeIn(recorder->last(false)->state), 36u);  // captured when watching resumed
  EXPECT_EQ(sizeIn(recorder->last(true)->state), 37u);
}

TEST(FileSystemUpdatesWatcher, TeardownWithACompareStillPendingReportsNothingMore) {
  ScratchFolder scratch;
  const std::string file = scratch / "f.txt";
  writeFile(file, "1");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({file, scratch.path()}, recorder);
  ASSERT_NE(watcher, nullptr);
  std::weak_ptr<Watcher> weak = watcher;

  append(file, "2");
  ASSERT_TRUE(runUntil([&] { return recorder->count(false) == 2; }));
  watcher.reset();
  EXPECT_TRUE(weak.expired());
  append(file, "3");
  runFor(4 * kSettle);
  EXPECT_EQ(recorder->count(true), 0u);

  // A delegate may also let go of the watcher from inside a report.
  watcher = watch({file}, recorder);
  recorder->onStart = [&](Watcher&, const std::string&) { watcher.reset(); };
  append(file, "4");
  ASSERT_TRUE(runUntil([&] { return watcher == nullptr; }));
  runFor(4 * kSettle);
  EXPECT_EQ(recorder->count(true), 0u);
  EXPECT_EQ(recorder->count(false), 3u);
}

TEST(FileSystemUpdatesWatcher, ADelegateThatThrowsIsLoggedAndWatchingGoesOn) {
  ScratchFolder scratch;
  const std::string file = scratch / "f.txt";
  writeFile(file, "1");
  auto recorder = std::make_shared<Recorder>();
  recorder->onStart = [](Watcher&, const std::string&) { throw std::runtime_error("start went wrong"); };
  recorder->onFinish = [](const std::string&) { throw 42; };
  auto watcher = watch({file}, recorder);
  ASSERT_NE(watcher, nullptr);
  zt::test::LogCapture log;

  for (int round = 1; round <= 2; ++round) {
    append(file, "x");
    ASSERT_TRUE(runUntil([&] { return recorder->count(true) == static_cast<std::size_t>(round); }));
  }
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_NE(lines[0].find("start went wrong"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[0].rfind("ERROR: Files watcher.", 0), 0u);
}

TEST(FileSystemUpdatesWatcher, PathsThatCannotBeWatchedCountAsIgnored) {
  ScratchFolder scratch;
  auto recorder = std::make_shared<Recorder>();
  const std::string orphan = scratch / "no-such-folder/file.txt";
  const std::string withNul = std::string(scratch.path()) + std::string("/a\0b", 4);
  const std::string notUtf8 = scratch / "caf\xE9-\xFF.txt";
  writeFile(notUtf8, "latin-1 name");
  {
    zt::test::LogCapture log;
    auto watcher = watch({orphan, withNul, "", notUtf8}, recorder);
    ASSERT_NE(watcher, nullptr);
    EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(orphan));
    EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(withNul));
    EXPECT_TRUE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(""));
    EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(notUtf8));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "ERROR: Files watcher. Unable to watch (" + orphan + "). Error: " +
                            "No such file or directory.");
    append(notUtf8, "!");
    ASSERT_TRUE(runUntil([&] { return recorder->count(true, notUtf8) == 1; }));
  }

}

// Root reads every folder: as root, the body runs as "nobody" in a child process.
TEST(FileSystemUpdatesWatcher, AFolderThatMayNotBeReadIsWatchedThroughItsParent) {
  if (zt::test::ranUnprivilegedInAChild()) return;
  ScratchFolder scratch;
  auto recorder = std::make_shared<Recorder>();
  const std::string locked = scratch / "locked";
  zt::test::makeDirectory(locked);
  writeFile(locked + "/secret", "s");
  ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
  zt::test::LogCapture log;
  auto watcher = watch({locked}, recorder);
  ASSERT_NE(watcher, nullptr);
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdatesForFileAtPath(locked));
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "WARNING: Files watcher. (" + locked +
                                ") cannot be watched itself (Permission denied); it is followed through its folder.");
  EXPECT_EQ(log.lines()[1].rfind("ERROR: Files watcher. Unable to get directory (" + locked + ") attributes.", 0), 0u)
      << log.lines()[1];
  ASSERT_EQ(::chmod(locked.c_str(), 0700), 0);
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 1; }));
  EXPECT_EQ(recorder->last(false)->state, ZTValue::dictionary());
  EXPECT_TRUE(recorder->last(true)->state.contains(locked + "/secret"));
  // Once readable, the folder is watched itself: a new child is noticed.
  writeFile(locked + "/another", "a");
  ASSERT_TRUE(runUntil([&] { return recorder->count(true) == 2; }));
  EXPECT_TRUE(recorder->last(true)->state.contains(locked + "/another"));
}

TEST(FileSystemUpdatesWatcher, TheWatchLimitIsNamedOnceAndTheItemIgnored) {
  ScratchFolder scratch;
  writeFile(scratch / "a", "a");
  writeFile(scratch / "b", "b");
  auto recorder = std::make_shared<Recorder>();
  zt::test::LogCapture log;
  zt::filesystem_internal::setInotifyAddWatchForTesting([](int, const char*, std::uint32_t) {
    errno = ENOSPC;
    return -1;
  });
  auto watcher = watch({scratch / "a", scratch / "b"}, recorder);
  zt::filesystem_internal::setInotifyAddWatchForTesting({});
  ASSERT_NE(watcher, nullptr);
  EXPECT_TRUE(watcher->isIgnoringFileSystemUpdates());
  const auto lines = log.lines();
  ASSERT_LE(lines.size(), 1u);  // once per process: an earlier test may have hit it already
  if (!lines.empty()) {
    EXPECT_NE(lines[0].find("fs.inotify.max_user_watches"), std::string::npos) << lines[0];
  }
  watcher->endIgnoringFileSystemUpdates();
  EXPECT_FALSE(watcher->isIgnoringFileSystemUpdates());
}

TEST(FileSystemUpdatesWatcher, AnIdleWatcherCostsNoCpu) {
  // Watched items in a quiet folder: the parent folder's events about other names (the scratch
  // folder sits in a busy /tmp) wake the watcher, if only briefly.
  ScratchFolder scratch;
  const std::string folder = scratch / "quiet";
  zt::test::makeDirectory(folder);
  writeFile(folder + "/a", "a");
  auto recorder = std::make_shared<Recorder>();
  auto watcher = watch({folder, folder + "/a"}, recorder);
  ASSERT_NE(watcher, nullptr);
  runFor(0.1s);
  struct rusage before {}, after {};
  ::getrusage(RUSAGE_THREAD, &before);
  runFor(2s);
  ::getrusage(RUSAGE_THREAD, &after);
  const auto micros = [](const struct rusage& r) {
    return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1'000'000L + r.ru_utime.tv_usec + r.ru_stime.tv_usec;
  };
  EXPECT_LT(micros(after) - micros(before), 10'000L);  // less than one clock tick
  EXPECT_TRUE(recorder->reports.empty());
}
