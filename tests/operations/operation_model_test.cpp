#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/operations/operation.h"
#include "zentrel/platform/exceptions.h"

namespace {
using namespace std::chrono_literals;

class CountingOperation : public ZTOperation {
 public:
  std::atomic<int> mainCalls{0};
  void main() override { ++mainCalls; }
};

class ThrowingOperation : public ZTOperation {
 public:
  void main() override { throw std::runtime_error("work failed"); }
};

struct ChangeLog {
  std::mutex mutex;
  std::vector<std::string> entries;
  void add(std::string_view key, ZTKeyValueChange change) {
    std::lock_guard lock(mutex);
    entries.push_back(std::string(change == ZTKeyValueChange::WillChange ? "will " : "did ") + std::string(key));
  }
};

TEST(Operation, SynchronousStartRunsMainOnceAndReportsStateChangesInOrder) {
  auto operation = std::make_shared<CountingOperation>();
  ChangeLog log;
  bool executingSeenDuringMain = false;
  (void)operation->addObserver({}, [&](ZTOperation& changed, std::string_view key, ZTKeyValueChange change) {
    log.add(key, change);
    if (key == ZTOperationIsExecutingKey && change == ZTKeyValueChange::DidChange && changed.isExecuting())
      executingSeenDuringMain = true;
  });
  operation->start();
  operation->start();
  EXPECT_EQ(operation->mainCalls.load(), 1);
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_TRUE(executingSeenDuringMain);
  EXPECT_EQ(log.entries, (std::vector<std::string>{"will isExecuting", "did isExecuting", "will isExecuting",
                                                   "did isExecuting", "will isFinished", "did isFinished"}));
}

TEST(Operation, CancelledOperationFinishesWithoutRunningMain) {
  auto operation = std::make_shared<CountingOperation>();
  operation->cancel();
  operation->start();
  EXPECT_EQ(operation->mainCalls.load(), 0);
  EXPECT_TRUE(operation->isFinished());
  EXPECT_TRUE(operation->ztCompletionHandlerWasCalled());
}

TEST(Operation, ThrowingMainStillFinishesAndRunsCompletion) {
  auto operation = std::make_shared<ThrowingOperation>();
  int completions = 0;
  operation->setCompletionBlock([&] { ++completions; });
  EXPECT_THROW(operation->start(), std::runtime_error);
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(completions, 1);
}

TEST(Operation, ReadinessFollowsDependenciesAndCancellation) {
  auto first = std::make_shared<CountingOperation>();
  auto second = std::make_shared<CountingOperation>();
  auto dependent = std::make_shared<CountingOperation>();
  ChangeLog log;
  (void)dependent->addObserver({std::string(ZTOperationIsReadyKey)},
                         [&](ZTOperation&, std::string_view key, ZTKeyValueChange change) { log.add(key, change); });
  EXPECT_TRUE(dependent->isReady());
  dependent->addDependency(first);
  dependent->addDependency(second);
  dependent->addDependency(first);
  EXPECT_EQ(dependent->dependencies().size(), 2u);
  EXPECT_FALSE(dependent->isReady());
  first->start();
  EXPECT_FALSE(dependent->isReady());
  second->start();
  EXPECT_TRUE(dependent->isReady());
  EXPECT_EQ(log.entries, (std::vector<std::string>{"will isReady", "did isReady", "will isReady", "did isReady"}));

  // A cancelled operation is ready whatever its dependencies, so a queue can let it finish.
  auto blocked = std::make_shared<CountingOperation>();
  auto never = std::make_shared<CountingOperation>();
  blocked->addDependency(never);
  EXPECT_FALSE(blocked->isReady());
  blocked->cancel();
  EXPECT_TRUE(blocked->isReady());

  auto waiting = std::make_shared<CountingOperation>();
  waiting->addDependency(never);
  waiting->removeDependency(never);
  EXPECT_TRUE(waiting->isReady());
  EXPECT_EQ(never->observerCount(), 1u);  // only blocked's observation remains
}

// A holder (what a queue attaches) hears only the did-changes of readiness and finishing, after the
// observers; one holder at a time, and only that holder can detach itself.
TEST(Operation, HolderIsAloneAndHearsReadinessAndFinishingAfterTheObservers) {
  struct RecordingHolder : ZTOperation::Holder {
    ChangeLog& log;
    explicit RecordingHolder(ChangeLog& l) : log(l) {}
    void operationDidChange(ZTOperation&, std::string_view key) override {
      log.add("holder " + std::string(key), ZTKeyValueChange::DidChange);
    }
  };
  ChangeLog log;
  auto holder = std::make_shared<RecordingHolder>(log);
  auto other = std::make_shared<RecordingHolder>(log);
  auto dependency = std::make_shared<CountingOperation>();
  auto operation = std::make_shared<CountingOperation>();
  (void)operation->addObserver({std::string(ZTOperationIsReadyKey), std::string(ZTOperationIsFinishedKey)},
                         [&](ZTOperation&, std::string_view key, ZTKeyValueChange change) {
                           if (change == ZTKeyValueChange::DidChange) log.add(key, change);
                         });
  ASSERT_TRUE(operation->attachHolder(holder));
  EXPECT_FALSE(operation->attachHolder(other));
  EXPECT_FALSE(operation->detachHolder(*other));
  EXPECT_EQ(operation->holder(), holder);
  EXPECT_EQ(operation->observerCount(), 1u);

  operation->addDependency(dependency);
  dependency->start();
  operation->cancel();
  operation->start();
  EXPECT_EQ(log.entries, (std::vector<std::string>{"did isReady", "did holder isReady", "did isReady",
                                                   "did holder isReady", "did isFinished", "did holder isFinished"}));

  EXPECT_TRUE(operation->detachHolder(*holder));
  EXPECT_EQ(operation->holder(), nullptr);
  auto later = std::make_shared<CountingOperation>();
  ASSERT_TRUE(later->attachHolder(other));
  other.reset();  // gone without detaching: not called, and still holding the operation
  later->start();
  EXPECT_EQ(log.entries.size(), 6u);
  EXPECT_FALSE(later->attachHolder(holder));
}

TEST(Operation, RejectsDependingOnItself) {
  auto operation = std::make_shared<CountingOperation>();
  EXPECT_THROW(operation->addDependency(operation), ZTInternalInconsistencyException);
}

TEST(Operation, DependentsDestroyedFirstStopListening) {
  auto dependency = std::make_shared<CountingOperation>();
  {
    auto dependent = std::make_shared<CountingOperation>();
    dependent->addDependency(dependency);
    EXPECT_EQ(dependency->observerCount(), 1u);
  }
  EXPECT_EQ(dependency->observerCount(), 0u);
  dependency->start();
}

TEST(Operation, PriorityIsRoundedToTheNearestStandardValue) {
  auto operation = std::make_shared<CountingOperation>();
  const std::vector<std::pair<std::int64_t, std::int64_t>> cases = {{-100, -8}, {-7, -8}, {-5, -4}, {-3, -4}, {-1, 0},
                                                                    {1, 0},     {3, 4},   {5, 4},   {7, 8},   {100, 8}};
  for (const auto& [given, stored] : cases) {
    operation->setQueuePriority(given);
    EXPECT_EQ(operation->queuePriority(), stored) << given;
  }
}

TEST(Operation, ObserverRemovedDuringCallbackIsNotCalledAgain) {
  auto operation = std::make_shared<CountingOperation>();
  int calls = 0;
  std::shared_ptr<ZTOperationObservation> observation;
  observation = operation->addObserver({}, [&](ZTOperation& changed, std::string_view, ZTKeyValueChange) {
    ++calls;
    EXPECT_TRUE(changed.removeObserver(observation));
  });
  int otherCalls = 0;
  (void)operation->addObserver({std::string(ZTOperationIsFinishedKey)},
                         [&](ZTOperation&, std::string_view, ZTKeyValueChange) { ++otherCalls; });
  operation->start();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(otherCalls, 2);
  EXPECT_FALSE(operation->removeObserver(observation));
  EXPECT_EQ(operation->addObserver({}, nullptr), nullptr);
}

TEST(Operation, CompletionBlockRunsOnceAfterFinishedObserversOnTheFinishingThread) {
  auto operation = std::make_shared<CountingOperation>();
  std::vector<std::string> order;
  std::thread::id completionThread;
  (void)operation->addObserver({std::string(ZTOperationIsFinishedKey)},
                         [&](ZTOperation&, std::string_view, ZTKeyValueChange change) {
                           if (change == ZTKeyValueChange::DidChange) order.push_back("observer");
                         });
  operation->setCompletionBlock([&] {
    order.push_back("completion");
    completionThread = std::this_thread::get_id();
  });
  std::thread runner([&] { operation->start(); });
  runner.join();
  EXPECT_EQ(order, (std::vector<std::string>{"observer", "completion"}));
  EXPECT_NE(completionThread, std::this_thread::get_id());
  EXPECT_FALSE(static_cast<bool>(operation->completionBlock()));  // released after running
  operation->setCompletionBlock([&] { order.push_back("too late"); });
  EXPECT_EQ(order.size(), 2u);
}

TEST(Operation, WaitingForCompletionHandlerReturnsOnlyAfterItHasRun) {
  auto operation = std::make_shared<CountingOperation>();
  std::atomic<bool> release{false};
  std::atomic<bool> completionReturned{false};
  operation->setCompletionBlock([&] {
    while (!release.load()) std::this_thread::yield();
    completionReturned = true;
  });
  EXPECT_FALSE(operation->waitUntilFinished(10ms));
  std::thread runner([&] { operation->start(); });
  EXPECT_TRUE(operation->waitUntilFinished(10s));
  EXPECT_FALSE(operation->waitUntilFinishedAndCompletionHandlerCalled(20ms));
  release = true;
  EXPECT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_TRUE(completionReturned.load());
  runner.join();

  // Without a completion block the wait ends with the operation.
  auto plain = std::make_shared<CountingOperation>();
  std::thread plainRunner([&] { plain->start(); });
  plain->waitUntilFinishedAndCompletionHandlerCalled();
  EXPECT_TRUE(plain->isFinished());
  plainRunner.join();
}

TEST(Operation, ReadinessSettlesWhenDependenciesFinishOnManyThreads) {
  for (int round = 0; round < 50; ++round) {
    auto dependent = std::make_shared<CountingOperation>();
    std::vector<std::shared_ptr<CountingOperation>> dependencies;
    for (int i = 0; i < 8; ++i) {
      dependencies.push_back(std::make_shared<CountingOperation>());
      dependent->addDependency(dependencies.back());
    }
    std::atomic<int> readyAnnouncements{0};
    (void)dependent->addObserver({std::string(ZTOperationIsReadyKey)},
                           [&](ZTOperation& changed, std::string_view, ZTKeyValueChange change) {
                             if (change == ZTKeyValueChange::DidChange && changed.isReady()) ++readyAnnouncements;
                           });
    std::vector<std::thread> threads;
    for (auto& dependency : dependencies) threads.emplace_back([dependency] { dependency->start(); });
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(dependent->isReady());
    EXPECT_EQ(readyAnnouncements.load(), 1);
  }
}

}  // namespace
