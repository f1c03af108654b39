// The operation queue and the objects pool beside plain peers. Read the results as ratios:
//   QueueThroughput / ThreadPoolThroughput   (items per second; 100,000 trivial operations, 5 at once)
//   QueueStartLatency / ThreadPoolStartLatency (median microseconds from adding to start)
//   ObjectsPoolGetPut / MutexVectorPoolGetPut  (get/put pairs per second, object returned at once)
//   ObjectsPoolGetPutInterleaved / MutexVectorPoolGetPutInterleaved  (eight out, back in taking order)

#include <benchmark/benchmark.h>

#include <algorithm>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <chrono>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/operations/objects_pool.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"

namespace {
using Clock = std::chrono::steady_clock;
constexpr int kOperations = 100'000;

// Counts finished tasks; the one that reaches the target wakes the benchmark thread, which
// sleeps meanwhile rather than spinning (on two cores a spinner would steal the workers' time).
struct Countdown {
  std::atomic<long> remaining{0};
  std::binary_semaphore done{0};
  void arm(long count) { remaining.store(count, std::memory_order_release); }
  void count() {
    if (remaining.fetch_sub(1, std::memory_order_acq_rel) == 1) done.release();
  }
  void wait() { done.acquire(); }
};

// A concurrent operation that counts itself and finishes at once.
class TrivialOperation : public ZTConcurrentOperation {
 public:
  TrivialOperation(ConstructionKey key, Countdown& countdown) : ZTConcurrentOperation(key, nullptr), countdown_(countdown) {}
  void main() override {
    finishWithSuccessHandler(nullptr);
    countdown_.count();
  }

