#pragma once
// ZTObjectsPool<T>: a bounded set of reusable objects (connections, workers, buffers) held by
// std::shared_ptr<T>. It hands free objects out (they become busy), takes them back, and lets
// callers wait for one when all are busy — with a callback or by blocking.
//
// Identity: an object is the pointer. putObject() and removeObject() act only on the very object
// the pool holds; an equal but different object is not accepted. count() = free + busy never
// exceeds maxCount() (default 4294967295).
//
// Waiting requests: getObjectWithCompletionHandler() either calls the handler at once (an object
// was free) and returns nullptr, or returns a token that cancelGetRequestWithToken() can withdraw.
// A waiting request is served inside the call that frees or adds an object (putObject(),
// addObjectToFreeObjects()...), on that caller's thread, in order of arrival. Through putObject()
// the handler runs while the pool's lock is held: it may call the pool again on the same thread,
// but must not wait for another thread that uses the pool.
//
// Threads: every function may be called from any thread. One recursive lock guards the pool; the
// tests of getObjectPassingTest() and removeObjectsPassingTest() and the enumeration blocks run
// under it. getObjectWaitUntilBecomeAvailable() blocks until an object is freed or added — never call
// it on the only thread that could return one; its forms with a timeout or a std::stop_token give up
// and return nullptr (withdrawing the request) when the time is up or a stop is requested.
//
// Handlers that throw: a completion handler served inside putObject() or an adding call that throws
// is logged through ZTLog; the other requests of the same pass are still served, and the object
// the failed handler was given goes back to the pool (to the next waiting request, if any). A
// handler called at once by getObjectWithCompletionHandler() that throws gets its object put back
// and the exception reaches the caller.
//
// Leases: lease() and leaseWaitUntilBecomeAvailable() hand an object out inside a
// ZTObjectsPoolLease, which puts it back into the pool when it is destroyed (or release()d), so an
// early return or an exception cannot leave the object busy. The lease keeps the pool alive.

#include <pthread.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "zentrel/platform/debug_name.h"
#include "zentrel/operations/internal/guarded_call.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/mutex.h"

namespace zt::detail {
// A recursive lock that costs what a plain mutex costs when it is not re-entered.
class ZT_CAPABILITY("mutex") PoolLock {
 public:
  // The analysis cannot follow mutex_ held from one call to the next, nor the owner re-entering.
  void lock() ZT_ACQUIRE() ZT_NO_THREAD_SAFETY_ANALYSIS {
    const void* self = threadMarker();
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return;
    }
    mutex_.lock();
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
  }
  void unlock() ZT_RELEASE() ZT_NO_THREAD_SAFETY_ANALYSIS {
    if (--depth_ != 0) return;
    owner_.store(nullptr, std::memory_order_relaxed);
    mutex_.unlock();
  }

 private:
  // A per-thread address, as unique as the thread id while the thread lives and cheaper to get: the
  // thread pointer. Not the address of a thread_local in this header: built with hidden inline
  // functions, each shared library would have its own, and a thread re-entering the pool through
  // another library's copy of this code would not know itself as the owner.
  static const void* threadMarker() {
#if defined(__x86_64__) || defined(__aarch64__)
    return __builtin_thread_pointer();
#else
    return reinterpret_cast<const void*>(pthread_self());
#endif
  }
  ZTMutex mutex_;
  std::atomic<const void*> owner_{nullptr};
  std::size_t depth_ ZT_GUARDED_BY(mutex_) = 0;
};
}  // namespace zt::detail

// A waiting request of an objects pool; meaningful only as a key for cancelGetRequestWithToken().
class ZTObjectsPoolRequestToken {
 public:
  explicit ZTObjectsPoolRequestToken(std::uint64_t serial) : serial_(serial) {}
  std::uint64_t serial() const { return serial_; }

 private:
  std::uint64_t serial_;
};

template <class T>
class ZTObjectsPool;

