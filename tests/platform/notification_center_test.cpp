#include "zentrel/platform/notification_center.h"

#include <gtest/gtest.h>

#include <thread>

#include "common/log_and_environment.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/run_loop.h"

namespace {
using namespace std::chrono_literals;

TEST(NotificationCenter, DeliversByNameAndSender) {
  auto center = ZTNotificationCenter::create();
  auto sender = std::make_shared<int>(1);
  auto other = std::make_shared<int>(2);
  std::vector<std::string> log;
  (void)center->addObserverForName("Changed", sender.get(), nullptr, [&](const ZTNotification& n) {
    log.push_back("sender:" + n.userInfo["k"].stringValue());
  });
  (void)center->addObserverForName("Changed", nullptr, nullptr,
                                   [&](const ZTNotification&) { log.push_back("any-sender"); });
  (void)center->addObserverForName("", nullptr, nullptr,
                                   [&](const ZTNotification& n) { log.push_back("all:" + n.name); });

  ZTValue info;
  info["k"] = "v";
  center->postNotificationName("Changed", sender, info);
  center->postNotificationName("Changed", other);
  center->postNotificationName("Other");
  EXPECT_EQ(log, (std::vector<std::string>{"sender:v", "any-sender", "all:Changed", "any-sender", "all:Changed",
                                           "all:Other"}));
}

TEST(NotificationCenter, RemovalTakesEffectAtOnceEvenDuringAPost) {
  auto center = ZTNotificationCenter::create();
  int first = 0, second = 0;
  std::shared_ptr<ZTNotificationObserver> secondObserver;
  (void)center->addObserverForName("N", nullptr, nullptr, [&](const ZTNotification&) {
    ++first;
    center->removeObserver(secondObserver);  // removed while this post is delivering
  });
  secondObserver = center->addObserverForName("N", nullptr, nullptr, [&](const ZTNotification&) { ++second; });
  center->postNotificationName("N");
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 0);

  int owned = 0;
  int ownerTag = 0;
  center->addObserver(&ownerTag, "N", nullptr, [&](const ZTNotification&) { ++owned; });
  center->addObserver(&ownerTag, "M", nullptr, [&](const ZTNotification&) { ++owned; });
  center->removeObserver(&ownerTag, "N");
  center->postNotificationName("N");
  center->postNotificationName("M");
  EXPECT_EQ(owned, 1);
  center->removeObserver(&ownerTag);
  EXPECT_EQ(center->observerCount(), 1u);
}

TEST(NotificationCenter, QueuedObserversRunOnTheirQueue) {
  auto center = ZTNotificationCenter::create();
  std::atomic<bool> onMain{false};
  std::atomic<bool> delivered{false};
  (void)center->addObserverForName("N", nullptr, ZTDispatchQueue::main(), [&](const ZTNotification&) {
    onMain = ZTDispatchQueue::main()->isCurrent();
    delivered = true;
  });
  std::thread([&] { center->postNotificationName("N"); }).join();
  EXPECT_FALSE(delivered);  // queued, not run on the posting thread
  ZTRunLoop::main()->runWithCondition([&] { return !delivered.load(); }, 5.0s);
  EXPECT_TRUE(delivered);
  EXPECT_TRUE(onMain);
}
TEST(NotificationCenter, AThrowingObserverIsLoggedAndTheOthersAreStillTold) {
  zt::test::LogCapture log;
  auto center = ZTNotificationCenter::create();
  std::vector<std::string> told;
  (void)center->addObserverForName("N", nullptr, nullptr, [&](const ZTNotification&) {
    told.push_back("first");
    throw std::runtime_error("observer broke");
  });
  (void)center->addObserverForName("N", nullptr, nullptr, [&](const ZTNotification&) { throw 42; });
  (void)center->addObserverForName("N", nullptr, nullptr, [&](const ZTNotification&) { told.push_back("last"); });
  std::atomic<bool> queuedThrew{false};
  (void)center->addObserverForName("N", nullptr, ZTDispatchQueue::main(), [&](const ZTNotification&) {
    queuedThrew = true;
    throw std::runtime_error("queued observer broke");
  });
  EXPECT_NO_THROW(center->postNotificationName("N"));
  EXPECT_EQ(told, (std::vector<std::string>{"first", "last"}));
  ZTRunLoop::main()->runWithCondition([&] { return !queuedThrew.load(); }, 5.0s);
  ASSERT_TRUE(queuedThrew);
  ZTRunLoop::main()->runOnce(10ms);  // the queue's own turn ends normally
  const auto lines = log.lines();
  auto logged = [&](const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; });
  };
  EXPECT_TRUE(logged("an observer of \"N\" threw: observer broke"));
  EXPECT_TRUE(logged("an observer of \"N\" threw: queued observer broke"));
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find("threw") != std::string::npos; }), 3);
}
}  // namespace
