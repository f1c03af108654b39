#include "zentrel/collections/cache_dictionary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/collections/memory_size_limited_cache_dictionary.h"
#include "zentrel/collections/number_limited_cache_dictionary.h"
#include "zentrel/platform/thread_annotations.h"

namespace {

using Blob = std::string;
using BlobPtr = std::shared_ptr<Blob>;

BlobPtr blob(std::string text) { return std::make_shared<Blob>(std::move(text)); }

// Records every eviction notice as "key:object" ("key:nil" for a first store).
class EvictionLog : public ZTCacheDictionaryDelegate<std::string, Blob> {
 public:
  void cacheDictionary(ZTCacheDictionary<std::string, Blob>&, const BlobPtr& object, const std::string& key) override {
    notices.push_back(key + ":" + (object ? *object : std::string("nil")));
  }
  std::vector<std::string> notices;
};

TEST(CacheDictionary, DelegateHearsOfReplacedObjects) {
  auto cache = ZTCacheDictionary<std::string, Blob>::create();
  auto log = std::make_shared<EvictionLog>();
  cache->setDelegate(log);

  auto first = blob("first");
  cache->setObject(first, "k");
  cache->setObject(first, "k");
  cache->setObject(blob("second"), "k");
  EXPECT_EQ(log->notices, (std::vector<std::string>{"k:nil", "k:first"}));
  EXPECT_EQ(*cache->objectForKey("k"), "second");

  cache->removeObjectForKey("k");
  cache->setObject(blob("x"), "other");
  cache->removeAllObjects();
  EXPECT_EQ(log->notices.size(), 3u);
  EXPECT_EQ(cache->count(), 0u);
}

TEST(CacheDictionary, DelegateIsHeldWeakly) {
  auto cache = ZTCacheDictionary<std::string, Blob>::create();
  auto log = std::make_shared<EvictionLog>();
  cache->setDelegate(log);
  log.reset();
  EXPECT_EQ(cache->delegate(), nullptr);
  cache->setObject(blob("a"), "a");
  EXPECT_EQ(cache->count(), 1u);
}

TEST(CacheDictionary, RefreshingReadsReorderAndPlainReadsDoNot) {
  auto cache = ZTCacheDictionary<std::string, Blob>::create();
  cache->setObject(blob("1"), "a");
  cache->setObject(blob("2"), "b");
  cache->setObject(blob("3"), "c");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a", "b", "c"}));
  ASSERT_TRUE(cache->objectForKey("a", false));
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a", "b", "c"}));
  ASSERT_TRUE(cache->objectForKey("a"));
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "c", "a"}));
  cache->setObject(blob("4"), "b");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"c", "a", "b"}));
  EXPECT_EQ(cache->objectForKey("missing"), nullptr);
  EXPECT_THROW(cache->setObject(nullptr, "a"), ZTInternalInconsistencyException);
}

TEST(CacheDictionary, SweepDropsOnlyObjectsNobodyElseHolds) {
  auto cache = ZTCacheDictionary<std::string, Blob>::create();
  auto log = std::make_shared<EvictionLog>();
  auto kept = blob("kept");
  cache->setObject(blob("loose"), "a");
  cache->setObject(kept, "b");
  cache->setObject(blob("loose too"), "c");
  cache->setObject(blob("last"), "d");
  auto alsoKept = cache->objectForKey("d");
  cache->setDelegate(log);
  log->notices.clear();

  cache->removeAllObjectsRetainedOnlyByCache();
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "d"}));
  EXPECT_EQ(cache->objectForKey("b", false), kept);
  EXPECT_TRUE(log->notices.empty());

  std::vector<std::string> keys = cache->allKeys();
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::string>{"b", "d"}));
}

// An object whose destructor removes its companion entry from the same cache.
struct Tethered {
  Tethered(ZTCacheDictionary<int, Tethered>* owner, int companionKey) : cache(owner), companion(companionKey) {}
  Tethered(const Tethered&) = delete;
  ~Tethered() { cache->removeObjectForKey(companion); }
  ZTCacheDictionary<int, Tethered>* cache;
  int companion;
};