// One object taken from a ZTObjectsPool, put back when the lease is destroyed. Move-only; an empty
// lease (no object was free, or the wait gave up) holds nothing and puts nothing back.
template <class T>
class ZTObjectsPoolLease {
 public:
  ZTObjectsPoolLease() = default;
  ZTObjectsPoolLease(std::shared_ptr<ZTObjectsPool<T>> pool, std::shared_ptr<T> object)
      : pool_(object ? std::move(pool) : nullptr), object_(std::move(object)) {}
  ZTObjectsPoolLease(ZTObjectsPoolLease&& other) noexcept
      : pool_(std::move(other.pool_)), object_(std::move(other.object_)) {}
  ZTObjectsPoolLease& operator=(ZTObjectsPoolLease&& other) noexcept {
    if (this != &other) {
      release();
      pool_ = std::move(other.pool_);
      object_ = std::move(other.object_);
    }
    return *this;
  }
  ZTObjectsPoolLease(const ZTObjectsPoolLease&) = delete;
  ZTObjectsPoolLease& operator=(const ZTObjectsPoolLease&) = delete;
  ~ZTObjectsPoolLease() { release(); }

  explicit operator bool() const { return static_cast<bool>(object_); }
  T* operator->() const { return object_.get(); }
  T& operator*() const { return *object_; }
  const std::shared_ptr<T>& object() const { return object_; }

  // Puts the object back now; the lease is empty afterwards. False when it held nothing or the
  // pool refused the object (it was removed from the pool meanwhile).
  bool release() noexcept {
    if (!object_) return false;
    auto pool = std::move(pool_);
    auto object = std::move(object_);
    pool_.reset();
    object_.reset();
    return pool->putObject(object);
  }
  // Keeps the object out of the pool for good: the lease lets go of it without putting it back.
  std::shared_ptr<T> detach() {
    pool_.reset();
    return std::move(object_);
  }

 private:
  std::shared_ptr<ZTObjectsPool<T>> pool_;
  std::shared_ptr<T> object_;
};

// A bounded set of reusable objects handed out, taken back and waited for.
template <class T>
class ZTObjectsPool : public std::enable_shared_from_this<ZTObjectsPool<T>> {
 public:
  using Object = std::shared_ptr<T>;
  using Test = std::function<bool(const Object& object)>;
  using BusyTest = std::function<bool(const Object& object, bool busy)>;
  using CompletionHandler = std::function<void(const Object& object)>;
  using Token = std::shared_ptr<ZTObjectsPoolRequestToken>;
  using Lease = ZTObjectsPoolLease<T>;
  using Seconds = std::chrono::duration<double>;

  static constexpr std::uint64_t defaultMaxCount = std::numeric_limits<std::uint32_t>::max();

  [[nodiscard]] static std::shared_ptr<ZTObjectsPool> pool() { return poolWithObjects({}, defaultMaxCount); }
  [[nodiscard]] static std::shared_ptr<ZTObjectsPool> poolWithMaxCount(std::uint64_t maxCount) {
    return poolWithObjects({}, maxCount);
  }
  // The objects become free; the limit is their number.
  [[nodiscard]] static std::shared_ptr<ZTObjectsPool> poolWithObjects(const std::vector<Object>& objects) {
    return poolWithObjects(objects, objects.size());
  }
  // nullptr when there are more objects than the limit. Null and repeated objects count once.
  [[nodiscard]] static std::shared_ptr<ZTObjectsPool> poolWithObjects(const std::vector<Object>& objects,
                                                                      std::uint64_t maxCount) {
    std::shared_ptr<ZTObjectsPool> result(new ZTObjectsPool(maxCount));
    {
      ZTLockGuard lock(result->mutex_);
      for (const auto& object : objects)
        if (object && !result->slots_.find(object.get())) result->insertFree(object);
    }
    if (result->count() > maxCount) return nullptr;
    return result;
  }

  ZTObjectsPool(const ZTObjectsPool&) = delete;
  ZTObjectsPool& operator=(const ZTObjectsPool&) = delete;

  // ---- Taking objects ----

  [[nodiscard]] Object getObject() {
    ZTLockGuard lock(mutex_);
    return getObjectLocked();
  }

