#include "zentrel/operations/operation_queue.h"

#include <gtest/gtest.h>

#include "support/operation_test_support.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/notification_center.h"

namespace {
using namespace std::chrono_literals;
using zttest::ManualOperation;
using zttest::Recorder;
using zttest::WorkerThread;

// A concurrent operation (running on the queue's thread, as it has no worker thread of its own)
// that records its start under its name.
std::shared_ptr<ManualOperation> named(const std::string& name, Recorder& recorder, bool finishInMain,
                                       std::int64_t priority = ZTOperationQueuePriorityNormal) {
  return zttest::namedRecordingOperation(name, name, recorder, finishInMain, priority);
}

struct EmptyNotifications {
  std::atomic<int> count{0};
  std::atomic<const void*> object{nullptr};
  std::shared_ptr<ZTNotificationObserver> observer;
  explicit EmptyNotifications(const std::shared_ptr<ZTOperationQueue>& queue) {
    observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
        ZTOperationQueueDidBecameEmptyNotification, queue.get(), nullptr, [this](const ZTNotification& n) {
          object = n.object.get();
          ++count;
        });
  }
  ~EmptyNotifications() { ZTNotificationCenter::defaultCenter()->removeObserver(observer); }
};

TEST(OperationQueue, RequiresAThreadAndKeepsASensibleLimit) {
  EXPECT_EQ(ZTOperationQueue::create(nullptr), nullptr);
  WorkerThread worker;
  auto queue = ZTOperationQueue::create(worker);
  EXPECT_EQ(queue->maxConcurrentOperationCount(), 5);
  queue->setMaxConcurrentOperationCount(2);
  EXPECT_EQ(queue->maxConcurrentOperationCount(), 2);
  queue->setMaxConcurrentOperationCount(0);
  EXPECT_EQ(queue->maxConcurrentOperationCount(), 5);
  queue->setMaxConcurrentOperationCount(-3);
  EXPECT_EQ(queue->maxConcurrentOperationCount(), 5);
}

TEST(OperationQueue, StartsByPriorityAndPutsNewcomersAmongEqualsWhereTheSearchMeetsThem) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(1);
  queue->setSuspended(true);
  for (const char* name : {"a", "b", "c"}) queue->addOperation(named(name, recorder, true));
  queue->addOperation(named("high", recorder, true, ZTOperationQueuePriorityHigh));
  queue->addOperation(named("low", recorder, true, ZTOperationQueuePriorityVeryLow));
  std::vector<std::string> waiting;
  for (const auto& operation : queue->operations()) waiting.push_back(operation->name());
  EXPECT_EQ(waiting, (std::vector<std::string>{"high", "b", "c", "a", "low"}));
  queue->setSuspended(false);
  ASSERT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"high", "b", "c", "a", "low"}));
}

TEST(OperationQueue, RunsAtMostTheLimitAndStartsTheNextWhenOneFinishes) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(1);
  auto first = named("first", recorder, false);
  auto second = named("second", recorder, false);
  auto third = named("third", recorder, false);
  queue->addOperations({first, second, third});
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 1; }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 1u);
  EXPECT_EQ(queue->executingOperations().size(), 1u);
  EXPECT_EQ(queue->operationsCount(), 3);
  queue->executingOperations().front()->cancel();
  std::static_pointer_cast<ManualOperation>(queue->executingOperations().front())->finishAfterCancellation();
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 2; }));
  EXPECT_EQ(queue->operationsCount(), 2);
  // Raising the limit starts nothing by itself; the next completion starts up to the new limit.
  queue->setMaxConcurrentOperationCount(5);
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 2u);
  std::static_pointer_cast<ManualOperation>(queue->executingOperations().front())->finishWithSuccessHandler(nullptr);
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 3; }));
  for (const auto& operation : queue->executingOperations())
    std::static_pointer_cast<ManualOperation>(operation)->finishWithSuccessHandler(nullptr);
  EXPECT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
}