TEST(CacheDictionary, SweepSurvivesDestructorsThatUseTheCache) {
  auto cache = ZTCacheDictionary<int, Tethered>::create();
  for (int key = 0; key < 6; ++key) cache->setObject(std::make_shared<Tethered>(cache.get(), key + 1), key);
  auto kept = cache->objectForKey(3, false);
  cache->removeAllObjectsRetainedOnlyByCache();
  // 0, 1, 2, 4, 5 are swept; as they die, 2's destructor takes 3 out as well.
  EXPECT_TRUE(cache->keysInRecencyOrder().empty());
  EXPECT_EQ(cache->count(), 0u);
  EXPECT_EQ(kept->companion, 4);

  // Replacing or clearing objects whose destructors use the cache.
  for (int key = 10; key < 14; ++key) cache->setObject(std::make_shared<Tethered>(cache.get(), key), key);
  // The replaced object's destructor removes its own key: it runs once the store is complete, so the
  // new entry is stored and then taken out again, never half-built.
  cache->setObject(std::make_shared<Tethered>(cache.get(), 99), 10);
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<int>{11, 12, 13}));
  cache->removeAllObjects();
  EXPECT_EQ(cache->count(), 0u);
  EXPECT_TRUE(cache->keysInRecencyOrder().empty());
}

TEST(CacheDictionary, EnumerationVisitsEveryEntryAndStops) {
  auto cache = ZTCacheDictionary<int, Blob>::create();
  for (int i = 0; i < 5; ++i) cache->setObject(blob(std::to_string(i)), i);
  int seen = 0;
  cache->enumerateKeysAndObjectsUsingBlock([&](int key, const BlobPtr& object, bool&) {
    EXPECT_EQ(*object, std::to_string(key));
    ++seen;
  });
  EXPECT_EQ(seen, 5);
  seen = 0;
  cache->enumerateKeysAndObjectsUsingBlock([&](int, const BlobPtr&, bool& stop) { stop = ++seen == 2; });
  EXPECT_EQ(seen, 2);
}

TEST(NumberLimitedCache, EvictsTheLeastRecentlyUsedKey) {
  auto cache = ZTNumberLimitedCacheDictionary<std::string, Blob>::create(2);
  auto log = std::make_shared<EvictionLog>();
  cache->setDelegate(log);
  cache->setObject(blob("A"), "a");
  cache->setObject(blob("B"), "b");
  ASSERT_TRUE(cache->objectForKey("a"));
  cache->setObject(blob("C"), "c");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(log->notices, (std::vector<std::string>{"a:nil", "b:nil", "c:nil", "b:B"}));
}

TEST(NumberLimitedCache, ReplacingAStoredKeyAtTheLimitEvictsNothing) {
  auto cache = ZTNumberLimitedCacheDictionary<std::string, Blob>::create(2);
  cache->setObject(blob("A"), "a");
  cache->setObject(blob("B"), "b");
  cache->setObject(blob("A2"), "a");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(*cache->objectForKey("a"), "A2");
}

TEST(NumberLimitedCache, LimitTestIsEqualityNotABound) {
  auto cache = ZTNumberLimitedCacheDictionary<int, Blob>::create(4);
  for (int i = 0; i < 4; ++i) cache->setObject(blob("x"), i);
  cache->setLimit(2);
  cache->setObject(blob("x"), 4);
  cache->setObject(blob("x"), 5);
  EXPECT_EQ(cache->count(), 6u);

  cache->removeObjectForKey(0);
  cache->removeObjectForKey(1);
  cache->removeObjectForKey(2);
  cache->removeObjectForKey(3);
  ASSERT_EQ(cache->count(), 2u);
  cache->setObject(blob("x"), 6);
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<int>{5, 6}));
}

// The delegate is called under the cache's lock; it may still use the cache from the same thread.
class InspectingDelegate : public ZTCacheDictionaryDelegate<std::string, Blob> {
 public:
  void cacheDictionary(ZTCacheDictionary<std::string, Blob>& cache, const BlobPtr& object, const std::string& key) override {
    if (!object) return;
    seen.push_back(key + " while holding " + std::to_string(cache.count()) + " with oldest " + cache.keysInRecencyOrder().front());
    EXPECT_EQ(cache.objectForKey(key, false), object);
  }
  std::vector<std::string> seen;
};

TEST(NumberLimitedCache, DelegateSeesTheEntryBeforeItLeaves) {
  auto cache = ZTNumberLimitedCacheDictionary<std::string, Blob>::create(2);
  auto inspector = std::make_shared<InspectingDelegate>();
  cache->setDelegate(inspector);
  cache->setObject(blob("A"), "a");
  cache->setObject(blob("B"), "b");
  cache->setObject(blob("C"), "c");
  EXPECT_EQ(inspector->seen, (std::vector<std::string>{"a while holding 2 with oldest a"}));
  EXPECT_EQ(cache->objectForKey("a"), nullptr);
}

