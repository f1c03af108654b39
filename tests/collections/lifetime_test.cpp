// Weak containers, invalidatable proxies and resource handles.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/collections/invalidatable_proxy.h"
#include "zentrel/collections/resource_handle.h"
#include "zentrel/collections/weak_container.h"
#include "zentrel/platform/log.h"

namespace {

TEST(WeakContainer, ForgetsItsObjectWhenItDies) {
  auto object = std::make_shared<std::string>("x");
  auto container = ZTWeakContainer<std::string>::create(object);
  EXPECT_EQ(container->object(), object);
  EXPECT_EQ(object.use_count(), 1);
  object.reset();
  EXPECT_EQ(container->object(), nullptr);
}

struct Counter {
  int value = 0;
  int add(int amount) { return value += amount; }
  void reset() { value = 0; }
};

TEST(InvalidatableProxy, PassesCallsUntilInvalidated) {
  auto counter = std::make_shared<Counter>();
  auto proxy = ZTInvalidatableProxy<Counter>::create(counter);
  EXPECT_EQ(proxy->send(&Counter::add, 2), 2);
  EXPECT_EQ(proxy->perform([](Counter& c) { return c.add(3); }), 5);
  EXPECT_EQ(*proxy->sendIfValid(&Counter::add, 1), 6);

  proxy->invalidate();
  EXPECT_FALSE(proxy->isValid());
  EXPECT_EQ(counter.use_count(), 1);
  EXPECT_THROW(proxy->send(&Counter::add, 1), ZTInvalidatedProxyException);
  EXPECT_THROW(proxy->perform([](Counter& c) { c.reset(); }), ZTInvalidatedProxyException);
  EXPECT_FALSE(proxy->sendIfValid(&Counter::add, 1).has_value());
  EXPECT_FALSE(proxy->performIfValid([](Counter& c) { c.reset(); }));
  EXPECT_EQ(counter->value, 6);
}

TEST(InvalidatableProxy, KeepsItsTargetAliveUntilInvalidated) {
  auto counter = std::make_shared<Counter>();
  std::weak_ptr<Counter> watch = counter;
  auto proxy = ZTInvalidatableProxy<Counter>::create(std::move(counter));
  EXPECT_FALSE(watch.expired());
  proxy->invalidate();
  EXPECT_TRUE(watch.expired());
}

TEST(InvalidatableProxy, InvalidationFromAnotherThreadCutsCallsOff) {
  auto proxy = ZTInvalidatableProxy<Counter>::create(std::make_shared<Counter>());
  std::atomic<bool> sawInvalid{false};
  std::thread caller([&] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      if (!proxy->sendIfValid(&Counter::reset)) {
        sawInvalid = true;
        return;
      }
    }
  });
  proxy->invalidate();
  caller.join();
  EXPECT_TRUE(sawInvalid);
}

TEST(ResourceHandle, DisposesBeforeTheResourceGoes) {
  std::vector<std::string> events;
  struct Resource {
    explicit Resource(std::vector<std::string>* log) : events(log) {}
    Resource(const Resource&) = delete;
    ~Resource() { events->push_back("released"); }
    std::vector<std::string>* events;
  };
  {
    auto handle = ZTResourceHandle<std::shared_ptr<Resource>>::create(
        [&] {
          events.push_back("allocated");
          return std::make_shared<Resource>(&events);
        },
        [&] { events.push_back("disposed"); });
    EXPECT_EQ(events, (std::vector<std::string>{"allocated"}));
    EXPECT_NE(handle->resource(), nullptr);
  }
  EXPECT_EQ(events, (std::vector<std::string>{"allocated", "disposed", "released"}));
}

TEST(ResourceHandle, RefusesMissingFunctionsAndSurvivesAThrowingDispose) {
  using Handle = ZTResourceHandle<int>;
  EXPECT_THROW((void)Handle::create(nullptr, [] {}), ZTInternalInconsistencyException);
  EXPECT_THROW((void)Handle::create([] { return 1; }, nullptr), ZTInternalInconsistencyException);

  std::vector<std::string> lines;
  ZTSetLogSink([&](std::string_view line) { lines.emplace_back(line); });
  {
    auto handle = Handle::create([] { return 7; }, [] { throw std::runtime_error("disk gone"); });
    EXPECT_EQ(handle->resource(), 7);
  }
  ZTSetLogSink(nullptr);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("ERROR: ", 0), 0u);
  EXPECT_NE(lines[0].find("disk gone"), std::string::npos);
}

}  // namespace