TEST(OperationQueue, StartsOperationsOnItsThreadNeverOnTheCaller) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  auto operation = named("one", recorder, true);
  queue->addOperation(operation);
  ASSERT_TRUE(operation->waitUntilFinished(10s));
  EXPECT_NE(operation->mainThread.load(), std::this_thread::get_id());
  std::thread::id workerId;
  ASSERT_TRUE(zt::performBlock([&] { workerId = std::this_thread::get_id(); }, worker.thread, true));
  EXPECT_EQ(operation->mainThread.load(), workerId);
}

TEST(OperationQueue, WaitsForDependenciesBeforeStarting) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  auto dependency = named("dependency", recorder, false);
  auto dependent = named("dependent", recorder, true);
  dependent->addDependency(dependency);
  queue->addOperation(dependent);
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 0u);
  EXPECT_EQ(queue->operationsCount(), 1);
  queue->addOperation(dependency);
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 1; }));
  dependency->finishWithSuccessHandler(nullptr);
  ASSERT_TRUE(dependent->waitUntilFinished(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"dependency", "dependent"}));

  // A ready operation that gains an unfinished dependency goes back to waiting.
  queue->setSuspended(true);
  auto later = named("later", recorder, true);
  auto blocker = named("blocker", recorder, false);
  queue->addOperation(later);
  later->addDependency(blocker);
  queue->setSuspended(false);
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.count("later"), 0u);
  blocker->start();
  blocker->finishWithSuccessHandler(nullptr);
  EXPECT_TRUE(later->waitUntilFinished(10s));
}

TEST(OperationQueue, SuspendedQueueStartsNothingUntilResumed) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(2);
  queue->setSuspended(true);
  EXPECT_TRUE(queue->isSuspended());
  for (const char* name : {"a", "b", "c"}) queue->addOperation(named(name, recorder, false));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 0u);
  queue->setSuspended(false);
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 2; }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 2u);
  queue->cancelAllOperations();
  for (const auto& operation : queue->executingOperations())
    std::static_pointer_cast<ManualOperation>(operation)->finishAfterCancellation();
  EXPECT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
}

TEST(OperationQueue, AnnouncesEachDrainOnceWithItselfAsObject) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  EmptyNotifications empty(queue);
  queue->addOperations({named("a", recorder, true), named("b", recorder, true), named("c", recorder, true)});
  ASSERT_TRUE(zttest::eventually([&] { return empty.count.load() == 1; }));
  EXPECT_EQ(empty.object.load(), queue.get());
  queue->addOperation(named("d", recorder, true));
  ASSERT_TRUE(zttest::eventually([&] { return empty.count.load() == 2; }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(empty.count.load(), 2);
  EXPECT_EQ(recorder.events().size(), 4u);
}

TEST(OperationQueue, IgnoresDuplicatesAndOperationsAlreadyUnderWay) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setSuspended(true);
  auto operation = named("once", recorder, true);
  queue->addOperation(operation);
  queue->addOperation(operation);
  queue->addOperations({operation, nullptr});
  EXPECT_EQ(queue->operationsCount(), 1);

  auto finished = named("finished", recorder, true);
  finished->start();
  auto executing = named("executing", recorder, false);
  executing->start();
  queue->addOperations({finished, executing});
  EXPECT_EQ(queue->operationsCount(), 1);
  queue->setSuspended(false);
  ASSERT_TRUE(operation->waitUntilFinished(10s));
  EXPECT_EQ(recorder.count("once"), 1u);
  executing->finishWithSuccessHandler(nullptr);
}

TEST(OperationQueue, OperationCancelledBeforeItWasAddedEndsThroughItsCancellationHandler) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  auto operation = ZTConcurrentOperation::make<ManualOperation>(
      worker, nullptr, [&](ZTConcurrentOperation&) { recorder.add("cancellation"); },
      [&](ZTConcurrentOperation&, const ZTError&) { recorder.add("failure"); });
  operation->finishInMain = true;
  operation->cancel();
  queue->addOperation(operation);
  ASSERT_TRUE(operation->waitUntilFinished(10s));
  EXPECT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"cancellation"}));
  EXPECT_EQ(operation->mainCalls.load(), 0);
}

