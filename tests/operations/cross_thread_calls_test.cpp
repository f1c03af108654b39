#include "zentrel/operations/cross_thread_calls.h"

#include <gtest/gtest.h>

#include <atomic>
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

TEST(NotificationHelpers, AutoRemovingObserverFiresOnce) {
  int fired = 0;
  auto observer = zt::addObserverAndAutomaticallyRemoveAfterFiringForName(
      "ZTTestOnce", nullptr, [&](const ZTNotification&) { ++fired; });
  ASSERT_NE(observer, nullptr);
  auto center = ZTNotificationCenter::defaultCenter();
  const auto before = center->observerCount();
  center->postNotificationName("ZTTestOnce");
  center->postNotificationName("ZTTestOnce");  // queued before the first delivery removes the observer
  ZTRunLoop::main()->runWithCondition([&] { return fired == 0; }, 5.0s);
  ZTRunLoop::main()->runOnce(10ms);
  center->postNotificationName("ZTTestOnce");
  ZTRunLoop::main()->runOnce(10ms);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(center->observerCount(), before - 1);
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
