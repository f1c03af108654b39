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
// it on the only thread that could return one.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/dispatch.h"

// A waiting request of an objects pool; meaningful only as a key for cancelGetRequestWithToken().
class ZTObjectsPoolRequestToken {
 public:
  explicit ZTObjectsPoolRequestToken(std::uint64_t serial) : serial_(serial) {}
  std::uint64_t serial() const { return serial_; }

 private:
  std::uint64_t serial_;
};

template <class T>
class ZTObjectsPool : public std::enable_shared_from_this<ZTObjectsPool<T>> {
 public:
  using Object = std::shared_ptr<T>;
  using Test = std::function<bool(const Object& object)>;
  using BusyTest = std::function<bool(const Object& object, bool busy)>;
  using CompletionHandler = std::function<void(const Object& object)>;
  using Token = std::shared_ptr<ZTObjectsPoolRequestToken>;

  static constexpr std::uint64_t defaultMaxCount = std::numeric_limits<std::uint32_t>::max();

  static std::shared_ptr<ZTObjectsPool> pool() { return poolWithObjects({}, defaultMaxCount); }
  static std::shared_ptr<ZTObjectsPool> poolWithMaxCount(std::uint64_t maxCount) {
    return poolWithObjects({}, maxCount);
  }
  // The objects become free; the limit is their number.
  static std::shared_ptr<ZTObjectsPool> poolWithObjects(const std::vector<Object>& objects) {
    return poolWithObjects(objects, objects.size());
  }
  // nullptr when there are more objects than the limit. Null and repeated objects count once.
  static std::shared_ptr<ZTObjectsPool> poolWithObjects(const std::vector<Object>& objects, std::uint64_t maxCount) {
    std::shared_ptr<ZTObjectsPool> result(new ZTObjectsPool(maxCount));
    for (const auto& object : objects)
      if (object && !result->slots_.count(object.get())) result->insertFree(object);
    if (result->count() > maxCount) return nullptr;
    return result;
  }

  ZTObjectsPool(const ZTObjectsPool&) = delete;
  ZTObjectsPool& operator=(const ZTObjectsPool&) = delete;

  // ---- Taking objects ----

  Object getObject() { return getObjectPassingTest(nullptr); }

  // The first free object the test accepts (any free object without a test), now busy; nullptr
  // when there is none.
  Object getObjectPassingTest(const Test& test) {
    std::lock_guard lock(mutex_);
    if (free_.empty()) return nullptr;
    std::size_t index = free_.size() - 1;
    if (test) {
      bool found = false;
      for (std::size_t i = free_.size(); i-- > 0;) {
        if (test(free_[i])) {
          index = i;
          found = true;
          break;
        }
      }
      if (!found) return nullptr;
    }
    Object object = takeFree(index);
    insertBusy(object);
    return object;
  }