TEST(OperationQueue, CancellingWaitingOnlyLeavesRunningOperationsAlone) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(1);
  auto running = named("running", recorder, false);
  auto waiting = named("waiting", recorder, true);
  auto blocked = named("blocked", recorder, true);
  blocked->addDependency(named("never", recorder, false));
  queue->addOperation(running);
  ASSERT_TRUE(zttest::eventually([&] { return running->mainCalls.load() == 1; }));
  queue->addOperations({waiting, blocked});
  queue->cancelAllButFinishRunningOperations();
  EXPECT_FALSE(running->isCancelled());
  EXPECT_TRUE(waiting->isCancelled());
  EXPECT_TRUE(blocked->isCancelled());
  running->finishWithSuccessHandler(nullptr);
  // Cancelled operations still leave through the queue, without running their work.
  ASSERT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"running"}));
}

TEST(OperationQueue, DisposeOnTheThreadOfARunningOperationReturnsAtOnce) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  auto stuck = ZTConcurrentOperation::make<ManualOperation>(worker);
  queue->addOperation(stuck);
  ASSERT_TRUE(zttest::eventually([&] { return stuck->mainCalls.load() == 1; }));
  std::chrono::duration<double> took{};
  ASSERT_TRUE(zt::performBlock(
      [&] {
        const auto begin = std::chrono::steady_clock::now();
        queue->dispose();
        queue->dispose();
        took = std::chrono::steady_clock::now() - begin;
      },
      worker.thread, true));
  EXPECT_LT(took.count(), 5.0);
  EXPECT_TRUE(queue->isDisposed());
  EXPECT_TRUE(stuck->isCancelled());
  EXPECT_EQ(queue->operationsCount(), 0);

  auto late = named("late", recorder, true);
  queue->addOperation(late);
  EXPECT_EQ(queue->operationsCount(), 0);
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events().size(), 0u);
}

TEST(OperationQueue, DisposeWaitsForRunningOperationsOnOtherThreads) {
  WorkerThread queueThread("queue");
  WorkerThread operationThread("operation");
  WorkerThread finisher("finisher");
  Recorder recorder;
  auto queue = ZTOperationQueue::create(queueThread);
  auto slow = ZTConcurrentOperation::make<ManualOperation>(operationThread);
  slow->setQueuePriority(ZTOperationQueuePriorityHigh);
  std::atomic<bool> cancelledSeen{false};
  slow->onMain = [&](ManualOperation& operation) {
    // Finishes a little later, once it notices the cancellation.
    zt::performBlock(
        [&, self = std::static_pointer_cast<ManualOperation>(operation.shared_from_this())] {
          while (!self->isCancelled()) std::this_thread::sleep_for(1ms);
          cancelledSeen = true;
          std::this_thread::sleep_for(20ms);
          self->finishAfterCancellation();
        },
        finisher.thread);
  };
  auto waiting = named("waiting", recorder, true);
  queue->setMaxConcurrentOperationCount(1);
  queue->addOperations({slow, waiting});
  ASSERT_TRUE(zttest::eventually([&] { return slow->mainCalls.load() == 1; }));
  queue->dispose();
  EXPECT_TRUE(cancelledSeen.load());
  EXPECT_TRUE(slow->isFinished());
  EXPECT_EQ(queue->operationsCount(), 0);
  EXPECT_EQ(waiting->mainCalls.load(), 0);
}

