#include "zentrel/platform/run_loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "zentrel/platform/log.h"

namespace {
using namespace std::chrono_literals;

// Runs the calling thread's loop until done() or the deadline; true if done() became true.
bool runUntil(const std::shared_ptr<ZTRunLoop>& loop, const std::function<bool()>& done,
              std::chrono::milliseconds limit = 5000ms) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done() && std::chrono::steady_clock::now() < deadline) loop->runOnce(std::chrono::milliseconds(10));
  return done();
}

TEST(RunLoop, RunsCallsPostedFromOtherThreadsInOrder) {
  auto loop = ZTRunLoop::current();
  std::vector<int> seen;
  std::thread producer([&] {
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(loop->post([&seen, i] { seen.push_back(i); }));
  });
  producer.join();
  ASSERT_TRUE(runUntil(loop, [&] { return seen.size() == 100; }));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
}

TEST(RunLoop, ReportsWhetherItHadAnythingToRun) {
  std::atomic<bool> ranOnWorker{false};
  std::thread worker([&] {
    auto loop = ZTRunLoop::current();
    // Nothing queued and no source: the turn returns at once, reporting nothing to run.
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(loop->runOnce(std::chrono::seconds(5)));
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
    // With a keep-alive the turn blocks until its deadline and reports true.
    {
      auto keep = loop->keepAlive();
      const auto start = std::chrono::steady_clock::now();
      EXPECT_TRUE(loop->runOnce(50ms));
      EXPECT_GE(std::chrono::steady_clock::now() - start, 45ms);
    }
    EXPECT_TRUE(loop->post([&] { ranOnWorker = true; }));
    EXPECT_TRUE(loop->runOnce(1s));
  });
  worker.join();
  EXPECT_TRUE(ranOnWorker);
}

TEST(RunLoop, TimersFireOnceOrRepeatUntilInvalidated) {
  auto loop = ZTRunLoop::current();
  int once = 0;
  int repeated = 0;
  auto single = loop->scheduleTimer(5ms, false, [&](ZTTimer&) { ++once; });
  auto repeating = loop->scheduleTimer(2ms, true, [&](ZTTimer& timer) {
    if (++repeated == 5) timer.invalidate();
  });
  ASSERT_TRUE(runUntil(loop, [&] { return once == 1 && repeated == 5; }));
  EXPECT_FALSE(single->isValid());
  EXPECT_FALSE(repeating->isValid());
  loop->runOnce(30ms);
  EXPECT_EQ(once, 1);
  EXPECT_EQ(repeated, 5);
}

TEST(RunLoop, TimerInvalidatedFromAnotherThreadStopsFiring) {
  auto loop = ZTRunLoop::current();
  std::atomic<int> fired{0};
  auto timer = loop->scheduleTimer(1ms, true, [&](ZTTimer&) { ++fired; });
  ASSERT_TRUE(runUntil(loop, [&] { return fired >= 2; }));
  std::thread([&] { timer->invalidate(); }).join();
  loop->runOnce(5ms);  // runs the cancellation
  const int after = fired;
  loop->runOnce(20ms);
  EXPECT_EQ(fired, after);
}

TEST(RunLoop, FileDescriptorSourceReportsReadiness) {
  auto loop = ZTRunLoop::current();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::string received;
  auto source = loop->addFileDescriptorSource(fds[0], ZTFileDescriptorSource::Event::Readable,
                                              [&](ZTFileDescriptorSource& s) {
                                                char buffer[16];
                                                const auto n = read(s.fileDescriptor(), buffer, sizeof buffer);
                                                if (n > 0) received.append(buffer, static_cast<std::size_t>(n));
                                              });
  ASSERT_NE(source, nullptr);
  std::thread([&] { ASSERT_EQ(write(fds[1], "ping", 4), 4); }).join();
  ASSERT_TRUE(runUntil(loop, [&] { return received == "ping"; }));
  source->cancel();
  loop->runOnce(5ms);
  // The descriptor stays open and usable: the source never owns it.
  ASSERT_EQ(write(fds[1], "x", 1), 1);
  char c = 0;
  EXPECT_EQ(read(fds[0], &c, 1), 1);
  close(fds[0]);
  close(fds[1]);
}

TEST(RunLoop, StopEndsRunFromAnyThreadAndTheNextRunTurnsAgain) {
  // Shared with the worker so that a failing stop() fails the test instead of hanging it.
  struct State {
    std::shared_ptr<ZTRunLoop> loop;
    std::atomic<int> running{0};
    std::atomic<int> returned{0};
  };
  auto state = std::make_shared<State>();
  std::atomic<bool> ready{false};
  std::thread worker([state, &ready] {
    state->loop = ZTRunLoop::current();
    auto keep = state->loop->keepAlive();
    ready = true;
    for (int round = 0; round < 2; ++round) {
      // Posted before run(): once it has run, the loop is surely turning.
      (void)state->loop->post([&state, round] { state->running = round + 1; });
      state->loop->run();
      state->returned = round + 1;
    }
  });
  while (!ready) std::this_thread::yield();
  const auto waitFor = [](const std::atomic<int>& value, int wanted) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (value.load() != wanted && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    return value.load() == wanted;
  };
  bool ended = waitFor(state->running, 1);
  state->loop->stop();  // from another thread
  ended = ended && waitFor(state->returned, 1) && waitFor(state->running, 2);
  (void)state->loop->post([&state] { state->loop->stop(); });  // from the loop's own thread
  ended = ended && waitFor(state->returned, 2);
  EXPECT_TRUE(ended);
  if (ended) worker.join();
  else worker.detach();  // the state it uses is shared; leaking it beats hanging the run
}