  // Up to n objects, taken one at a time; fewer (or none) when fewer are free.
  std::vector<Object> getObjectsWithCount(std::uint64_t n) {
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
      std::lock_guard lock(mutex_);
      object = getObject();
      if (!object) {
        token = std::make_shared<ZTObjectsPoolRequestToken>(nextSerial_++);
        waiting_.emplace(token->serial(), Request{token, std::move(handler)});
      }
    }
    if (object) handler(object);
    return token;
  }

  // True when the request was still waiting and is now withdrawn.
  bool cancelGetRequestWithToken(const Token& token) {
    if (!token) return false;
    std::lock_guard lock(mutex_);
    auto it = waiting_.find(token->serial());
    if (it == waiting_.end() || it->second.token != token) return false;
    waiting_.erase(it);
    return true;
  }

  // Blocks until an object can be handed to the caller.
  Object getObjectWaitUntilBecomeAvailable() {
    struct Delivery {
      ZTSemaphore semaphore;
      Object object;
    };
    auto delivery = std::make_shared<Delivery>();
    Token token = getObjectWithCompletionHandler([delivery](const Object& object) {
      delivery->object = object;
      delivery->semaphore.signal();
    });
    if (token) delivery->semaphore.wait();
    return delivery->object;
  }

  // Any free object, else any busy one, else nullptr; changes nothing.
  Object peekAnyObject() const {
    std::lock_guard lock(mutex_);
    if (!free_.empty()) return free_.back();
    if (!busy_.empty()) return busy_.back();
    return nullptr;
  }

  // ---- Returning and adding objects ----

  // False unless the object is busy in this pool; otherwise it becomes free (or goes to a waiting
  // request) and the result is true.
  bool putObject(const Object& object) {
    if (!object) return false;
    std::lock_guard lock(mutex_);
    auto it = slots_.find(object.get());
    if (it == slots_.end() || !it->second.busy) return false;
    removeAt(it->second);
    it->second = Slot{false, free_.size()};
    free_.push_back(object);
    // Handed to waiting requests before returning, with the lock still held.
    for (const auto& [handler, given] : takeServedRequests()) handler(given);
    return true;
  }

  bool addObjectToFreeObjects(const Object& object) {
    if (!object) return false;
    return addObjectsFromArrayToFreeObjects({object});
  }

  // False (adding nothing) for an empty array, a null or already held object, or when the limit
  // would be exceeded. Serves waiting requests with the new objects.
  bool addObjectsFromArrayToFreeObjects(const std::vector<Object>& objects) {
    std::vector<std::pair<CompletionHandler, Object>> served;
    {
      std::lock_guard lock(mutex_);
      if (!canAddObjects(objects)) return false;
      for (const auto& object : objects) insertFree(object);
      served = takeServedRequests();
    }
    for (const auto& [handler, object] : served) handler(object);
    return true;
  }

  bool addObjectToBusyObjects(const Object& object) {
    if (!object) return false;
    return addObjectsFromArrayToBusyObjects({object});
  }

  // As for free objects, but the objects count as handed out; waiting requests are not served.
  bool addObjectsFromArrayToBusyObjects(const std::vector<Object>& objects) {
    std::lock_guard lock(mutex_);
    if (!canAddObjects(objects)) return false;
    for (const auto& object : objects) insertBusy(object);
    return true;
  }

  // ---- Capacity ----

  bool canAddObject() const { return count() < maxCount(); }
  // False for 0; otherwise whether count() + n stays within the limit.
  bool canAddObjectsFromArrayOfSize(std::uint64_t n) const {
    std::lock_guard lock(mutex_);
    return canAddCount(n);
  }
  std::uint64_t countOfObjectsWhichCanBeAdded() const {
    std::lock_guard lock(mutex_);
    const std::uint64_t held = free_.size() + busy_.size();
    return held >= maxCount_ ? 0 : maxCount_ - held;
  }
  std::uint64_t count() const {
    std::lock_guard lock(mutex_);
    return free_.size() + busy_.size();
  }
  std::uint64_t maxCount() const {
    std::lock_guard lock(mutex_);
    return maxCount_;
  }
  // Lowering the limit below count() drops free objects first, then busy ones (their holders keep
  // them, but putObject() then refuses them). Waiting requests are neither served nor cancelled.
  void setMaxCount(std::uint64_t maxCount) {
    std::lock_guard lock(mutex_);
    if (maxCount == maxCount_) return;
    maxCount_ = maxCount;
    std::uint64_t excess = free_.size() + busy_.size() > maxCount ? free_.size() + busy_.size() - maxCount : 0;
    while (excess > 0 && !free_.empty()) {
      slots_.erase(takeFree(free_.size() - 1).get());
      --excess;
    }
    while (excess > 0 && !busy_.empty()) {
      Object object = busy_.back();
      removeAt(slots_.at(object.get()));
      slots_.erase(object.get());
      --excess;
    }
  }

  // ---- Removal and inspection ----

  bool removeObject(const Object& object) {
    if (!object) return false;
    std::lock_guard lock(mutex_);
    auto it = slots_.find(object.get());
    if (it == slots_.end()) return false;
    removeAt(it->second);
    slots_.erase(it);
    return true;
  }

  // Removes the busy objects for which test(object, true) holds, then the free ones for which
  // test(object, false) holds.
  void removeObjectsPassingTest(const BusyTest& test) {
    if (!test) return;
    std::lock_guard lock(mutex_);
    for (const auto& object : std::vector<Object>(busy_))
      if (test(object, true)) removeObject(object);
    for (const auto& object : std::vector<Object>(free_))
      if (test(object, false)) removeObject(object);
  }

  // Waiting requests stay waiting.
  void removeAllObjects() {
    std::lock_guard lock(mutex_);
    free_.clear();
    busy_.clear();
    slots_.clear();
  }

  std::vector<Object> allFreeObjects() const {
    std::lock_guard lock(mutex_);
    return free_;
  }
  std::vector<Object> allBusyObjects() const {
    std::lock_guard lock(mutex_);
    return busy_;
  }
  // Free objects, then busy ones.
  std::vector<Object> allObjects() const {
    std::lock_guard lock(mutex_);
    std::vector<Object> all = free_;
    all.insert(all.end(), busy_.begin(), busy_.end());
    return all;
  }
  std::size_t waitingRequestsCount() const {
    std::lock_guard lock(mutex_);
    return waiting_.size();
  }

  void enumerateAllFreeObjects(const std::function<void(const Object&)>& block) const {
    if (!block) return;
    std::lock_guard lock(mutex_);
    for (const auto& object : std::vector<Object>(free_)) block(object);
  }
  void enumerateAllBusyObjects(const std::function<void(const Object&)>& block) const {
    if (!block) return;
    std::lock_guard lock(mutex_);
    for (const auto& object : std::vector<Object>(busy_)) block(object);
  }

  // "<ZTObjectsPool<T> 0x...: max count = 2, count = 2, busy objects = (...), free objects = (...)>"
  std::string description() const {
    std::lock_guard lock(mutex_);
    auto list = [](const std::vector<Object>& objects) {
      std::string text = "(";
      for (std::size_t i = 0; i < objects.size(); ++i) text += (i ? ", " : "") + addressOf(objects[i].get());
      return text + ")";
    };
    return "<" + ZTDebugClassNameForObject(this) + " " + addressOf(this) + ": max count = " +
           std::to_string(maxCount_) + ", count = " + std::to_string(free_.size() + busy_.size()) +
           ", busy objects = " + list(busy_) + ", free objects = " + list(free_) + ">";
  }

 private:
  struct Slot {
    bool busy = false;
    std::size_t index = 0;  // position in free_ or busy_
  };
  struct Request {
    Token token;
    CompletionHandler handler;
  };

  explicit ZTObjectsPool(std::uint64_t maxCount) : maxCount_(maxCount) {}

  // Pairs waiting requests, oldest first, with free objects (which become busy) and removes them.
  std::vector<std::pair<CompletionHandler, Object>> takeServedRequests() {
    std::vector<std::pair<CompletionHandler, Object>> served;
    if (waiting_.empty()) return served;
    const auto given = getObjectsWithCount(waiting_.size());
    auto it = waiting_.begin();
    for (const auto& object : given) {
      served.emplace_back(std::move(it->second.handler), object);
      it = waiting_.erase(it);
    }
    return served;
  }

  static std::string addressOf(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
  }

  bool canAddCount(std::uint64_t n) const {
    return n != 0 && free_.size() + busy_.size() + n <= maxCount_ && free_.size() + busy_.size() + n >= n;
  }
  bool canAddObjects(const std::vector<Object>& objects) const {
    if (!canAddCount(objects.size())) return false;
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (!objects[i] || slots_.count(objects[i].get())) return false;
      for (std::size_t j = 0; j < i; ++j)
        if (objects[j] == objects[i]) return false;
    }
    return true;
  }

  void insertFree(const Object& object) {
    slots_[object.get()] = Slot{false, free_.size()};
    free_.push_back(object);
  }
  void insertBusy(const Object& object) {
    slots_[object.get()] = Slot{true, busy_.size()};
    busy_.push_back(object);
  }
  // Removes the free object at index and returns it; its slot stays for the caller to reuse or erase.
  Object takeFree(std::size_t index) {
    Object object = std::move(free_[index]);
    if (index + 1 != free_.size()) {
      free_[index] = std::move(free_.back());
      slots_[free_[index].get()].index = index;
    }
    free_.pop_back();
    return object;
  }
  void removeAt(const Slot& slot) {
    auto& list = slot.busy ? busy_ : free_;
    if (slot.index + 1 != list.size()) {
      list[slot.index] = std::move(list.back());
      slots_[list[slot.index].get()].index = slot.index;
    }
    list.pop_back();
  }

  mutable std::recursive_mutex mutex_;
  std::uint64_t maxCount_;                              // guarded by mutex_
  std::vector<Object> free_;                            // guarded by mutex_
  std::vector<Object> busy_;                            // guarded by mutex_
  std::unordered_map<const T*, Slot> slots_;            // guarded by mutex_
  std::map<std::uint64_t, Request> waiting_;            // guarded by mutex_; arrival order
  std::uint64_t nextSerial_ = 0;                        // guarded by mutex_
};
