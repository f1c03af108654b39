#pragma once
// ZTCacheDictionary: a thread-safe keyed cache with least-recently-used order, an eviction delegate
// and a sweep that drops the entries nobody but the cache still holds. It is the base of the two
// bounded caches, ZTNumberLimitedCacheDictionary and ZTMemorySizeLimitedCacheDictionary.
//
// Values are held as std::shared_ptr<Value>. "Held only by the cache" is an ownership fact: an
// entry whose shared_ptr has no other owner (use_count() == 1) is what
// removeAllObjectsRetainedOnlyByCache() removes.
//
// Recency: every store makes its key the most recent; objectForKey(key) does too, while
// objectForKey(key, false) reads without changing the order. Every operation costs constant time
// on average, whatever the number of entries.
//
// Threads: every public method may be called from any thread. Each cache has one recursive mutex;
// every public method and both hooks (willSetObject, didSetObject) run under it, so an override
// may call the cache's own methods, and so may the delegate. The delegate is called with the
// mutex held: it must not wait for another thread that uses the same cache.
// For clang's thread-safety analysis the hooks and the protected helpers require mutex(): an override
// of a hook is declared ZT_REQUIRES(this->mutex()). The analysis does not model taking a recursive
// lock again, so an override that calls the public methods needs ZT_NO_THREAD_SAFETY_ANALYSIS.
//
// Ownership: the cache holds its values strongly and its delegate weakly.
//
// Bad input: storing a null object throws ZTInternalInconsistencyException and changes nothing.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

template <class Key, class Value>
class ZTCacheDictionary;

// Told before an object leaves a cache because it is replaced or evicted (never for explicit
// removals or the sweep). `object` is null when a key is stored for the first time.
template <class Key, class Value>
class ZTCacheDictionaryDelegate {
 public:
  virtual ~ZTCacheDictionaryDelegate() = default;
  virtual void cacheDictionary(ZTCacheDictionary<Key, Value>& cache, const std::shared_ptr<Value>& willEvictObject,
                               const Key& forKey) = 0;
};

template <class Key, class Value>
class ZTCacheDictionary {
 public:
  using ObjectPtr = std::shared_ptr<Value>;
  using Delegate = ZTCacheDictionaryDelegate<Key, Value>;

  [[nodiscard]] static std::shared_ptr<ZTCacheDictionary> create() { return std::make_shared<ZTCacheDictionary>(); }

  ZTCacheDictionary() = default;
  ZTCacheDictionary(const ZTCacheDictionary&) = delete;
  ZTCacheDictionary& operator=(const ZTCacheDictionary&) = delete;
  virtual ~ZTCacheDictionary() = default;

  std::shared_ptr<Delegate> delegate() const {
    ZTLockGuard lock(mutex_);
    return delegate_.lock();
  }
  void setDelegate(std::weak_ptr<Delegate> delegate) {
    ZTLockGuard lock(mutex_);
    delegate_ = std::move(delegate);
  }

  // Stores the object under the key and makes the key the most recent. The hooks run before and
  // after the store; the bounded subclasses evict from their hooks.
  void setObject(ObjectPtr object, const Key& key) {
    if (!object) throw ZTInternalInconsistencyException("A cache dictionary cannot store a null object.");
    ZTLockGuard lock(mutex_);
    pendingCost_ = 0;
    willSetObject(object, key);
    const std::uint64_t cost = std::exchange(pendingCost_, 0);
    auto [found, inserted] = entries_.try_emplace(key);
    Entry& entry = found->second;
    if (inserted) entry.key = &found->first;
    else unlink(entry);
    // The replaced object dies when the store is complete, so its destructor may use the cache.
    ObjectPtr replaced = std::exchange(entry.object, object);
    entry.cost = cost;
    linkAsNewest(entry);
    didSetObject(object, key);
  }

