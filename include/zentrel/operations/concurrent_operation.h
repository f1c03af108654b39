#pragma once
// ZTConcurrentOperation: the base of asynchronous operations. Its work starts on a worker thread
// (usually a ZTThreadWithRunLoop) and ends later, from any thread, when the subclass calls one of
// the finishing methods. All handlers and main() run on the worker thread; a finishing method
// called elsewhere hops there and returns before the handlers have run.
//
// Creating: only through ZTConcurrentOperation::make<T>(constructor arguments...), which returns
// nullptr (after logging a line) when the worker thread is unusable — not executing, cancelled,
// or the main thread — and names and starts a spawned worker thread. The constructors require a
// ConstructionKey that only make() can create. A null worker
// thread means: run on whatever thread calls start(), and finish on the thread that finishes.
//
// Subclassing: override main() to begin the work; it must return as soon as the work is under way.
// When the work ends call exactly one finishing method. Cancellation (cancel()) is noticed at
// start, before and after the start handler, and when finishing: the cancellation handler then
// runs instead of the finalization, success and failure handlers.
//
// Order of handlers, all on the worker thread: start handler → main() → finalization handler →
// failure or success handler → completion (observers of "isFinished", then the completion block).
// On cancellation: [start handler, if the work had begun] → cancellation handler → completion.
//
// Exceptions from main() are caught and discarded when shouldHandleExceptions() is true (the
// default); the operation then stays executing unless main() finished it before throwing.
//
// Handlers that throw: an exception from the start, cancellation, finalization, failure or success
// handler is logged through ZTLog (one line naming the handler and the reason) and does not leave
// the operation executing: it still completes, so its queue's count drops, waitUntilFinished()
// returns and a compound operation that holds it goes on. A start handler that throws means the
// work never began: the operation finishes as a failure (ZTCocoaErrorDomain code -1, through the
// failure handler). A finalization handler that throws turns the outcome into that same failure.
//
// Ownership: calls queued for the worker thread keep the operation alive. An operation that
// spawned its worker thread cancels that thread when it is destroyed, so the thread lives exactly
// as long as the operation.

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "zentrel/operations/operation.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread.h"

class ZT_API ZTConcurrentOperation : public ZTOperation {
 public:
  using Handler = std::function<void(ZTConcurrentOperation& operation)>;
  using FailureHandler = std::function<void(ZTConcurrentOperation& operation, const ZTError& error)>;
  // Receives the outcome so far (nullopt); whatever error it stores turns the outcome into a failure.
  using FinalizationHandler = std::function<void(std::optional<ZTError>& error)>;
  using SuccessHandler = std::function<void()>;

  struct SpawnedWorkerThread {};
  static constexpr SpawnedWorkerThread spawnedWorkerThread{};

  // The pass that only make() can issue: every constructor takes it first, so an operation cannot
  // be constructed past make()'s checks (std::make_shared<Op>(...) does not compile). Subclasses
  // take it as their first parameter and hand it on, or inherit the constructors.
  class ConstructionKey {
   private:
    ConstructionKey() = default;
    friend class ZTConcurrentOperation;
  };

  // Runs on the given worker thread (null: on the thread that calls start()).
  ZTConcurrentOperation(ConstructionKey key, std::shared_ptr<ZTThread> workerThread, Handler startHandler = {},
                        Handler cancellationHandler = {}, FailureHandler failureHandler = {});
  // Runs on a worker thread of its own, named "<ClassName: 0x...> Worker Thread", spawned by
  // make<T>() and cancelled when the operation is destroyed.
  ZTConcurrentOperation(ConstructionKey key, SpawnedWorkerThread, Handler startHandler = {},
                        Handler cancellationHandler = {}, FailureHandler failureHandler = {});
  ~ZTConcurrentOperation() override;

  // Constructs T (passing the construction key before the arguments) and completes its set-up;
  // nullptr when the worker thread is unusable.
  template <class T, class... A>
  [[nodiscard]] static std::shared_ptr<T> make(A&&... arguments) {
    auto operation = std::make_shared<T>(ConstructionKey{}, std::forward<A>(arguments)...);
    if (!operation->completeInitialization()) return nullptr;
    return operation;
  }

  void start() override;
  // Abstract: throws ZTInternalInconsistencyException "You must override main in <class> class."
  void main() override;
  bool isExecuting() const override;
  bool isFinished() const override;
  bool isAsynchronous() const override { return true; }

