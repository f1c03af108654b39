#pragma once
// ZTOperation: one unit of work with a life of its own — the base every operation of the library
// derives from, and what ZTOperationQueue runs.
//
// State: an operation is created, becomes ready, executes and finishes; finished is final. It can
// be cancelled at any time; cancellation is a request that the operation's own code honours (the
// default start() does not run main() of a cancelled operation, but still finishes it).
//
// Readiness: ready when every dependency has finished — or when the operation is cancelled, so
// that a queue can start it and let it finish at once instead of keeping it forever. Adding a
// dependency to a ready operation makes it not ready until that dependency finishes. An operation
// may not depend on itself (throws ZTInternalInconsistencyException); cycles are not detected and
// leave the operations involved never ready.
//
// Synchronous and asynchronous operations: the default start() runs main() on the calling thread
// and finishes when main() returns. An asynchronous operation (isAsynchronous() true, see
// ZTConcurrentOperation) overrides start(), isExecuting() and isFinished(), and reports its state
// changes with willChangeValueForKey() / didChangeValueForKey().
//
// Observation: observers of "isReady", "isExecuting", "isFinished" (and "isCancelled") get a
// will-change and a did-change callback around every change, on the thread that makes the change,
// as key-value observing does. Registration and removal are thread-safe and may happen inside a
// callback; once removeObserver() has returned the observer is not called again by a change that
// begins afterwards (a callback already running on another thread may still finish).
//
// Completion: when the operation reports that it has finished, its completion block runs once, on
// the thread that finished it, after the observers of "isFinished". Every operation then records
// that its completion handler has run (also when it has none), which is what
// waitUntilFinishedAndCompletionHandlerCalled() waits for. A completion block that throws is
// logged through ZTLog and counts as called; the exception goes no further.
//
// Ownership: operations are held by std::shared_ptr (dependencies and readiness tracking need
// weak references to them); an operation keeps its dependencies alive.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

// Queue priorities. Other values are rounded to the nearest of these.
inline constexpr std::int64_t ZTOperationQueuePriorityVeryLow = -8;
inline constexpr std::int64_t ZTOperationQueuePriorityLow = -4;
inline constexpr std::int64_t ZTOperationQueuePriorityNormal = 0;
inline constexpr std::int64_t ZTOperationQueuePriorityHigh = 4;
inline constexpr std::int64_t ZTOperationQueuePriorityVeryHigh = 8;

// Keys of the observable state.
inline constexpr std::string_view ZTOperationIsReadyKey = "isReady";
inline constexpr std::string_view ZTOperationIsExecutingKey = "isExecuting";
inline constexpr std::string_view ZTOperationIsFinishedKey = "isFinished";
inline constexpr std::string_view ZTOperationIsCancelledKey = "isCancelled";

enum class ZTKeyValueChange { WillChange, DidChange };

class ZTOperation;

// A registration returned by ZTOperation::addObserver(); pass it to removeObserver().
class ZT_API ZTOperationObservation {
 public:
  virtual ~ZTOperationObservation() = default;
};

// One unit of work with a life of its own; the base of every operation and what a queue runs.
class ZT_API ZTOperation : public std::enable_shared_from_this<ZTOperation> {
 public:
  using Observer = std::function<void(ZTOperation& operation, std::string_view key, ZTKeyValueChange change)>;
  using Seconds = std::chrono::duration<double>;

  ZTOperation();
  virtual ~ZTOperation();
  ZTOperation(const ZTOperation&) = delete;
  ZTOperation& operator=(const ZTOperation&) = delete;

  // Default: unless the operation is already executing or finished, marks it executing, runs
  // main() (skipped when cancelled) and marks it finished — also when main() throws, in which case
  // the exception propagates afterwards. A second call does nothing.
  virtual void start();
  // The work. Default: nothing.
  virtual void main();