  // The first free object the test accepts (any free object without a test), now busy; nullptr
  // when there is none.
  [[nodiscard]] Object getObjectPassingTest(const Test& test) {
    ZTLockGuard lock(mutex_);
    if (free_.empty()) return nullptr;
    std::size_t index = free_.size() - 1;
    if (test) {
      bool found = false;
      for (std::size_t i = free_.size(); i-- > 0;) {
        if (test(free_[i]->object)) {
          index = i;
          found = true;
          break;
        }
      }
      if (!found) return nullptr;
    }
    Slot* slot = free_[index];
    unlink(slot);
    link(slot, true);
    return slot->object;
  }

  // Up to n objects, taken one at a time; fewer (or none) when fewer are free.
  [[nodiscard]] std::vector<Object> getObjectsWithCount(std::uint64_t n) {
    std::vector<Object> result;
    for (std::uint64_t i = 0; i < n; ++i) {
      Object object = getObject();
      if (!object) break;
      result.push_back(std::move(object));
    }
    return result;
  }

  // See the header comment. An empty handler requests nothing and returns nullptr.
  Token getObjectWithCompletionHandler(CompletionHandler handler) {
    if (!handler) return nullptr;
    Object object;
    Token token;
    {
      ZTLockGuard lock(mutex_);
      object = getObjectLocked();
      if (!object) {
        token = std::make_shared<ZTObjectsPoolRequestToken>(nextSerial_++);
        waiting_.emplace(token->serial(), Request{token, std::move(handler)});
      }
    }
    if (object) {
      try {
        handler(object);
      } catch (...) {
        (void)putObject(object);
        throw;
      }
    }
    return token;
  }

  // True when the request was still waiting and is now withdrawn.
  [[nodiscard]] bool cancelGetRequestWithToken(const Token& token) {
    if (!token) return false;
    ZTLockGuard lock(mutex_);
    auto it = waiting_.find(token->serial());
    if (it == waiting_.end() || it->second.token != token) return false;
    waiting_.erase(it);
    return true;
  }

  // Blocks until an object can be handed to the caller.
  [[nodiscard]] Object getObjectWaitUntilBecomeAvailable() { return waitForObject(std::nullopt, {}); }
  // As above, but gives up after timeout (NaN or negative: at once; huge: as without one) and
  // returns nullptr, the request withdrawn.
  [[nodiscard]] Object getObjectWaitUntilBecomeAvailable(Seconds timeout) { return waitForObject(timeout, {}); }
  // As above, but gives up when a stop is requested through stop (at once when it already was).
  [[nodiscard]] Object getObjectWaitUntilBecomeAvailable(std::stop_token stop) {
    return waitForObject(std::nullopt, std::move(stop));
  }

  // A free object in a lease (empty when none is free).
  [[nodiscard]] Lease lease() { return Lease(this->shared_from_this(), getObject()); }
  // Blocks for an object as getObjectWaitUntilBecomeAvailable() does, and leases it.
  [[nodiscard]] Lease leaseWaitUntilBecomeAvailable() {
    return Lease(this->shared_from_this(), getObjectWaitUntilBecomeAvailable());
  }
  [[nodiscard]] Lease leaseWaitUntilBecomeAvailable(Seconds timeout) {
    return Lease(this->shared_from_this(), getObjectWaitUntilBecomeAvailable(timeout));
  }
  [[nodiscard]] Lease leaseWaitUntilBecomeAvailable(std::stop_token stop) {
    return Lease(this->shared_from_this(), getObjectWaitUntilBecomeAvailable(std::move(stop)));
  }

  // Any free object, else any busy one, else nullptr; changes nothing.
  Object peekAnyObject() const {
    ZTLockGuard lock(mutex_);
    if (!free_.empty()) return free_.back()->object;
    const auto busy = busySlots();
    if (!busy.empty()) return busy.front()->object;
    return nullptr;
  }

  // ---- Returning and adding objects ----

