// A long run of the watcher and an operation queue together, sampling resident memory and open
// descriptors: after the first minute neither may grow. Skipped unless ZT_SOAK_SECONDS is set;
// scripts/soak runs it (ten minutes by default). Not run by CI.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/descriptor_limit.h"
#include "zentrel/filesystem/file_system_updates_watcher.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/run_loop.h"

namespace fs = std::filesystem;

namespace {

class CountingDelegate : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                             const ZTValue&) override {
    ++finished;
  }
  long finished = 0;
};

TEST(Soak, WatcherAndQueueRunWithoutGrowingMemoryOrDescriptors) {
  const char* setting = std::getenv("ZT_SOAK_SECONDS");
  if (setting == nullptr) GTEST_SKIP() << "set ZT_SOAK_SECONDS (scripts/soak) to run";
  const double seconds = std::max(60.0, std::atof(setting));
  const fs::path folder = fs::temp_directory_path() / ("zt-soak-" + std::to_string(::getpid()));
  fs::create_directories(folder);
  std::vector<std::string> files;
  for (int i = 0; i < 20; ++i) {
    files.push_back((folder / ("document-" + std::to_string(i) + ".txt")).string());
    std::ofstream(files.back()) << i;
  }
  files.push_back(folder.string());

  auto delegate = std::make_shared<CountingDelegate>();
  auto watcher = ZTFileSystemUpdatesWatcher::create(files, delegate);
  ASSERT_NE(watcher, nullptr);
  watcher->setSettleInterval(ZTFileSystemUpdatesWatcher::Seconds(0.05));

  std::atomic<bool> stop{false};
  std::atomic<long> operationsDone{0};
  // Editors' saves: in place, and a temporary file renamed over the document.
  std::thread writer([&] {
    for (long round = 0; !stop.load(); ++round) {
      const std::string& file = files[static_cast<std::size_t>(round % 20)];
      if (round % 2 == 0) {
        std::ofstream(file) << "round " << round;
      } else {
        std::ofstream(file + ".tmp") << "saved " << round;
        fs::rename(file + ".tmp", file);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  // Batches of a thousand operations, one batch after another.
  auto worker = ZTThreadWithRunLoop::spawnThreadWithName("soak worker");
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(8);
  std::thread feeder([&] {
    while (!stop.load()) {
      std::vector<std::shared_ptr<ZTOperation>> batch;
      for (int i = 0; i < 1000; ++i) {
        batch.push_back(ZTConcurrentBlockOperation::createWithExecutionBlock(
            [&](ZTConcurrentBlockOperation&, std::optional<ZTError>&) { operationsDone.fetch_add(1); }, worker,
            nullptr, nullptr, nullptr, nullptr));
      }
      queue->addOperations(batch);
      for (const auto& operation : batch) (void)operation->waitUntilFinished(std::chrono::seconds(30));
    }
  });

  struct Sample {
    double at;
    unsigned long long resident;
    int descriptors;
  };
  std::vector<Sample> samples;
  const auto start = std::chrono::steady_clock::now();
  auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  double nextSample = 0;
  while (elapsed() < seconds) {
    ZTRunLoop::main()->runOnce(ZTRunLoop::Seconds(0.05));
    if (elapsed() >= nextSample) {
      samples.push_back({elapsed(), zt::test::residentBytes(), zt::test::openDescriptorCount()});
      std::printf("[ soak     ] %6.0f s  %7.1f MiB  %3d descriptors  %ld operations  %ld watcher reports\n",
                  samples.back().at, static_cast<double>(samples.back().resident) / (1 << 20),
                  samples.back().descriptors, operationsDone.load(), delegate->finished);
      std::fflush(stdout);
      nextSample += 10;
    }
  }
  stop = true;
  writer.join();
  feeder.join();
  queue->dispose();
  worker->cancel();
  watcher.reset();
  fs::remove_all(folder);

  // The first minute is warm-up (allocator pools, the queue's records, the run loop's buffers).
  const Sample* warm = nullptr;
  for (const Sample& sample : samples) {
    if (sample.at >= 60) {
      warm = &sample;
      break;
    }
  }
  ASSERT_NE(warm, nullptr);
  const Sample& last = samples.back();
  EXPECT_LE(last.descriptors, warm->descriptors + 2) << "descriptors grew";
  EXPECT_LE(last.resident, warm->resident + (8ull << 20)) << "resident memory grew by more than 8 MiB";
  EXPECT_GT(operationsDone.load(), 0);
  EXPECT_GT(delegate->finished, 0);
}

}  // namespace
