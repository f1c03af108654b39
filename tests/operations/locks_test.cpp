#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/operations/recursive_monitor.h"
#include "zentrel/operations/task_lock.h"
#include "zentrel/operations/weak_timer_target.h"

namespace {
using namespace std::chrono_literals;

TEST(TaskLock, RunsItsBlockOnceWhenTheLastHolderReleases) {
  int runs = 0;
  auto lock = ZTTaskLock::taskLockWithBlock([&] { ++runs; });
  auto first = lock->getLock();
  auto second = lock->getLock();
  EXPECT_EQ(lock->lockCounter(), 2u);
  first();
  EXPECT_EQ(runs, 0);
  second();
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(lock->hasBlock());
  auto third = lock->getLock();
  third();
  EXPECT_EQ(runs, 1);
}

TEST(TaskLock, ReleasesFromManyThreadsRunTheBlockExactlyOnce) {
  std::atomic<int> runs{0};
  auto lock = ZTTaskLock::taskLockWithBlock([&] { ++runs; });
  std::vector<std::function<void()>> releases;
  for (int i = 0; i < 64; ++i) releases.push_back(lock->getLock());
  std::vector<std::thread> threads;
  for (auto& release : releases) threads.emplace_back(release);
  for (auto& t : threads) t.join();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(lock->lockCounter(), 0u);
}

TEST(TaskLock, AReleaseBeyondTheLocksTakenNeverRunsTheBlock) {
  int runs = 0;
  auto lock = ZTTaskLock::taskLockWithBlock([&] { ++runs; });
  lock->executeBlock();
  EXPECT_EQ(runs, 0);
  // Balanced use afterwards cannot bring the count back to zero: the block stays unrun.
  for (int i = 0; i < 3; ++i) lock->getLock()();
  EXPECT_EQ(runs, 0);
  EXPECT_TRUE(lock->hasBlock());
}

TEST(TaskLock, TheBlockMayReplaceItselfOrReenterAndRunsAtMostOnceEvenWhenItThrows) {
  int firstRuns = 0, secondRuns = 0;
  std::shared_ptr<ZTTaskLock> lock;
  std::string captured(64, 'x');  // state the running block reads after replacing itself
  lock = ZTTaskLock::taskLockWithBlock([&, captured] {
    ++firstRuns;
    lock->setBlock([&] { ++secondRuns; });
    auto nested = lock->getLock();
    EXPECT_EQ(captured.size(), 64u);  // still alive: the running block was not destroyed
    lock->setLockCounter(lock->lockCounter() + 1);  // keep the nested release from running the new block now
    nested();
    EXPECT_EQ(captured.size(), 64u);
  });
  lock->getLock()();
  EXPECT_EQ(firstRuns, 1);
  EXPECT_EQ(secondRuns, 0);
  lock->setLockCounter(1);
  lock->executeBlock();
  EXPECT_EQ(secondRuns, 1);

  int throwingRuns = 0;
  auto throwing = ZTTaskLock::taskLockWithBlock([&] {
    ++throwingRuns;
    throw std::runtime_error("block failed");
  });
  EXPECT_THROW(throwing->getLock()(), std::runtime_error);
  EXPECT_FALSE(throwing->hasBlock());
  throwing->getLock()();
  EXPECT_EQ(throwingRuns, 1);
}

TEST(RecursiveMonitor, OwnerRecursesAndWaitersAreServedInArrivalOrder) {
  ZTRecursiveMonitor monitor;
  monitor.lock();
  monitor.lock();
  monitor.lock();
  EXPECT_EQ(monitor.accessingThreadLocksCount(), 3);

  std::mutex orderMutex;
  std::vector<int> order;
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&, i] {
      monitor.lock();
      {
        std::lock_guard guard(orderMutex);
        order.push_back(i);
      }
      monitor.unlock();
    });
    // Wait until this waiter is queued before starting the next, to fix the arrival order.
    while (monitor.waitingThreadsQueue().size() != static_cast<std::size_t>(i + 1)) std::this_thread::yield();
  }
  monitor.unlock();
  monitor.unlock();
  std::this_thread::sleep_for(10ms);
  {
    std::lock_guard guard(orderMutex);
    EXPECT_TRUE(order.empty()) << "a waiter got the monitor before the owner's last unlock";
  }
  monitor.unlock();
  for (auto& t : waiters) t.join();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(monitor.accessingThread(), std::thread::id());
  EXPECT_EQ(monitor.accessingThreadLocksCount(), 0);
}

TEST(RecursiveMonitor, UnbalancedUnlockOnAFreeMonitorStaysAtZero) {
  ZTRecursiveMonitor monitor;
  monitor.unlock();
  EXPECT_EQ(monitor.accessingThreadLocksCount(), 0);
  std::lock_guard guard(monitor);
  EXPECT_EQ(monitor.accessingThread(), std::this_thread::get_id());
}

TEST(WeakTimerTarget, TheTimerDoesNotKeepItsTargetAlive) {
  struct Poller {
    int polls = 0;
  };
  auto loop = ZTRunLoop::current();
  auto poller = std::make_shared<Poller>();
  std::weak_ptr<Poller> weak = poller;
  auto timer = ZTWeakTimerTarget::scheduleRepeatingTimer<Poller>(loop, 1ms, poller,
                                                                 [](Poller& p, ZTTimer&) { ++p.polls; });
  loop->runWithCondition([&] { return poller->polls < 3; }, 5.0s);
  EXPECT_GE(poller->polls, 3);
  poller.reset();
  EXPECT_TRUE(weak.expired());  // the scheduled timer held no strong reference
  loop->runOnce(5ms);           // fires into nothing, harmlessly
  timer->invalidate();
}
}  // namespace
