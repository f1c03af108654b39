#include "zentrel/platform/file_coordinator.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "platform/internal/coordination_locks.h"
#include "zentrel/platform/log.h"

extern char** environ;

namespace {
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kChildRoleVariable = "ZT_COORDINATION_TEST_CHILD";

// --- child processes: this test binary started again with a role in its environment -------------

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Appends "<tag> begin\n", the tag's bytes one write at a time, and "<tag> end\n", `rounds` times,
// each round under one write claim.
int runWriterRole(const std::string& document, const std::string& tag, int rounds) {
  auto coordinator = ZTFileCoordinator::create();
  // Both writers start together, when the test creates "<document>.go".
  const auto deadline = Clock::now() + 10s;
  while (::access((document + ".go").c_str(), F_OK) != 0 && Clock::now() < deadline) std::this_thread::sleep_for(1ms);
  for (int round = 0; round < rounds; ++round) {
    ZTError error;
    const bool ran = coordinator->coordinateWritingItemAtURL(
        document, ZTFileCoordinatorWritingForReplacing, &error, [&](const std::string& path) {
          FILE* file = std::fopen(path.c_str(), "a");
          if (!file) return;
          std::fprintf(file, "%s begin\n", tag.c_str());
          std::fflush(file);
          for (char c : tag) {
            std::fputc(c, file);
            std::fflush(file);
            std::this_thread::yield();
          }
          std::fprintf(file, "\n%s end\n", tag.c_str());
          std::fclose(file);
        });
    if (!ran) return 2;
  }
  return 0;
}

// Takes a claim (mode "read" or "write") on `path`, creates `marker`, and waits to be killed.
int runHolderRole(const std::string& path, const std::string& mode, const std::string& marker) {
  auto coordinator = ZTFileCoordinator::create();
  auto hold = [&](const std::string&) {
    std::ofstream(marker) << "held";
    for (;;) ::pause();
  };
  if (mode == "write") coordinator->coordinateWritingItemAtURL(path, 0, nullptr, hold);
  else coordinator->coordinateReadingItemAtURL(path, 0, nullptr, hold);
  return 3;
}

// Roles are "writer|<document>|<tag>|<rounds>" and "holder|<path>|<mode>|<marker>".
bool runChildRoleIfAsked() {
  const char* role = std::getenv(kChildRoleVariable);
  if (role == nullptr) return false;
  std::vector<std::string> fields;
  std::stringstream stream(role);
  for (std::string field; std::getline(stream, field, '|');) fields.push_back(field);
  int status = 4;
  if (fields.size() == 4 && fields[0] == "writer") status = runWriterRole(fields[1], fields[2], std::stoi(fields[3]));
  if (fields.size() == 4 && fields[0] == "holder") status = runHolderRole(fields[1], fields[2], fields[3]);
  std::_Exit(status);
}

// Every test (and every child) uses a lock folder of its own run, never the user's real one.
const std::string& lockFolderBase() {
  static const std::string base = [] {
    char pattern[] = "/tmp/zt-coordination-test-XXXXXX";
    const char* made = ::mkdtemp(pattern);
    return std::string(made ? made : "/tmp");
  }();
  return base;
}

const bool kEnvironmentReady = [] {
  if (std::getenv(kChildRoleVariable) == nullptr) {
    ::setenv("XDG_RUNTIME_DIR", lockFolderBase().c_str(), 1);
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(lockFolderBase(), ignored);
    });
  }
  return runChildRoleIfAsked();
}();