TEST(RunLoop, NestedRunSeesCallsPostedToTheOwnLoop) {
  // A call that posts to its own loop and then waits on that loop must see its post: on a worker's
  // loop and on the main loop.
  const auto nestedWait = [](const std::shared_ptr<ZTRunLoop>& loop) {
    std::atomic<bool> seen{false};
    std::chrono::steady_clock::duration waited{};
    EXPECT_TRUE(loop->post([&] {
      EXPECT_TRUE(loop->post([&] { seen = true; }));
      const auto start = std::chrono::steady_clock::now();
      loop->runWithCondition([&] { return !seen.load(); }, 3.0s);
      waited = std::chrono::steady_clock::now() - start;
    }));
    EXPECT_TRUE(runUntil(loop, [&] { return seen.load(); }));
    EXPECT_LT(waited, 1s);
  };
  std::thread worker([&] {
    auto loop = ZTRunLoop::current();
    auto keep = loop->keepAlive();
    nestedWait(loop);
  });
  worker.join();
  nestedWait(ZTRunLoop::main());
}

TEST(RunLoop, RunUntilRunsCallsAndReturnsAtTheDeadline) {
  std::thread worker([] {
    auto loop = ZTRunLoop::current();
    auto keep = loop->keepAlive();
    int ran = 0;
    EXPECT_TRUE(loop->post([&] { ++ran; }));
    EXPECT_TRUE(loop->post([&] { ++ran; }));
    const auto start = std::chrono::steady_clock::now();
    loop->runUntil(start + 50ms);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(ran, 2);
    EXPECT_GE(waited, 45ms);
    EXPECT_LT(waited, 2s);
  });
  worker.join();
}

TEST(RunLoop, ClosedLoopDropsAndDestroysPendingCalls) {
  // A call that never runs must still be destroyed: waiting code relies on that.
  struct Witness {
    std::shared_ptr<std::atomic<int>> destroyed;
    ~Witness() { ++*destroyed; }
  };
  auto destroyed = std::make_shared<std::atomic<int>>(0);
  std::atomic<bool> ran{false};
  std::thread worker([&] {
    auto loop = ZTRunLoop::current();
    auto witness = std::make_shared<Witness>(Witness{destroyed});
    EXPECT_TRUE(loop->post([witness, &ran] { ran = true; }));
    witness.reset();
    loop->close();
    EXPECT_TRUE(loop->isClosed());
    EXPECT_FALSE(loop->post([&ran] { ran = true; }));
    EXPECT_FALSE(loop->runOnce(10ms));
  });
  worker.join();
  EXPECT_FALSE(ran);
  EXPECT_GE(destroyed->load(), 1);
}

TEST(RunLoop, ThrowingCallIsReportedAndTheLoopGoesOn) {
  std::vector<std::string> lines;
  ZTSetLogSink([&](std::string_view line) { lines.emplace_back(line); });
  auto loop = ZTRunLoop::current();
  bool after = false;
  EXPECT_TRUE(loop->post([] { throw std::runtime_error("boom"); }));
  EXPECT_TRUE(loop->post([&] { after = true; }));
  runUntil(loop, [&] { return after; });
  ZTSetLogSink({});
  EXPECT_TRUE(after);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("boom"), std::string::npos);
}

TEST(RunLoop, RunWithConditionEndsOnConditionOrTimeout) {
  auto loop = ZTRunLoop::main();
  std::atomic<bool> flag{false};
  std::thread([&] {
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(loop->post([&] { flag = true; }));
  }).detach();
  auto start = std::chrono::steady_clock::now();
  loop->runWithCondition([&] { return !flag.load(); }, 5.0s);
  EXPECT_TRUE(flag);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);

  start = std::chrono::steady_clock::now();
  loop->runWithCondition([] { return true; }, 0.1s);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, 95ms);
  EXPECT_LT(waited, 2s);
}

TEST(RunLoop, MainLoopBelongsToTheMainThread) {
  // GoogleTest runs tests on the process's main thread.
  EXPECT_EQ(ZTRunLoop::current(), ZTRunLoop::main());
  EXPECT_TRUE(ZTRunLoop::main()->isCurrent());
  bool onMain = true;
  std::thread([&] { onMain = ZTRunLoop::main()->isCurrent(); }).join();
  EXPECT_FALSE(onMain);
}
}  // namespace
