#include "zentrel/platform/thread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

namespace {
using namespace std::chrono_literals;

std::string osName(long tid) {
  std::ifstream comm("/proc/self/task/" + std::to_string(tid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

TEST(Thread, RunsItsBodyWithIdentityNameAndPriority) {
  std::shared_ptr<ZTThread> seenCurrent;
  std::string seenOsName;
  int seenNice = 0;
  auto thread = ZTThread::create([&] {
    seenCurrent = ZTThread::currentThread();
    seenOsName = osName(ZTThread::currentThread()->systemThreadId());
    seenNice = getpriority(PRIO_PROCESS, 0);
  });
  thread->setName("a rather long worker name");
  EXPECT_TRUE(thread->setThreadPriority(0.25));
  thread->start();
  thread->waitUntilFinished();
  EXPECT_EQ(seenCurrent, thread);
  EXPECT_EQ(seenOsName, "a rather long w");  // Linux keeps 15 bytes
  EXPECT_EQ(seenNice, 10);
  EXPECT_TRUE(thread->isFinished());
  EXPECT_FALSE(thread->isExecuting());
  EXPECT_THROW(thread->start(), std::logic_error);
}

TEST(Thread, MainThreadIsKnownFromEveryThread) {
  EXPECT_TRUE(ZTThread::isMainThread());
  EXPECT_EQ(ZTThread::currentThread(), ZTThread::mainThread());
  EXPECT_TRUE(ZTThread::mainThread()->isMain());
  bool isMainThere = true;
  std::shared_ptr<ZTThread> adopted1, adopted2;
  std::thread([&] {
    isMainThere = ZTThread::isMainThread();
    adopted1 = ZTThread::currentThread();
    adopted2 = ZTThread::currentThread();
  }).join();
  EXPECT_FALSE(isMainThere);
  EXPECT_EQ(adopted1, adopted2);
  EXPECT_NE(adopted1, ZTThread::mainThread());
  EXPECT_FALSE(adopted1->isMain());
}

TEST(Thread, CancellationIsAFlagTheBodyReads) {
  std::atomic<bool> sawCancel{false};
  auto thread = ZTThread::create([&] {
    while (!ZTThread::currentThread()->isCancelled()) std::this_thread::sleep_for(1ms);
    sawCancel = true;
  });
  thread->start();
  thread->cancel();
  thread->waitUntilFinished();
  EXPECT_TRUE(sawCancel);
  EXPECT_TRUE(thread->runLoop()->isClosed());
}
}  // namespace