class ChildProcess {
 public:
  explicit ChildProcess(const std::string& role) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) environment.emplace_back(*entry);
    environment.push_back(std::string(kChildRoleVariable) + "=" + role);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    char self[] = "/proc/self/exe";
    char* argv[] = {self, nullptr};
    if (::posix_spawn(&pid_, "/proc/self/exe", nullptr, nullptr, argv, envp.data()) != 0) pid_ = -1;
  }
  ~ChildProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      wait();
    }
  }
  pid_t pid() const { return pid_; }
  void kill() { ::kill(pid_, SIGKILL); }
  // The exit status, or -1 when it ended by a signal.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
};

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = 10s) {
  const auto deadline = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

class ScratchFolder {
 public:
  ScratchFolder() {
    char pattern[] = "/tmp/zt-coordinator-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Holds a claim on another thread until released.
class HeldClaim {
 public:
  HeldClaim(const std::string& path, bool write) {
    thread_ = std::thread([this, path, write] {
      auto coordinator = ZTFileCoordinator::create();
      auto hold = [this](const std::string&) {
        held_.set_value();
        release_.get_future().wait();
      };
      if (write) coordinator->coordinateWritingItemAtURL(path, 0, nullptr, hold);
      else coordinator->coordinateReadingItemAtURL(path, 0, nullptr, hold);
    });
    heldFuture_ = held_.get_future();
  }
  bool waitUntilHeld() { return heldFuture_.wait_for(10s) == std::future_status::ready; }
  ~HeldClaim() {
    release_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> held_;
  std::future<void> heldFuture_;
  std::promise<void> release_;
  std::thread thread_;
};

// A claim that must be refused quickly: true when it timed out with the locking error.
bool claimTimesOut(const std::string& path, bool write) {
  auto coordinator = ZTFileCoordinator::create();
  coordinator->setWaitTimeout(150ms);
  ZTError error;
  const bool ran = write ? coordinator->coordinateWritingItemAtURL(path, 0, &error, [](const std::string&) {})
                         : coordinator->coordinateReadingItemAtURL(path, 0, &error, [](const std::string&) {});
  return !ran && error.domain() == ZTCocoaErrorDomain && error.code() == ZTFileLockingError;
}

bool claimIsGranted(const std::string& path, bool write) {
  auto coordinator = ZTFileCoordinator::create();
  coordinator->setWaitTimeout(5s);
  bool ran = false;
  auto mark = [&](const std::string&) { ran = true; };
  if (write) coordinator->coordinateWritingItemAtURL(path, 0, nullptr, mark);
  else coordinator->coordinateReadingItemAtURL(path, 0, nullptr, mark);
  return ran;
}

// --- within one process -----------------------------------------------------------------------

TEST(FileCoordinator, ReadersShareWritersExcludeAndFoldersCoverTheirContents) {
  ScratchFolder scratch;
  const std::string folder = scratch / "Project";
  fs::create_directory(folder);
  const std::string inner = folder + "/notes.txt";
  {
    HeldClaim reader(inner, false);
    ASSERT_TRUE(reader.waitUntilHeld());
    EXPECT_TRUE(claimIsGranted(inner, false));
    EXPECT_TRUE(claimIsGranted(folder, false));
    EXPECT_TRUE(claimTimesOut(inner, true));
    EXPECT_TRUE(claimTimesOut(folder, true));
    EXPECT_TRUE(claimIsGranted(folder + "/other.txt", true));
  }
  {
    HeldClaim writer(folder, true);
    ASSERT_TRUE(writer.waitUntilHeld());
    EXPECT_TRUE(claimTimesOut(inner, false));
    EXPECT_TRUE(claimTimesOut(folder + "/deeper/still.txt", true));
    EXPECT_TRUE(claimTimesOut(scratch.path(), false));
    EXPECT_TRUE(claimIsGranted(scratch / "Projects", true));  // a sibling whose name starts the same
  }
  // Differently written paths name the same item.
  HeldClaim writer(inner, true);
  ASSERT_TRUE(writer.waitUntilHeld());
  EXPECT_TRUE(claimTimesOut(folder + "//./sub/../notes.txt", false));
}

TEST(FileCoordinator, AccessorGetsThePathAsWrittenAndItsExceptionPassesThrough) {
  ScratchFolder scratch;
  const std::string path = scratch / "a.txt";
  auto coordinator = ZTFileCoordinator::create();
  std::string seen;
  EXPECT_TRUE(coordinator->coordinateReadingItemAtURL(path, ZTFileCoordinatorReadingWithoutChanges, nullptr,
                                                      [&](const std::string& p) { seen = p; }));
  EXPECT_EQ(seen, path);

  EXPECT_THROW(coordinator->coordinateWritingItemAtURL(path, 0, nullptr,
                                                       [](const std::string&) { throw std::runtime_error("x"); }),
               std::runtime_error);
  EXPECT_TRUE(claimIsGranted(path, true));  // the claim was released by the exception
}

TEST(FileCoordinator, BadPathsAndNestedConflictsFailWithoutRunningTheAccessor) {
  auto coordinator = ZTFileCoordinator::create();
  bool ran = false;
  ZTError error;
  EXPECT_FALSE(coordinator->coordinateReadingItemAtURL("", 0, &error, [&](const std::string&) { ran = true; }));
  EXPECT_EQ(error.code(), 258);
  EXPECT_FALSE(coordinator->coordinateWritingItemAtURL(std::string("/tmp/a\0b", 8), 0, &error,
                                                       [&](const std::string&) { ran = true; }));
  EXPECT_EQ(error.code(), 514);
  EXPECT_FALSE(ran);

  ScratchFolder scratch;
  bool innerRan = false;
  bool innerResult = true;
  EXPECT_TRUE(coordinator->coordinateWritingItemAtURL(scratch.path(), 0, nullptr, [&](const std::string&) {
    innerResult = coordinator->coordinateReadingItemAtURL(scratch / "x", 0, &error,
                                                          [&](const std::string&) { innerRan = true; });
  }));
  EXPECT_FALSE(innerResult);
  EXPECT_FALSE(innerRan);
  EXPECT_EQ(error.code(), ZTFileLockingError);
  // Nested reads on one thread are fine.
  EXPECT_TRUE(coordinator->coordinateReadingItemAtURL(scratch.path(), 0, nullptr, [&](const std::string&) {
    innerResult = coordinator->coordinateReadingItemAtURL(scratch / "x", 0, nullptr, [](const std::string&) {});
  }));
  EXPECT_TRUE(innerResult);
}

TEST(FileCoordinator, OppositeMovesFromTwoThreadsFinish) {
  ScratchFolder scratch;
  const std::string a = scratch / "a";
  const std::string b = scratch / "b";
  std::ofstream(a) << "content";
  constexpr int kRounds = 300;
  auto mover = [&](const std::string& from, const std::string& to) {
    auto coordinator = ZTFileCoordinator::create();
    int done = 0;
    for (int i = 0; i < kRounds; ++i) {
      coordinator->coordinateWritingItemAtURL(
          from, ZTFileCoordinatorWritingForMoving, to, ZTFileCoordinatorWritingForReplacing, nullptr,
          [&](const std::string& source, const std::string& destination) {
            coordinator->itemAtURLWillMoveToURL(source, destination);
            if (std::rename(source.c_str(), destination.c_str()) == 0) {
              coordinator->itemAtURLDidMoveToURL(source, destination);
            }
            ++done;
          });
    }
    return done;
  };
  auto forward = std::async(std::launch::async, mover, a, b);
  auto backward = std::async(std::launch::async, mover, b, a);
  ASSERT_EQ(forward.wait_for(60s), std::future_status::ready);
  ASSERT_EQ(backward.wait_for(60s), std::future_status::ready);
  EXPECT_EQ(forward.get(), kRounds);
  EXPECT_EQ(backward.get(), kRounds);
  EXPECT_NE(fs::exists(a), fs::exists(b));  // the item was never lost or doubled
}

TEST(FileCoordinator, WaitingClaimIsGrantedOnTheMovedItemsNewLocation) {
  ScratchFolder scratch;
  const std::string oldPath = scratch / "Draft.txt";
  const std::string newPath = scratch / "Final.txt";
  std::ofstream(oldPath) << "text";
  auto mover = ZTFileCoordinator::create();
  std::promise<void> waiting;
  std::future<std::string> readerSaw;
  ASSERT_TRUE(mover->coordinateWritingItemAtURL(
      oldPath, ZTFileCoordinatorWritingForMoving, newPath, ZTFileCoordinatorWritingForReplacing, nullptr,
      [&](const std::string& source, const std::string& destination) {
        readerSaw = std::async(std::launch::async, [&] {
          std::string seen;
          std::string content;
          ZTFileCoordinator::create()->coordinateReadingItemAtURL(oldPath, 0, nullptr, [&](const std::string& p) {
            seen = p;
            content = readFile(p);
          });
          return seen + "|" + content;
        });
        ASSERT_TRUE(waitFor([] { return zt::internal::waitingClaimCount() == 1; }));
        mover->itemAtURLWillMoveToURL(source, destination);
        ASSERT_EQ(std::rename(source.c_str(), destination.c_str()), 0);
        mover->itemAtURLDidMoveToURL(source, destination);
      }));
  ASSERT_EQ(readerSaw.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(readerSaw.get(), newPath + "|text");
}

TEST(FileCoordinator, CancelMakesOnlyTheWaitingClaimFail) {
  ScratchFolder scratch;
  const std::string path = scratch / "doc";
  HeldClaim writer(path, true);
  ASSERT_TRUE(writer.waitUntilHeld());
  auto coordinator = ZTFileCoordinator::create();
  auto claim = std::async(std::launch::async, [&] {
    ZTError error;
    bool ran = false;
    coordinator->coordinateReadingItemAtURL(path, 0, &error, [&](const std::string&) { ran = true; });
    return std::make_pair(ran, error);
  });
  ASSERT_TRUE(waitFor([] { return zt::internal::waitingClaimCount() == 1; }));
  const auto cancelled = Clock::now();
  coordinator->cancel();
  ASSERT_EQ(claim.wait_for(5s), std::future_status::ready);
  EXPECT_LT(Clock::now() - cancelled, 1s);
  const auto [ran, error] = claim.get();
  EXPECT_FALSE(ran);
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
  EXPECT_EQ(error.code(), ZTUserCancelledError);
  // The coordinator is usable again for later claims (this one waits for the writer, so it is short).
  coordinator->setWaitTimeout(100ms);
  ZTError later;
  EXPECT_FALSE(coordinator->coordinateReadingItemAtURL(path, 0, &later, [](const std::string&) {}));
  EXPECT_EQ(later.code(), ZTFileLockingError);
}

// --- presenters -------------------------------------------------------------------------------

class RecordingPresenter : public ZTFilePresenter {
 public:
  explicit RecordingPresenter(std::string path) : path_(std::move(path)) {}
  std::string presentedItemURL() const override {
    ZTLockGuard lock(mutex_);
    return path_;
  }
  void presentedItemDidMoveToURL(const std::string& newPath) override {
    {
      ZTLockGuard lock(mutex_);
      path_ = newPath;
    }
    record("moved " + newPath);
  }
  void presentedItemDidChange() override {
    record("changed");
    if (throwOnChange) throw std::runtime_error("presenter failure");
  }
  void presentedSubitemDidChangeAtURL(const std::string& path) override { record("subitem changed " + path); }
  void presentedSubitemAtURLDidMoveToURL(const std::string& from, const std::string& to) override {
    record("subitem moved " + from + " " + to);
  }
  std::vector<std::string> events() const {
    ZTLockGuard lock(mutex_);
    return events_;
  }
  bool waitForEvents(std::size_t count) const {
    return waitFor([&] { return events().size() >= count; });
  }
  std::atomic<bool> throwOnChange{false};

 private:
  void record(std::string event) {
    ZTLockGuard lock(mutex_);
    events_.push_back(std::move(event));
  }
  mutable ZTMutex mutex_;
  std::string path_ ZT_GUARDED_BY(mutex_);
  std::vector<std::string> events_ ZT_GUARDED_BY(mutex_);
};

TEST(FilePresenter, ToldOfChangesUnderOtherCoordinatorsButNotItsOwn) {
  ScratchFolder scratch;
  const std::string path = scratch / "report.txt";
  auto presenter = std::make_shared<RecordingPresenter>(path);
  auto folderPresenter = std::make_shared<RecordingPresenter>(scratch.path());
  ZTFileCoordinator::addFilePresenter(presenter);
  ZTFileCoordinator::addFilePresenter(folderPresenter);
  auto own = ZTFileCoordinator::create(presenter);
  auto other = ZTFileCoordinator::create();

  EXPECT_TRUE(own->coordinateWritingItemAtURL(path, 0, nullptr, [](const std::string&) {}));
  EXPECT_TRUE(other->coordinateReadingItemAtURL(path, 0, nullptr, [](const std::string&) {}));
  EXPECT_TRUE(other->coordinateWritingItemAtURL(path, 0, nullptr, [](const std::string&) {}));
  // Messages arrive in order: had the own write been reported, it would come first.
  ASSERT_TRUE(presenter->waitForEvents(1));
  ASSERT_TRUE(folderPresenter->waitForEvents(2));
  EXPECT_EQ(presenter->events(), std::vector<std::string>{"changed"});
  EXPECT_EQ(folderPresenter->events(),
            (std::vector<std::string>{"subitem changed " + path, "subitem changed " + path}));

  // A presenter that throws is logged and keeps getting its messages.
  std::vector<std::string> logged;
  ZTMutex logMutex;
  ZTSetLogSink([&](std::string_view line) {
    ZTLockGuard lock(logMutex);
    logged.emplace_back(line);
  });
  presenter->throwOnChange = true;
  other->coordinateWritingItemAtURL(path, 0, nullptr, [](const std::string&) {});
  other->coordinateWritingItemAtURL(path, 0, nullptr, [](const std::string&) {});
  EXPECT_TRUE(presenter->waitForEvents(3));
  EXPECT_TRUE(waitFor([&] {
    ZTLockGuard lock(logMutex);
    return logged.size() >= 2;
  }));
  ZTSetLogSink(nullptr);
  {
    ZTLockGuard lock(logMutex);
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged[0], "ERROR: a file presenter's message threw: presenter failure");
  }
  ZTFileCoordinator::removeFilePresenter(presenter.get());
  ZTFileCoordinator::removeFilePresenter(folderPresenter.get());
}

TEST(FilePresenter, ToldOfMovesOfItsItemAndOfItemsInItsFolder) {
  ScratchFolder scratch;
  const std::string from = scratch / "a.txt";
  const std::string to = scratch / "b.txt";
  std::ofstream(from) << "x";
  auto presenter = std::make_shared<RecordingPresenter>(from);
  auto folderPresenter = std::make_shared<RecordingPresenter>(scratch.path());
  ZTFileCoordinator::addFilePresenter(presenter);
  ZTFileCoordinator::addFilePresenter(folderPresenter);
  auto mover = ZTFileCoordinator::create();
  EXPECT_TRUE(mover->coordinateWritingItemAtURL(from, ZTFileCoordinatorWritingForMoving, to,
                                                ZTFileCoordinatorWritingForReplacing, nullptr,
                                                [&](const std::string& source, const std::string& destination) {
                                                  mover->itemAtURLWillMoveToURL(source, destination);
                                                  std::rename(source.c_str(), destination.c_str());
                                                  mover->itemAtURLDidMoveToURL(source, destination);
                                                }));
  ASSERT_TRUE(presenter->waitForEvents(1));
  ASSERT_TRUE(folderPresenter->waitForEvents(1));
  // A later change of the item reaches the presenter at its new path.
  mover->coordinateWritingItemAtURL(to, 0, nullptr, [](const std::string&) {});
  ASSERT_TRUE(presenter->waitForEvents(2));
  EXPECT_EQ(presenter->events(), (std::vector<std::string>{"moved " + to, "changed"}));
  ASSERT_TRUE(folderPresenter->waitForEvents(2));
  EXPECT_EQ(folderPresenter->events()[0], "subitem moved " + from + " " + to);

  // A presenter that goes away is dropped without being removed.
  presenter.reset();
  folderPresenter.reset();
  EXPECT_TRUE(ZTFileCoordinator::filePresenters().empty());
}

TEST(FilePresenter, PresentersAndWaitingClaimsInsideAMovedFolderFollowIt) {
  ScratchFolder scratch;
  const std::string from = scratch / "Album";
  const std::string to = scratch / "Album 2026";
  fs::create_directory(from);
  std::ofstream(from + "/photo.jpg") << "jpeg";
  auto presenter = std::make_shared<RecordingPresenter>(from + "/photo.jpg");
  ZTFileCoordinator::addFilePresenter(presenter);
  auto mover = ZTFileCoordinator::create();
  std::future<std::string> readerSaw;
  ASSERT_TRUE(mover->coordinateWritingItemAtURL(
      from, ZTFileCoordinatorWritingForMoving, to, ZTFileCoordinatorWritingForReplacing, nullptr,
      [&](const std::string& source, const std::string& destination) {
        readerSaw = std::async(std::launch::async, [&] {
          std::string seen;
          ZTFileCoordinator::create()->coordinateReadingItemAtURL(from + "/photo.jpg", 0, nullptr,
                                                                  [&](const std::string& p) { seen = p; });
          return seen;
        });
        ASSERT_TRUE(waitFor([] { return zt::internal::waitingClaimCount() == 1; }));
        ASSERT_EQ(std::rename(source.c_str(), destination.c_str()), 0);
        mover->itemAtURLDidMoveToURL(source, destination);
      }));
  ASSERT_EQ(readerSaw.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(readerSaw.get(), to + "/photo.jpg");
  ASSERT_TRUE(presenter->waitForEvents(1));
  EXPECT_EQ(presenter->events(), std::vector<std::string>{"moved " + to + "/photo.jpg"});
  ZTFileCoordinator::removeFilePresenter(presenter.get());
}

// --- across processes -------------------------------------------------------------------------

TEST(FileCoordinatorAcrossProcesses, WritersInTwoProcessesNeverInterleave) {
  ScratchFolder scratch;
  const std::string document = scratch / "shared.txt";
  constexpr int kRounds = 200;
  ChildProcess first("writer|" + document + "|first-writer-process|" + std::to_string(kRounds));
  ChildProcess second("writer|" + document + "|second-writer-process|" + std::to_string(kRounds));
  std::ofstream(document + ".go") << "go";
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);

  std::stringstream lines(readFile(document));
  std::string line;
  int blocks = 0;
  while (std::getline(lines, line)) {
    const auto space = line.find(' ');
    ASSERT_NE(space, std::string::npos) << line;
    const std::string tag = line.substr(0, space);
    ASSERT_EQ(line, tag + " begin");
    ASSERT_TRUE(std::getline(lines, line));
    ASSERT_EQ(line, tag);
    ASSERT_TRUE(std::getline(lines, line));
    ASSERT_EQ(line, tag + " end");
    ++blocks;
  }
  EXPECT_EQ(blocks, 2 * kRounds);
}

TEST(FileCoordinatorAcrossProcesses, ClaimOfAKilledProcessIsReleased) {
  ScratchFolder scratch;
  const std::string document = scratch / "doc";
  const std::string marker = scratch / "held";
  ChildProcess holder("holder|" + document + "|write|" + marker);
  ASSERT_TRUE(waitFor([&] { return fs::exists(marker); }));
  EXPECT_TRUE(claimTimesOut(document, false));

  // cancel() also reaches a claim that waits for another process.
  auto coordinator = ZTFileCoordinator::create();
  std::atomic<bool> finished{false};
  ZTError error;
  std::thread waiter([&] {
    coordinator->coordinateWritingItemAtURL(document, 0, &error, [](const std::string&) {});
    finished = true;
  });
  EXPECT_TRUE(waitFor([&] {
    coordinator->cancel();
    return finished.load();
  }));
  waiter.join();
  EXPECT_EQ(error.code(), ZTUserCancelledError);

  holder.kill();
  EXPECT_EQ(holder.wait(), -1);
  EXPECT_TRUE(claimIsGranted(document, true));
}

TEST(FileCoordinatorAcrossProcesses, FolderClaimsConflictWithClaimsInsideAnotherProcess) {
  ScratchFolder scratch;
  const std::string folder = scratch / "Library";
  fs::create_directory(folder);
  const std::string inner = folder + "/book.txt";
  {
    ChildProcess holder("holder|" + inner + "|write|" + scratch / "m1");
    ASSERT_TRUE(waitFor([&] { return fs::exists(scratch / "m1"); }));
    EXPECT_TRUE(claimTimesOut(folder, false));
    EXPECT_TRUE(claimTimesOut(folder, true));
    EXPECT_TRUE(claimIsGranted(folder + "/other.txt", true));
  }
  {
    ChildProcess holder("holder|" + folder + "|read|" + scratch / "m2");
    ASSERT_TRUE(waitFor([&] { return fs::exists(scratch / "m2"); }));
    EXPECT_TRUE(claimIsGranted(inner, false));
    EXPECT_TRUE(claimIsGranted(folder, false));
    EXPECT_TRUE(claimTimesOut(inner, true));
  }
  {
    ChildProcess holder("holder|" + folder + "|write|" + scratch / "m3");
    ASSERT_TRUE(waitFor([&] { return fs::exists(scratch / "m3"); }));
    EXPECT_TRUE(claimTimesOut(inner, false));
    EXPECT_TRUE(claimIsGranted(scratch / "Library2", true));
  }
  EXPECT_TRUE(claimIsGranted(inner, true));
}

TEST(FileCoordinatorAcrossProcesses, LockFilesLiveInAPrivateFolderOfTheUser) {
  ScratchFolder scratch;
  EXPECT_TRUE(claimIsGranted(scratch / "x", true));
  const std::string folder = zt::internal::lockFolderPath();
  EXPECT_EQ(folder, lockFolderBase() + "/zentrel-coordination");
  struct stat info {};
  ASSERT_EQ(::lstat(folder.c_str(), &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_TRUE(fs::exists(folder + "/" + zt::internal::lockFileName(*zt::internal::claimPath(scratch / "x"))));
}

}  // namespace