  // False unless the object is busy in this pool; otherwise it becomes free (or goes to a waiting
  // request) and the result is true.
  [[nodiscard]] bool putObject(const Object& object) {
    if (!object) return false;
    ZTLockGuard lock(mutex_);
    // Objects usually come back in the order they went out: try the last one taken before the table.
    Slot* slot = lastTaken_ && lastTaken_->object == object ? lastTaken_ : slots_.find(object.get());
    if (!slot || !slot->busy) return false;
    unlink(slot);
    link(slot, false);
    // Handed to waiting requests before returning, with the lock still held.
    if (!waiting_.empty()) deliver(takeServedRequests());
    return true;
  }

  [[nodiscard]] bool addObjectToFreeObjects(const Object& object) {
    if (!object) return false;
    return addObjectsFromArrayToFreeObjects({object});
  }

  // False (adding nothing) for an empty array, a null or already held object, or when the limit
  // would be exceeded. Serves waiting requests with the new objects.
  [[nodiscard]] bool addObjectsFromArrayToFreeObjects(const std::vector<Object>& objects) {
    std::vector<std::pair<CompletionHandler, Object>> served;
    {
      ZTLockGuard lock(mutex_);
      if (!canAddObjects(objects)) return false;
      for (const auto& object : objects) insertFree(object);
      served = takeServedRequests();
    }
    deliver(std::move(served));
    return true;
  }

  [[nodiscard]] bool addObjectToBusyObjects(const Object& object) {
    if (!object) return false;
    return addObjectsFromArrayToBusyObjects({object});
  }

  // As for free objects, but the objects count as handed out; waiting requests are not served.
  [[nodiscard]] bool addObjectsFromArrayToBusyObjects(const std::vector<Object>& objects) {
    ZTLockGuard lock(mutex_);
    if (!canAddObjects(objects)) return false;
    for (const auto& object : objects) insertBusy(object);
    return true;
  }

  // ---- Capacity ----

  bool canAddObject() const { return count() < maxCount(); }
  // False for 0; otherwise whether count() + n stays within the limit.
  bool canAddObjectsFromArrayOfSize(std::uint64_t n) const {
    ZTLockGuard lock(mutex_);
    return canAddCount(n);
  }
  std::uint64_t countOfObjectsWhichCanBeAdded() const {
    ZTLockGuard lock(mutex_);
    const std::uint64_t held = free_.size() + busyCount_;
    return held >= maxCount_ ? 0 : maxCount_ - held;
  }
  std::uint64_t count() const {
    ZTLockGuard lock(mutex_);
    return free_.size() + busyCount_;
  }
  std::uint64_t maxCount() const {
    ZTLockGuard lock(mutex_);
    return maxCount_;
  }
  // Lowering the limit below count() drops free objects first, then busy ones (their holders keep
  // them, but putObject() then refuses them). Waiting requests are neither served nor cancelled.
  void setMaxCount(std::uint64_t maxCount) {
    ZTLockGuard lock(mutex_);
    if (maxCount == maxCount_) return;
    maxCount_ = maxCount;
    const std::uint64_t held = free_.size() + busyCount_;
    std::uint64_t excess = held > maxCount ? held - maxCount : 0;
    for (; excess > 0 && !free_.empty(); --excess) erase(free_.back());
    const auto busy = busySlots();
    for (std::size_t i = 0; excess > 0 && i < busy.size(); --excess, ++i) erase(busy[i]);
  }

  // ---- Removal and inspection ----

  [[nodiscard]] bool removeObject(const Object& object) {
    if (!object) return false;
    ZTLockGuard lock(mutex_);
    return removeObjectLocked(object);
  }

  // Removes the busy objects for which test(object, true) holds, then the free ones for which
  // test(object, false) holds.
  void removeObjectsPassingTest(const BusyTest& test) {
    if (!test) return;
    ZTLockGuard lock(mutex_);
    for (const auto& object : objectsOf(busySlots()))
      if (test(object, true)) removeObjectLocked(object);
    for (const auto& object : objectsOf(free_))
      if (test(object, false)) removeObjectLocked(object);
  }

