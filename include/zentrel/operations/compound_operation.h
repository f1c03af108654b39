#pragma once
// ZTCompoundConcurrentOperation: runs a set of operations on a private ZTOperationQueue (default
// limit of 5 at once, priority order) and finishes when that queue has drained. Member failures do
// not fail it: it always finishes as a success — calling its completion handler — unless it was
// cancelled, in which case its cancellation handler runs instead.
//
// The private queue runs on the compound operation's worker thread, or, when it has none, on a
// thread spawned for it ("Compound Operation (0x...) Worker Thread") and cancelled when the compound
// operation completes — before it reports finished.
//
// Option ZTCompoundOperationWaitUntilFinishedAndCompletionHandlersAreCalled: finish only after every
// member's own completion block has returned. The waiting happens on ZTDispatchQueue::global(),
// never on a worker thread. Without it the completion handler may run before the last member's
// completion block.
//
// cancel() cancels every member. Members of a compound operation cancelled before it ran are
// started as cancelled when it completes, so each still finishes (through its own cancellation
// path) and nobody waiting on one hangs. Destroying a compound operation disposes of its queue (which waits
// up to 60 seconds for members still running) — release it only once it has finished.
//
// ZTMutableCompoundConcurrentOperation may be created empty and accepts more members until it
// starts executing; additions after that are ignored (and never run). Once a compound operation
// cancelled before it ran has completed, members added to it are kept and finished as cancelled
// at once, as its other members were.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

class ZTOperationQueue;
class ZTNotificationObserver;

inline constexpr std::uint64_t ZTCompoundOperationWaitUntilFinishedAndCompletionHandlersAreCalled = 1;

// Runs a set of operations on a private queue and finishes when they all have.
class ZT_API ZTCompoundConcurrentOperation : public ZTConcurrentOperation {
 public:
  using CompletionHandler = std::function<void(ZTCompoundConcurrentOperation& operation)>;

  // nullptr when the completion handler is empty, the member list is empty, or the worker thread is
  // unusable (see ZTConcurrentOperation).
  [[nodiscard]] static std::shared_ptr<ZTCompoundConcurrentOperation> create(
      std::vector<std::shared_ptr<ZTOperation>> operations, std::uint64_t options,
      std::shared_ptr<ZTThread> workerThread, Handler startHandler, Handler cancellationHandler,
      CompletionHandler completionHandler);

  // Reached only through create() (see ZTConcurrentOperation::ConstructionKey).
  ZTCompoundConcurrentOperation(ConstructionKey key, std::vector<std::shared_ptr<ZTOperation>> operations, std::uint64_t options,
                                std::shared_ptr<ZTThread> workerThread, Handler startHandler,
                                Handler cancellationHandler, CompletionHandler completionHandler);
  ~ZTCompoundConcurrentOperation() override;

  void main() override;
  void cancel() override;

  std::vector<std::shared_ptr<ZTOperation>> operations() const;
  std::uint64_t options() const { return options_; }
  bool waitUntilFinishedAndCompletionHandlersAreCalled() const {
    return (options_ & ZTCompoundOperationWaitUntilFinishedAndCompletionHandlersAreCalled) != 0;
  }
  // The private queue; null before the operation has started.
  std::shared_ptr<ZTOperationQueue> operationQueue() const;

 protected:
  void completeOperation() override;
  // Appends the non-null operations to the members, unless the queue has been made already.
  void addOperationsBeforeStart(const std::vector<std::shared_ptr<ZTOperation>>& operations);

 private:
  void finish();
  void cancelOperationQueueSpawnedThreadIfNeeded();
  void handleConcurrentOperationQueueDidBecameEmptyNotification();

  mutable ZTMutex mutex_;
  std::vector<std::shared_ptr<ZTOperation>> operations_ ZT_GUARDED_BY(mutex_);
  std::shared_ptr<ZTOperationQueue> operationQueue_ ZT_GUARDED_BY(mutex_);  // set once started
  // Completed without a queue: members were finished as cancelled, and so are later additions.
  bool membersSettled_ ZT_GUARDED_BY(mutex_) = false;
  const std::uint64_t options_;
  CompletionHandler completionHandler_;
  std::shared_ptr<ZTNotificationObserver> emptyQueueObserver_ ZT_GUARDED_BY(mutex_);
};

// A compound operation to which operations can still be added while it runs.
class ZT_API ZTMutableCompoundConcurrentOperation : public ZTCompoundConcurrentOperation {
 public:
  // As the base's create(), but an empty member list is accepted.
  [[nodiscard]] static std::shared_ptr<ZTMutableCompoundConcurrentOperation> create(
      std::vector<std::shared_ptr<ZTOperation>> operations, std::uint64_t options,
      std::shared_ptr<ZTThread> workerThread, Handler startHandler, Handler cancellationHandler,
      CompletionHandler completionHandler);
  using ZTCompoundConcurrentOperation::ZTCompoundConcurrentOperation;

  // Ignored (null, or once the operation executes).
  void addOperation(const std::shared_ptr<ZTOperation>& operation);
  void addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations);
};