  // The object stored under the key, or null. With refreshQueue the key becomes the most recent.
  ObjectPtr objectForKey(const Key& key, bool refreshQueue = true) {
    ZTLockGuard lock(mutex_);
    return lookUp(key, refreshQueue);
  }
  ObjectPtr operator[](const Key& key) { return objectForKey(key); }

  // Removals. The delegate is not told.
  virtual void removeObjectForKey(const Key& key) {
    ZTLockGuard lock(mutex_);
    eraseKey(key);
  }
  virtual void removeAllObjects() {
    ZTLockGuard lock(mutex_);
    clearEntries();
  }
  // Removes every entry whose object has no owner besides the cache. Entries that survive keep
  // their place in the recency order. The delegate is not told.
  virtual void removeAllObjectsRetainedOnlyByCache() {
    ZTLockGuard lock(mutex_);
    sweepObjectsRetainedOnlyByCache([](const Key&, const ObjectPtr&, std::uint64_t) {});
  }

  // The keys in no particular order.
  std::vector<Key> allKeys() const {
    ZTLockGuard lock(mutex_);
    std::vector<Key> keys;
    keys.reserve(entries_.size());
    for (const auto& entry : entries_) keys.push_back(entry.first);
    return keys;
  }
  // The keys from the least to the most recently used.
  std::vector<Key> keysInRecencyOrder() const {
    ZTLockGuard lock(mutex_);
    std::vector<Key> keys;
    keys.reserve(entries_.size());
    for (const Entry* entry = oldest_; entry; entry = entry->newer) keys.push_back(*entry->key);
    return keys;
  }
  std::size_t count() const {
    ZTLockGuard lock(mutex_);
    return entries_.size();
  }

  // Calls block(key, object, stop) for each entry, in no particular order, under the cache's
  // mutex; setting stop to true ends the walk. The block must not add or remove entries.
  template <class Block>
  void enumerateKeysAndObjectsUsingBlock(Block&& block) const {
    ZTLockGuard lock(mutex_);
    bool stop = false;
    for (const auto& entry : entries_) {
      block(entry.first, entry.second.object, stop);
      if (stop) break;
    }
  }

 protected:
  // Called under the mutex before every store. The base tells the delegate, if there is one, which
  // object the key held when it is not the very object being stored (null for a new key).
  virtual void willSetObject(const ObjectPtr& object, const Key& key) ZT_REQUIRES(mutex_) {
    auto delegate = delegate_.lock();
    if (!delegate) return;
    ObjectPtr current = lookUp(key, true);
    if (current != object) delegate->cacheDictionary(*this, current, key);
  }
  // Called under the mutex after every store. Does nothing in the base.
  virtual void didSetObject(const ObjectPtr& /*object*/, const Key& /*key*/) ZT_REQUIRES(mutex_) {}

