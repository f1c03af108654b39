// Collections benchmarks, each beside its peer baseline:
//   - ZTMapArray lookup by key vs a linear search of a std::vector, at 10, 1,000 and 100,000 items;
//   - the number-limited and memory-size-limited caches (refreshing reads, evicting stores) vs a plain
//     std::list + std::unordered_map LRU cache, both without a lock and behind a std::mutex (the
//     honest peer of a thread-safe cache), at 1,000 and 100,000 entries, so that a cost growing with
//     the number of entries would show;
//   - a ZTProxyDelegate call fanned out to four delegates (two implement the optional method, one has
//     it muted) vs a hand-written loop over the same delegates with a flag per delegate, and a
//     selector set lookup (how muted methods are found) vs a set of plain pointers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "zentrel/collections/map_array.h"
#include "zentrel/collections/memory_size_limited_cache_dictionary.h"
#include "zentrel/collections/number_limited_cache_dictionary.h"
#include "zentrel/collections/proxy_delegate.h"

namespace {

struct Item {
  std::int64_t id;
  std::string name;
};

std::vector<std::int64_t> randomKeys(std::int64_t range, std::size_t count, unsigned randomSeed) {
  std::mt19937_64 random(randomSeed);
  std::uniform_int_distribution<std::int64_t> pick(0, range - 1);
  std::vector<std::int64_t> keys(count);
  for (auto& key : keys) key = pick(random);
  return keys;
}

std::vector<Item> items(std::int64_t count) {
  std::vector<Item> result;
  result.reserve(static_cast<std::size_t>(count));
  for (std::int64_t i = 0; i < count; ++i) result.push_back({i * 3 + 1, "item"});
  return result;
}

void MapArrayLookupByKey(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  auto array = ZTMapArray<Item, std::int64_t>::create(items(count), [](const Item& item) { return item.id; });
  const auto keys = randomKeys(count, 4096, 1);
  std::size_t next = 0;
  for (auto _ : state) {
    const Item* found = array->objectForKey(keys[next++ & 4095] * 3 + 1);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MapArrayLookupByKey)->Arg(10)->Arg(1000)->Arg(100000);

void BaselineVectorLinearSearch(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  const auto vector = items(count);
  const auto keys = randomKeys(count, 4096, 1);
  std::size_t next = 0;
  for (auto _ : state) {
    const std::int64_t key = keys[next++ & 4095] * 3 + 1;
    auto found = std::find_if(vector.begin(), vector.end(), [key](const Item& item) { return item.id == key; });
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BaselineVectorLinearSearch)->Arg(10)->Arg(1000)->Arg(100000);

using Payload = std::string;
using PayloadPtr = std::shared_ptr<Payload>;

// The peer: the textbook LRU cache, one thread, no lock, no hooks, no delegate.
class BaselineLRU {
 public:
  explicit BaselineLRU(std::size_t limit) : limit_(limit) { map_.reserve(limit); }
  PayloadPtr get(std::int64_t key) {
    auto found = map_.find(key);
    if (found == map_.end()) return nullptr;
    order_.splice(order_.end(), order_, found->second.position);
    return found->second.object;
  }
  void put(std::int64_t key, PayloadPtr object) {
    auto found = map_.find(key);
    if (found != map_.end()) {
      order_.splice(order_.end(), order_, found->second.position);
      found->second.object = std::move(object);
      return;
    }
    if (map_.size() == limit_) {
      map_.erase(order_.front());
      order_.pop_front();
    }
    order_.push_back(key);
    map_.emplace(key, Entry{std::move(object), std::prev(order_.end())});
  }

 private:
  struct Entry {
    PayloadPtr object;
    std::list<std::int64_t>::iterator position;
  };
  std::size_t limit_;
  std::list<std::int64_t> order_;
  std::unordered_map<std::int64_t, Entry> map_;
};

// The honest peer of a thread-safe cache: the same LRU behind a std::mutex.
class LockedBaselineLRU {
 public:
  explicit LockedBaselineLRU(std::size_t limit) : cache_(limit) {}
  PayloadPtr get(std::int64_t key) {
    std::lock_guard<std::mutex> lock(mutex_);
    return cache_.get(key);
  }
  void put(std::int64_t key, PayloadPtr object) {
    std::lock_guard<std::mutex> lock(mutex_);
    cache_.put(key, std::move(object));
  }

 private:
  std::mutex mutex_;
  BaselineLRU cache_;
};

template <class Cache>
void fill(Cache& cache, std::int64_t count, const PayloadPtr& payload) {
  for (std::int64_t key = 0; key < count; ++key) cache.setObject(payload, key);
}
template <class Cache>
  requires requires(Cache& cache, const PayloadPtr& payload) { cache.put(0, payload); }
void fill(Cache& cache, std::int64_t count, const PayloadPtr& payload) {
  for (std::int64_t key = 0; key < count; ++key) cache.put(key, payload);
}

void NumberLimitedCacheRefreshingRead(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  ZTNumberLimitedCacheDictionary<std::int64_t, Payload> cache(static_cast<std::size_t>(count));
  fill(cache, count, std::make_shared<Payload>("payload"));
  const auto keys = randomKeys(count, 1 << 16, 2);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.objectForKey(keys[next++ & 0xffff]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(NumberLimitedCacheRefreshingRead)->Arg(1000)->Arg(100000);

void BaselineLRURefreshingRead(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  BaselineLRU cache(static_cast<std::size_t>(count));
  fill(cache, count, std::make_shared<Payload>("payload"));
  const auto keys = randomKeys(count, 1 << 16, 2);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.get(keys[next++ & 0xffff]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BaselineLRURefreshingRead)->Arg(1000)->Arg(100000);

void LockedBaselineLRURefreshingRead(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  LockedBaselineLRU cache(static_cast<std::size_t>(count));
  fill(cache, count, std::make_shared<Payload>("payload"));
  const auto keys = randomKeys(count, 1 << 16, 2);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.get(keys[next++ & 0xffff]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LockedBaselineLRURefreshingRead)->Arg(1000)->Arg(100000);

// Every store is a new key into a full cache, so every store evicts the least recently used entry.
void NumberLimitedCacheEvictingStore(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  ZTNumberLimitedCacheDictionary<std::int64_t, Payload> cache(static_cast<std::size_t>(count));
  const auto payload = std::make_shared<Payload>("payload");
  fill(cache, count, payload);
  std::int64_t key = count;
  for (auto _ : state) cache.setObject(payload, key++);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(NumberLimitedCacheEvictingStore)->Arg(1000)->Arg(100000);

void BaselineLRUEvictingStore(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  BaselineLRU cache(static_cast<std::size_t>(count));
  const auto payload = std::make_shared<Payload>("payload");
  fill(cache, count, payload);
  std::int64_t key = count;
  for (auto _ : state) cache.put(key++, payload);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BaselineLRUEvictingStore)->Arg(1000)->Arg(100000);

void LockedBaselineLRUEvictingStore(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  LockedBaselineLRU cache(static_cast<std::size_t>(count));
  const auto payload = std::make_shared<Payload>("payload");
  fill(cache, count, payload);
  std::int64_t key = count;
  for (auto _ : state) cache.put(key++, payload);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LockedBaselineLRUEvictingStore)->Arg(1000)->Arg(100000);

// Every object has size 1 and the limit is the entry count, so the memory-limited cache is as full
// as the number-limited one and every new key evicts exactly one entry.
void MemorySizeLimitedCacheRefreshingRead(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  ZTMemorySizeLimitedCacheDictionary<std::int64_t, Payload> cache(static_cast<std::uint64_t>(count),
                                                                  [](const Payload&) { return std::uint64_t{1}; });
  fill(cache, count, std::make_shared<Payload>("payload"));
  const auto keys = randomKeys(count, 1 << 16, 2);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.objectForKey(keys[next++ & 0xffff]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MemorySizeLimitedCacheRefreshingRead)->Arg(1000)->Arg(100000);

void MemorySizeLimitedCacheEvictingStore(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  ZTMemorySizeLimitedCacheDictionary<std::int64_t, Payload> cache(static_cast<std::uint64_t>(count),
                                                                  [](const Payload&) { return std::uint64_t{1}; });
  const auto payload = std::make_shared<Payload>("payload");
  fill(cache, count, payload);
  std::int64_t key = count;
  for (auto _ : state) cache.setObject(payload, key++);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MemorySizeLimitedCacheEvictingStore)->Arg(1000)->Arg(100000);

// A delegate interface of the usual shape: required methods, several optional ones.
class TransferDelegate : public virtual ZTDelegateProtocol {
 public:
  virtual void transferDidStart(int id) = 0;
  virtual void transferDidFinish(int id) = 0;
  virtual void transferDidFail(int, int) {}
  virtual void transferDidPause(int) {}
  virtual bool transferShouldRetry(int) { return false; }
  virtual void transferDidProgress(int, double) {}

  static const ZTProtocol& protocol() {
    static const ZTProtocol description(
        "TransferDelegate",
        {ZTSelectorOf<&TransferDelegate::transferDidStart>, ZTSelectorOf<&TransferDelegate::transferDidFinish>},
        {ZTSelectorOf<&TransferDelegate::transferDidFail>, ZTSelectorOf<&TransferDelegate::transferDidPause>,
         ZTSelectorOf<&TransferDelegate::transferShouldRetry>, ZTSelectorOf<&TransferDelegate::transferDidProgress>});
    return description;
  }
};

class TransferDelegateProxy final : public ZTProxyDelegate<TransferDelegate> {
 public:
  void transferDidStart(int id) override { forward<&TransferDelegate::transferDidStart>(id); }
  void transferDidFinish(int id) override { forward<&TransferDelegate::transferDidFinish>(id); }
  void transferDidFail(int id, int code) override {
    forwardOrDefault<&TransferDelegate::transferDidFail>([&] { TransferDelegate::transferDidFail(id, code); }, id, code);
  }
  void transferDidPause(int id) override {
    forwardOrDefault<&TransferDelegate::transferDidPause>([&] { TransferDelegate::transferDidPause(id); }, id);
  }
  bool transferShouldRetry(int id) override {
    return forwardOrDefault<&TransferDelegate::transferShouldRetry>(
        [&] { return TransferDelegate::transferShouldRetry(id); }, id);
  }
  void transferDidProgress(int id, double fraction) override {
    forwardOrDefault<&TransferDelegate::transferDidProgress>(
        [&] { TransferDelegate::transferDidProgress(id, fraction); }, id, fraction);
  }
};

class ProgressCounter final : public TransferDelegate {
 public:
  explicit ProgressCounter(bool wantsProgress) : wantsProgress_(wantsProgress) {
    if (wantsProgress) declareImplemented<&TransferDelegate::transferDidProgress>(&ProgressCounter::transferDidProgress);
  }
  bool wantsProgress() const { return wantsProgress_; }
  void transferDidStart(int) override {}
  void transferDidFinish(int) override {}
  void transferDidProgress(int, double fraction) override { sum_ += fraction; }
  double sum() const { return sum_; }

 private:
  bool wantsProgress_;
  double sum_ = 0;
};

std::vector<std::shared_ptr<ProgressCounter>> progressCounters() {
  return {std::make_shared<ProgressCounter>(true), std::make_shared<ProgressCounter>(false),
          std::make_shared<ProgressCounter>(true), std::make_shared<ProgressCounter>(true)};
}

void ProxyForwardOptionalMethod(benchmark::State& state) {
  const auto delegates = progressCounters();
  auto proxy = ZTProxyDelegate<TransferDelegate>::create<TransferDelegateProxy>(delegates);
  proxy->ignoreDelegateMethodCalls(ZTSelectorOf<&TransferDelegate::transferDidProgress>, delegates[3]);
  for (auto _ : state) proxy->transferDidProgress(1, 0.5);
  benchmark::DoNotOptimize(delegates[0]->sum());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ProxyForwardOptionalMethod);

// The peer: the same four delegates called from a loop that already knows which ones to call.
void BaselineHandWrittenFanOut(benchmark::State& state) {
  const auto delegates = progressCounters();
  const std::vector<std::weak_ptr<TransferDelegate>> weak(delegates.begin(), delegates.end());
  const std::vector<bool> wanted{true, false, true, false};
  for (auto _ : state) {
    for (std::size_t i = 0; i < weak.size(); ++i)
      if (wanted[i])
        if (auto delegate = weak[i].lock()) delegate->transferDidProgress(1, 0.5);
  }
  benchmark::DoNotOptimize(delegates[0]->sum());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BaselineHandWrittenFanOut);

std::vector<ZTSelector> transferSelectors() {
  return {ZTSelectorOf<&TransferDelegate::transferDidStart>,    ZTSelectorOf<&TransferDelegate::transferDidFinish>,
          ZTSelectorOf<&TransferDelegate::transferDidFail>,     ZTSelectorOf<&TransferDelegate::transferDidPause>,
          ZTSelectorOf<&TransferDelegate::transferShouldRetry>, ZTSelectorOf<&TransferDelegate::transferDidProgress>};
}

// Half the probes hit (the first three selectors are in the set), half miss.
void SelectorSetLookup(benchmark::State& state) {
  const auto selectors = transferSelectors();
  const std::unordered_set<ZTSelector> muted(selectors.begin(), selectors.begin() + 3);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(muted.count(selectors[next++ % selectors.size()]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SelectorSetLookup);

void BaselinePointerSetLookup(benchmark::State& state) {
  static const int objects[6] = {};
  const std::vector<const void*> pointers{&objects[0], &objects[1], &objects[2], &objects[3], &objects[4], &objects[5]};
  const std::unordered_set<const void*> muted(pointers.begin(), pointers.begin() + 3);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(muted.count(pointers[next++ % pointers.size()]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BaselinePointerSetLookup);

}  // namespace

BENCHMARK_MAIN();