TEST(NumberLimitedCache, ZeroLimitRefusesToStore) {
  auto cache = ZTNumberLimitedCacheDictionary<int, Blob>::create(0);
  EXPECT_THROW(cache->setObject(blob("x"), 1), ZTRangeException);
  EXPECT_EQ(cache->count(), 0u);
}

TEST(NumberLimitedCache, KeepsTheNewestEntriesUnderManyStores) {
  auto cache = ZTNumberLimitedCacheDictionary<int, Blob>::create(100);
  for (int i = 0; i < 1000; ++i) cache->setObject(blob("x"), i);
  const auto keys = cache->keysInRecencyOrder();
  ASSERT_EQ(keys.size(), 100u);
  EXPECT_EQ(keys.front(), 900);
  EXPECT_EQ(keys.back(), 999);
}

// A subclass hook may use the cache's own methods: the hooks run under the cache's recursive lock.
class AuditedCache : public ZTNumberLimitedCacheDictionary<int, Blob> {
 public:
  AuditedCache() : ZTNumberLimitedCacheDictionary(3) {}
  std::vector<std::size_t> countsAfterStores;

 protected:
  // Takes the recursive lock again through count(): re-entry is what the lock analysis cannot model.
  void didSetObject(const BlobPtr& object, const int& key) override ZT_NO_THREAD_SAFETY_ANALYSIS {
    ZTNumberLimitedCacheDictionary::didSetObject(object, key);
    countsAfterStores.push_back(count());
  }
};

TEST(NumberLimitedCache, HooksMayCallTheCache) {
  AuditedCache cache;
  for (int i = 0; i < 5; ++i) cache.setObject(blob("x"), i);
  EXPECT_EQ(cache.countsAfterStores, (std::vector<std::size_t>{1, 2, 3, 3, 3}));
}

std::uint64_t blobSize(const Blob& object) { return object.size(); }

TEST(MemorySizeLimitedCache, EvictsOldestUntilTheNewObjectFits) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(100, blobSize);
  auto log = std::make_shared<EvictionLog>();
  cache->setObject(blob(std::string(40, 'a')), "a");
  cache->setObject(blob(std::string(40, 'b')), "b");
  cache->setDelegate(log);
  cache->setObject(blob(std::string(40, 'c')), "c");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "c"}));
  EXPECT_EQ(cache->usedSize(), 80u);
  EXPECT_EQ(log->notices, (std::vector<std::string>{"c:nil", "a:" + std::string(40, 'a')}));
}

TEST(MemorySizeLimitedCache, EvictsSeveralInRecencyOrderAndStoresOversizedObjects) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(100, blobSize);
  auto log = std::make_shared<EvictionLog>();
  cache->setObject(blob(std::string(30, 'a')), "a");
  cache->setObject(blob(std::string(30, 'b')), "b");
  cache->setObject(blob(std::string(30, 'c')), "c");
  ASSERT_TRUE(cache->objectForKey("a"));
  cache->setDelegate(log);
  cache->setObject(blob(std::string(60, 'd')), "d");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a", "d"}));
  EXPECT_EQ(cache->usedSize(), 90u);
  ASSERT_EQ(log->notices.size(), 3u);
  EXPECT_EQ(log->notices[1].substr(0, 2), "b:");
  EXPECT_EQ(log->notices[2].substr(0, 2), "c:");

  cache->setObject(blob(std::string(250, 'e')), "e");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"e"}));
  EXPECT_EQ(cache->usedSize(), 250u);
}

// The eviction walk starts at the least recently used entry even when that is the key being stored:
// its old object goes (the delegate hears of it), its old size is taken off a second time, and the
// new object is stored all the same.
TEST(MemorySizeLimitedCache, TheKeyBeingStoredCanBeTheOneEvicted) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(100, blobSize);
  cache->setObject(blob(std::string(40, 'a')), "a");
  cache->setObject(blob(std::string(40, 'b')), "b");
  cache->setObject(blob(std::string(70, 'A')), "a");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(*cache->objectForKey("a", false), std::string(70, 'A'));
  // 80 + 70 − 40 = 110, over by 10; evicting the old "a" takes 40 off again: 70 while 110 is stored.
  EXPECT_EQ(cache->usedSize(), 70u);

  // The account never goes below zero; a store after that counts from zero again.
  cache->removeObjectForKey("a");
  EXPECT_EQ(cache->usedSize(), 0u);
  cache->removeObjectForKey("b");
  EXPECT_EQ(cache->usedSize(), 0u);
  EXPECT_EQ(cache->count(), 0u);
  cache->setObject(blob(std::string(30, 'c')), "c");
  EXPECT_EQ(cache->usedSize(), 30u);
}

