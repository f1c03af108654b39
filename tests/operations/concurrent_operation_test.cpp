#include "zentrel/operations/concurrent_operation.h"

#include <gtest/gtest.h>

#include "support/operation_test_support.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/cancellation_handling_operation.h"
#include "zentrel/operations/compound_operation.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"

namespace {
using namespace std::chrono_literals;
using zttest::ManualOperation;
using zttest::Recorder;
using zttest::WorkerThread;

struct LogCapture {
  std::mutex mutex;
  std::vector<std::string> lines;
  LogCapture() {
    ZTSetLogSink([this](std::string_view line) {
      std::lock_guard lock(mutex);
      lines.emplace_back(line);
    });
  }
  ~LogCapture() { ZTSetLogSink({}); }
};

std::shared_ptr<ManualOperation> recordingOperation(const std::shared_ptr<ZTThread>& thread, Recorder& recorder) {
  auto operation = ZTConcurrentOperation::make<ManualOperation>(
      thread, [&](ZTConcurrentOperation&) { recorder.add("start"); },
      [&](ZTConcurrentOperation&) { recorder.add("cancellation"); },
      [&](ZTConcurrentOperation&, const ZTError& error) { recorder.add("failure " + std::to_string(error.code())); });
  operation->onMain = [&](ManualOperation&) { recorder.add("main"); };
  operation->setCompletionBlock([&] { recorder.add("completion"); });
  return operation;
}

TEST(ConcurrentOperation, HandlersRunInOrderOnTheWorkerThreadWhenFinishedElsewhere) {
  WorkerThread worker;
  Recorder recorder;
  auto operation = recordingOperation(worker, recorder);
  std::thread::id successThread;
  operation->start();
  ASSERT_TRUE(zttest::eventually([&] { return operation->mainCalls.load() == 1; }));
  EXPECT_TRUE(operation->isExecuting());
  std::thread other([&] {
    operation->finishWithFinalizationHandler([&](std::optional<ZTError>&) { recorder.add("finalization"); },
                                             [&] {
                                               recorder.add("success");
                                               successThread = std::this_thread::get_id();
                                             },
                                             std::nullopt);
  });
  other.join();
  ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "main", "finalization", "success", "completion"}));
  EXPECT_EQ(successThread, operation->mainThread.load());
  EXPECT_FALSE(operation->isExecuting());
}

TEST(ConcurrentOperation, CancelledBeforeStartRunsOnlyTheCancellationHandlerOnce) {
  WorkerThread worker;
  Recorder recorder;
  auto operation = recordingOperation(worker, recorder);
  bool executingEverSet = false;
  (void)operation->addObserver(
      {std::string(ZTOperationIsExecutingKey)},
      [&](ZTOperation& changed, std::string_view, ZTKeyValueChange) { executingEverSet |= changed.isExecuting(); });
  operation->cancel();
  operation->finishWithError(std::nullopt);  // a never-started cancelled operation is left to start()
  operation->start();
  operation->start();
  ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"cancellation", "completion"}));
  EXPECT_FALSE(executingEverSet);
  EXPECT_FALSE(operation->wasStarted());
}

TEST(ConcurrentOperation, CancelledWhileRunningEndsThroughTheCancellationHandler) {
  WorkerThread worker;
  Recorder recorder;
  auto operation = recordingOperation(worker, recorder);
  operation->start();
  ASSERT_TRUE(zttest::eventually([&] { return operation->mainCalls.load() == 1; }));
  operation->cancel();
  operation->finishWithSuccessHandler([&] { recorder.add("success"); });
  ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "main", "cancellation", "completion"}));
}

TEST(ConcurrentOperation, OnlyTheFirstFinishCounts) {
  WorkerThread worker;
  Recorder recorder;
  auto operation = recordingOperation(worker, recorder);
  operation->start();
  ASSERT_TRUE(zttest::eventually([&] { return operation->mainCalls.load() == 1; }));
  std::vector<std::thread> finishers;
  for (int i = 0; i < 4; ++i) finishers.emplace_back([&] { operation->finishWithError(ZTError("test", 7)); });
  for (auto& finisher : finishers) finisher.join();
  operation->finishWithSuccessHandler([&] { recorder.add("success"); });
  ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  // Let the queued finishing calls drain before looking.
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "main", "failure 7", "completion"}));
}

