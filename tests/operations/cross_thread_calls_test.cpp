#include "zentrel/operations/cross_thread_calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "zentrel/operations/notification_helpers.h"
#include "zentrel/operations/thread_with_run_loop.h"

namespace {
using namespace std::chrono_literals;

struct Worker : ::testing::Test {
  std::shared_ptr<ZTThreadWithRunLoop> thread = ZTThreadWithRunLoop::spawnThreadWithName("calls");
  ~Worker() override { thread->cancel(); }
};

TEST_F(Worker, ThreeObjectCallRunsOnTheTargetOrDirectlyOnTheCaller) {
  std::shared_ptr<ZTThread> ranOn;
  std::string joined;
  auto call = [&](const std::string& a, int b, const char* c) {
    ranOn = ZTThread::currentThread();
    joined = a + std::to_string(b) + c;
  };
  EXPECT_TRUE(zt::performSelector(call, std::string("a"), 1, "c", thread, true));
  EXPECT_EQ(ranOn, thread);
  EXPECT_EQ(joined, "a1c");
  // Null thread = the calling thread: synchronous even without waiting.
  EXPECT_TRUE(zt::performSelector(call, std::string("x"), 2, "y", nullptr, false));
  EXPECT_EQ(ranOn, ZTThread::currentThread());
  EXPECT_EQ(joined, "x2y");
}

TEST_F(Worker, ArgumentArrayMustMatchTheCallable) {
  int calls = 0;
  ZTValue seenSecond = "unset";
  auto two = [&](const ZTValue& first, const ZTValue& second) {
    ++calls;
    EXPECT_EQ(first.intValue(), 7);
    seenSecond = second;
  };
  EXPECT_FALSE(zt::performSelector(two, ZTValueArray{1}, thread, true));
  EXPECT_FALSE(zt::performSelector(two, ZTValueArray{1, 2, 3}, thread, true));
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(zt::performSelector(two, ZTValueArray{7, nullptr}, thread, true));
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(seenSecond.isNull());
}

TEST_F(Worker, CheckAndPerformRunsOnlyPresentCallables) {
  std::function<void(int)> absent;
  zt::checkAndPerformSelector(absent, 1);  // nothing happens
  int sum = 0;
  zt::checkAndPerformSelector([&](int a, int b, int c) { sum = a + b + c; }, 1, 2, 3);
  EXPECT_EQ(sum, 6);

  std::atomic<bool> ranOnWorker{false};
  zt::checkAndPerformSelector([&](int v) { ranOnWorker = v == 5 && ZTThread::currentThread() == thread; }, 5,
                              std::shared_ptr<ZTThread>(thread));
  ASSERT_TRUE(zt::performBlock([] {}, thread, true));  // calls run in order: the one above has run
  EXPECT_TRUE(ranOnWorker);
}

TEST_F(Worker, FutureCallsCarryTheResultOrTheExceptionBack) {
  auto onWorker = zt::performBlockWithFuture([&] { return ZTThread::currentThread() == thread ? 42 : -1; }, thread);
  ASSERT_EQ(onWorker.wait_for(5s), std::future_status::ready);
  EXPECT_EQ(onWorker.get(), 42);

  auto throwing = zt::performBlockWithFuture([]() -> std::string { throw std::runtime_error("no"); }, thread);
  ASSERT_EQ(throwing.wait_for(5s), std::future_status::ready);
  EXPECT_THROW(throwing.get(), std::runtime_error);

  // On the target thread itself the call runs at once: waiting on the future there must not hang.
  bool readyOnTheSpot = false;
  ASSERT_TRUE(zt::performBlock(
      [&] {
        auto own = zt::performBlockWithFuture([] { return 7; }, thread);
        readyOnTheSpot = own.wait_for(0s) == std::future_status::ready && own.get() == 7;
      },
      thread, true));
  EXPECT_TRUE(readyOnTheSpot);

  // A call the thread will never run breaks the promise instead of leaving the future pending.
  thread->cancel();
  thread->waitUntilFinished();
  auto dropped = zt::performBlockWithFuture([] { return 1; }, thread);
  ASSERT_EQ(dropped.wait_for(5s), std::future_status::ready);
  EXPECT_THROW(dropped.get(), std::future_error);
  auto nowhere = zt::performBlockWithFuture([] {}, nullptr);
  ASSERT_EQ(nowhere.wait_for(0s), std::future_status::ready);
  EXPECT_THROW(nowhere.get(), std::future_error);
}

TEST(CrossThreadCalls, TwoAndThreeObjectChecksRunDirectlyOnTheirOwnThread) {
  // A thread that never runs its loop: only calls that run directly can happen here.
  std::thread([] {
    const std::shared_ptr<ZTThread> self = ZTThread::currentThread();
    int two = 0;
    int three = 0;
    zt::checkAndPerformSelector([&](int a, int b) { two = a + b; }, 1, 2, self);
    zt::checkAndPerformSelector([&](int a, int b, int c) { three = a + b + c; }, 1, 2, 3, self);
    EXPECT_EQ(two, 3);
    EXPECT_EQ(three, 6);
    // A null thread is the calling thread.
    zt::checkAndPerformSelector([&](int a, int b) { two = a * b; }, 4, 5, std::shared_ptr<ZTThread>());
    EXPECT_EQ(two, 20);
    // The one-object form queues, even on its own thread: it runs on a later turn of the loop.
    int one = 0;
    zt::checkAndPerformSelector([&](int v) { one = v; }, 7, self);
    EXPECT_EQ(one, 0);
    ZTRunLoop::current()->runWithCondition([&] { return one == 0; }, 5.0s);
    EXPECT_EQ(one, 7);
  }).join();
}

TEST(CrossThreadCalls, LaterAndDelayedCallsRunOnTheCallersLoop) {
  auto loop = ZTRunLoop::current();
  std::vector<std::string> order;
  zt::performSelectorLater([&](const std::string& s) { order.push_back(s); }, std::string("later"));
  zt::performSelectorLater([&](int, int) { order.push_back("two arguments"); }, 1);  // not called
  auto timer = zt::performBlock([&] { order.push_back("delayed"); }, 20ms);
  order.push_back("now");
  loop->runWithCondition([&] { return order.size() < 3; }, 5.0s);
  loop->runOnce(5ms);
  EXPECT_EQ(order, (std::vector<std::string>{"now", "later", "delayed"}));
  EXPECT_FALSE(timer->isValid());
}

TEST(CrossThreadCalls, MainThreadFunctions) {
  bool ran = false;
  performOnMainThreadSynchronouslyIfPossible([&] { ran = true; });
  EXPECT_TRUE(ran);  // on the main thread: at once

  std::atomic<bool> ranFromBackground{false};
  std::atomic<bool> returnedBeforeRun{false};
  std::thread([&] {
    performOnMainThreadSynchronouslyIfPossible([&] { ranFromBackground = true; });
    returnedBeforeRun = !ranFromBackground;
  }).join();
  EXPECT_TRUE(returnedBeforeRun);
  ZTRunLoop::main()->runWithCondition([&] { return !ranFromBackground.load(); }, 5.0s);
  EXPECT_TRUE(ranFromBackground);

  std::atomic<bool> syncDone{false};
  std::atomic<bool> ranBeforeReturn{false};
  std::thread background([&] {
    bool inner = false;
    performOnMainThreadSynchronously([&] { inner = ZTThread::isMainThread(); });
    ranBeforeReturn = inner;
    syncDone = true;
  });
  ZTRunLoop::main()->runWithCondition([&] { return !syncDone.load(); }, 5.0s);
  background.join();
  EXPECT_TRUE(ranBeforeReturn);
  performOnMainThreadUsingDispatchFunction(nullptr, [&] { ran = false; });
  EXPECT_TRUE(ran);  // no dispatch function: nothing happens
}

TEST(CrossThreadCalls, IsObjectComparesValuesAndNulls) {
  std::shared_ptr<std::string> none;
  EXPECT_TRUE(zt::isObject(none, none));
  EXPECT_FALSE(zt::isObject(none, std::make_shared<std::string>("a")));
  EXPECT_TRUE(zt::isObject(std::make_shared<std::string>("a"), std::make_shared<std::string>("a")));
  EXPECT_FALSE(zt::isObject(std::optional<int>(1), std::optional<int>(2)));
}

TEST(NotificationHelpers, AutoRemovingObserverFiresOnceAndLeavesTheCentre) {
  int fired = 0;
  // The block holds the token: once the centre has let go of the observer, nothing does. (The
  // centre is shared by every test, so its global observer count proves nothing here.)
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = token;
  auto observer = zt::addObserverAndAutomaticallyRemoveAfterFiringForName(
      "ZTTestOnce", nullptr, [&fired, token = std::move(token)](const ZTNotification&) { ++fired; });
  ASSERT_NE(observer, nullptr);
  auto center = ZTNotificationCenter::defaultCenter();
  center->postNotificationName("ZTTestOnce");
  center->postNotificationName("ZTTestOnce");  // queued before the first delivery removes the observer
  ZTRunLoop::main()->runWithCondition([&] { return fired == 0; }, 5.0s);
  ZTRunLoop::main()->runOnce(10ms);
  center->postNotificationName("ZTTestOnce");
  ZTRunLoop::main()->runOnce(10ms);
  EXPECT_EQ(fired, 1);
  observer.reset();
  ZTRunLoop::main()->runWithCondition([&] { return !watch.expired(); }, 5.0s);
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(zt::addObserverAndAutomaticallyRemoveAfterFiringForName("x", nullptr, nullptr), nullptr);
  zt::removeObserverSafetly(nullptr);
}

TEST(NotificationHelpers, ProcessingThreadDeliveryIsReplaceable) {
  std::atomic<int> onMain{0};
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      "ZTTestProcessing", nullptr, nullptr, [&](const ZTNotification&) {
        if (ZTThread::isMainThread()) ++onMain;
      });
  zt::postNotificationOnProcessingThreadWithName("ZTTestProcessing");  // on main: synchronous
  EXPECT_EQ(onMain, 1);
  std::thread([] { zt::postNotificationOnProcessingThreadWithName("ZTTestProcessing"); }).join();
  ZTRunLoop::main()->runWithCondition([&] { return onMain < 2; }, 5.0s);
  EXPECT_EQ(onMain, 2);

  std::vector<std::string> forwarded;
  zt::setPostNotificationOnPrcessingThreadBlock([&](const ZTNotification& n) { forwarded.push_back(n.name); });
  zt::postNotificationOnProcessingThreadWithName("ZTTestProcessing");
  zt::setPostNotificationOnPrcessingThreadBlock({});
  EXPECT_EQ(forwarded, std::vector<std::string>{"ZTTestProcessing"});
  EXPECT_EQ(onMain, 2);
  zt::removeObserverSafetly(observer);
}
}  // namespace