// Telling the delegate about the replacement reads the key, which refreshes it: the walk then
// starts at "b".
TEST(MemorySizeLimitedCache, WithADelegateTheReplacedKeyIsRefreshedBeforeTheWalk) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(100, blobSize);
  auto log = std::make_shared<EvictionLog>();
  cache->setObject(blob(std::string(40, 'a')), "a");
  cache->setObject(blob(std::string(40, 'b')), "b");
  cache->setDelegate(log);
  cache->setObject(blob(std::string(70, 'A')), "a");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(cache->usedSize(), 70u);
  EXPECT_EQ(log->notices, (std::vector<std::string>{"a:" + std::string(40, 'a'), "b:" + std::string(40, 'b')}));

  // Alone in the cache, the key is the oldest entry even after the refresh.
  log->notices.clear();
  cache->setObject(blob(std::string(120, 'B')), "a");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(cache->usedSize(), 120u);
  EXPECT_EQ(log->notices, (std::vector<std::string>{"a:" + std::string(70, 'A'), "a:" + std::string(70, 'A')}));
}

TEST(MemorySizeLimitedCache, ReplacingWithinTheLimitAccountsForTheOldObjectOnce) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(100, blobSize);
  cache->setObject(blob(std::string(60, 'a')), "a");
  cache->setObject(blob(std::string(30, 'b')), "b");
  cache->setObject(blob(std::string(20, 'A')), "a");
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(cache->usedSize(), 50u);
}

TEST(MemorySizeLimitedCache, RemovalsAndSweepKeepUsageExact) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<std::string, Blob>::create(1000, blobSize);
  auto held = blob(std::string(10, 'h'));
  cache->setObject(held, "held");
  cache->setObject(blob(std::string(20, 'l')), "loose");
  cache->setObject(blob(std::string(30, 'r')), "removed");
  EXPECT_EQ(cache->usedSize(), 60u);
  cache->removeObjectForKey("removed");
  cache->removeObjectForKey("never there");
  EXPECT_EQ(cache->usedSize(), 30u);
  cache->removeAllObjectsRetainedOnlyByCache();
  EXPECT_EQ(cache->usedSize(), 10u);
  EXPECT_EQ(cache->allKeys(), (std::vector<std::string>{"held"}));
  cache->removeAllObjects();
  EXPECT_EQ(cache->usedSize(), 0u);
  EXPECT_THROW((ZTMemorySizeLimitedCacheDictionary<int, Blob>(10, nullptr)), ZTInternalInconsistencyException);
}

TEST(MemorySizeLimitedCache, LoweringTheLimitTakesEffectAtTheNextStore) {
  auto cache = ZTMemorySizeLimitedCacheDictionary<int, Blob>::create(100, blobSize);
  for (int i = 0; i < 5; ++i) cache->setObject(blob(std::string(20, 'x')), i);
  cache->setLimit(50);
  EXPECT_EQ(cache->count(), 5u);
  cache->setObject(blob(std::string(10, 'y')), 5);
  EXPECT_EQ(cache->keysInRecencyOrder(), (std::vector<int>{3, 4, 5}));
  EXPECT_EQ(cache->usedSize(), 50u);
}

// Several threads storing, reading and sweeping at once: the cache must stay within its limit and
// consistent (ThreadSanitizer watches the locking).
TEST(CacheDictionaryThreads, ConcurrentUseKeepsTheCacheConsistent) {
  auto cache = ZTNumberLimitedCacheDictionary<int, Blob>::create(64);
  auto sized = ZTMemorySizeLimitedCacheDictionary<int, Blob>::create(640, blobSize);
  std::atomic<int> hits{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 3000; ++i) {
        const int key = (i * 7 + t * 13) % 200;
        cache->setObject(blob("v"), key);
        sized->setObject(blob(std::string(static_cast<std::size_t>(key % 20 + 1), 'v')), key);
        if (cache->objectForKey((key + 1) % 200)) hits.fetch_add(1, std::memory_order_relaxed);
        if (i % 500 == 0) {
          cache->removeAllObjectsRetainedOnlyByCache();
          sized->removeObjectForKey(key);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_LE(cache->count(), 64u);
  EXPECT_EQ(cache->keysInRecencyOrder().size(), cache->count());
  EXPECT_LE(sized->usedSize(), 640u);
  // The account can only fall behind what is stored (a key evicted while being stored), never run ahead.
  std::uint64_t total = 0;
  sized->enumerateKeysAndObjectsUsingBlock([&](int, const BlobPtr& object, bool&) { total += object->size(); });
  EXPECT_LE(sized->usedSize(), total);
}

}  // namespace