TEST(ConcurrentOperation, FinalizationDecidesBetweenSuccessAndFailure) {
  Recorder recorder;
  auto failing = recordingOperation(nullptr, recorder);
  failing->start();
  failing->finishWithFinalizationHandler([](std::optional<ZTError>& error) { error = ZTError("final", 3); },
                                         [&] { recorder.add("success"); }, std::nullopt);
  auto succeeding = recordingOperation(nullptr, recorder);
  succeeding->start();
  succeeding->finishWithFinalizationHandler([&](std::optional<ZTError>&) { recorder.add("finalization"); },
                                            [&] { recorder.add("success"); }, std::nullopt);
  // A given error skips the finalization handler.
  auto given = recordingOperation(nullptr, recorder);
  given->start();
  given->finishWithFinalizationHandler([&](std::optional<ZTError>&) { recorder.add("finalization"); },
                                       [&] { recorder.add("success"); }, ZTError("given", 5));
  EXPECT_EQ(recorder.events(),
            (std::vector<std::string>{"start", "main", "failure 3", "completion", "start", "main", "finalization",
                                      "success", "completion", "start", "main", "failure 5", "completion"}));
}

TEST(ConcurrentOperation, FinishWithoutErrorStillFails) {
  std::optional<ZTError> reported;
  auto operation = ZTConcurrentOperation::make<ManualOperation>(
      nullptr, nullptr, nullptr, [&](ZTConcurrentOperation&, const ZTError& error) { reported = error; });
  operation->start();
  operation->finishWithError(std::nullopt);
  ASSERT_TRUE(reported.has_value());
  EXPECT_EQ(reported->domain(), ZTCocoaErrorDomain);
  EXPECT_EQ(reported->code(), -1);
  EXPECT_TRUE(operation->isFinished());
}

TEST(ConcurrentOperation, FinishAfterCancellationOnAnUncancelledOperationSucceedsQuietly) {
  Recorder recorder;
  auto operation = recordingOperation(nullptr, recorder);
  operation->start();
  operation->finishAfterCancellation();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "main", "completion"}));
}

TEST(ConcurrentOperation, UnchangedFlagSendsNoNotification) {
  auto operation = ZTConcurrentOperation::make<ManualOperation>(nullptr);
  int notifications = 0;
  (void)operation->addObserver({std::string(ZTOperationIsExecutingKey)},
                         [&](ZTOperation&, std::string_view, ZTKeyValueChange) { ++notifications; });
  operation->setExecuting(false);
  EXPECT_EQ(notifications, 0);
  operation->setExecuting(true);
  operation->setExecuting(true);
  EXPECT_EQ(notifications, 2);
}

TEST(ConcurrentOperation, ObserverReadingFlagsDuringAChangeDoesNotDeadlock) {
  WorkerThread worker;
  auto operation = ZTConcurrentOperation::make<ManualOperation>(worker);
  operation->finishInMain = true;
  std::vector<std::pair<bool, bool>> seen;
  (void)operation->addObserver({std::string(ZTOperationIsFinishedKey)},
                         [&](ZTOperation& changed, std::string_view, ZTKeyValueChange change) {
                           if (change == ZTKeyValueChange::DidChange)
                             seen.emplace_back(changed.isExecuting(), changed.isFinished());
                         });
  operation->start();
  ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(seen, (std::vector<std::pair<bool, bool>>{{false, true}}));
}

// What std::make_shared<T>(arguments...) needs: T constructible from the arguments, from outside T.
template <class T, class... A>
concept MakeSharedCompiles = requires(A&&... arguments) { ::new T(std::forward<A>(arguments)...); };

TEST(ConcurrentOperation, OnlyTheCheckedFactoriesCanConstruct) {
  // Bypassing the factories would skip the thread checks and the spawning of a worker thread.
  using Spawned = ZTConcurrentOperation::SpawnedWorkerThread;
  static_assert(!MakeSharedCompiles<ManualOperation, Spawned>);
  static_assert(!MakeSharedCompiles<ManualOperation, std::shared_ptr<ZTThread>>);
  static_assert(!MakeSharedCompiles<ManualOperation, std::nullptr_t>);
  static_assert(!std::is_default_constructible_v<ZTConcurrentOperation::ConstructionKey>);
  static_assert(!MakeSharedCompiles<ZTBlockOperation, ZTBlockOperation::ExecutionBlock, std::nullptr_t,
                                    std::nullptr_t, std::nullptr_t, ZTBlockOperation::FailureHandler>);
  static_assert(!MakeSharedCompiles<ZTAlwaysFailingOperation, ZTError, ZTAlwaysFailingOperation::FailureHandler>);
  static_assert(!MakeSharedCompiles<ZTCompoundConcurrentOperation, std::vector<std::shared_ptr<ZTOperation>>,
                                    std::uint64_t, std::nullptr_t, std::nullptr_t, std::nullptr_t,
                                    ZTCompoundConcurrentOperation::CompletionHandler>);
  // The check itself sees a constructor where there is one.
  static_assert(MakeSharedCompiles<ZTCancellationHandlingOperation>);
  auto spawned = ZTConcurrentOperation::make<ManualOperation>(ZTConcurrentOperation::spawnedWorkerThread);
  ASSERT_NE(spawned, nullptr);
  EXPECT_NE(spawned->workerThread(), nullptr);
}

