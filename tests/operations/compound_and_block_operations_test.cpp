#include <gtest/gtest.h>

#include <algorithm>

#include "support/operation_test_support.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/compound_operation.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/operation_queue.h"

namespace {
using namespace std::chrono_literals;
using zttest::ManualOperation;
using zttest::Recorder;
using zttest::WorkerThread;

std::shared_ptr<ManualOperation> member(const std::string& name, Recorder& recorder, bool finishInMain,
                                        std::int64_t priority = ZTOperationQueuePriorityNormal) {
  return zttest::namedRecordingOperation(name, "start " + name, recorder, finishInMain, priority);
}

TEST(CompoundOperation, RefusesMissingCompletionAndEmptyMemberList) {
  Recorder recorder;
  auto any = [](ZTCompoundConcurrentOperation&) {};
  EXPECT_EQ(ZTCompoundConcurrentOperation::create({}, 0, nullptr, nullptr, nullptr, any), nullptr);
  EXPECT_EQ(ZTCompoundConcurrentOperation::create({member("a", recorder, true)}, 0, nullptr, nullptr, nullptr, nullptr),
            nullptr);
  EXPECT_EQ(ZTMutableCompoundConcurrentOperation::create({}, 0, nullptr, nullptr, nullptr, nullptr), nullptr);

  // An empty mutable compound operation finishes as soon as it runs.
  WorkerThread worker;
  std::atomic<int> completions{0};
  auto empty = ZTMutableCompoundConcurrentOperation::create({}, 0, worker, nullptr, nullptr,
                                                            [&](ZTCompoundConcurrentOperation&) { ++completions; });
  ASSERT_NE(empty, nullptr);
  empty->start();
  ASSERT_TRUE(empty->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(completions.load(), 1);
}

TEST(CompoundOperation, StartsMembersByPriorityFiveAtATimeAndCompletesAfterTheLast) {
  WorkerThread worker;
  Recorder recorder;
  std::vector<std::shared_ptr<ZTOperation>> members;
  const std::vector<std::int64_t> priorities = {0, -4, 8, 4, -8, 0, 4, 8};
  for (std::size_t i = 0; i < priorities.size(); ++i)
    members.push_back(
        member("p" + std::to_string(priorities[i]) + "#" + std::to_string(i), recorder, false, priorities[i]));
  std::atomic<int> completions{0};
  std::atomic<bool> allMembersFinishedAtCompletion{false};
  auto compound = ZTCompoundConcurrentOperation::create(
      members, 0, worker, [&](ZTConcurrentOperation&) { recorder.add("compound start"); }, nullptr,
      [&](ZTCompoundConcurrentOperation& operation) {
        ++completions;
        const auto all = operation.operations();
        allMembersFinishedAtCompletion =
            std::all_of(all.begin(), all.end(), [](const auto& m) { return m->isFinished(); });
      });
  ASSERT_NE(compound, nullptr);
  compound->start();
  ASSERT_TRUE(zttest::eventually([&] { return recorder.events().size() == 6; }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  auto events = recorder.events();
  ASSERT_EQ(events.size(), 6u);
  EXPECT_EQ(events[0], "compound start");
  // The five highest priorities: 8, 8, 4, 4 and one of the two 0s.
  std::vector<std::string> started(events.begin() + 1, events.end());
  EXPECT_EQ(std::count_if(started.begin(), started.end(), [](const std::string& e) { return e.find("p8") != e.npos; }),
            2);
  EXPECT_EQ(std::count_if(started.begin(), started.end(), [](const std::string& e) { return e.find("p4") != e.npos; }),
            2);
  EXPECT_TRUE(started[0].find("p8") != std::string::npos && started[1].find("p8") != std::string::npos);

  // Finish members one by one; the compound operation completes only after the last.
  for (int round = 0; round < 8; ++round) {
    std::shared_ptr<ManualOperation> running;
    ASSERT_TRUE(zttest::eventually([&] {
      for (const auto& m : members) {
        auto manual = std::static_pointer_cast<ManualOperation>(m);
        if (manual->isExecuting() && manual->mainCalls.load() == 1) {
          running = manual;
          return true;
        }
      }
      return false;
    }));
    EXPECT_EQ(completions.load(), 0);
    running->finishWithSuccessHandler(nullptr);
    ASSERT_TRUE(running->waitUntilFinished(10s));
  }
  ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(completions.load(), 1);
  EXPECT_TRUE(allMembersFinishedAtCompletion.load());
}

TEST(CompoundOperation, WaitingOptionCompletesOnlyAfterMembersCompletionBlocks) {
  for (std::uint64_t options : {std::uint64_t{0}, ZTCompoundOperationWaitUntilFinishedAndCompletionHandlersAreCalled}) {
    WorkerThread worker;
    Recorder recorder;
    std::vector<std::shared_ptr<ZTOperation>> members;
    for (int i = 0; i < 3; ++i) {
      auto m = member(std::to_string(i), recorder, true);
      m->setCompletionBlock([&recorder, i] {
        std::this_thread::sleep_for(2ms);
        recorder.add("member completion " + std::to_string(i));
      });
      members.push_back(m);
    }
    auto compound = ZTCompoundConcurrentOperation::create(
        members, options, worker, nullptr, nullptr, [&](ZTCompoundConcurrentOperation& operation) {
          recorder.add("compound completion");
          EXPECT_TRUE(operation.waitUntilFinishedAndCompletionHandlersAreCalled() == (options == 1));
        });
    compound->start();
    ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
    for (const auto& m : members) ASSERT_TRUE(m->waitUntilFinishedAndCompletionHandlerCalled(10s));
    const auto events = recorder.events();
    const auto compoundAt = std::find(events.begin(), events.end(), "compound completion") - events.begin();
    if (options) {
      EXPECT_EQ(compoundAt, static_cast<long>(events.size()) - 1) << "options " << options;
    } else {
      // Members run on the compound operation's own thread here, so the compound operation completes
      // inside the last member's finish, before that member's completion block.
      EXPECT_EQ(events.back(), "member completion 0") << "options " << options;
    }
    EXPECT_EQ(recorder.count("compound completion"), 1u);
  }
}

TEST(CompoundOperation, WaitingForMembersCompletionBlocksLeavesTheWorkerThreadFree) {
  WorkerThread worker("compound");
  WorkerThread memberThread("member");
  auto m = ZTConcurrentOperation::make<ManualOperation>(memberThread);
  m->finishInMain = true;
  std::atomic<bool> workerAnswered{false};
  // Needs the compound operation's thread while the compound operation waits for this block.
  m->setCompletionBlock([&] { workerAnswered = zt::performBlock([] {}, worker.thread, true); });
  std::atomic<int> completions{0};
  auto compound = ZTCompoundConcurrentOperation::create(
      {m}, ZTCompoundOperationWaitUntilFinishedAndCompletionHandlersAreCalled, worker, nullptr, nullptr,
      [&](ZTCompoundConcurrentOperation&) { ++completions; });
  compound->start();
  ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_TRUE(workerAnswered.load());
  EXPECT_EQ(completions.load(), 1);
}

TEST(CompoundOperation, CancellingCancelsMembersAndCallsTheCancellationHandlerInstead) {
  WorkerThread worker;
  Recorder recorder;
  auto running = member("running", recorder, false, ZTOperationQueuePriorityHigh);
  auto waiting = member("waiting", recorder, true);
  waiting->addDependency(running);
  auto compound = ZTCompoundConcurrentOperation::create(
      {running, waiting}, 0, worker, nullptr, [&](ZTConcurrentOperation&) { recorder.add("compound cancelled"); },
      [&](ZTCompoundConcurrentOperation&) { recorder.add("compound completion"); });
  compound->start();
  ASSERT_TRUE(zttest::eventually([&] { return running->mainCalls.load() == 1; }));
  compound->cancel();
  EXPECT_TRUE(running->isCancelled());
  EXPECT_TRUE(waiting->isCancelled());
  running->finishAfterCancellation();
  ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(recorder.count("compound cancelled"), 1u);
  EXPECT_EQ(recorder.count("compound completion"), 0u);
  EXPECT_EQ(recorder.count("start waiting"), 0u);
}

TEST(CompoundOperation, CancelledBeforeItRunsItsMembersStillFinishAsCancelled) {
  WorkerThread worker;
  Recorder recorder;
  auto concurrent = ZTConcurrentOperation::make<ManualOperation>(
      worker, nullptr, [&](ZTConcurrentOperation&) { recorder.add("member cancelled"); });
  auto synchronous = ZTBlockOperation::create(
      [&](ZTBlockOperation&, std::optional<ZTError>&) {
        recorder.add("block ran");
        return true;
      },
      nullptr, [&](ZTBlockOperation&) { recorder.add("block cancelled"); }, nullptr,
      [](ZTBlockOperation&, const ZTError&) {});
  auto compound = ZTCompoundConcurrentOperation::create(
      {concurrent, synchronous}, 0, worker, nullptr, nullptr, [&](ZTCompoundConcurrentOperation&) {});
  compound->cancel();
  compound->start();
  ASSERT_TRUE(compound->waitUntilFinished(10s));
  EXPECT_TRUE(concurrent->waitUntilFinished(10s));
  EXPECT_TRUE(synchronous->waitUntilFinished(10s));
  EXPECT_EQ(concurrent->mainCalls.load(), 0);
  EXPECT_EQ(recorder.count("member cancelled"), 1u);
  EXPECT_EQ(recorder.count("block cancelled"), 1u);
  EXPECT_EQ(recorder.count("block ran"), 0u);
}

TEST(CompoundOperation, SpawnsAQueueThreadWhenItHasNoneAndEndsItOnCompletion) {
  Recorder recorder;
  auto compound = ZTCompoundConcurrentOperation::create({member("a", recorder, true)}, 0, nullptr, nullptr, nullptr,
                                                        [](ZTCompoundConcurrentOperation&) {});
  std::thread runner([&] { compound->start(); });
  runner.join();
  ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
  auto thread = compound->operationQueue()->workerThread();
  char expected[96];
  std::snprintf(expected, sizeof expected, "Compound Operation (%p) Worker Thread",
                static_cast<const void*>(compound.get()));
  EXPECT_EQ(thread->name(), expected);
  EXPECT_TRUE(thread->isCancelled());
}

TEST(MutableCompoundOperation, AcceptsMembersOnlyBeforeItRuns) {
  WorkerThread worker;
  Recorder recorder;
  auto compound = ZTMutableCompoundConcurrentOperation::create(
      {}, 0, worker, nullptr, nullptr, [&](ZTCompoundConcurrentOperation&) { recorder.add("completion"); });
  auto first = member("first", recorder, false);
  compound->addOperation(first);
  compound->addOperations({member("second", recorder, true), nullptr});
  EXPECT_EQ(compound->operations().size(), 2u);
  compound->start();
  ASSERT_TRUE(zttest::eventually([&] { return first->mainCalls.load() == 1; }));
  auto late = member("late", recorder, true);
  compound->addOperation(late);
  EXPECT_EQ(compound->operations().size(), 2u);
  first->finishWithSuccessHandler(nullptr);
  ASSERT_TRUE(compound->waitUntilFinishedAndCompletionHandlerCalled(10s));
  EXPECT_EQ(recorder.count("start late"), 0u);
  EXPECT_EQ(recorder.count("completion"), 1u);
}

TEST(MutableCompoundOperation, AMemberAddedAfterItCompletedCancelledStillFinishes) {
  WorkerThread worker;
  Recorder recorder;
  auto compound = ZTMutableCompoundConcurrentOperation::create({}, 0, worker, nullptr, nullptr,
                                                               [](ZTCompoundConcurrentOperation&) {});
  compound->cancel();
  compound->start();
  ASSERT_TRUE(compound->waitUntilFinished(10s));
  auto late = ZTConcurrentOperation::make<ManualOperation>(
      worker, nullptr, [&](ZTConcurrentOperation&) { recorder.add("late cancelled"); });
  compound->addOperation(late);
  EXPECT_TRUE(late->waitUntilFinished(10s));
  EXPECT_TRUE(late->isCancelled());
  EXPECT_EQ(late->mainCalls.load(), 0);
  EXPECT_EQ(recorder.count("late cancelled"), 1u);
  EXPECT_EQ(compound->operations().size(), 1u);
}

TEST(BlockOperation, OutcomeFollowsTheBlocksResultAndError) {
  Recorder recorder;
  auto make = [&](std::function<bool(ZTBlockOperation&, std::optional<ZTError>&)> block) {
    return ZTBlockOperation::create(
        std::move(block), [&](ZTBlockOperation&) { recorder.add("start"); },
        [&](ZTBlockOperation&) { recorder.add("cancellation"); }, [&](ZTBlockOperation&) { recorder.add("success"); },
        [&](ZTBlockOperation&, const ZTError& error) {
          recorder.add("failure " + error.domain() + " " + std::to_string(error.code()));
        });
  };
  make([](ZTBlockOperation&, std::optional<ZTError>&) { return true; })->start();
  make([](ZTBlockOperation&, std::optional<ZTError>&) { return false; })->start();
  make([](ZTBlockOperation&, std::optional<ZTError>& error) {
    error = ZTError("stored", 2);
    return true;
  })->start();
  auto cancelled = make([&](ZTBlockOperation&, std::optional<ZTError>&) {
    recorder.add("block");
    return true;
  });
  cancelled->cancel();
  cancelled->start();
  cancelled->start();
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "success", "start", "failure NSPOSIXErrorDomain 14",
                                                         "start", "failure stored 2", "cancellation"}));
  EXPECT_EQ(ZTBlockOperation::create(nullptr, nullptr, nullptr, nullptr, [](ZTBlockOperation&, const ZTError&) {}),
            nullptr);
  EXPECT_EQ(ZTBlockOperation::create([](ZTBlockOperation&, std::optional<ZTError>&) { return true; }, nullptr, nullptr,
                                     nullptr, nullptr),
            nullptr);
}

TEST(BlockOperation, RunsOnTheQueueThread) {
  WorkerThread worker;
  auto queue = ZTOperationQueue::create(worker);
  std::thread::id ranOn;
  auto operation = ZTBlockOperation::create(
      [&](ZTBlockOperation&, std::optional<ZTError>&) {
        ranOn = std::this_thread::get_id();
        return true;
      },
      nullptr, nullptr, nullptr, [](ZTBlockOperation&, const ZTError&) {});
  queue->addOperation(operation);
  ASSERT_TRUE(operation->waitUntilFinished(10s));
  std::thread::id workerId;
  ASSERT_TRUE(zt::performBlock([&] { workerId = std::this_thread::get_id(); }, worker.thread, true));
  EXPECT_EQ(ranOn, workerId);
}

TEST(ConcurrentBlockOperation, SynchronousBlockFinishesOnTheWorkerThread) {
  WorkerThread worker;
  Recorder recorder;
  auto failureHandler = [&](ZTConcurrentOperation&, const ZTError& error) {
    recorder.add("failure " + error.domain());
  };
  auto succeeding = ZTConcurrentBlockOperation::createWithExecutionBlock(
      [&](ZTConcurrentBlockOperation&, std::optional<ZTError>&) { recorder.add("block"); }, worker,
      [&](ZTConcurrentOperation&) { recorder.add("start"); }, nullptr,
      [&](ZTConcurrentBlockOperation& operation) {
        recorder.add(operation.workerThread()->runLoop()->isCurrent() ? "success on worker" : "success elsewhere");
      },
      failureHandler);
  succeeding->start();
  ASSERT_TRUE(succeeding->waitUntilFinished(10s));
  auto failing = ZTConcurrentBlockOperation::createWithExecutionBlock(
      [](ZTConcurrentBlockOperation&, std::optional<ZTError>& error) { error = ZTError("bad", 1); }, worker, nullptr,
      nullptr, [&](ZTConcurrentBlockOperation&) { recorder.add("success"); }, failureHandler);
  failing->start();
  ASSERT_TRUE(failing->waitUntilFinished(10s));
  EXPECT_EQ(recorder.events(), (std::vector<std::string>{"start", "block", "success on worker", "failure bad"}));
  EXPECT_EQ(ZTConcurrentBlockOperation::createWithExecutionBlock(nullptr, worker, nullptr, nullptr, nullptr, nullptr),
            nullptr);
}

TEST(ConcurrentBlockOperation, AsynchronousBlockKeepsItExecutingUntilItFinishes) {
  WorkerThread worker;
  std::shared_ptr<ZTConcurrentBlockOperation> started;
  std::atomic<bool> blockRan{false};
  auto operation = ZTConcurrentBlockOperation::createWithAsyncExecutionBlock(
      [&](ZTConcurrentBlockOperation&) { blockRan = true; }, worker, nullptr, nullptr, nullptr);
  operation->start();
  ASSERT_TRUE(zttest::eventually([&] { return blockRan.load(); }));
  ASSERT_TRUE(zt::performBlock([] {}, worker.thread, true));
  EXPECT_TRUE(operation->isExecuting());
  EXPECT_FALSE(operation->waitUntilFinished(20ms));
  operation->finishWithSuccessHandler(nullptr);
  EXPECT_TRUE(operation->waitUntilFinished(10s));
}

TEST(AlwaysFailingOperation, ReportsItsErrorAndNothingElse) {
  std::optional<ZTError> reported;
  auto operation = ZTAlwaysFailingOperation::create(ZTError("known", 42),
                                                    [&](ZTAlwaysFailingOperation&, const ZTError& e) { reported = e; });
  operation->start();
  ASSERT_TRUE(reported.has_value());
  EXPECT_EQ(reported->code(), 42);
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(ZTAlwaysFailingOperation::create(ZTError("known", 1), nullptr), nullptr);
}

}  // namespace
