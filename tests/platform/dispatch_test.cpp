#include "zentrel/platform/dispatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/thread.h"

namespace {
using namespace std::chrono_literals;

TEST(Dispatch, GlobalQueueGrowsWhenEveryWorkerIsBlocked) {
  // Twelve calls that can only finish together: a fixed pool of fewer threads would never end.
  constexpr int kCalls = 12;
  std::atomic<int> arrived{0};
  ZTSemaphore allDone;
  for (int i = 0; i < kCalls; ++i) {
    ZTDispatchQueue::global()->async([&] {
      ++arrived;
      const auto deadline = std::chrono::steady_clock::now() + 10s;
      while (arrived < kCalls && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
      allDone.signal();
    });
  }
  for (int i = 0; i < kCalls; ++i) ASSERT_TRUE(allDone.wait(15s));
  EXPECT_EQ(arrived, kCalls);
}

TEST(Dispatch, GlobalQueueRunsTheReleasingCallWhileIdleWorkersAreStillWaking) {
  // Blocked calls submitted back to back, then the call that releases them. Workers that were
  // just woken have not taken their call yet; counting them as idle would leave the releasing
  // call queued behind calls that wait for it.
  // Each round blocks more calls than the last left idle workers, so the pool must grow while the
  // workers it woke are still on their way.
  constexpr int kRounds = 8;
  for (int round = 0; round < kRounds; ++round) {
    const int kBlocked = 8 + 4 * round;
    struct Round {
      ZTSemaphore release;
      ZTSemaphore finished;
      std::atomic<int> starved{0};
    };
    auto state = std::make_shared<Round>();
    for (int i = 0; i < kBlocked; ++i) {
      ZTDispatchQueue::global()->async([state] {
        if (!state->release.wait(1.0s)) ++state->starved;
        state->finished.signal();
      });
    }
    ZTDispatchQueue::global()->async([state, kBlocked] {
      for (int i = 0; i < kBlocked; ++i) state->release.signal();
    });
    for (int i = 0; i < kBlocked; ++i) ASSERT_TRUE(state->finished.wait(10s));
    ASSERT_EQ(state->starved.load(), 0) << "round " << round;
  }
}

TEST(Dispatch, SyncWaitsAndAfterDelays) {
  auto queue = ZTDispatchQueue::global();
  bool onWorker = false;
  EXPECT_TRUE(queue->sync([&] { onWorker = ZTDispatchQueue::global()->isCurrent(); }));
  EXPECT_TRUE(onWorker);
  EXPECT_FALSE(queue->isCurrent());

  ZTSemaphore fired;
  const auto start = std::chrono::steady_clock::now();
  queue->after(50ms, [&] { fired.signal(); });
  ASSERT_TRUE(fired.wait(5s));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 45ms);
}

TEST(Dispatch, MainQueueRunsOnlyWhenTheMainLoopRuns) {
  auto main = ZTDispatchQueue::main();
  std::atomic<bool> ran{false};
  std::thread([&] { main->async([&] { ran = ZTThread::isMainThread(); }); }).join();
  EXPECT_FALSE(ran);
  ZTRunLoop::main()->runWithCondition([&] { return !ran.load(); }, 5.0s);
  EXPECT_TRUE(ran);

  // sync to the main queue from the main thread runs at once instead of waiting for itself.
  bool direct = false;
  EXPECT_TRUE(main->sync([&] { direct = true; }));
  EXPECT_TRUE(direct);

  // sync from a background thread waits for the main loop.
  std::atomic<bool> syncReturned{false};
  std::thread background([&] {
    EXPECT_TRUE(main->sync([] {}));
    syncReturned = true;
  });
  ZTRunLoop::main()->runWithCondition([&] { return !syncReturned.load(); }, 5.0s);
  background.join();
  EXPECT_TRUE(syncReturned);
}

TEST(Dispatch, SemaphoreCountsAndTimesOut) {
  ZTSemaphore semaphore(1);
  EXPECT_TRUE(semaphore.wait(0s));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(semaphore.wait(30ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
  semaphore.signal();
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(0s));
  EXPECT_TRUE(semaphore.wait(0s));
}

TEST(Dispatch, OnceRunsOnceAcrossThreads) {
  ZTOnceToken token;
  std::atomic<int> runs{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&] { ZTDispatchOnce(token, [&] { ++runs; }); });
  for (auto& t : threads) t.join();
  EXPECT_EQ(runs, 1);
}
}  // namespace
