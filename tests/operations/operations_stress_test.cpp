// Many operations from several threads at once, with dependencies and cancellations, through one
// queue: every operation must finish exactly once and no handler may run twice.

#include <gtest/gtest.h>

#include <random>

#include "support/operation_test_support.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/platform/notification_center.h"

namespace {
using namespace std::chrono_literals;
using zttest::WorkerThread;

struct Tally {
  std::atomic<int> successes{0};
  std::atomic<int> cancellations{0};
  std::atomic<int> failures{0};
  std::atomic<int> completions{0};
  std::atomic<int> finishNotifications{0};
};

// Finishes in main(), or later from another thread, depending on its mode.
class StressOperation : public ZTConcurrentOperation {
 public:
  StressOperation(ConstructionKey key, std::shared_ptr<ZTThread> worker, std::shared_ptr<ZTThread> finisher, int mode,
                  Tally& tally)
      : ZTConcurrentOperation(
            key, std::move(worker), nullptr, [&tally](ZTConcurrentOperation&) { ++tally.cancellations; },
            [&tally](ZTConcurrentOperation&, const ZTError&) { ++tally.failures; }),
        finisher_(std::move(finisher)),
        mode_(mode),
        tally_(tally) {}

  void main() override {
    auto succeed = [this] { ++tally_.successes; };
    switch (mode_) {
      case 0:
        finishWithSuccessHandler(succeed);
        break;
      case 1: {
        auto self = std::static_pointer_cast<StressOperation>(shared_from_this());
        zt::performBlock([self, succeed] { self->finishWithSuccessHandler(succeed); }, finisher_);
        break;
      }
      default:
        finishWithError(ZTError("stress", mode_));
        break;
    }
  }

 private:
  std::shared_ptr<ZTThread> finisher_;
  int mode_;
  Tally& tally_;
};

struct Drains {
  std::atomic<int> count{0};
  std::shared_ptr<ZTNotificationObserver> observer;
  explicit Drains(const std::shared_ptr<ZTOperationQueue>& queue) {
    observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
        ZTOperationQueueDidBecameEmptyNotification, queue.get(), nullptr, [this](const ZTNotification&) { ++count; });
  }
  ~Drains() { ZTNotificationCenter::defaultCenter()->removeObserver(observer); }
};

