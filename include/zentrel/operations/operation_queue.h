#pragma once
// ZTOperationQueue: runs operations (any ZTOperation, typically ZTConcurrentOperation subclasses)
// in priority order, at most maxConcurrentOperationCount() at once (default 5), starting each one
// on the queue's worker thread, which must run its run loop (a ZTThreadWithRunLoop does).
//
// Order: a higher priority starts first. Among operations of equal priority a newcomer is placed
// where a binary search of the ready list first meets an operation of its priority — so with one
// waiting operation of equal priority the newcomer goes first. This is deliberate; do not rely on
// first-in-first-out order among equals.
//
// The queue learns about readiness and completion as the holder of each operation it takes in
// (ZTOperation::attachHolder()), which hears of every change of "isReady" and "isFinished". When
// its last operation finishes it posts ZTOperationQueueDidBecameEmptyNotification
// (object: the queue) on the default notification centre, synchronously, on the thread that
// finished that operation — once per transition to empty.
//
// An operation is in at most one queue at a time: adding one that waits or runs in another queue
// (or has any other holder) throws ZTInternalInconsistencyException (the other operations of the
// call are added first).
// Once it has finished (or the queue let it go), it is free to join another queue.
//
// dispose() cancels everything and waits up to 60 seconds for executing operations to finish; an
// executing ZTConcurrentOperation whose worker thread is the calling thread is not waited for (it
// could only finish on the thread that is about to wait). After dispose() nothing is added or started.
//
// Threads: every function may be called from any thread. start() of an operation never runs on
// the thread that added it, unless that is the worker thread, and then on a later run-loop turn.
// Ownership: the queue holds the operations it has not yet seen finish; the operations refer to
// the queue (as their holder) weakly. The queue keeps its records of operations for reuse — as many
// as it once held at one time, a few dozen bytes each — until it is destroyed. Operations queued
// for starting stay alive until started, even if the queue is gone.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zentrel/operations/operation.h"
#include "zentrel/platform/comparison_result.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread.h"

inline constexpr const char* ZTOperationQueueDidBecameEmptyNotification = "ZTOperationQueueDidBecameEmptyNotification";


// The order of the ready list: ascending when a has the higher priority (a runs first).
ZT_API ZTComparisonResult ZTOperationsComparator(const ZTOperation& a, const ZTOperation& b);

namespace zt::detail {
struct PendingStarts;
}  // namespace zt::detail

// Runs operations in priority order, a bounded number at once.
class ZT_API ZTOperationQueue : public std::enable_shared_from_this<ZTOperationQueue> {
 public:
  // nullptr for a null thread. The queue does not check the thread's state, and does not own the
  // thread: whoever made it cancels it.
  [[nodiscard]] static std::shared_ptr<ZTOperationQueue> create(std::shared_ptr<ZTThread> workerThread);
  // A queue on a ZTThreadWithRunLoop of its own, spawned here (named threadName, or
  // "ZTOperationQueue Worker Thread") and owned by the queue, as std::jthread owns its thread: when
  // the queue is destroyed it cancels the operations it still holds, the thread runs what is already
  // queued on it and starts those that never started (so each finishes, as cancelled), and then the
  // thread ends. Destruction does not wait; call dispose() first to wait for running operations.
  [[nodiscard]] static std::shared_ptr<ZTOperationQueue> createWithOwnThread(std::string threadName = {});
  bool ownsWorkerThread() const { return ownsWorkerThread_; }
  ~ZTOperationQueue();
  ZTOperationQueue(const ZTOperationQueue&) = delete;
  ZTOperationQueue& operator=(const ZTOperationQueue&) = delete;