  // Finishing methods; any thread, only the first call counts. See the order of handlers above.
  void finishWithFinalizationHandler(FinalizationHandler finalizationHandler, SuccessHandler successHandler,
                                     std::optional<ZTError> error);
  // Always a failure: a missing error becomes ZTCocoaErrorDomain code -1.
  void finishWithError(std::optional<ZTError> error);
  // After cancellation: runs the cancellation handler; on an operation that is not cancelled it
  // completes as a success without a handler.
  void finishAfterCancellation();
  void finishWithSuccessHandler(SuccessHandler successHandler);
  void finishWithSuccessHandler(SuccessHandler successHandler, std::optional<ZTError> error);

  // Adds each operation with addDependency(), in order.
  void addDependencies(const std::vector<std::shared_ptr<ZTOperation>>& operations);

  std::shared_ptr<ZTThread> workerThread() const { return workerThread_; }
  bool cancelsWorkerThreadOnCompletion() const { return cancelsWorkerThreadOnCompletion_.load(); }
  void setCancelsWorkerThreadOnCompletion(bool value) { cancelsWorkerThreadOnCompletion_.store(value); }
  // Set once start() has found the operation not cancelled.
  bool wasStarted() const { return wasStarted_.load(std::memory_order_acquire); }
  // Set before the operation starts; read on the worker thread.
  bool shouldHandleExceptions() const { return shouldHandleExceptions_; }
  void setShouldHandleExceptions(bool value) { shouldHandleExceptions_ = value; }

  // For the owner's use; never read by the operation. Thread-safe.
  std::shared_ptr<void> userInfo() const;
  void setUserInfo(std::shared_ptr<void> userInfo);

  // Handlers; set them before the operation starts.
  const Handler& startHandler() const { return startHandler_; }
  void setStartHandler(Handler handler) { startHandler_ = std::move(handler); }
  const Handler& cancellationHandler() const { return cancellationHandler_; }
  void setCancellationHandler(Handler handler) { cancellationHandler_ = std::move(handler); }
  const FailureHandler& failureHandler() const { return failureHandler_; }
  void setFailureHandler(FailureHandler handler) { failureHandler_ = std::move(handler); }

 protected:
  // Hooks, empty by default: checkInvalidDependentOperationsHandling() runs first in start();
  // verifyWorkerThreadIsInValidState() before each hop to the worker thread.
  virtual void checkInvalidDependentOperationsHandling() {}
  virtual void verifyWorkerThreadIsInValidState() {}

  // Runs the start handler and main() on the worker thread.
  virtual void doMain();
  // True when cancelled; then completes through the cancellation handler on the worker thread.
  bool checkIfCancelledAndCompleteOperation();
  void callCancellationHandlerAndComlpeteOperation();
  // Executing NO, then finished YES. Reached only through the finishing methods and cancellation.
  virtual void completeOperation();

  void setExecuting(bool executing);
  void setFinished(bool finished);

  bool isOnWorkerThread() const;
  // Queues the call on the worker thread, keeping the operation alive until it has run.
  void performOnWorkerThread(std::function<void(ZTConcurrentOperation&)> call);

 private:
  bool completeInitialization();
  // Only the first of the competing completions (finishing, cancellation) proceeds.
  bool claimCompletion() { return !completionClaimed_.exchange(true, std::memory_order_acq_rel); }

  std::atomic<bool> executing_{false};  // changes serialised by changingExecutingLock_
  std::atomic<bool> finished_{false};   // changes serialised by changingFinishedLock_
  std::atomic<bool> cancelsWorkerThreadOnCompletion_{false};
  bool shouldHandleExceptions_ = true;
  std::atomic<bool> wasStarted_{false};
  std::atomic<bool> startClaimed_{false};
  std::atomic<bool> completionClaimed_{false};
  bool spawnsWorkerThread_ = false;
  std::shared_ptr<ZTThread> workerThread_;
  mutable ZTMutex userInfoMutex_;
  std::shared_ptr<void> userInfo_ ZT_GUARDED_BY(userInfoMutex_);
  // Recursive, so that an observer reacting to one change may read and change flags on its thread.
  mutable ZTRecursiveMutex changingExecutingLock_;
  mutable ZTRecursiveMutex changingFinishedLock_;
  Handler startHandler_;
  Handler cancellationHandler_;
  FailureHandler failureHandler_;
};