  // Waiting requests stay waiting.
  void removeAllObjects() {
    ZTLockGuard lock(mutex_);
    free_.clear();
    busyCount_ = 0;
    lastTaken_ = nullptr;
    slots_.clear();
  }

  std::vector<Object> allFreeObjects() const {
    ZTLockGuard lock(mutex_);
    return objectsOf(free_);
  }
  std::vector<Object> allBusyObjects() const {
    ZTLockGuard lock(mutex_);
    return objectsOf(busySlots());
  }
  // Free objects, then busy ones.
  std::vector<Object> allObjects() const {
    ZTLockGuard lock(mutex_);
    std::vector<Object> all = objectsOf(free_);
    for (const Slot* slot : busySlots()) all.push_back(slot->object);
    return all;
  }
  std::size_t waitingRequestsCount() const {
    ZTLockGuard lock(mutex_);
    return waiting_.size();
  }

  void enumerateAllFreeObjects(const std::function<void(const Object&)>& block) const {
    if (!block) return;
    ZTLockGuard lock(mutex_);
    for (const auto& object : objectsOf(free_)) block(object);
  }
  void enumerateAllBusyObjects(const std::function<void(const Object&)>& block) const {
    if (!block) return;
    ZTLockGuard lock(mutex_);
    for (const auto& object : objectsOf(busySlots())) block(object);
  }

  // "<ZTObjectsPool<T> 0x...: max count = 2, count = 2, busy objects = (...), free objects = (...)>"
  std::string description() const {
    ZTLockGuard lock(mutex_);
    auto list = [](const std::vector<Slot*>& slots) {
      std::string text = "(";
      for (std::size_t i = 0; i < slots.size(); ++i) text += (i ? ", " : "") + addressOf(slots[i]->object.get());
      return text + ")";
    };
    return "<" + ZTDebugClassNameForObject(this) + " " + addressOf(this) +
           ": max count = " + std::to_string(maxCount_) + ", count = " + std::to_string(free_.size() + busyCount_) +
           ", busy objects = " + list(busySlots()) + ", free objects = " + list(free_) + ">";
  }

 private:
  // One per object held, allocated on its own, so the free list can point at it.
  struct Slot {
    Object object;
    bool busy = false;
    std::size_t index = 0;  // position in free_ while free
  };

  // Object address -> slot: open addressing with linear probing over a power-of-two table, which
  // answers the lookup of putObject() without the division of a general-purpose hash map.
  class SlotTable {
   public:
    Slot* find(const T* key) const {
      if (entries_.empty()) return nullptr;
      for (std::size_t i = home(key);; i = (i + 1) & mask()) {
        const Entry& entry = entries_[i];
        if (entry.key == key) return entry.slot.get();
        if (!entry.key) return nullptr;
      }
    }
    // The object must not be in the table yet.
    Slot* insert(const Object& object) {
      if ((count_ + 1) * 2 > entries_.size()) grow();
      auto slot = std::make_unique<Slot>();
      slot->object = object;
      Slot* result = slot.get();
      place(object.get(), std::move(slot));
      ++count_;
      return result;
    }
    void erase(const T* key) {
      std::size_t i = home(key);
      while (entries_[i].key != key) i = (i + 1) & mask();
      entries_[i] = Entry{};
      --count_;
      // Shift later members of the probe run back, so that lookups need no tombstones.
      for (std::size_t j = (i + 1) & mask(); entries_[j].key; j = (j + 1) & mask()) {
        const std::size_t k = home(entries_[j].key);
        const bool staysPut = i <= j ? (i < k && k <= j) : (i < k || k <= j);
        if (staysPut) continue;
        entries_[i] = std::move(entries_[j]);
        entries_[j] = Entry{};
        i = j;
      }
    }
    template <class F>
    void forEach(F&& f) const {
      for (const auto& entry : entries_)
        if (entry.key) f(entry.slot.get());
    }
    void clear() {
      entries_.clear();
      count_ = 0;
      shift_ = 64;
    }

