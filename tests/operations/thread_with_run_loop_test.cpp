#include "zentrel/operations/thread_with_run_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>

#include "zentrel/operations/cross_thread_calls.h"

namespace {
using namespace std::chrono_literals;

class ImportWorker : public ZTThreadWithRunLoop {};

// CPU time (user + system) a thread of this process has used, in clock ticks.
long threadCpuTicks(long tid) {
  std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  long utime = 0, stime = 0;
  for (int i = 3; fields >> field; ++i) {
    if (i == 14) utime = std::stol(field);
    if (i == 15) {
      stime = std::stol(field);
      break;
    }
  }
  return utime + stime;
}

TEST(ThreadWithRunLoop, RunsACallSentRightAfterSpawning) {
  auto thread = ZTThreadWithRunLoop::spawnThreadWithName("spawn-test");
  EXPECT_TRUE(thread->isExecuting());
  std::shared_ptr<ZTThread> ranOn;
  EXPECT_TRUE(zt::performBlock([&] { ranOn = ZTThread::currentThread(); }, thread, true));
  EXPECT_EQ(ranOn, thread);
  thread->cancel();
  thread->waitUntilFinished();
}

TEST(ThreadWithRunLoop, CancellationEndsTheThreadWithinASecond) {
  auto thread = ZTThreadWithRunLoop::spawnThread();
  std::this_thread::sleep_for(20ms);  // let it settle into a one-second turn
  const auto start = std::chrono::steady_clock::now();
  thread->cancel();
  thread->waitUntilFinished();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
  EXPECT_TRUE(thread->isFinished());
}

TEST(ThreadWithRunLoop, CallsToCancelledOrEndedThreadsAreDroppedAndWaitsReturn) {
  auto thread = ZTThreadWithRunLoop::spawnThread();
  thread->cancel();
  bool ran = false;
  EXPECT_FALSE(zt::performBlock([&] { ran = true; }, thread, true));
  thread->waitUntilFinished();
  EXPECT_FALSE(zt::performBlock([&] { ran = true; }, thread, true));
  zt::performBlock([&] { ran = true; }, thread);
  EXPECT_FALSE(ran);
  EXPECT_FALSE(zt::performBlock([&] { ran = true; }, nullptr, true));
  auto running = ZTThreadWithRunLoop::spawnThread();
  EXPECT_FALSE(zt::performBlock(std::function<void()>(), running, true));  // an empty call does nothing
  running->cancel();
}

TEST(ThreadWithRunLoop, AWaiterIsReleasedWhenTheThreadEndsBeforeRunningItsCall) {
  auto thread = ZTThreadWithRunLoop::spawnThread();
  std::atomic<bool> blockerStarted{false};
  // The first call cancels the thread; the second is still queued when the thread ends.
  zt::performBlock(
      [&] {
        blockerStarted = true;
        ZTThread::currentThread()->cancel();
        std::this_thread::sleep_for(50ms);
      },
      thread);
  while (!blockerStarted) std::this_thread::yield();
  bool ran = false;
  const bool result = zt::performBlock([&] { ran = true; }, thread, true);
  // Either refused at once (the thread was already cancelled) or dropped when it ended.
  EXPECT_FALSE(result);
  EXPECT_FALSE(ran);
}

TEST(ThreadWithRunLoop, AWaitedCallThatThrowsRethrowsInTheCaller) {
  auto thread = ZTThreadWithRunLoop::spawnThread();
  EXPECT_THROW((void)zt::performBlock([] { throw std::runtime_error("failed on worker"); }, thread, true),
               std::runtime_error);
  EXPECT_TRUE(zt::performBlock([] {}, thread, true));  // the thread goes on
  thread->cancel();
}

TEST(ThreadWithRunLoop, SharedThreadIsNamedAfterTheFirstClassThatAsked) {
  // The shared thread is created once per process, so this runs in a fresh process of its own.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        auto shared = ZTThreadWithRunLoop::sharedThread<ImportWorker>();
        const bool named = shared->name() == "(anonymous namespace)::ImportWorker";
        const bool same = ZTThreadWithRunLoop::sharedThread() == shared;
        const bool running = shared->isExecuting() && shared->threadPriority() == 0.5;
        std::_Exit(named && same && running ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(ThreadWithRunLoop, SpawnsSubclassesAndNamesWorkersAfterTheirOwner) {
  auto worker = ZTThreadWithRunLoop::spawnThread<ImportWorker>();
  EXPECT_NE(std::dynamic_pointer_cast<ImportWorker>(std::shared_ptr<ZTThread>(worker)), nullptr);
  worker->cancel();

  struct Downloader {
    virtual ~Downloader() = default;
  } owner;
  auto named = ZTThreadWithRunLoop::spawnThreadWithNameProviderObject(&owner);
  char expected[128];
  std::snprintf(expected, sizeof expected, "<Downloader: %p> Worker Thread", static_cast<void*>(&owner));
  EXPECT_NE(named->name().find(expected + 1), std::string::npos) << named->name();
  named->cancel();
}

TEST(ThreadWithRunLoop, AnIdleWorkerUsesNoMeasurableCpu) {
  auto thread = ZTThreadWithRunLoop::spawnThread();
  const long tid = thread->systemThreadId();
  std::this_thread::sleep_for(50ms);
  const long before = threadCpuTicks(tid);
  std::this_thread::sleep_for(1100ms);  // spans at least one full one-second turn
  const long used = threadCpuTicks(tid) - before;
  EXPECT_LE(used, 1) << "an idle worker thread used " << used << " clock ticks in 1.1 s";
  thread->cancel();
  thread->waitUntilFinished();
}
TEST(ThreadWithRunLoop, ScopedHandleCancelsAndWaitsForItsThread) {
  std::shared_ptr<ZTThreadWithRunLoop> seen;
  std::atomic<bool> ran{false};
  {
    ZTScopedThreadWithRunLoop<> scoped("scoped");
    seen = scoped.thread();
    ASSERT_TRUE(zt::performBlock([&] { ran = true; }, seen, true));
  }
  EXPECT_TRUE(ran);
  // Finished when the handle is gone: no cancel() to forget, and later calls are dropped.
  EXPECT_TRUE(seen->isCancelled());
  EXPECT_TRUE(seen->isFinished());
  EXPECT_FALSE(zt::performBlock([] {}, seen, true));

  // Moving hands over the thread; assigning over a handle ends the thread it had.
  ZTScopedThreadWithRunLoop<> first("first");
  ZTScopedThreadWithRunLoop<> second("second");
  const auto firstThread = first.thread();
  const auto secondThread = second.thread();
  second = std::move(first);
  EXPECT_FALSE(static_cast<bool>(first));
  EXPECT_TRUE(secondThread->isFinished());
  EXPECT_EQ(second.thread(), firstThread);
  EXPECT_FALSE(firstThread->isCancelled());
  second.reset();
  EXPECT_TRUE(firstThread->isFinished());

  // Ended from a call on its own thread, it cancels without waiting for itself.
  auto own = std::make_unique<ZTScopedThreadWithRunLoop<>>("own");
  const auto ownThread = own->thread();
  ASSERT_TRUE(zt::performBlock([&] { own.reset(); }, ownThread, true));
  ownThread->waitUntilFinished();
  EXPECT_TRUE(ownThread->isFinished());
}

}  // namespace
