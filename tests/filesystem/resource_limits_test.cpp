// Running out of file descriptors (RLIMIT_NOFILE at 64, every descriptor taken): the coordinator,
// the watcher and the file manager report errors, leave no half-made files, and work again once
// descriptors are free. Each case runs in a child process, since the limit is process-wide.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "common/descriptor_limit.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/coordinated_file_operations.h"
#include "zentrel/filesystem/file_system_updates_watcher.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/run_loop.h"

namespace {

using zt::test::DescriptorLimit;
using zt::test::ScratchFolder;

TEST(ResourceLimitsDeathTest, CoordinatedCopyAndMoveFailCleanlyWithoutDescriptors) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScratchFolder folder;
  zt::test::writeFile(folder / "source.txt", std::string(200000, 'x'));
  EXPECT_EXIT(
      {
        ZTFileManager& manager = *ZTFileManager::defaultManager();
        bool ok = true;
        {
          DescriptorLimit limit(64);
          limit.exhaust();
          ZTError copyError;
          ZTError moveError;
          const bool copied = zt::copyItemWithCoordinationFromPath(manager, folder / "source.txt", folder / "copy.txt",
                                                                   &copyError);
          const bool moved = zt::moveItemWithCoordinationFromPath(manager, folder / "source.txt", folder / "moved.txt",
                                                                  &moveError);
          ok = ok && !copied && copyError.code() != 0 && !zt::test::exists(folder / "copy.txt");
          // A move is a rename: it may need no new descriptor once the coordinator has its locks.
          ok = ok && (moved ? zt::test::exists(folder / "moved.txt") && !zt::test::exists(folder / "source.txt")
                            : moveError.code() != 0 && zt::test::exists(folder / "source.txt"));
          if (moved) manager.moveItemAtPath(folder / "moved.txt", folder / "source.txt");
        }
        ok = ok && zt::copyItemWithCoordinationFromPath(manager, folder / "source.txt", folder / "copy.txt") &&
             zt::test::fileSize(folder / "copy.txt") == 200000;
        zt::test::finishChildProcess(ok);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(ResourceLimitsDeathTest, FileManagerCopyReportsAndLeavesNothingWithoutDescriptors) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScratchFolder folder;
  zt::test::makeDirectory(folder / "tree");
  for (int i = 0; i < 8; ++i) zt::test::writeFile(folder / ("tree/" + std::to_string(i)), std::string(5000, 'a'));
  EXPECT_EXIT(
      {
        ZTFileManager& manager = *ZTFileManager::defaultManager();
        bool ok = true;
        // Every descriptor taken, then only a few free: neither may leave a partial tree behind.
        for (int free : {0, 1, 2, 3}) {
          DescriptorLimit limit(64);
          limit.exhaust(free);
          ZTError error;
          const std::string destination = folder / ("copy" + std::to_string(free));
          const bool copied = manager.copyItemAtPath(folder / "tree", destination, &error);
          ok = ok && (copied ? zt::test::exists(destination + "/7") : error.code() != 0 && !zt::test::exists(destination));
        }
        ok = ok && manager.copyItemAtPath(folder / "tree", folder / "after") && zt::test::exists(folder / "after/7");
        zt::test::finishChildProcess(ok);
      },
      ::testing::ExitedWithCode(0), "");
}

class Reports : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                            const ZTValue&) override {
    ++started;
  }
  int started = 0;
};

TEST(ResourceLimitsDeathTest, WatcherWithoutDescriptorsIgnoresAndLogsThenWorksAgain) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScratchFolder folder;
  zt::test::writeFile(folder / "document.txt", "one");
  EXPECT_EXIT(
      {
        zt::test::LogCapture log;
        auto reports = std::make_shared<Reports>();
        std::shared_ptr<ZTFileSystemUpdatesWatcher> starved;
        {
          DescriptorLimit limit(64);
          limit.exhaust();
          starved = ZTFileSystemUpdatesWatcher::create(folder / "document.txt", reports);
        }
        // Without an inotify descriptor nothing can be watched: the item is ignored, and it says so.
        bool ok = starved == nullptr || starved->isIgnoringFileSystemUpdates();
        ok = ok && !log.lines().empty();
        starved.reset();
        auto watcher = ZTFileSystemUpdatesWatcher::create(folder / "document.txt", reports);
        ok = ok && watcher != nullptr && !watcher->isIgnoringFileSystemUpdates();
        watcher->setSettleInterval(ZTFileSystemUpdatesWatcher::Seconds(0.01));
        zt::test::writeFile(folder / "document.txt", "two, longer");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (reports->started == 0 && std::chrono::steady_clock::now() < deadline) {
          ZTRunLoop::main()->runOnce(ZTRunLoop::Seconds(0.05));
        }
        zt::test::finishChildProcess(ok && reports->started > 0);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
