// Operations under resource pressure: ten thousand operations executing at once on one queue stay
// within a stated memory budget and all finish; worker threads and queues made while every file
// descriptor is taken fail in a way the caller can handle, and work again afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "common/descriptor_limit.h"
#include "common/log_and_environment.h"
#include "operations/support/operation_test_support.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/operation_queue.h"

namespace {

using namespace std::chrono_literals;
using zttest::WorkerThread;

// Measured on the development machine (2026-11, RelWithDebInfo): 10.7 MiB of resident growth for
// 10,000 executing operations with their queue records, about 1.1 KiB each. The budget leaves room
// for sanitizer builds and allocator slack.
constexpr unsigned long long kBudgetBytes = 64ull << 20;
constexpr int kOperations = 10000;

TEST(ResourceLimits, TenThousandExecutingOperationsStayWithinTheMemoryBudgetAndAllFinish) {
  WorkerThread worker;
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(kOperations);
  std::atomic<int> running{0};
  std::vector<std::shared_ptr<ZTOperation>> operations;
  std::vector<std::shared_ptr<ZTConcurrentBlockOperation>> executing;
  operations.reserve(kOperations);
  executing.reserve(kOperations);
  const unsigned long long before = zt::test::residentBytes();
  for (int i = 0; i < kOperations; ++i) {
    auto operation = ZTConcurrentBlockOperation::createWithAsyncExecutionBlock(
        [&](ZTConcurrentBlockOperation&) { running.fetch_add(1); }, worker, nullptr, nullptr, nullptr);
    ASSERT_NE(operation, nullptr);
    executing.push_back(operation);
    operations.push_back(operation);
  }
  queue->addOperations(operations);
  operations.clear();
  ASSERT_TRUE(zttest::eventually([&] { return running.load() == kOperations; }, 60s));
  const unsigned long long peak = zt::test::residentBytes();
  EXPECT_EQ(queue->operationsCount(), kOperations);
  const unsigned long long growth = peak > before ? peak - before : 0;
  std::printf("[ memory   ] %d executing operations: %.1f MiB resident growth (%.0f bytes each)\n", kOperations,
              static_cast<double>(growth) / (1 << 20), static_cast<double>(growth) / kOperations);
  EXPECT_LT(growth, kBudgetBytes);

  for (auto& operation : executing) operation->finishWithSuccessHandler(nullptr);
  EXPECT_TRUE(zttest::eventually([&] { return queue->operationsCount() == 0; }, 60s));
  for (auto& operation : executing) EXPECT_TRUE(operation->waitUntilFinished(10s));
}

TEST(ResourceLimitsDeathTest, WorkerThreadsWithoutDescriptorsFailHandlablyThenWork) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        bool ok = true;
        {
          zt::test::DescriptorLimit limit(64);
          limit.exhaust();
          // Each attempt either gives a working thread or a failure the caller sees; none may crash.
          for (int i = 0; i < 4; ++i) {
            try {
              auto thread = ZTThreadWithRunLoop::spawnThreadWithName("starved");
              if (thread) thread->cancel();
            } catch (const std::exception&) {
            }
            try {
              auto queue = ZTOperationQueue::createWithOwnThread("starved queue");
              (void)queue;
            } catch (const std::exception&) {
            }
          }
        }
        WorkerThread worker;
        std::atomic<bool> ran{false};
        auto operation = ZTConcurrentBlockOperation::createWithAsyncExecutionBlock(
            [&](ZTConcurrentBlockOperation& self) {
              ran = true;
              self.finishWithSuccessHandler(nullptr);
            },
            worker, nullptr, nullptr, nullptr);
        ok = ok && operation != nullptr;
        if (operation) {
          operation->start();
          ok = ok && operation->waitUntilFinished(10s) && ran.load();
        }
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