 private:
  Countdown& countdown_;
};

void QueueThroughput(benchmark::State& state) {
  auto thread = ZTThreadWithRunLoop::spawnThreadWithName("bench queue");
  auto queue = ZTOperationQueue::create(thread);
  queue->setMaxConcurrentOperationCount(5);
  Countdown countdown;
  for (auto _ : state) {
    countdown.arm(kOperations);
    for (int i = 0; i < kOperations; ++i) queue->addOperation(ZTConcurrentOperation::make<TrivialOperation>(countdown));
    countdown.wait();
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
  thread->cancel();
  thread->waitUntilFinished();
}
BENCHMARK(QueueThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

void ThreadPoolThroughput(benchmark::State& state) {
  asio::thread_pool pool(5);
  Countdown countdown;
  for (auto _ : state) {
    countdown.arm(kOperations);
    for (int i = 0; i < kOperations; ++i) asio::post(pool, [&countdown] { countdown.count(); });
    countdown.wait();
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
  pool.join();
}
BENCHMARK(ThreadPoolThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

// Latency: one operation at a time on an idle queue, from addOperation() to its main().
class StampingOperation : public ZTConcurrentOperation {
 public:
  explicit StampingOperation(ConstructionKey key) : ZTConcurrentOperation(key, nullptr) {}
  std::atomic<Clock::rep> startedAt{0};
  void main() override {
    startedAt.store(Clock::now().time_since_epoch().count(), std::memory_order_release);
    finishWithSuccessHandler(nullptr);
  }
};

void reportMedian(benchmark::State& state, std::vector<double>& samples) {
  if (samples.empty()) return;
  std::nth_element(samples.begin(), samples.begin() + static_cast<long>(samples.size() / 2), samples.end());
  state.counters["median_us"] = samples[samples.size() / 2];
}

void QueueStartLatency(benchmark::State& state) {
  auto thread = ZTThreadWithRunLoop::spawnThreadWithName("bench latency");
  auto queue = ZTOperationQueue::create(thread);
  std::vector<double> samples;
  for (auto _ : state) {
    auto operation = ZTConcurrentOperation::make<StampingOperation>();
    const auto added = Clock::now();
    queue->addOperation(operation);
    while (operation->startedAt.load(std::memory_order_acquire) == 0) std::this_thread::yield();
    const auto started = Clock::time_point(Clock::duration(operation->startedAt.load()));
    const std::chrono::duration<double> elapsed = started - added;
    state.SetIterationTime(elapsed.count());
    samples.push_back(elapsed.count() * 1e6);
    while (queue->operationsCount() != 0) std::this_thread::yield();
  }
  reportMedian(state, samples);
  thread->cancel();
  thread->waitUntilFinished();
}
BENCHMARK(QueueStartLatency)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20'000);

void ThreadPoolStartLatency(benchmark::State& state) {
  asio::thread_pool pool(5);
  std::vector<double> samples;
  for (auto _ : state) {
    std::atomic<Clock::rep> startedAt{0};
    const auto added = Clock::now();
    asio::post(pool,
               [&startedAt] { startedAt.store(Clock::now().time_since_epoch().count(), std::memory_order_release); });
    while (startedAt.load(std::memory_order_acquire) == 0) std::this_thread::yield();
    const std::chrono::duration<double> elapsed = Clock::time_point(Clock::duration(startedAt.load())) - added;
    state.SetIterationTime(elapsed.count());
    samples.push_back(elapsed.count() * 1e6);
  }
  reportMedian(state, samples);
  pool.join();
}
BENCHMARK(ThreadPoolStartLatency)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20'000);

struct Buffer {
  char bytes[64];
};

void ObjectsPoolGetPut(benchmark::State& state) {
  std::vector<std::shared_ptr<Buffer>> objects;
  for (int i = 0; i < 16; ++i) objects.push_back(std::make_shared<Buffer>());
  auto pool = ZTObjectsPool<Buffer>::poolWithObjects(objects);
  for (auto _ : state) {
    auto object = pool->getObject();
    benchmark::DoNotOptimize(object.get());
    benchmark::DoNotOptimize(pool->putObject(object));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ObjectsPoolGetPut);

// The peer: a vector of free objects behind a mutex.
class MutexVectorPool {
 public:
  explicit MutexVectorPool(std::vector<std::shared_ptr<Buffer>> objects) : free_(std::move(objects)) {}
  std::shared_ptr<Buffer> get() {
    std::lock_guard lock(mutex_);
    if (free_.empty()) return nullptr;
    auto object = std::move(free_.back());
    free_.pop_back();
    return object;
  }
  void put(std::shared_ptr<Buffer> object) {
    std::lock_guard lock(mutex_);
    free_.push_back(std::move(object));
  }

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<Buffer>> free_;
};

void MutexVectorPoolGetPut(benchmark::State& state) {
  std::vector<std::shared_ptr<Buffer>> objects;
  for (int i = 0; i < 16; ++i) objects.push_back(std::make_shared<Buffer>());
  MutexVectorPool pool(objects);
  for (auto _ : state) {
    auto object = pool.get();
    benchmark::DoNotOptimize(object.get());
    pool.put(object);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MutexVectorPoolGetPut);

// Eight objects out, returned in the order they were taken: most returns are not the object taken
// last, so they go through the pool's address table.
void ObjectsPoolGetPutInterleaved(benchmark::State& state) {
  std::vector<std::shared_ptr<Buffer>> objects;
  for (int i = 0; i < 16; ++i) objects.push_back(std::make_shared<Buffer>());
  auto pool = ZTObjectsPool<Buffer>::poolWithObjects(objects);
  std::shared_ptr<Buffer> taken[8];
  for (auto _ : state) {
    for (auto& object : taken) object = pool->getObject();
    for (auto& object : taken) benchmark::DoNotOptimize(pool->putObject(object));
  }
  state.SetItemsProcessed(state.iterations() * 8);
}
BENCHMARK(ObjectsPoolGetPutInterleaved);

void MutexVectorPoolGetPutInterleaved(benchmark::State& state) {
  std::vector<std::shared_ptr<Buffer>> objects;
  for (int i = 0; i < 16; ++i) objects.push_back(std::make_shared<Buffer>());
  MutexVectorPool pool(objects);
  std::shared_ptr<Buffer> taken[8];
  for (auto _ : state) {
    for (auto& object : taken) object = pool.get();
    for (auto& object : taken) pool.put(object);
  }
  state.SetItemsProcessed(state.iterations() * 8);
}
BENCHMARK(MutexVectorPoolGetPutInterleaved);

}  // namespace

BENCHMARK_MAIN();
