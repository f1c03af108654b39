#pragma once
// ZTMemorySizeLimitedCacheDictionary: a ZTCacheDictionary that keeps the total size of its objects
// near `limit` by evicting least recently used entries before a store.
//
// The size of an object is whatever the size function returns, in any unit; the cache only adds and
// compares sizes. Each object's size is asked once, when it is stored, and that figure is the one
// taken off the usage when the entry goes.
//
// The rule, exactly: before a store, new usage = usage − size(object the key held, if any) +
// size(new object). If new usage is strictly greater than the limit, entries are marked for
// eviction from the least recently used on, the key being stored included, each taking its size off
// the new usage, until the new usage is at or below the limit or every entry is marked. The delegate
// is told about each marked entry, oldest first; then they go, and the new object is stored
// regardless, as the most recent entry. An object larger than the limit by itself is still stored,
// after everything else has been evicted. Lowering the limit evicts nothing until the next store.
//
// What usedSize() is: the cache's running account, not a recount. A store adds the new size and
// takes off the replaced object's; every eviction, removal and sweep takes off the leaving entry's
// size; removeAllObjects() sets it to zero. It never goes below zero. When the walk marks the key
// being stored, its old object's size is taken off twice, as replaced and as evicted. That happens
// when the key's old object is the least recently used entry and there is no delegate (telling the
// delegate about the replacement reads the key, which makes it the most recent), or when the walk
// runs through every entry. usedSize() then reads lower than the sum of the stored sizes by that
// much, and the cache holds that much more than the limit before it evicts, until removeAllObjects()
// resets the account. With limit 100, "a" = 40 and "b" = 40 stored in that order and no delegate,
// storing 70 under "a" evicts the old "a", keeps "b", and leaves usedSize() at 70 with 110 stored.
//
// Threads and ownership: as ZTCacheDictionary; the size function is called with the mutex held.
// Bad input: an empty size function throws ZTInternalInconsistencyException at creation.

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "zentrel/collections/cache_dictionary.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

template <class Key, class Value>
class ZTMemorySizeLimitedCacheDictionary : public ZTCacheDictionary<Key, Value> {
  using Base = ZTCacheDictionary<Key, Value>;

 public:
  using typename Base::ObjectPtr;
  using ObjectSizeBlock = std::function<std::uint64_t(const Value& object)>;

  [[nodiscard]] static std::shared_ptr<ZTMemorySizeLimitedCacheDictionary> create(std::uint64_t limit,
                                                                                 ObjectSizeBlock objectSizeBlock) {
    return std::make_shared<ZTMemorySizeLimitedCacheDictionary>(limit, std::move(objectSizeBlock));
  }
  ZTMemorySizeLimitedCacheDictionary(std::uint64_t limit, ObjectSizeBlock objectSizeBlock)
      : objectSizeBlock_(std::move(objectSizeBlock)), limit_(limit) {
    if (!objectSizeBlock_)
      throw ZTInternalInconsistencyException("A memory-size-limited cache dictionary needs an object size function.");
  }

  std::uint64_t limit() const {
    ZTLockGuard lock(this->mutex());
    return limit_;
  }
  void setLimit(std::uint64_t limit) {
    ZTLockGuard lock(this->mutex());
    limit_ = limit;
  }
  std::uint64_t usedSize() const {
    ZTLockGuard lock(this->mutex());
    return currentMemoryUsage_;
  }

  void removeObjectForKey(const Key& key) override {
    ZTLockGuard lock(this->mutex());
    discard(key);
  }
  void removeAllObjects() override {
    ZTLockGuard lock(this->mutex());
    currentMemoryUsage_ = 0;
    this->clearEntries();
  }
  void removeAllObjectsRetainedOnlyByCache() override {
    ZTLockGuard lock(this->mutex());
    this->sweepObjectsRetainedOnlyByCache(
        [this](const Key&, const ObjectPtr&, std::uint64_t size)
            ZT_REQUIRES(this->mutex()) { currentMemoryUsage_ = lessOrZero(currentMemoryUsage_, size); });
  }

 protected:
  void willSetObject(const ObjectPtr& object, const Key& key) override ZT_REQUIRES(this->mutex()) {
    Base::willSetObject(object, key);
    const std::uint64_t newSize = objectSizeBlock_(*object);
    const std::uint64_t replacedSize = this->storedCost(key);
    std::uint64_t newUsage = lessOrZero(currentMemoryUsage_, replacedSize) + newSize;

    const std::uint64_t limit = limit_;
    if (newUsage > limit) {
      std::vector<Key> evicted;
      this->visitInRecencyOrder([&](const Key& candidate, const ObjectPtr&, std::uint64_t size) {
        evicted.push_back(candidate);
        newUsage = lessOrZero(newUsage, size);
        return newUsage > limit;
      });
      for (const Key& candidate : evicted) this->notifyDelegateWillEvict(this->storedObject(candidate), candidate);
      for (const Key& candidate : evicted) discard(candidate);
    }
    // Applied to the account itself rather than set from newUsage, so that entries the delegate
    // removed while it was told are accounted for as well.
    currentMemoryUsage_ = lessOrZero(currentMemoryUsage_, replacedSize) + newSize;
    this->setCostOfPendingStore(newSize);
  }

 private:
  static std::uint64_t lessOrZero(std::uint64_t value, std::uint64_t taken) { return value > taken ? value - taken : 0; }
  void discard(const Key& key) ZT_REQUIRES(this->mutex()) {
    const std::uint64_t size = this->storedCost(key);
    if (this->eraseKey(key)) currentMemoryUsage_ = lessOrZero(currentMemoryUsage_, size);
  }

  ObjectSizeBlock objectSizeBlock_;
  std::uint64_t limit_ ZT_GUARDED_BY(this->mutex());
  std::uint64_t currentMemoryUsage_ ZT_GUARDED_BY(this->mutex()) = 0;  // the running account (see above)
};