  // Helpers for subclasses; call them with the mutex held (from the hooks, or under mutex()).
  ZTRecursiveMutex& mutex() const ZT_RETURN_CAPABILITY(mutex_) { return mutex_; }
  std::size_t storedCount() const ZT_REQUIRES(mutex_) { return entries_.size(); }
  bool containsKey(const Key& key) const ZT_REQUIRES(mutex_) { return entries_.find(key) != entries_.end(); }
  ObjectPtr storedObject(const Key& key) const ZT_REQUIRES(mutex_) {
    auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : found->second.object;
  }
  // The least recently used key, or null when empty.
  const Key* oldestKey() const ZT_REQUIRES(mutex_) { return oldest_ ? oldest_->key : nullptr; }
  // Calls visit(key, object, cost) from the least recently used entry on while it returns true.
  template <class Visit>
  void visitInRecencyOrder(Visit&& visit) const ZT_REQUIRES(mutex_) {
    for (const Entry* entry = oldest_; entry; entry = entry->newer)
      if (!visit(*entry->key, entry->object, entry->cost)) break;
  }
  // A figure a subclass keeps with each entry (the memory-limited cache keeps the object's size):
  // set from willSetObject for the store in progress, read back with storedCost.
  void setCostOfPendingStore(std::uint64_t cost) ZT_REQUIRES(mutex_) { pendingCost_ = cost; }
  std::uint64_t storedCost(const Key& key) const ZT_REQUIRES(mutex_) {
    auto found = entries_.find(key);
    return found == entries_.end() ? 0 : found->second.cost;
  }
  void notifyDelegateWillEvict(const ObjectPtr& object, const Key& key) ZT_REQUIRES(mutex_) {
    if (auto delegate = delegate_.lock()) delegate->cacheDictionary(*this, object, key);
  }
  // Removes the key from the entries and the recency order, if present; returns the object it held.
  ObjectPtr eraseKey(const Key& key) ZT_REQUIRES(mutex_) {
    auto found = entries_.find(key);
    if (found == entries_.end()) return nullptr;
    ObjectPtr object = std::move(found->second.object);
    unlink(found->second);
    entries_.erase(found);
    return object;
  }
  // The sweep itself: removes every entry held only by the cache, calling removed(key, object, cost)
  // for each just before its last reference goes.
  template <class Removed>
  void sweepObjectsRetainedOnlyByCache(Removed&& removed) ZT_REQUIRES(mutex_) {
    // The swept objects die after the walk: a destructor that uses this cache cannot pull an entry
    // out from under it.
    std::vector<ObjectPtr> released;
    for (Entry* entry = oldest_; entry;) {
      Entry* next = entry->newer;
      if (entry->object.use_count() == 1) {
        removed(*entry->key, entry->object, entry->cost);
        released.push_back(std::move(entry->object));
        unlink(*entry);
        entries_.erase(entries_.find(*entry->key));
      }
      entry = next;
    }
  }
  // Removes every entry. The objects die before it returns, with the cache already empty.
  void clearEntries() ZT_REQUIRES(mutex_) {
    auto removed = std::exchange(entries_, {});
    oldest_ = newest_ = nullptr;
  }

 private:
  // The recency order is a doubly linked list threaded through the entries themselves (the map's
  // nodes never move), so a refreshing read touches one entry and its two neighbours.
  struct Entry {
    ObjectPtr object;
    const Key* key = nullptr;  // the map's own key of this entry
    std::uint64_t cost = 0;
    Entry* older = nullptr;
    Entry* newer = nullptr;
  };

  // The stored object of the key, or null; with refreshQueue the key becomes the most recent.
  ObjectPtr lookUp(const Key& key, bool refreshQueue) ZT_REQUIRES(mutex_) {
    auto found = entries_.find(key);
    if (found == entries_.end()) return nullptr;
    if (refreshQueue && newest_ != &found->second) {
      unlink(found->second);
      linkAsNewest(found->second);
    }
    return found->second.object;
  }
  void unlink(Entry& entry) ZT_REQUIRES(mutex_) {
    (entry.older ? entry.older->newer : oldest_) = entry.newer;
    (entry.newer ? entry.newer->older : newest_) = entry.older;
    entry.older = entry.newer = nullptr;
  }
  void linkAsNewest(Entry& entry) ZT_REQUIRES(mutex_) {
    entry.older = newest_;
    entry.newer = nullptr;
    (newest_ ? newest_->newer : oldest_) = &entry;
    newest_ = &entry;
  }

  mutable ZTRecursiveMutex mutex_;
  std::unordered_map<Key, Entry> entries_ ZT_GUARDED_BY(mutex_);
  Entry* oldest_ ZT_GUARDED_BY(mutex_) = nullptr;  // least recently used
  Entry* newest_ ZT_GUARDED_BY(mutex_) = nullptr;  // most recently used
  std::uint64_t pendingCost_ ZT_GUARDED_BY(mutex_) = 0;
  std::weak_ptr<Delegate> delegate_ ZT_GUARDED_BY(mutex_);
};
