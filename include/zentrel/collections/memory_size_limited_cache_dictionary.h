#pragma once
// ZTMemorySizeLimitedCacheDictionary: a ZTCacheDictionary that keeps the total size of its objects
// at or below `limit` by evicting least recently used entries before a store.
//
// The size of an object is whatever the size function returns, in any unit; the cache only adds and
// compares sizes. Each object's size is asked once, when it is stored, and that figure is what
// leaves usedSize() when the entry goes, so usedSize() is always the sum over the stored entries.
//
// The rule, exactly: before a store, new usage = usage + size(new object) − size(object the key held,
// if any). If new usage is strictly greater than the limit, entries are evicted from the least
// recently used on — the key being stored excepted, since its old object is being replaced anyway —
// until the usage is at or below the limit or nothing else is left. The delegate is told about each
// evicted entry, oldest first, before it goes. An object larger than the limit by itself is still
// stored, after everything else has been evicted. Lowering the limit evicts nothing until the next
// store.
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
            ZT_REQUIRES(this->mutex()) { currentMemoryUsage_ -= size; });
  }

 protected:
  void willSetObject(const ObjectPtr& object, const Key& key) override ZT_REQUIRES(this->mutex()) {
    Base::willSetObject(object, key);
    const std::uint64_t newSize = objectSizeBlock_(*object);
    std::uint64_t newUsage = currentMemoryUsage_ + newSize - this->storedCost(key);

    const std::uint64_t limit = limit_;
    if (newUsage > limit) {
      std::vector<Key> evicted;
      this->visitInRecencyOrder([&](const Key& candidate, const ObjectPtr&, std::uint64_t size) {
        if (candidate == key) return true;
        evicted.push_back(candidate);
        newUsage -= size;
        return newUsage > limit;
      });
      for (const Key& candidate : evicted) this->notifyDelegateWillEvict(this->storedObject(candidate), candidate);
      for (const Key& candidate : evicted) discard(candidate);
    }
    // Accounted from what is actually stored, so a delegate that removes entries keeps it right.
    currentMemoryUsage_ = currentMemoryUsage_ - this->storedCost(key) + newSize;
    this->setCostOfPendingStore(newSize);
  }

 private:
  void discard(const Key& key) ZT_REQUIRES(this->mutex()) {
    const std::uint64_t size = this->storedCost(key);
    if (this->eraseKey(key)) currentMemoryUsage_ -= size;
  }

  ObjectSizeBlock objectSizeBlock_;
  std::uint64_t limit_ ZT_GUARDED_BY(this->mutex());
  std::uint64_t currentMemoryUsage_ ZT_GUARDED_BY(this->mutex()) = 0;  // sum of the stored entries' sizes
};