TEST(ConcurrentOperation, RefusesUnusableWorkerThreads) {
  LogCapture log;
  auto cancelled = ZTThreadWithRunLoop::spawnThreadWithName("cancelled worker");
  cancelled->cancel();
  EXPECT_EQ(ZTConcurrentOperation::make<ManualOperation>(cancelled), nullptr);
  auto notStarted = std::make_shared<ZTThreadWithRunLoop>();
  EXPECT_EQ(ZTConcurrentOperation::make<ManualOperation>(notStarted), nullptr);
  EXPECT_EQ(ZTConcurrentOperation::make<ManualOperation>(ZTThread::mainThread()), nullptr);
  std::lock_guard lock(log.mutex);
  EXPECT_EQ(log.lines, (std::vector<std::string>{
                           "ERROR: Unable to initialize async operation. Thread is not executing or is cancelled.",
                           "ERROR: Unable to initialize async operation. Thread is not executing or is cancelled.",
                           "ERROR: Trying to use main thread as worker thread. This may lead to deadlocks."}));
}

TEST(ConcurrentOperation, SpawnedWorkerThreadIsNamedAfterTheOperationAndEndsWithIt) {
  std::shared_ptr<ZTThread> thread;
  {
    auto operation = ZTConcurrentOperation::make<ManualOperation>(ZTConcurrentOperation::spawnedWorkerThread);
    ASSERT_NE(operation, nullptr);
    thread = operation->workerThread();
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(operation->cancelsWorkerThreadOnCompletion());
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(operation.get()));
    EXPECT_EQ(thread->name(), std::string("<zttest::ManualOperation: ") + address + "> Worker Thread");
    operation->finishInMain = true;
    operation->start();
    ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s));
    EXPECT_FALSE(thread->isCancelled());
    // The finished operation's queued calls may still hold it for a moment.
    ASSERT_TRUE(zt::performBlock([] {}, thread, true));
  }
  EXPECT_TRUE(thread->isCancelled());
  thread->waitUntilFinished();
}

TEST(ConcurrentOperation, ExceptionsFromMainAreSwallowedAndLeaveTheOperationExecuting) {
  WorkerThread worker;
  auto operation = ZTConcurrentOperation::make<ManualOperation>(worker);
  operation->onMain = [](ManualOperation&) { throw std::runtime_error("broken"); };
  operation->start();
  ASSERT_TRUE(zttest::eventually([&] { return operation->mainCalls.load() == 1; }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_TRUE(operation->isExecuting());
  operation->finishWithSuccessHandler(nullptr);
  EXPECT_TRUE(operation->waitUntilFinished(10s));
}

TEST(ConcurrentOperation, BaseMainIsAbstract) {
  auto operation = ZTConcurrentOperation::make<ZTConcurrentOperation>(nullptr);
  operation->setShouldHandleExceptions(false);
  try {
    operation->start();
    FAIL() << "expected an exception";
  } catch (const ZTInternalInconsistencyException& e) {
    EXPECT_STREQ(e.what(), "You must override main in ZTConcurrentOperation class.");
  }
}

class Import : public ZTCancellationHandlingOperation {
 public:
  using ZTCancellationHandlingOperation::ZTCancellationHandlingOperation;
  int work = 0;
  void doMain() override {
    ++work;
    cancel();
  }
};

TEST(CancellationHandlingOperation, HandlerRunsOnlyWhenCancelledBeforeTheWork) {
  int handled = 0;
  auto cancelledEarly = std::make_shared<Import>([&](ZTCancellationHandlingOperation&) { ++handled; });
  cancelledEarly->cancel();
  cancelledEarly->start();
  cancelledEarly->start();
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(cancelledEarly->work, 0);
  EXPECT_TRUE(cancelledEarly->isFinished());

  auto cancelledDuringWork = std::make_shared<Import>([&](ZTCancellationHandlingOperation&) { ++handled; });
  cancelledDuringWork->start();
  EXPECT_EQ(cancelledDuringWork->work, 1);
  EXPECT_TRUE(cancelledDuringWork->mainWasCalled());
  EXPECT_EQ(handled, 1);

  auto abstract = std::make_shared<ZTCancellationHandlingOperation>();
  EXPECT_THROW(abstract->start(), ZTInternalInconsistencyException);
}

}  // namespace
