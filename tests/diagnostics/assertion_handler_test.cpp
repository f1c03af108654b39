#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zentrel/diagnostics/assertion_handler.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"

namespace {

struct Failure {
  std::string symbol, file;
  std::int64_t line;
  std::string description;
};

class CapturedLog {
 public:
  CapturedLog() {
    ZTSetLogSink([this](std::string_view line) { lines.emplace_back(line); });
  }
  ~CapturedLog() { ZTSetLogSink({}); }
  std::vector<std::string> lines;
};

class ProviderScope {
 public:
  explicit ProviderScope(ZTAssertionHandlerProvider provider) { ZTSetAssertionHandlerProvider(std::move(provider)); }
  ~ProviderScope() { ZTSetAssertionHandlerProvider({}); }
};

struct Widget {
  virtual ~Widget() = default;
};
struct FancyWidget : Widget {};

TEST(AssertionHandler, FixedConfigurationDropsFailuresAndIgnoresItsSetters) {
  ZTAssertionHandler::setAssertionsEnabled(true);
  ZTAssertionHandler::setSharedHandlerBlock([](auto&&...) {});
  EXPECT_FALSE(ZTAssertionHandler::assertionsEnabled());
  EXPECT_FALSE(ZTAssertionHandler::sharedHandlerBlock());
  EXPECT_EQ(ZTAssertionHandler::ztCurrentHandler(), nullptr);

  CapturedLog log;
  ProviderScope scope([] { return ZTAssertionHandler::ztCurrentHandler(); });
  EXPECT_NO_THROW(__ztassert("f", "file.c", 3, "broken %d", 1));
  EXPECT_TRUE(log.lines.empty());

  // A disabled handler ignores method failures as well.
  EXPECT_NO_THROW(ZTAssertionHandler::create()->handleFailureInMethod("run", typeid(Widget), false, "w.cpp", 1, "x"));
}

TEST(AssertionHandler, ZtCurrentHandlerFollowsItsConfiguration) {
  EXPECT_EQ(ZTAssertionHandler::ztCurrentHandler({false, [](auto&&...) {}}), nullptr);
  auto withBlock = ZTAssertionHandler::ztCurrentHandler({true, [](auto&&...) {}});
  ASSERT_NE(withBlock, nullptr);
  EXPECT_TRUE(withBlock->configuration().sharedHandlerBlock);
  auto plain = ZTAssertionHandler::ztCurrentHandler({true, {}});
  ASSERT_NE(plain, nullptr);
  EXPECT_TRUE(plain->configuration().assertionsEnabled);
  EXPECT_FALSE(plain->configuration().sharedHandlerBlock);
}

TEST(AssertionHandler, DefaultHandlerLogsAndThrowsWithTheDescription) {
  CapturedLog log;
  try {
    __ztassert(nullptr, nullptr, 42, "value %d out of %s", 7, "range");
    FAIL() << "no exception";
  } catch (const ZTInternalInconsistencyException& e) {
    EXPECT_STREQ(e.what(), "value 7 out of range");
  }
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0], "*** Assertion failure in <Unknown function>\n<Unknown file>:42");

  try {
    __ztassert("main", "main.c", 1, nullptr);
    FAIL() << "no exception";
  } catch (const ZTInternalInconsistencyException& e) {
    EXPECT_STREQ(e.what(), "");
  }
  EXPECT_EQ(log.lines.back(), "*** Assertion failure in main\nmain.c:1");
}

TEST(AssertionHandler, BlockReceivesTheFailureAndItsOwnFailuresAreIgnored) {
  CapturedLog log;
  std::vector<Failure> seen;
  std::shared_ptr<ZTAssertionHandler> handler;
  handler = ZTAssertionHandler::create({true, [&](const std::string& symbol, const std::string& file, std::int64_t line,
                                                  const std::string& description) {
                                          seen.push_back({symbol, file, line, description});
                                          EXPECT_TRUE(handler->recursiveHandleFailureCall());
                                          // A failure raised from inside the block is not reported again.
                                          handler->handleFailureInFunction("inner", "inner.c", 9, "nested");
                                        }});
  ProviderScope scope([&] { return handler; });

  FancyWidget widget;
  const Widget& asBase = widget;
  handler->handleFailureInMethod("doThing:withX:", typeid(asBase), false, "w.cpp", 12, "x = %d", 5);
  handler->handleFailureInMethod("sharedWidget", typeid(Widget), true, "w.cpp", 13, nullptr);
  __ztassert("helper", "helper.c", 14, "%s", "from C");

  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].symbol, "-[(anonymous namespace)::FancyWidget doThing:withX:]");
  EXPECT_EQ(seen[0].file, "w.cpp");
  EXPECT_EQ(seen[0].line, 12);
  EXPECT_EQ(seen[0].description, "x = 5");
  EXPECT_EQ(seen[1].symbol, "+[(anonymous namespace)::Widget sharedWidget]");
  EXPECT_EQ(seen[1].description, "N/A");
  EXPECT_EQ(seen[2].symbol, "helper");
  EXPECT_EQ(seen[2].description, "from C");
  EXPECT_FALSE(handler->recursiveHandleFailureCall());
  EXPECT_EQ(log.lines.size(), 3u);
}

TEST(AssertionHandler, AThrowingBlockLeavesTheHandlerUsable) {
  int calls = 0;
  auto handler = ZTAssertionHandler::create({true, [&](auto&&...) {
                                               ++calls;
                                               throw std::runtime_error("block failed");
                                             }});
  CapturedLog log;
  EXPECT_THROW(handler->handleFailureInFunction("f", "f.c", 1, "d"), std::runtime_error);
  EXPECT_FALSE(handler->recursiveHandleFailureCall());
  EXPECT_THROW(handler->handleFailureInFunction("f", "f.c", 2, "d"), std::runtime_error);
  EXPECT_EQ(calls, 2);
}

}  // namespace
