// Random operation sequences against a reference model: both bounded caches against a plain list
// that applies the eviction rules literally. After every step the recency order, the contents, the
// delegate notices and the memory usage must agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zentrel/collections/memory_size_limited_cache_dictionary.h"
#include "zentrel/collections/number_limited_cache_dictionary.h"

namespace {

using Blob = std::string;
using BlobPtr = std::shared_ptr<Blob>;

// Notices are recorded by identity only, so that the log keeps nothing alive.
using Notice = std::pair<int, const Blob*>;

class NoticeLog : public ZTCacheDictionaryDelegate<int, Blob> {
 public:
  void cacheDictionary(ZTCacheDictionary<int, Blob>&, const BlobPtr& object, const int& key) override {
    notices.push_back({key, object.get()});
  }
  std::vector<Notice> notices;
};

// The rules as written, on a std::list (front = least recently used). The model holds its objects
// weakly, so that "held only by the cache" means the same for both.
struct ModelCache {
  struct Entry {
    int key;
    std::weak_ptr<Blob> object;
    const Blob* identity;
    std::uint64_t size;
  };
  std::list<Entry> order;
  std::vector<Notice> notices;
  std::size_t countLimit = 0;
  std::uint64_t sizeLimit = 0;
  bool sizeLimited = false;
  bool hasDelegate = true;