TEST(OperationQueue, AQueueWithItsOwnThreadEndsItWhenItGoesAndItsOperationsStillFinish) {
  Recorder recorder;
  std::shared_ptr<ZTThread> thread;
  auto done = named("done", recorder, true);
  auto running = named("running", recorder, false);
  auto waiting = named("waiting", recorder, true);
  {
    auto queue = ZTOperationQueue::createWithOwnThread("owned queue thread");
    ASSERT_NE(queue, nullptr);
    EXPECT_TRUE(queue->ownsWorkerThread());
    thread = queue->workerThread();
    EXPECT_EQ(thread->name(), "owned queue thread");
    queue->setMaxConcurrentOperationCount(1);
    queue->addOperation(done);
    ASSERT_TRUE(done->waitUntilFinished(10s));
    // A waiter may wake before the queue has counted the finished operation out; until it has, new
    // operations wait in the ready list, where equal priorities are not kept in arrival order.
    ASSERT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }));
    queue->addOperation(running);
    ASSERT_TRUE(zttest::eventually([&] { return running->mainCalls.load() == 1; }));
    queue->addOperation(waiting);
  }
  // The queue is gone: the operation it never started still finishes, as cancelled, and the thread ends.
  EXPECT_TRUE(waiting->waitUntilFinished(10s));
  EXPECT_TRUE(waiting->isCancelled());
  EXPECT_EQ(waiting->mainCalls.load(), 0);
  EXPECT_TRUE(running->isCancelled());
  running->finishAfterCancellation();
  EXPECT_TRUE(running->waitUntilFinished(10s));
  EXPECT_TRUE(zttest::eventually([&] { return !thread->isExecuting(); }));

  auto shared = ZTOperationQueue::create(ZTThreadWithRunLoop::spawnThreadWithName("not owned"));
  EXPECT_FALSE(shared->ownsWorkerThread());
  auto notOwned = shared->workerThread();
  shared.reset();
  EXPECT_FALSE(notOwned->isCancelled());
  notOwned->cancel();
}

TEST(OperationQueue, DescribesItself) {
  WorkerThread worker;
  Recorder recorder;
  auto queue = ZTOperationQueue::create(worker);
  queue->setName("imports");
  queue->setSuspended(true);
  queue->addOperation(named("job", recorder, true));
  const std::string text = queue->description();
  EXPECT_EQ(text.rfind("<ZTOperationQueue: 0x", 0), 0u) << text;
  EXPECT_NE(text.find("; name = imports; maxConcurrentOperationCount = 5; operations = (\n    "
                      "<zttest::ManualOperation: 0x"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("; name = job>\n)>"), std::string::npos) << text;
}

TEST(OperationQueue, AnOperationBelongsToOneQueueAtATime) {
  WorkerThread worker;
  Recorder recorder;
  auto first = ZTOperationQueue::create(worker);
  auto second = ZTOperationQueue::create(worker);
  first->setSuspended(true);
  auto operation = named("shared", recorder, true);
  first->addOperation(operation);
  second->setSuspended(true);
  auto bystander = named("bystander", recorder, true);
  EXPECT_THROW(second->addOperations({operation, bystander}), ZTInternalInconsistencyException);
  EXPECT_EQ(second->operationsCount(), 1);  // the others of the call were still added
  second->setSuspended(false);
  ASSERT_TRUE(bystander->waitUntilFinished(10s));

  // A queue that goes away lets its waiting operations go.
  first.reset();
  second->addOperation(operation);
  ASSERT_TRUE(operation->waitUntilFinished(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"bystander", "shared"}));
}

TEST(OperationQueue, ComparatorPutsHigherPriorityFirst) {
  auto high = std::make_shared<ZTOperation>();
  high->setQueuePriority(ZTOperationQueuePriorityHigh);
  auto normal = std::make_shared<ZTOperation>();
  EXPECT_EQ(ZTOperationsComparator(*high, *normal), ZTComparisonResult::OrderedAscending);
  EXPECT_EQ(ZTOperationsComparator(*normal, *high), ZTComparisonResult::OrderedDescending);
  EXPECT_EQ(ZTOperationsComparator(*normal, *normal), ZTComparisonResult::OrderedSame);
}

}  // namespace
