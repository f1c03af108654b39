#include "zentrel/operations/concurrent_operation.h"

#include "zentrel/operations/internal/guarded_call.h"

#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"

ZTConcurrentOperation::ZTConcurrentOperation(ConstructionKey, std::shared_ptr<ZTThread> workerThread,
                                             Handler startHandler,
                                             Handler cancellationHandler, FailureHandler failureHandler)
    : workerThread_(std::move(workerThread)),
      startHandler_(std::move(startHandler)),
      cancellationHandler_(std::move(cancellationHandler)),
      failureHandler_(std::move(failureHandler)) {}

ZTConcurrentOperation::ZTConcurrentOperation(ConstructionKey key, SpawnedWorkerThread, Handler startHandler,
                                             Handler cancellationHandler, FailureHandler failureHandler)
    : ZTConcurrentOperation(key, nullptr, std::move(startHandler), std::move(cancellationHandler),
                            std::move(failureHandler)) {
  spawnsWorkerThread_ = true;
}

ZTConcurrentOperation::~ZTConcurrentOperation() {
  if (cancelsWorkerThreadOnCompletion_.load() && workerThread_) workerThread_->cancel();
}

bool ZTConcurrentOperation::completeInitialization() {
  if (spawnsWorkerThread_) {
    // Spawned here rather than in the constructor, so that the name carries the final class.
    workerThread_ = ZTThreadWithRunLoop::spawnThreadWithNameProviderObject(this);
  }
  if (workerThread_) {
    if (!workerThread_->isExecuting() || workerThread_->isCancelled()) {
      ZTLog("ERROR: Unable to initialize async operation. Thread is not executing or is cancelled.");
      return false;
    }
    if (workerThread_->isMain()) {
      ZTLog("ERROR: Trying to use main thread as worker thread. This may lead to deadlocks.");
      return false;
    }
  }
  if (spawnsWorkerThread_) cancelsWorkerThreadOnCompletion_.store(true);
  return true;
}

bool ZTConcurrentOperation::isOnWorkerThread() const { return !workerThread_ || workerThread_->runLoop()->isCurrent(); }

void ZTConcurrentOperation::performOnWorkerThread(std::function<void(ZTConcurrentOperation&)> call) {
  verifyWorkerThreadIsInValidState();
  auto self = std::static_pointer_cast<ZTConcurrentOperation>(shared_from_this());
  zt::performBlock([self = std::move(self), call = std::move(call)] { call(*self); }, workerThread_);
}

void ZTConcurrentOperation::start() {
  checkInvalidDependentOperationsHandling();
  if (checkIfCancelledAndCompleteOperation()) return;
  wasStarted_.store(true, std::memory_order_release);
  if (startClaimed_.exchange(true, std::memory_order_acq_rel)) return;
  if (isFinished() || isExecuting()) return;
  setExecuting(true);
  if (!workerThread_) {
    doMain();
    return;
  }
  performOnWorkerThread([](ZTConcurrentOperation& operation) { operation.doMain(); });
}

void ZTConcurrentOperation::doMain() {
  if (checkIfCancelledAndCompleteOperation()) return;
  if (startHandler_ &&
      !zt::detail::callLoggingExceptions("The start handler of a concurrent operation", [&] { startHandler_(*this); })) {
    // The work never began: the operation ends as a failure instead of executing for ever.
    finishWithError(std::nullopt);
    return;
  }
  if (checkIfCancelledAndCompleteOperation()) return;
  if (!shouldHandleExceptions_) {
    main();
    return;
  }
  try {
    main();
  } catch (...) {
    // Deliberately discarded: a subclass that can throw finishes the operation itself.
  }
}

void ZTConcurrentOperation::main() {
  throw ZTInternalInconsistencyException(ZTAbstractMethodReason("main", ZTDebugClassNameForObject(this)));
}

bool ZTConcurrentOperation::checkIfCancelledAndCompleteOperation() {
  if (!isCancelled()) return false;
  if (!isOnWorkerThread()) {
    performOnWorkerThread(
        [](ZTConcurrentOperation& operation) { operation.callCancellationHandlerAndComlpeteOperation(); });
    return true;
  }
  callCancellationHandlerAndComlpeteOperation();
  return true;
}

