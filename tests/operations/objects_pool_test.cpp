#include "zentrel/operations/objects_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <thread>

namespace {
using namespace std::chrono_literals;

struct Connection {
  int id;
  friend bool operator==(const Connection& a, const Connection& b) { return a.id == b.id; }
};
using Pool = ZTObjectsPool<Connection>;
using Object = Pool::Object;

Object connection(int id) { return std::make_shared<Connection>(Connection{id}); }

TEST(ObjectsPool, CreationRespectsTheLimit) {
  EXPECT_EQ(Pool::pool()->maxCount(), 4294967295u);
  EXPECT_EQ(Pool::poolWithMaxCount(3)->maxCount(), 3u);
  auto fromObjects = Pool::poolWithObjects({connection(1), connection(2)});
  EXPECT_EQ(fromObjects->maxCount(), 2u);
  EXPECT_EQ(fromObjects->allFreeObjects().size(), 2u);
  EXPECT_EQ(Pool::poolWithObjects({connection(1), connection(2), connection(3)}, 2), nullptr);
  EXPECT_EQ(Pool::poolWithObjects({}, 2)->count(), 0u);
}

TEST(ObjectsPool, WaitingRequestIsServedInsidePutObject) {
  auto a = connection(1), b = connection(2);
  auto pool = Pool::poolWithObjects({a, b}, 2);
  auto first = pool->getObject();
  auto second = pool->getObject();
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(pool->getObject(), nullptr);

  Object delivered;
  bool servedAtOnce = false;
  auto token = pool->getObjectWithCompletionHandler([&](const Object& object) { delivered = object; });
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(delivered, nullptr);
  EXPECT_TRUE(pool->putObject(second));
  EXPECT_EQ(delivered, second);  // before putObject returned
  EXPECT_EQ(pool->allBusyObjects().size(), 2u);
  EXPECT_FALSE(pool->cancelGetRequestWithToken(token));
  EXPECT_FALSE(pool->cancelGetRequestWithToken(nullptr));

  EXPECT_TRUE(pool->putObject(first));
  auto immediate = pool->getObjectWithCompletionHandler([&](const Object& object) { servedAtOnce = object == first; });
  EXPECT_EQ(immediate, nullptr);
  EXPECT_TRUE(servedAtOnce);
}

TEST(ObjectsPool, WaitingRequestsAreServedInArrivalOrderAndCanBeWithdrawn) {
  auto pool = Pool::poolWithMaxCount(10);
  std::vector<std::string> served;
  auto firstToken = pool->getObjectWithCompletionHandler([&](const Object&) { served.push_back("first"); });
  auto secondToken = pool->getObjectWithCompletionHandler([&](const Object&) { served.push_back("second"); });
  auto thirdToken = pool->getObjectWithCompletionHandler([&](const Object&) { served.push_back("third"); });
  EXPECT_TRUE(pool->cancelGetRequestWithToken(secondToken));
  EXPECT_FALSE(pool->cancelGetRequestWithToken(secondToken));
  EXPECT_TRUE(pool->addObjectToFreeObjects(connection(1)));
  EXPECT_EQ(served, (std::vector<std::string>{"first"}));
  EXPECT_TRUE(pool->addObjectsFromArrayToFreeObjects({connection(2), connection(3)}));
  EXPECT_EQ(served, (std::vector<std::string>{"first", "third"}));
  EXPECT_EQ(pool->allFreeObjects().size(), 1u);
  EXPECT_EQ(pool->allBusyObjects().size(), 2u);
  // Busy additions never serve requests.
  EXPECT_NE(pool->getObject(), nullptr);
  pool->getObjectWithCompletionHandler([&](const Object&) { served.push_back("fourth"); });
  EXPECT_TRUE(pool->addObjectToBusyObjects(connection(4)));
  EXPECT_EQ(served.size(), 2u);
  EXPECT_EQ(pool->waitingRequestsCount(), 1u);
}

TEST(ObjectsPool, PutAcceptsOnlyTheVeryBusyObject) {
  auto held = connection(1);
  auto pool = Pool::poolWithObjects({held, connection(2)});
  EXPECT_FALSE(pool->putObject(held));  // free, not busy
  auto taken = pool->getObjectPassingTest([&](const Object& object) { return object == held; });
  ASSERT_EQ(taken, held);
  const auto twin = connection(1);
  ASSERT_TRUE(*twin == *held);
  EXPECT_FALSE(pool->putObject(twin));  // equal but a different object
  EXPECT_FALSE(pool->putObject(connection(7)));
  EXPECT_FALSE(pool->putObject(nullptr));
  EXPECT_TRUE(pool->putObject(held));
  EXPECT_FALSE(pool->putObject(held));
}

TEST(ObjectsPool, AnObjectRemovedWhileOutIsRefusedOnReturn) {
  auto pool = Pool::poolWithObjects({connection(1), connection(2)});
  auto first = pool->getObject();
  auto last = pool->getObject();
  EXPECT_TRUE(pool->removeObject(last));
  EXPECT_FALSE(pool->putObject(last));
  EXPECT_TRUE(pool->putObject(first));
  auto again = pool->getObject();
  pool->removeAllObjects();
  EXPECT_FALSE(pool->putObject(again));
  EXPECT_EQ(pool->count(), 0u);
}

TEST(ObjectsPool, AddingChecksCapacityAndAddsAllOrNothing) {
  auto pool = Pool::poolWithMaxCount(3);
  EXPECT_FALSE(pool->addObjectsFromArrayToFreeObjects({}));
  EXPECT_FALSE(pool->canAddObjectsFromArrayOfSize(0));
  EXPECT_FALSE(pool->addObjectToFreeObjects(nullptr));
  EXPECT_TRUE(pool->addObjectToFreeObjects(connection(1)));
  EXPECT_FALSE(pool->addObjectsFromArrayToFreeObjects({connection(2), connection(3), connection(4)}));
  EXPECT_EQ(pool->count(), 1u);
  EXPECT_EQ(pool->countOfObjectsWhichCanBeAdded(), 2u);
  auto twice = connection(5);
  EXPECT_FALSE(pool->addObjectsFromArrayToFreeObjects({twice, twice}));
  EXPECT_TRUE(pool->addObjectsFromArrayToBusyObjects({connection(2), twice}));
  EXPECT_FALSE(pool->addObjectToFreeObjects(twice));  // already held
  EXPECT_FALSE(pool->canAddObject());
  EXPECT_EQ(pool->countOfObjectsWhichCanBeAdded(), 0u);
}

TEST(ObjectsPool, LoweringTheLimitDropsFreeObjectsFirst) {
  auto pool = Pool::poolWithMaxCount(5);
  std::vector<Object> all;
  for (int i = 0; i < 5; ++i) all.push_back(connection(i));
  ASSERT_TRUE(pool->addObjectsFromArrayToFreeObjects(all));
  auto busy = pool->getObjectsWithCount(4);
  ASSERT_EQ(busy.size(), 4u);
  auto free = pool->allFreeObjects();
  pool->setMaxCount(2);
  EXPECT_EQ(pool->count(), 2u);
  EXPECT_TRUE(pool->allFreeObjects().empty());
  const auto remaining = pool->allBusyObjects();
  EXPECT_EQ(remaining.size(), 2u);
  // Busy objects that were dropped are refused when they come back.
  int accepted = 0;
  for (const auto& object : busy) accepted += pool->putObject(object);
  EXPECT_EQ(accepted, 2);
  EXPECT_FALSE(pool->putObject(free.front()));
}

TEST(ObjectsPool, TestsSelectAndRemoveWithoutDisturbingTheRest) {
  auto pool = Pool::poolWithObjects({connection(1), connection(2), connection(3), connection(4)});
  EXPECT_EQ(pool->getObjectPassingTest([](const Object&) { return false; }), nullptr);
  EXPECT_EQ(pool->allFreeObjects().size(), 4u);
  auto even = pool->getObjectsWithCount(10);
  EXPECT_EQ(even.size(), 4u);
  EXPECT_TRUE(pool->getObjectsWithCount(0).empty());
  for (const auto& object : even) {
    if (object->id % 2) {
      EXPECT_TRUE(pool->putObject(object));
    }
  }
  std::vector<std::pair<int, bool>> seen;
  pool->removeObjectsPassingTest([&](const Object& object, bool busy) {
    seen.emplace_back(object->id, busy);
    return object->id <= 2;
  });
  EXPECT_EQ(std::count_if(seen.begin(), seen.end(), [](auto& s) { return s.second; }), 2);
  std::set<int> left;
  for (const auto& object : pool->allObjects()) left.insert(object->id);
  EXPECT_EQ(left, (std::set<int>{3, 4}));
  ASSERT_EQ(pool->allObjects().front()->id, 3);  // free first
  EXPECT_NE(pool->peekAnyObject(), nullptr);
  EXPECT_TRUE(pool->removeObject(pool->allObjects().front()));
  EXPECT_FALSE(pool->removeObject(connection(4)));
  pool->removeAllObjects();
  EXPECT_EQ(pool->peekAnyObject(), nullptr);
  EXPECT_EQ(pool->count(), 0u);
}

TEST(ObjectsPool, BlockingGetterWaitsForAnotherThreadToReturnAnObject) {
  auto pool = Pool::poolWithObjects({connection(1)});
  auto held = pool->getObject();
  std::atomic<bool> returned{false};
  std::thread returner([&] {
    std::this_thread::sleep_for(20ms);
    returned = true;
    EXPECT_TRUE(pool->putObject(held));
  });
  auto got = pool->getObjectWaitUntilBecomeAvailable();
  EXPECT_TRUE(returned.load());
  EXPECT_EQ(got, held);
  returner.join();
}

TEST(ObjectsPool, ManyThreadsNeverShareAnObject) {
  std::vector<Object> objects;
  for (int i = 0; i < 3; ++i) objects.push_back(connection(i));
  auto pool = Pool::poolWithObjects(objects);
  std::array<std::atomic<int>, 3> users{};
  std::atomic<bool> shared{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        auto object = pool->getObjectWaitUntilBecomeAvailable();
        if (++users[static_cast<std::size_t>(object->id)] != 1) shared = true;
        --users[static_cast<std::size_t>(object->id)];
        ASSERT_TRUE(pool->putObject(object));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(shared.load());
  EXPECT_EQ(pool->allFreeObjects().size(), 3u);
  EXPECT_EQ(pool->waitingRequestsCount(), 0u);
}

TEST(ObjectsPool, AThrowingHandlerCostsTheOtherRequestsOfItsPassNothing) {
  auto a = connection(1), b = connection(2), c = connection(3);
  auto pool = Pool::poolWithMaxCount(3);
  std::vector<Object> delivered;
  auto keep = [&](const Object& object) { delivered.push_back(object); };
  (void)pool->getObjectWithCompletionHandler(keep);
  (void)pool->getObjectWithCompletionHandler([](const Object&) { throw std::runtime_error("handler failed"); });
  (void)pool->getObjectWithCompletionHandler(keep);
  (void)pool->getObjectWithCompletionHandler(keep);
  ASSERT_EQ(pool->waitingRequestsCount(), 4u);
  // One pass serves three requests; the second throws, and its object goes on to the fourth.
  EXPECT_NO_THROW(EXPECT_TRUE(pool->addObjectsFromArrayToFreeObjects({a, b, c})));
  EXPECT_EQ(delivered.size(), 3u);
  EXPECT_EQ(pool->waitingRequestsCount(), 0u);
  EXPECT_EQ(pool->allBusyObjects().size(), 3u);
  EXPECT_EQ(std::set<Object>(delivered.begin(), delivered.end()).size(), 3u);

  // The same through putObject(), which serves with the lock held.
  for (const auto& object : delivered) ASSERT_TRUE(pool->putObject(object));
  auto held = pool->getObjectsWithCount(3);
  delivered.clear();
  (void)pool->getObjectWithCompletionHandler([](const Object&) { throw std::runtime_error("handler failed"); });
  (void)pool->getObjectWithCompletionHandler(keep);
  EXPECT_NO_THROW(EXPECT_TRUE(pool->putObject(held[0])));
  ASSERT_EQ(delivered.size(), 1u);
  EXPECT_EQ(delivered[0], held[0]);

  // Served at once: the exception reaches the caller, the object is not lost.
  ASSERT_TRUE(pool->putObject(held[1]));
  EXPECT_THROW((void)pool->getObjectWithCompletionHandler([](const Object&) { throw std::runtime_error("no"); }),
               std::runtime_error);
  EXPECT_EQ(pool->allFreeObjects().size(), 1u);
}

TEST(ObjectsPool, LeasesReturnTheirObjectWhenTheyEnd) {
  auto pool = Pool::poolWithObjects({connection(1)});
  {
    auto lease = pool->lease();
    ASSERT_TRUE(lease);
    EXPECT_EQ(lease->id, 1);
    EXPECT_FALSE(pool->lease());  // nothing free while it is out
    auto moved = std::move(lease);
    EXPECT_FALSE(lease);
    EXPECT_EQ(pool->allBusyObjects().size(), 1u);
  }
  EXPECT_EQ(pool->allFreeObjects().size(), 1u);
  try {
    auto lease = pool->leaseWaitUntilBecomeAvailable();
    throw std::runtime_error("work failed");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(pool->allFreeObjects().size(), 1u);
  auto kept = pool->lease().detach();
  EXPECT_EQ(pool->allBusyObjects().size(), 1u);
  EXPECT_TRUE(pool->putObject(kept));
}

TEST(ObjectsPool, BlockingWaitsGiveUpOnTimeoutOrStopAndWithdrawTheirRequest) {
  auto pool = Pool::poolWithObjects({connection(1)});
  auto held = pool->getObject();
  for (double timeout : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), 0.02}) {
    EXPECT_EQ(pool->getObjectWaitUntilBecomeAvailable(Pool::Seconds(timeout)), nullptr) << timeout;
    EXPECT_EQ(pool->waitingRequestsCount(), 0u);
  }
  std::stop_source alreadyStopped;
  alreadyStopped.request_stop();
  EXPECT_EQ(pool->getObjectWaitUntilBecomeAvailable(alreadyStopped.get_token()), nullptr);

  std::stop_source stop;
  std::thread stopper([&] {
    // Stop only once the waiter is queued.
    while (pool->waitingRequestsCount() == 0) std::this_thread::yield();
    stop.request_stop();
  });
  EXPECT_FALSE(pool->leaseWaitUntilBecomeAvailable(stop.get_token()));
  stopper.join();
  EXPECT_EQ(pool->waitingRequestsCount(), 0u);

  // A huge timeout waits as long as needed, and gets the object when it comes back.
  std::thread returner([&] {
    while (pool->waitingRequestsCount() == 0) std::this_thread::yield();
    EXPECT_TRUE(pool->putObject(held));
  });
  EXPECT_EQ(pool->getObjectWaitUntilBecomeAvailable(Pool::Seconds(1e300)), held);
  returner.join();
}

TEST(ObjectsPool, DescribesItself) {
  auto pool = Pool::poolWithObjects({connection(1)}, 2);
  const auto text = pool->description();
  EXPECT_NE(text.find(": max count = 2, count = 1, busy objects = (), free objects = (0x"), std::string::npos) << text;
}

}  // namespace