  // Sets the cancelled flag (observable as "isCancelled") and makes the operation ready. Does not
  // stop work under way; subclasses that can stop early override it and call this one first.
  virtual void cancel();
  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }

  virtual bool isExecuting() const;
  virtual bool isFinished() const;
  virtual bool isAsynchronous() const;
  bool isConcurrent() const { return isAsynchronous(); }
  bool isReady() const { return ready_.load(std::memory_order_acquire); }

  // A null operation is ignored; adding the same operation twice keeps one. Thread-safe.
  void addDependency(const std::shared_ptr<ZTOperation>& operation);
  void removeDependency(const std::shared_ptr<ZTOperation>& operation);
  std::vector<std::shared_ptr<ZTOperation>> dependencies() const;

  // One of the ZTOperationQueuePriority values; a queue reads it when the operation is added.
  std::int64_t queuePriority() const { return queuePriority_.load(std::memory_order_relaxed); }
  void setQueuePriority(std::int64_t priority);

  // Runs once after the operation has finished (see above), then is released. Setting it after
  // the operation finished has no effect.
  std::function<void()> completionBlock() const;
  void setCompletionBlock(std::function<void()> block);

  // Block until the operation has finished. Never call them on the thread that would finish it.
  void waitUntilFinished();
  [[nodiscard]] bool waitUntilFinished(Seconds timeout);
  // Block until the operation has finished and its completion block (if any) has returned.
  void waitUntilFinishedAndCompletionHandlerCalled();
  [[nodiscard]] bool waitUntilFinishedAndCompletionHandlerCalled(Seconds timeout);
  bool ztCompletionHandlerWasCalled() const;

  std::string name() const;
  void setName(std::string name);

  // Registers an observer of the given keys (empty = every key). An empty callback registers
  // nothing and returns nullptr. Thread-safe.
  [[nodiscard]] std::shared_ptr<ZTOperationObservation> addObserver(std::vector<std::string> keys, Observer callback);
  // Returns false when the registration was not (or no longer) one of this operation's. Null is ignored.
  bool removeObserver(const std::shared_ptr<ZTOperationObservation>& observation);
  std::size_t observerCount() const;

  // Holding: the attachment point for whatever keeps the operation on its own behalf — a
  // ZTOperationQueue does — in place of an observer registration. One holder at a time: it claims
  // the operation with attachHolder(), hears of every did-change of "isReady" and "isFinished"
  // (after the observers of that change, on the thread that made it), and lets go with
  // detachHolder(). The holder keeps its own records of the operation. The operation refers to it
  // weakly: the holder's owner keeps it alive, and a holder that has gone is not called.
  class Holder {
   public:
    virtual void operationDidChange(ZTOperation& operation, std::string_view key) = 0;

   protected:
    virtual ~Holder() = default;
  };
  // Attaches holder when no holder has the operation (one that has gone but was not detached still
  // counts); otherwise returns false and attaches nothing. Null is refused. The operation keeps a
  // weak reference only. Thread-safe.
  [[nodiscard]] bool attachHolder(const std::shared_ptr<Holder>& holder);
  // Detaches holder when it is the one attached; false otherwise. No change that begins afterwards
  // calls it; a call already under way on another thread may still be running. Thread-safe.
  [[nodiscard]] bool detachHolder(const Holder& holder);
  // The attached holder; null when there is none or it has gone.
  std::shared_ptr<Holder> holder() const;

 protected:
  // Announce a change of an observable key. Subclasses that keep their own state call them around
  // each change; didChangeValueForKey("isFinished") with isFinished() true runs the completion.
  void willChangeValueForKey(std::string_view key);
  void didChangeValueForKey(std::string_view key);

  // Recomputes readiness and announces a change of "isReady". Call after anything that the
  // readiness depends on changed. Never blocks: when another thread is recomputing already, that
  // thread picks the change up and announces it.
  void updateReadiness();
  // Whether the operation would be ready now. Default: cancelled, or every dependency finished.
  virtual bool computeIsReady() const;

 private:
  struct Observation;
  void notify(std::string_view key, ZTKeyValueChange change);
  void notifyObservers(std::string_view key, ZTKeyValueChange change);
  void operationDidFinish();
  void wakeWaiters();

  std::atomic<bool> cancelled_{false};
  std::atomic<bool> ready_{true};
  std::atomic<int> readinessUpdates_{0};
  std::atomic<bool> syncStarted_{false};
  std::atomic<bool> syncExecuting_{false};
  std::atomic<bool> syncFinished_{false};
  std::atomic<std::int64_t> queuePriority_{ZTOperationQueuePriorityNormal};
  std::atomic<bool> completionClaimed_{false};

  mutable ZTMutex dependenciesMutex_;
  struct Dependency {
    std::shared_ptr<ZTOperation> operation;
    std::shared_ptr<ZTOperationObservation> observation;
  };
  std::vector<Dependency> dependencies_ ZT_GUARDED_BY(dependenciesMutex_);

  mutable ZTMutex observersMutex_;
  std::vector<std::shared_ptr<Observation>> observers_ ZT_GUARDED_BY(observersMutex_);
  std::atomic<std::size_t> observersCount_{0};

  mutable ZTMutex stateMutex_;
  ZTConditionVariable stateCondition_;  // waited on with stateMutex_
  std::atomic<int> waiters_{0};
  std::atomic<bool> finishAnnounced_{false};
  std::atomic<bool> completionHandlerWasCalled_{false};
  std::function<void()> completionBlock_ ZT_GUARDED_BY(stateMutex_);
  std::string name_ ZT_GUARDED_BY(stateMutex_);

  // The holder (see attachHolder()); held_ tells a change whether to look for one without taking
  // the lock.
  void notifyHolder(std::string_view key);
  std::atomic<bool> held_{false};
  // holderAddress_ identifies holder_ also once it has gone.
  const Holder* holderAddress_ ZT_GUARDED_BY(observersMutex_) = nullptr;
  std::weak_ptr<Holder> holder_ ZT_GUARDED_BY(observersMutex_);
};
