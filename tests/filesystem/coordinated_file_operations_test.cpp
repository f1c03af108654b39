#include "zentrel/filesystem/coordinated_file_operations.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "common/unprivileged.h"
#include "filesystem/support/scratch_folder.h"
#include "platform/internal/coordination_locks.h"

namespace {
using namespace std::chrono_literals;
using zt::test::ScratchFolder;

// Lock files of these tests go to a folder of the tests' own, never the user's. One fixed folder,
// reused by every run: death-test children of this binary start it again and end without cleaning
// up, so a folder per process would pile up.
const bool kPrivateLockFolder = [] {
  static const std::string base = "/tmp/zt-coordinated-ops-tests-" + std::to_string(::geteuid());
  ::mkdir(base.c_str(), 0700);
  ::setenv("XDG_RUNTIME_DIR", base.c_str(), 1);
  return true;
}();

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool waitFor(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

// Holds a write claim on another thread; `inside` runs within it before it is released.
class HeldWrite {
 public:
  explicit HeldWrite(const std::string& path, std::function<void()> beforeRelease = {}) {
    thread_ = std::thread([this, path, beforeRelease = std::move(beforeRelease)] {
      ZTFileCoordinator::create()->coordinateWritingItemAtURL(path, 0, nullptr, [&](const std::string&) {
        held_.set_value();
        release_.get_future().wait();
        if (beforeRelease) beforeRelease();
      });
    });
    EXPECT_EQ(held_.get_future().wait_for(10s), std::future_status::ready);
  }
  void release() {
    if (!thread_.joinable()) return;
    release_.set_value();
    thread_.join();
  }
  ~HeldWrite() { release(); }

 private:
  std::promise<void> held_;
  std::promise<void> release_;
  std::thread thread_;
};

class MoveRecorder : public ZTFilePresenter {
 public:
  explicit MoveRecorder(std::string path) : path_(std::move(path)) {}
  std::string presentedItemURL() const override { return path_; }
  void presentedItemDidMoveToURL(const std::string& newPath) override {
    ZTLockGuard lock(mutex_);
    moves_.push_back(newPath);
  }
  std::vector<std::string> moves() const {
    ZTLockGuard lock(mutex_);
    return moves_;
  }

 private:
  const std::string path_;
  mutable ZTMutex mutex_;
  std::vector<std::string> moves_ ZT_GUARDED_BY(mutex_);
};

class CoordinatedFileOperations : public ::testing::Test {
 protected:
  ScratchFolder scratch;
  std::shared_ptr<ZTFileManager> manager = ZTFileManager::create();
};

TEST_F(CoordinatedFileOperations, RemovingAMissingItemSucceedsUnlessOptionOneAsksOtherwise) {
  const std::string missing = scratch / "missing.txt";
  ZTError error(ZTPOSIXErrorDomain, 99);
  EXPECT_TRUE(zt::removeItemAtPathWithCoordination(*manager, missing, &error));
  EXPECT_EQ(error.code(), 99);  // untouched on success

  ZTError expected;
  EXPECT_FALSE(manager->removeItemAtPath(missing, &expected));
  EXPECT_FALSE(zt::removeItemAtPathWithCoordination(*manager, missing, nullptr, 1, &error));
  EXPECT_EQ(error, expected);

  // A dangling link is an item: it is removed, not taken for a missing one.
  const std::string link = scratch / "dangling";
  ASSERT_EQ(::symlink((scratch / "nowhere").c_str(), link.c_str()), 0);
  EXPECT_TRUE(zt::removeItemAtPathWithCoordination(*manager, link));
  EXPECT_FALSE(std::filesystem::is_symlink(link));

  const std::string folder = scratch / "tree";
  zt::test::makeDirectory(folder);
  zt::test::writeFile(folder + "/inner.txt", "x");
  EXPECT_TRUE(zt::removeItemAtPathWithCoordination(*manager, folder, nullptr, 1, &error));
  EXPECT_FALSE(zt::test::exists(folder));
}

TEST_F(CoordinatedFileOperations, MoveReplacesOnlyWithOptionOneAndTellsPresentersOfTheMove) {
  const std::string source = scratch / "draft.txt";
  const std::string destination = scratch / "final.txt";
  zt::test::writeFile(source, "new");
  zt::test::writeFile(destination, "old");

  ZTError error;
  EXPECT_FALSE(zt::moveItemWithCoordinationFromPath(*manager, source, destination, &error));
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
  EXPECT_EQ(error.code(), ZTFileWriteFileExistsError);
  EXPECT_EQ(readFile(source), "new");
  EXPECT_EQ(readFile(destination), "old");

  auto presenter = std::make_shared<MoveRecorder>(source);
  ZTFileCoordinator::addFilePresenter(presenter);
  zt::test::LogCapture log;
  EXPECT_TRUE(zt::moveItemWithCoordinationFromPath(*manager, source, destination, nullptr, 1, &error));
  EXPECT_FALSE(zt::test::exists(source));
  EXPECT_EQ(readFile(destination), "new");
  ASSERT_TRUE(waitFor([&] { return !presenter->moves().empty(); }));
  EXPECT_EQ(presenter->moves(), std::vector<std::string>{destination});
  EXPECT_TRUE(log.lines().empty());  // the move was announced inside its claim

  // The URL form refuses what is not a file URL, with the coordinator's error.
  EXPECT_FALSE(zt::moveItemWithCoordinationFromURL(*manager, ZTFileURL::URLWithString("https://example.org/a"),
                                                   ZTFileURL::fileURLWithPath(source), nullptr, 0, &error));
  EXPECT_EQ(error.code(), ZTFileWriteInvalidFileNameError);
  ZTFileCoordinator::removeFilePresenter(presenter.get());
}

TEST_F(CoordinatedFileOperations, MoveWithReplaceStopsWhenTheDestinationCannotBeRemoved) {
  if (zt::test::ranUnprivilegedInAChild()) return;  // root passes permission checks
  const std::string source = scratch / "a.txt";
  const std::string locked = scratch / "locked";
  zt::test::writeFile(source, "a");
  zt::test::makeDirectory(locked);
  zt::test::writeFile(locked + "/b.txt", "b");
  std::filesystem::permissions(locked, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  ZTError error;
  EXPECT_FALSE(zt::moveItemWithCoordinationFromPath(*manager, source, locked + "/b.txt", nullptr, 1, &error));
  EXPECT_EQ(error.code(), ZTFileWriteNoPermissionError);
  EXPECT_TRUE(zt::test::exists(source));
  std::filesystem::permissions(locked, std::filesystem::perms::owner_all);
}

TEST_F(CoordinatedFileOperations, CopyWaitsForTheWriterOfItsSourceAndReplacesOnlyWithOptionOne) {
  const std::string source = scratch / "source.txt";
  const std::string destination = scratch / "copy.txt";
  zt::test::writeFile(source, "first");
  zt::test::writeFile(destination, "older");

  ZTError error;
  EXPECT_FALSE(zt::copyItemWithCoordinationFromPath(*manager, source, destination, &error));
  EXPECT_EQ(error.code(), ZTFileWriteFileExistsError);
  EXPECT_EQ(readFile(destination), "older");

  // A writer holds the source: the copy waits and then sees the finished file.
  HeldWrite writer(source, [&] { zt::test::writeFile(source, "second, complete"); });
  auto copy = std::async(std::launch::async, [&] {
    return zt::copyItemWithCoordinationFromPath(*manager, source, destination, nullptr, 1, nullptr);
  });
  ASSERT_TRUE(waitFor([] { return zt::internal::waitingClaimCount() == 1; }));
  EXPECT_EQ(copy.wait_for(0s), std::future_status::timeout);
  writer.release();
  ASSERT_EQ(copy.wait_for(10s), std::future_status::ready);
  EXPECT_TRUE(copy.get());
  EXPECT_EQ(readFile(destination), "second, complete");
}

TEST_F(CoordinatedFileOperations, CoordinationErrorsComeBeforeTheFileManagersAndCancelEndsTheWait) {
  const std::string path = scratch / "busy.txt";
  zt::test::writeFile(path, "x");
  HeldWrite writer(path);
  auto coordinator = ZTFileCoordinator::create();
  coordinator->setWaitTimeout(100ms);
  ZTError error;
  EXPECT_FALSE(zt::attributesOfItemAtPathWithCoordination(*manager, path, coordinator, &error));
  EXPECT_EQ(error.code(), ZTFileLockingError);

  coordinator->setWaitTimeout(60s);
  auto removal = std::async(std::launch::async, [&] {
    ZTError failure;
    const bool removed = zt::removeItemAtPathWithCoordination(*manager, path, coordinator, 0, &failure);
    return std::make_pair(removed, failure);
  });
  ASSERT_TRUE(waitFor([] { return zt::internal::waitingClaimCount() == 1; }));
  coordinator->cancel();
  ASSERT_EQ(removal.wait_for(10s), std::future_status::ready);
  const auto [removed, failure] = removal.get();
  EXPECT_FALSE(removed);
  EXPECT_EQ(failure.code(), ZTUserCancelledError);
  EXPECT_TRUE(zt::test::exists(path));
}

TEST_F(CoordinatedFileOperations, AttributesAlwaysReportTheirError) {
  const std::string path = scratch / "file.txt";
  zt::test::writeFile(path, "12345");
  ZTError error(ZTPOSIXErrorDomain, 99);
  const auto attributes = zt::attributesOfItemAtPathWithCoordination(*manager, path, &error);
  ASSERT_TRUE(attributes);
  EXPECT_EQ((*attributes)[ZTFileSize].uintValue(), 5u);
  EXPECT_EQ(error, ZTError());

  ZTError expected;
  ASSERT_FALSE(manager->attributesOfItemAtPath(scratch / "missing", &expected));
  EXPECT_FALSE(zt::attributesOfItemAtPathWithCoordination(*manager, scratch / "missing", &error));
  EXPECT_EQ(error, expected);
}

TEST_F(CoordinatedFileOperations, EnsureDirectoryMakesFoldersAndRefusesAFileInTheWay) {
  const std::string nested = scratch / "a/b/c";
  ZTError error(ZTPOSIXErrorDomain, 99);
  EXPECT_TRUE(zt::ensureDirectoryExistsAtPathWithCoordination(*manager, nested, &error));
  EXPECT_TRUE(std::filesystem::is_directory(nested));
  EXPECT_TRUE(zt::ensureDirectoryExistsAtPathWithCoordination(*manager, nested, &error));

  const std::string file = scratch / "plain";
  zt::test::writeFile(file, "x");
  zt::test::LogCapture log;
  error = ZTError(ZTPOSIXErrorDomain, 99);
  EXPECT_FALSE(zt::ensureDirectoryExistsAtPathWithCoordination(*manager, file, &error));
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"failed to create directory at " + file + ", as regular file exists at the path."});
  EXPECT_EQ(error, ZTError());
}

TEST_F(CoordinatedFileOperations, ExistenceAndContentsComparison) {
  const std::string folder = scratch / "dir";
  zt::test::makeDirectory(folder);
  const std::string first = scratch / "one.txt";
  const std::string second = scratch / "two.txt";
  zt::test::writeFile(first, "same");
  zt::test::writeFile(second, "same");

  bool isDirectory = false;
  EXPECT_TRUE(zt::coordinatedFileExistsAtPath(*manager, folder, &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_TRUE(zt::coordinatedFileExistsAtPath(*manager, first, &isDirectory));
  EXPECT_FALSE(isDirectory);
  EXPECT_FALSE(zt::coordinatedFileExistsAtPath(*manager, scratch / "none", &isDirectory));

  // Only the first path is claimed: a writer holding the second does not hold the comparison up.
  HeldWrite writer(second);
  EXPECT_TRUE(zt::contentsEqualAtPathAndPathWithCoordination(*manager, first, second));
  writer.release();
  zt::test::writeFile(second, "different");
  EXPECT_FALSE(zt::contentsEqualAtPathAndPathWithCoordination(*manager, first, second));
}

}  // namespace