  // Null, finished and executing operations are skipped; an operation already waiting here is not
  // added twice. Does nothing after dispose().
  void addOperation(const std::shared_ptr<ZTOperation>& operation);
  void addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations);

  // Cancels executing and waiting operations; they still leave through their own completion.
  void cancelAllOperations();
  // Cancels only waiting operations; executing ones run to their end.
  void cancelAllButFinishRunningOperations();
  // See above. Only the first call does anything.
  void dispose();
  bool isDisposed() const;

  std::int64_t maxConcurrentOperationCount() const;
  // A value below 1 stores 5. Raising the limit starts nothing by itself; the next addition,
  // readiness change or completion does.
  void setMaxConcurrentOperationCount(std::int64_t count);

  bool isSuspended() const;
  // Resuming starts waiting operations up to the limit at once.
  void setSuspended(bool suspended);

  std::string name() const;
  void setName(std::string name);
  std::shared_ptr<ZTThread> workerThread() const { return workerThread_; }

  // Executing + ready + not ready.
  std::int64_t operationsCount() const;
  // Executing operations, then ready ones in starting order, then those not ready.
  std::vector<std::shared_ptr<ZTOperation>> operations() const;
  std::vector<std::shared_ptr<ZTOperation>> executingOperations() const;

  // "<ZTOperationQueue: 0x...; name = ...; maxConcurrentOperationCount = 5; operations = (...)>"
  std::string description() const;

 private:
  ZTOperationQueue(std::shared_ptr<ZTThread> workerThread, bool ownsWorkerThread);
  using OperationPointer = std::shared_ptr<ZTOperation>;
  // The queue's record of one operation it holds: where the operation is, and the queue's
  // reference to it. The operation's holder while it is in the queue.
  struct Member;
  // The members ready to start, in starting order.
  class ReadyMembers;

  // The handlers take the monitor; they may be reached while this thread holds it already (an
  // operation cancelled under the monitor changes its readiness), hence a recursive monitor.
  void handleOperationIsReadyPropertyChange(Member& member, ZTOperation& operation) ZT_EXCLUDES(monitor_);
  void handleOperationIsFinishedPropertyChange(Member& member, ZTOperation& operation) ZT_EXCLUDES(monitor_);
  void startNextOperationIfPossible() ZT_REQUIRES(monitor_);
  void cancelAllOperationsInCollections(bool includeExecuting) ZT_REQUIRES(monitor_);
  std::int64_t operationsCountLocked() const ZT_REQUIRES(monitor_);
  void insertReady(Member& member) ZT_REQUIRES(monitor_);
  void addExecuting(Member& member) ZT_REQUIRES(monitor_);
  void removeExecuting(Member& member) ZT_REQUIRES(monitor_);
  void addNotReady(Member& member) ZT_REQUIRES(monitor_);
  void removeNotReady(Member& member) ZT_REQUIRES(monitor_);
  // The member leaves the queue: the operation is free to join another queue. Returns the queue's
  // reference to the operation.
  OperationPointer release(Member& member) ZT_REQUIRES(monitor_);
  Member& makeMember(const OperationPointer& operation) ZT_REQUIRES(monitor_);

  mutable ZTRecursiveMutex monitor_;
  std::int64_t maxConcurrentOperationCount_ ZT_GUARDED_BY(monitor_) = 5;
  bool suspended_ ZT_GUARDED_BY(monitor_) = false;
  bool disposed_ ZT_GUARDED_BY(monitor_) = false;
  std::string name_ ZT_GUARDED_BY(monitor_);
  const std::shared_ptr<ZTThread> workerThread_;
  const bool ownsWorkerThread_;
  // The members' own fields are the queue's too: they are read and written only by the functions
  // above that require the monitor.
  const std::unique_ptr<ReadyMembers> readyOperations_ ZT_PT_GUARDED_BY(monitor_);
  std::vector<Member*> notReadyOperations_ ZT_GUARDED_BY(monitor_);
  std::vector<Member*> executingOperations_ ZT_GUARDED_BY(monitor_);
  std::vector<OperationPointer> toStartScratch_ ZT_GUARDED_BY(monitor_);
  std::vector<std::unique_ptr<Member>> members_ ZT_GUARDED_BY(monitor_);  // every member made
  std::vector<Member*> freeMembers_ ZT_GUARDED_BY(monitor_);              // those not in use
  std::shared_ptr<zt::detail::PendingStarts> pendingStarts_;
};
