// Cross-thread calls into a worker thread, beside raw asio posts into an io_context running on a
// plain thread (the peer baseline). Read the results as ratios: calls per second of
// CrossThreadCalls / AsioPost at the same producer count, and the round-trip medians.
//
// Two peers: "default" is an io_context as a run loop builds it (asio's default concurrency hint,
// which a run loop needs so that a nested turn sees what its own call posted) — the like-for-like
// comparison; "hint1" is asio's single-threaded mode, the fastest raw post, for reference.

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <benchmark/benchmark.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/thread_with_run_loop.h"

namespace {
constexpr int kCallsPerProducer = 20000;

// Sends kCallsPerProducer calls from each producer thread through send(), then waits until all
// have run on the target.
template <class Send>
void produce(int producers, std::atomic<long>& counter, Send send) {
  const long target = counter.load() + static_cast<long>(producers) * kCallsPerProducer;
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&] {
      for (int i = 0; i < kCallsPerProducer; ++i) send();
    });
  }
  for (auto& t : threads) t.join();
  while (counter.load(std::memory_order_acquire) < target) std::this_thread::yield();
}

void CrossThreadCalls(benchmark::State& state) {
  auto thread = ZTThreadWithRunLoop::spawnThreadWithName("bench-target");
  std::atomic<long> counter{0};
  const int producers = static_cast<int>(state.range(0));
  for (auto _ : state) {
    produce(producers, counter, [&] {
      zt::performBlock([&counter] { counter.fetch_add(1, std::memory_order_release); }, thread);
    });
  }
  state.SetItemsProcessed(state.iterations() * producers * kCallsPerProducer);
  thread->cancel();
  thread->waitUntilFinished();
}

// hint 1: asio's single-thread mode; 0: asio's default, which a run loop uses (a nested turn must
// see what its own call posted).
template <int Hint>
struct AsioThread {
  asio::io_context context = Hint ? asio::io_context(Hint) : asio::io_context();
  asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
  std::thread runner{[this] { context.run(); }};
  ~AsioThread() {
    guard.reset();
    context.stop();
    runner.join();
  }
};

template <int Hint>
void AsioPost(benchmark::State& state) {
  AsioThread<Hint> target;
  std::atomic<long> counter{0};
  const int producers = static_cast<int>(state.range(0));
  for (auto _ : state) {
    produce(producers, counter, [&] {
      asio::post(target.context, [&counter] { counter.fetch_add(1, std::memory_order_release); });
    });
  }
  state.SetItemsProcessed(state.iterations() * producers * kCallsPerProducer);
}

void CrossThreadRoundTrip(benchmark::State& state) {
  auto thread = ZTThreadWithRunLoop::spawnThreadWithName("bench-target");
  int value = 0;
  for (auto _ : state) {
    if (!zt::performBlock([&value] { ++value; }, thread, true)) {
      state.SkipWithError("the worker thread dropped a call");
      break;
    }
  }
  benchmark::DoNotOptimize(value);
  thread->cancel();
  thread->waitUntilFinished();
}

template <int Hint>
void AsioRoundTrip(benchmark::State& state) {
  AsioThread<Hint> target;
  int value = 0;
  for (auto _ : state) {
    std::promise<void> done;
    asio::post(target.context, [&] {
      ++value;
      done.set_value();
    });
    done.get_future().wait();
  }
  benchmark::DoNotOptimize(value);
}
}  // namespace

BENCHMARK(CrossThreadCalls)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(AsioPost<1>)->Name("AsioPost/hint1")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(AsioPost<0>)->Name("AsioPost/default")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(CrossThreadRoundTrip)->UseRealTime()->Repetitions(9)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
BENCHMARK(AsioRoundTrip<1>)->Name("AsioRoundTrip/hint1")->UseRealTime()->Repetitions(9)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
BENCHMARK(AsioRoundTrip<0>)->Name("AsioRoundTrip/default")->UseRealTime()->Repetitions(9)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
