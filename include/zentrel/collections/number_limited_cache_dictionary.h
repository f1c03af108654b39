#pragma once
// ZTNumberLimitedCacheDictionary: a ZTCacheDictionary that holds at most `limit` entries by
// evicting the least recently used one when a new key arrives at a full cache.
//
// The rule, exactly: when a key that is not yet stored is set while the number of entries equals
// the limit, the least recently used entry is evicted (the delegate is told first). At most one
// entry goes per store, and the test is equality: after setLimit() lowers the limit below the
// current count, stores evict nothing until removals bring the count down to the limit. Replacing
// the object of a stored key never evicts.
//
// Threads and ownership: as ZTCacheDictionary.
// Bad input: a store of a new key into a cache whose limit is 0 throws ZTRangeException.

#include <cstddef>
#include <memory>

#include "zentrel/collections/cache_dictionary.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

template <class Key, class Value>
class ZTNumberLimitedCacheDictionary : public ZTCacheDictionary<Key, Value> {
  using Base = ZTCacheDictionary<Key, Value>;

 public:
  using typename Base::ObjectPtr;

  [[nodiscard]] static std::shared_ptr<ZTNumberLimitedCacheDictionary> create(std::size_t limit) {
    return std::make_shared<ZTNumberLimitedCacheDictionary>(limit);
  }
  explicit ZTNumberLimitedCacheDictionary(std::size_t limit) : limit_(limit) {}

  std::size_t limit() const {
    ZTLockGuard lock(this->mutex());
    return limit_;
  }
  void setLimit(std::size_t limit) {
    ZTLockGuard lock(this->mutex());
    limit_ = limit;
  }

 protected:
  void willSetObject(const ObjectPtr& object, const Key& key) override ZT_REQUIRES(this->mutex()) {
    Base::willSetObject(object, key);
    if (this->storedCount() != limit_ || this->containsKey(key)) return;
    const Key* oldest = this->oldestKey();
    if (!oldest) throw ZTRangeException("A number-limited cache dictionary with limit 0 cannot store anything.");
    const Key evicted = *oldest;
    this->notifyDelegateWillEvict(this->storedObject(evicted), evicted);
    this->eraseKey(evicted);
  }

 private:
  std::size_t limit_ ZT_GUARDED_BY(this->mutex());
};