TEST(OperationsStress, HundredThousandOperationsFromFourThreadsEachFinishOnce) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 25'000;
  WorkerThread queueThread("stress queue");
  std::vector<std::unique_ptr<WorkerThread>> workers;
  for (int i = 0; i < 3; ++i) workers.push_back(std::make_unique<WorkerThread>("stress worker"));
  WorkerThread finisher("stress finisher");

  auto queue = ZTOperationQueue::create(queueThread);
  Drains drains(queue);
  queue->setSuspended(true);  // one drain for the whole run, so exactly one notification

  std::vector<std::vector<std::shared_ptr<StressOperation>>> created(kThreads);
  std::vector<std::unique_ptr<Tally>> tallies(static_cast<std::size_t>(kThreads * kPerThread));
  for (auto& tally : tallies) tally = std::make_unique<Tally>();

  std::vector<std::thread> adders;
  for (int t = 0; t < kThreads; ++t) {
    adders.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(1234 + t));
      auto& mine = created[static_cast<std::size_t>(t)];
      mine.reserve(kPerThread);
      for (int i = 0; i < kPerThread; ++i) {
        Tally& tally = *tallies[static_cast<std::size_t>(t * kPerThread + i)];
        const int mode = static_cast<int>(random() % 3);
        const auto workerIndex = random() % 4;
        std::shared_ptr<ZTThread> worker = workerIndex < 3 ? workers[workerIndex]->thread : nullptr;
        auto operation = ZTConcurrentOperation::make<StressOperation>(worker, finisher.thread, mode, tally);
        operation->setQueuePriority(static_cast<std::int64_t>(random() % 17) - 8);
        operation->setCompletionBlock([&tally] { ++tally.completions; });
        (void)operation->addObserver({std::string(ZTOperationIsFinishedKey)},
                               [&tally](ZTOperation& changed, std::string_view, ZTKeyValueChange change) {
                                 if (change == ZTKeyValueChange::DidChange && changed.isFinished())
                                   ++tally.finishNotifications;
                               });
        // Dependencies only on earlier operations, so there are no cycles.
        const int dependencies = static_cast<int>(random() % 3);
        for (int d = 0; d < dependencies && i > 0; ++d)
          operation->addDependency(mine[random() % static_cast<std::size_t>(i)]);
        if (random() % 20 == 0) operation->cancel();
        mine.push_back(operation);
        queue->addOperation(operation);
        if (random() % 20 == 0) mine[random() % mine.size()]->cancel();
      }
    });
  }
  for (auto& adder : adders) adder.join();
  EXPECT_EQ(queue->operationsCount(), kThreads * kPerThread);

  // Cancel more while the queue runs.
  std::thread canceller([&] {
    std::mt19937 random(99);
    for (int i = 0; i < 5'000; ++i) {
      created[random() % kThreads][random() % kPerThread]->cancel();
      if (i % 500 == 0) std::this_thread::yield();
    }
  });
  queue->setSuspended(false);
  canceller.join();

  ASSERT_TRUE(zttest::eventually(
      [&] {
        return std::all_of(tallies.begin(), tallies.end(), [](const auto& t) { return t->completions.load() >= 1; });
      },
      std::chrono::seconds(300)));
  EXPECT_EQ(queue->operationsCount(), 0);

  int outcomesMissing = 0, outcomesDoubled = 0, doubleCompletions = 0, doubleFinishes = 0;
  for (const auto& tally : tallies) {
    const int outcomes = tally->successes + tally->cancellations + tally->failures;
    outcomesMissing += outcomes == 0;
    outcomesDoubled += outcomes > 1;
    doubleCompletions += tally->completions != 1;
    doubleFinishes += tally->finishNotifications != 1;
  }
  EXPECT_EQ(outcomesMissing, 0);
  EXPECT_EQ(outcomesDoubled, 0);
  EXPECT_EQ(doubleCompletions, 0);
  EXPECT_EQ(doubleFinishes, 0);
  EXPECT_EQ(drains.count.load(), 1);
  for (const auto& mine : created)
    for (const auto& operation : mine) ASSERT_TRUE(operation->isFinished());
}

TEST(OperationsStress, DisposeUnderLoadReturnsAndLeavesNothingRunning) {
  WorkerThread queueThread("dispose queue");
  std::vector<std::unique_ptr<WorkerThread>> workers;
  for (int i = 0; i < 3; ++i) workers.push_back(std::make_unique<WorkerThread>("dispose worker"));
  WorkerThread finisher("dispose finisher");
  auto queue = ZTOperationQueue::create(queueThread);
  std::vector<std::unique_ptr<Tally>> tallies;
  std::vector<std::shared_ptr<StressOperation>> operations;
  std::atomic<bool> stop{false};
  std::vector<std::thread> adders;
  std::mutex createdMutex;
  for (int t = 0; t < 4; ++t) {
    adders.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      for (int i = 0; i < 10'000 && !stop.load(); ++i) {
        auto tally = std::make_unique<Tally>();
        auto operation = ZTConcurrentOperation::make<StressOperation>(workers[random() % 3]->thread, finisher.thread,
                                                                      static_cast<int>(random() % 3), *tally);
        operation->setCompletionBlock([&counter = *tally] { ++counter.completions; });
        {
          std::lock_guard lock(createdMutex);
          tallies.push_back(std::move(tally));
          operations.push_back(operation);
        }
        queue->addOperation(operation);
      }
    });
  }
  ASSERT_TRUE(zttest::eventually([&] {
    std::lock_guard lock(createdMutex);
    return operations.size() > 2'000;
  }));
  const auto begin = std::chrono::steady_clock::now();
  queue->dispose();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  stop = true;
  for (auto& adder : adders) adder.join();
  EXPECT_LT(took.count(), 30.0);
  EXPECT_TRUE(queue->executingOperations().empty());
  EXPECT_EQ(queue->operationsCount(), 0);
  // Operations that were started all reached their end; none ran a handler twice.
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const auto& tally = *tallies[i];
    EXPECT_LE(tally.successes + tally.cancellations + tally.failures, 1);
    if (operations[i]->wasStarted()) {
      ASSERT_TRUE(operations[i]->waitUntilFinishedAndCompletionHandlerCalled(10s));
      EXPECT_EQ(tally.completions.load(), 1);
    }
  }
}

}  // namespace