void ZTConcurrentOperation::callCancellationHandlerAndComlpeteOperation() {
  if (isFinished() || !claimCompletion()) return;
  if (cancellationHandler_)
    zt::detail::callLoggingExceptions("The cancellation handler of a concurrent operation",
                                      [&] { cancellationHandler_(*this); });
  completeOperation();
}

void ZTConcurrentOperation::finishWithFinalizationHandler(FinalizationHandler finalizationHandler,
                                                          SuccessHandler successHandler, std::optional<ZTError> error) {
  if (isFinished()) return;
  if (!isOnWorkerThread()) {
    performOnWorkerThread([finalizationHandler = std::move(finalizationHandler),
                           successHandler = std::move(successHandler),
                           error = std::move(error)](ZTConcurrentOperation& operation) mutable {
      operation.finishWithFinalizationHandler(std::move(finalizationHandler), std::move(successHandler),
                                              std::move(error));
    });
    return;
  }
  // A cancelled operation that never started is completed by start(), which finds it cancelled.
  if (isCancelled() && !wasStarted()) return;
  if (!claimCompletion()) return;
  // Whatever a handler throws is logged; the operation completes all the same.
  if (isCancelled()) {
    if (cancellationHandler_)
      zt::detail::callLoggingExceptions("The cancellation handler of a concurrent operation",
                                        [&] { cancellationHandler_(*this); });
  } else {
    if (finalizationHandler && !error &&
        !zt::detail::callLoggingExceptions("The finalization handler of a concurrent operation",
                                           [&] { finalizationHandler(error); }) &&
        !error)
      error = ZTError(ZTCocoaErrorDomain, -1);
    if (error) {
      if (failureHandler_)
        zt::detail::callLoggingExceptions("The failure handler of a concurrent operation",
                                          [&] { failureHandler_(*this, *error); });
    } else if (successHandler) {
      zt::detail::callLoggingExceptions("The success handler of a concurrent operation", [&] { successHandler(); });
    }
  }
  completeOperation();
}

void ZTConcurrentOperation::finishWithError(std::optional<ZTError> error) {
  if (!error) error = ZTError(ZTCocoaErrorDomain, -1);
  finishWithFinalizationHandler(nullptr, nullptr, std::move(error));
}

void ZTConcurrentOperation::finishAfterCancellation() { finishWithFinalizationHandler(nullptr, nullptr, std::nullopt); }

void ZTConcurrentOperation::finishWithSuccessHandler(SuccessHandler successHandler) {
  finishWithSuccessHandler(std::move(successHandler), std::nullopt);
}

void ZTConcurrentOperation::finishWithSuccessHandler(SuccessHandler successHandler, std::optional<ZTError> error) {
  finishWithFinalizationHandler(nullptr, std::move(successHandler), std::move(error));
}

void ZTConcurrentOperation::addDependencies(const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  for (const auto& operation : operations) addDependency(operation);
}

void ZTConcurrentOperation::completeOperation() {
  setExecuting(false);
  setFinished(true);
}

bool ZTConcurrentOperation::isExecuting() const { return executing_.load(std::memory_order_acquire); }

bool ZTConcurrentOperation::isFinished() const { return finished_.load(std::memory_order_acquire); }

// A change holds the flag's changing lock for its whole length, notifications included, so changes
// are serialised; readers never wait for it: they read the flag's current value.
void ZTConcurrentOperation::setExecuting(bool executing) {
  ZTLockGuard changing(changingExecutingLock_);
  if (executing_.load(std::memory_order_relaxed) == executing) return;
  willChangeValueForKey(ZTOperationIsExecutingKey);
  executing_.store(executing, std::memory_order_release);
  didChangeValueForKey(ZTOperationIsExecutingKey);
}

void ZTConcurrentOperation::setFinished(bool finished) {
  ZTLockGuard changing(changingFinishedLock_);
  if (finished_.load(std::memory_order_relaxed) == finished) return;
  willChangeValueForKey(ZTOperationIsFinishedKey);
  finished_.store(finished, std::memory_order_release);
  didChangeValueForKey(ZTOperationIsFinishedKey);
}

std::shared_ptr<void> ZTConcurrentOperation::userInfo() const {
  ZTLockGuard lock(userInfoMutex_);
  return userInfo_;
}

void ZTConcurrentOperation::setUserInfo(std::shared_ptr<void> userInfo) {
  ZTLockGuard lock(userInfoMutex_);
  userInfo_ = std::move(userInfo);
}