  std::list<Entry>::iterator find(int key) {
    return std::find_if(order.begin(), order.end(), [key](const Entry& entry) { return entry.key == key; });
  }
  // The size-limited cache's running account: what the rules add and take off, never below zero.
  std::uint64_t usage = 0;
  void takeOff(std::uint64_t size) { usage = usage > size ? usage - size : 0; }
  void set(const BlobPtr& object, int key) {
    auto existing = find(key);
    // Telling the delegate reads the key's object, and that read refreshes it.
    if (hasDelegate) {
      const Blob* current = existing == order.end() ? nullptr : existing->identity;
      if (current != object.get()) notices.push_back({key, current});
      if (existing != order.end()) order.splice(order.end(), order, existing);
    }
    if (!sizeLimited) {
      if (order.size() == countLimit && existing == order.end()) {
        if (hasDelegate) notices.push_back({order.front().key, order.front().identity});
        order.pop_front();
      }
    } else {
      // The walk starts at the least recently used entry and may take the key being stored.
      const std::uint64_t replaced = existing == order.end() ? 0 : existing->size;
      std::uint64_t newUsage = (usage > replaced ? usage - replaced : 0) + object->size();
      std::vector<int> evicted;
      for (const Entry& entry : order) {
        if (newUsage <= sizeLimit) break;
        evicted.push_back(entry.key);
        newUsage = newUsage > entry.size ? newUsage - entry.size : 0;
      }
      if (hasDelegate)
        for (int victim : evicted) notices.push_back({victim, find(victim)->identity});
      for (int victim : evicted) {
        takeOff(find(victim)->size);
        order.erase(find(victim));
      }
      takeOff(replaced);
      usage += object->size();
    }
    existing = find(key);
    if (existing != order.end()) order.erase(existing);
    order.push_back({key, object, object.get(), object->size()});
  }
  const Blob* get(int key, bool refresh) {
    auto found = find(key);
    if (found == order.end()) return nullptr;
    const Blob* identity = found->identity;
    if (refresh) order.splice(order.end(), order, found);
    return identity;
  }
  void remove(int key) {
    auto found = find(key);
    if (found == order.end()) return;
    takeOff(found->size);
    order.erase(found);
  }
  // Call before the cache's sweep: an object whose only owner is the cache goes.
  void sweep() {
    order.remove_if([this](const Entry& entry) {
      if (entry.object.use_count() != 1) return false;
      takeOff(entry.size);
      return true;
    });
  }
};

template <class Cache>
void runAgainstModel(Cache& cache, ModelCache& model, unsigned randomSeed, bool changeLimits) {
  std::mt19937 random(randomSeed);
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  auto log = std::make_shared<NoticeLog>();
  if (model.hasDelegate) cache.setDelegate(log);
  std::vector<BlobPtr> heldOutside;

  for (int step = 0; step < 6000; ++step) {
    const int key = pick(24);
    switch (pick(12)) {
      case 0: case 1: case 2: case 3: {
        BlobPtr object = std::make_shared<Blob>(static_cast<std::size_t>(1 + pick(30)), 'x');
        if (pick(3) == 0) heldOutside.push_back(object);
        cache.setObject(object, key);
        model.set(object, key);
        break;
      }
      case 4: {
        // Storing the very object the key holds again.
        BlobPtr current = cache.objectForKey(key, false);
        ASSERT_EQ(current.get(), model.get(key, false));
        if (current) {
          cache.setObject(current, key);
          model.set(current, key);
        }
        break;
      }
      case 5: case 6:
        ASSERT_EQ(cache.objectForKey(key).get(), model.get(key, true));
        break;
      case 7:
        ASSERT_EQ(cache.objectForKey(key, false).get(), model.get(key, false));
        break;
      case 8:
        cache.removeObjectForKey(key);
        model.remove(key);
        break;
      case 9:
        if (pick(10) == 0) {
          model.sweep();
          cache.removeAllObjectsRetainedOnlyByCache();
        }
        break;
      case 10:
        if (pick(4) == 0 && !heldOutside.empty()) heldOutside.erase(heldOutside.begin());
        break;
      case 11:
        if (changeLimits && pick(20) == 0) {
          if (model.sizeLimited) {
            model.sizeLimit = static_cast<std::uint64_t>(40 + pick(200));
            if constexpr (requires { cache.usedSize(); }) cache.setLimit(model.sizeLimit);
          } else {
            model.countLimit = static_cast<std::size_t>(1 + pick(12));
            if constexpr (!requires { cache.usedSize(); }) cache.setLimit(model.countLimit);
          }
        }
        break;
    }
    std::vector<int> expected;
    for (const auto& entry : model.order) expected.push_back(entry.key);
    ASSERT_EQ(cache.keysInRecencyOrder(), expected) << "step " << step;
    ASSERT_EQ(log->notices, model.notices) << "step " << step;
    if constexpr (requires { cache.usedSize(); }) {
      ASSERT_EQ(cache.usedSize(), model.usage) << "step " << step;
    }
  }
}

TEST(CacheModel, NumberLimitedCacheFollowsTheRulesExactly) {
  ZTNumberLimitedCacheDictionary<int, Blob> cache(6);
  ModelCache model;
  model.countLimit = 6;
  runAgainstModel(cache, model, 3, false);
}

TEST(CacheModel, NumberLimitedCacheWithChangingLimits) {
  ZTNumberLimitedCacheDictionary<int, Blob> cache(6);
  ModelCache model;
  model.countLimit = 6;
  runAgainstModel(cache, model, 5, true);
}

TEST(CacheModel, MemorySizeLimitedCacheFollowsTheRulesExactly) {
  ZTMemorySizeLimitedCacheDictionary<int, Blob> cache(120, [](const Blob& blob) { return blob.size(); });
  ModelCache model;
  model.sizeLimited = true;
  model.sizeLimit = 120;
  runAgainstModel(cache, model, 9, true);
}

// Without a delegate nothing refreshes the key before the eviction walk, so the walk often takes the
// key being stored, and the account drifts below the sum of what is stored.
TEST(CacheModel, MemorySizeLimitedCacheWithoutDelegateFollowsTheRulesExactly) {
  ZTMemorySizeLimitedCacheDictionary<int, Blob> cache(120, [](const Blob& blob) { return blob.size(); });
  ModelCache model;
  model.sizeLimited = true;
  model.sizeLimit = 120;
  model.hasDelegate = false;
  runAgainstModel(cache, model, 11, true);
}

}  // namespace
