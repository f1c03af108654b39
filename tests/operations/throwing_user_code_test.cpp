// Code the application hands to operations and queues may throw: the library logs it and keeps its
// promises — the operation still finishes, the queue keeps starting.

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/operation_test_support.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/platform/log.h"

namespace {
using namespace std::chrono_literals;
using zttest::ManualOperation;
using zttest::WorkerThread;

struct LogLines {
  std::mutex mutex;
  std::vector<std::string> lines;
  LogLines() {
    ZTSetLogSink([this](std::string_view line) {
      std::lock_guard lock(mutex);
      lines.emplace_back(line);
    });
  }
  ~LogLines() { ZTSetLogSink({}); }
  std::size_t containing(const std::string& text) {
    std::lock_guard lock(mutex);
    std::size_t n = 0;
    for (const auto& line : lines) n += line.find(text) != std::string::npos;
    return n;
  }
};

[[noreturn]] void fail(const char* what) { throw std::runtime_error(what); }

TEST(ThrowingUserCode, EveryHandlerThatThrowsIsLoggedAndTheOperationStillCompletes) {
  LogLines log;
  WorkerThread worker;
  // Start handler: the work never begins; the operation fails instead of executing for ever.
  std::atomic<int> failures{0};
  auto throwingStart = ZTConcurrentOperation::make<ManualOperation>(
      worker, [](ZTConcurrentOperation&) { fail("start handler failed"); }, nullptr,
      [&](ZTConcurrentOperation&, const ZTError&) { ++failures; });
  throwingStart->start();
  ASSERT_TRUE(throwingStart->waitUntilFinished(10s));
  EXPECT_EQ(throwingStart->mainCalls.load(), 0);
  EXPECT_EQ(failures.load(), 1);
  EXPECT_FALSE(throwingStart->isExecuting());

  // Success handler, finished from another thread.
  auto throwingSuccess = ZTConcurrentOperation::make<ManualOperation>(worker);
  throwingSuccess->start();
  ASSERT_TRUE(zttest::eventually([&] { return throwingSuccess->mainCalls.load() == 1; }));
  std::thread([&] { throwingSuccess->finishWithSuccessHandler([] { fail("success handler failed"); }); }).join();
  ASSERT_TRUE(throwingSuccess->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_FALSE(throwingSuccess->isExecuting());

  // Cancellation handler, cancelled while running.
  auto throwingCancellation = ZTConcurrentOperation::make<ManualOperation>(
      worker, nullptr, [](ZTConcurrentOperation&) { fail("cancellation handler failed"); });
  throwingCancellation->start();
  ASSERT_TRUE(zttest::eventually([&] { return throwingCancellation->mainCalls.load() == 1; }));
  throwingCancellation->cancel();
  throwingCancellation->finishAfterCancellation();
  ASSERT_TRUE(throwingCancellation->waitUntilFinished(10s));

  // Failure handler and a throwing completion block.
  auto throwingFailure = ZTConcurrentOperation::make<ManualOperation>(
      nullptr, nullptr, nullptr, [](ZTConcurrentOperation&, const ZTError&) { fail("failure handler failed"); });
  throwingFailure->setCompletionBlock([] { fail("completion block failed"); });
  throwingFailure->start();
  EXPECT_NO_THROW(throwingFailure->finishWithError(std::nullopt));
  EXPECT_TRUE(throwingFailure->isFinished());
  EXPECT_TRUE(throwingFailure->ztCompletionHandlerWasCalled());

  for (const char* reason : {"start handler failed", "success handler failed", "cancellation handler failed",
                             "failure handler failed", "completion block failed"})
    EXPECT_EQ(log.containing(reason), 1u) << reason;
}

TEST(ThrowingUserCode, ConcurrentBlockThatThrowsFailsTheOperation) {
  LogLines log;
  WorkerThread worker;
  for (bool asynchronous : {false, true}) {
    std::optional<ZTError> reported;
    auto failure = [&](ZTConcurrentOperation&, const ZTError& error) { reported = error; };
    auto operation =
        asynchronous
            ? ZTConcurrentBlockOperation::createWithAsyncExecutionBlock(
                  [](ZTConcurrentBlockOperation&) { fail("asynchronous block failed"); }, worker, nullptr, nullptr,
                  failure)
            : ZTConcurrentBlockOperation::createWithExecutionBlock(
                  [](ZTConcurrentBlockOperation&, std::optional<ZTError>&) { fail("block failed"); }, worker, nullptr,
                  nullptr, nullptr, failure);
    ASSERT_NE(operation, nullptr);
    operation->start();
    ASSERT_TRUE(operation->waitUntilFinishedAndCompletionHandlerCalled(10s)) << asynchronous;
    ASSERT_TRUE(reported.has_value());
    EXPECT_EQ(reported->code(), -1);
  }
  EXPECT_EQ(log.containing("block failed"), 2u);
}

TEST(ThrowingUserCode, AQueueKeepsStartingAfterOperationsThatThrowInStart) {
  LogLines log;
  WorkerThread worker;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(3);
  queue->setSuspended(true);  // so that the throwing operations and the rest share one batch
  std::atomic<int> ran{0};
  std::vector<std::shared_ptr<ZTOperation>> operations;
  for (int i = 0; i < 2; ++i) {
    operations.push_back(ZTBlockOperation::create(
        [](ZTBlockOperation&, std::optional<ZTError>&) -> bool { fail("block of a queued operation failed"); },
        nullptr, nullptr, nullptr, [](ZTBlockOperation&, const ZTError&) {}));
    operations.push_back(ZTConcurrentOperation::make<ManualOperation>(
        nullptr, [](ZTConcurrentOperation&) { fail("start handler of a queued operation failed"); }));
  }
  for (int i = 0; i < 6; ++i)
    operations.push_back(ZTBlockOperation::create(
        [&](ZTBlockOperation&, std::optional<ZTError>&) {
          ++ran;
          return true;
        },
        nullptr, nullptr, nullptr, [](ZTBlockOperation&, const ZTError&) {}));
  queue->addOperations(operations);
  queue->setSuspended(false);
  ASSERT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }))
      << queue->operationsCount() << " operations still counted";
  EXPECT_EQ(ran.load(), 6);
  for (const auto& operation : operations) EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(log.containing("block of a queued operation failed"), 2u);
  EXPECT_EQ(log.containing("start handler of a queued operation failed"), 2u);

  // And it still starts what comes later.
  auto later = ZTConcurrentOperation::make<ManualOperation>(nullptr);
  later->finishInMain = true;
  queue->addOperation(later);
  EXPECT_TRUE(later->waitUntilFinished(10s));
  queue->dispose();
}
}  // namespace