   private:
    struct Entry {
      const T* key = nullptr;
      std::unique_ptr<Slot> slot;
    };
    std::size_t mask() const { return entries_.size() - 1; }
    std::size_t home(const T* key) const {
      return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(key) * 0x9E3779B97F4A7C15ull) >> shift_);
    }
    void place(const T* key, std::unique_ptr<Slot> slot) {
      std::size_t i = home(key);
      while (entries_[i].key) i = (i + 1) & mask();
      entries_[i] = Entry{key, std::move(slot)};
    }
    void grow() {
      std::vector<Entry> old = std::move(entries_);
      const std::size_t capacity = old.empty() ? 16 : old.size() * 2;
      entries_ = std::vector<Entry>(capacity);
      shift_ = 64 - static_cast<unsigned>(std::countr_zero(capacity));
      for (auto& entry : old)
        if (entry.key) place(entry.key, std::move(entry.slot));
    }
    std::vector<Entry> entries_;
    std::size_t count_ = 0;
    unsigned shift_ = 64;
  };
  struct Request {
    Token token;
    CompletionHandler handler;
  };

  explicit ZTObjectsPool(std::uint64_t maxCount) : maxCount_(maxCount) {}

  Object getObjectLocked() ZT_REQUIRES(mutex_) {
    if (free_.empty()) return nullptr;
    Slot* slot = free_.back();
    unlink(slot);
    link(slot, true);
    lastTaken_ = slot;
    return slot->object;
  }

  bool removeObjectLocked(const Object& object) ZT_REQUIRES(mutex_) {
    Slot* slot = slots_.find(object.get());
    if (!slot) return false;
    erase(slot);
    return true;
  }

  // Pairs waiting requests, oldest first, with free objects (which become busy) and removes them.
  std::vector<std::pair<CompletionHandler, Object>> takeServedRequests() ZT_REQUIRES(mutex_) {
    std::vector<std::pair<CompletionHandler, Object>> served;
    for (auto it = waiting_.begin(); it != waiting_.end();) {
      Object object = getObjectLocked();
      if (!object) break;
      served.emplace_back(std::move(it->second.handler), std::move(object));
      it = waiting_.erase(it);
    }
    return served;
  }

  // Calls the handlers of served requests. One that throws is logged and costs the others nothing;
  // its object, which it did not take, goes back (to the next waiting request, if any). Every round
  // serves requests that were waiting, so it ends when they run out or no handler throws.
  void deliver(std::vector<std::pair<CompletionHandler, Object>> served) {
    while (!served.empty()) {
      std::vector<Object> refused;
      for (auto& [handler, object] : served)
        if (!zt::detail::callLoggingExceptions("A completion handler of an objects pool", [&] { handler(object); }))
          refused.push_back(object);
      served.clear();
      if (refused.empty()) return;
      ZTLockGuard lock(mutex_);
      for (const auto& object : refused) {
        Slot* slot = slots_.find(object.get());
        if (slot && slot->busy) {
          unlink(slot);
          link(slot, false);
        }
      }
      served = takeServedRequests();
    }
  }

  Object waitForObject(std::optional<Seconds> timeout, std::stop_token stop) {
    struct Delivery {
      ZTMutex mutex;
      ZTConditionVariable condition;
      Object object ZT_GUARDED_BY(mutex);
      bool delivered ZT_GUARDED_BY(mutex) = false;
      bool stopped ZT_GUARDED_BY(mutex) = false;
    };
    auto delivery = std::make_shared<Delivery>();
    Token token = getObjectWithCompletionHandler([delivery](const Object& object) {
      {
        ZTLockGuard lock(delivery->mutex);
        delivery->object = object;
        delivery->delivered = true;
      }
      delivery->condition.notify_all();
    });
    if (!token) {
      ZTLockGuard lock(delivery->mutex);
      return delivery->object;
    }
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> deadline;
    if (timeout) {
      const double seconds = timeout->count();
      if (!(seconds > 0))
        deadline = Clock::now();
      else if (seconds < 1e9)
        deadline = Clock::now() + std::chrono::ceil<Clock::duration>(*timeout);
    }
    std::stop_callback onStop(stop, [delivery] {
      {
        ZTLockGuard lock(delivery->mutex);
        delivery->stopped = true;
      }
      delivery->condition.notify_all();
    });
    {
      ZTUniqueLock lock(delivery->mutex);
      while (!delivery->delivered && !delivery->stopped) {
        if (!deadline) {
          delivery->condition.wait(lock);
        } else if (delivery->condition.wait_until(lock, *deadline) == std::cv_status::timeout) {
          break;
        }
      }
      if (delivery->delivered) return delivery->object;
    }
    // Giving up: withdraw the request. When it can no longer be withdrawn it is being served right
    // now; wait for that delivery and hand its object back rather than losing it.
    if (cancelGetRequestWithToken(token)) return nullptr;
    Object object;
    {
      ZTUniqueLock lock(delivery->mutex);
      while (!delivery->delivered) delivery->condition.wait(lock);
      object = delivery->object;
    }
    return object;
  }

  static std::string addressOf(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
  }

  bool canAddCount(std::uint64_t n) const ZT_REQUIRES(mutex_) {
    const std::uint64_t held = free_.size() + busyCount_;
    return n != 0 && held + n <= maxCount_ && held + n >= n;
  }
  bool canAddObjects(const std::vector<Object>& objects) const ZT_REQUIRES(mutex_) {
    if (!canAddCount(objects.size())) return false;
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (!objects[i] || slots_.find(objects[i].get())) return false;
      for (std::size_t j = 0; j < i; ++j)
        if (objects[j] == objects[i]) return false;
    }
    return true;
  }

  void insertFree(const Object& object) ZT_REQUIRES(mutex_) { link(slots_.insert(object), false); }
  void insertBusy(const Object& object) ZT_REQUIRES(mutex_) { link(slots_.insert(object), true); }

  // Busy objects are only marked; the free ones are kept in a list, from which getObject() takes.
  void link(Slot* slot, bool busy) ZT_REQUIRES(mutex_) {
    slot->busy = busy;
    if (busy) {
      ++busyCount_;
      return;
    }
    slot->index = free_.size();
    free_.push_back(slot);
  }
  void unlink(Slot* slot) ZT_REQUIRES(mutex_) {
    if (slot->busy) {
      --busyCount_;
      return;
    }
    if (slot->index + 1 != free_.size()) {
      free_[slot->index] = free_.back();
      free_[slot->index]->index = slot->index;
    }
    free_.pop_back();
  }
  std::vector<Slot*> busySlots() const ZT_REQUIRES(mutex_) {
    std::vector<Slot*> busy;
    busy.reserve(busyCount_);
    slots_.forEach([&](Slot* slot) {
      if (slot->busy) busy.push_back(slot);
    });
    return busy;
  }
  void erase(Slot* slot) ZT_REQUIRES(mutex_) {
    if (slot == lastTaken_) lastTaken_ = nullptr;
    unlink(slot);
    slots_.erase(slot->object.get());  // destroys the slot
  }
  static std::vector<Object> objectsOf(const std::vector<Slot*>& slots) {
    std::vector<Object> objects;
    objects.reserve(slots.size());
    for (const Slot* slot : slots) objects.push_back(slot->object);
    return objects;
  }

  mutable zt::detail::PoolLock mutex_;
  std::uint64_t maxCount_ ZT_GUARDED_BY(mutex_);
  std::vector<Slot*> free_ ZT_GUARDED_BY(mutex_);
  std::size_t busyCount_ ZT_GUARDED_BY(mutex_) = 0;
  Slot* lastTaken_ ZT_GUARDED_BY(mutex_) = nullptr;  // a hint for putObject(), null when removed
  SlotTable slots_ ZT_GUARDED_BY(mutex_);
  std::map<std::uint64_t, Request> waiting_ ZT_GUARDED_BY(mutex_);  // arrival order
  std::uint64_t nextSerial_ ZT_GUARDED_BY(mutex_) = 0;
};
