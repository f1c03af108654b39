#include "zentrel/operations/block_operation.h"

#include <cerrno>

#include "zentrel/operations/internal/guarded_call.h"

std::shared_ptr<ZTBlockOperation> ZTBlockOperation::create(ExecutionBlock executionBlock, Handler startHandler,
                                                           Handler cancellationHandler, Handler successHandler,
                                                           FailureHandler failureHandler) {
  if (!executionBlock || !failureHandler) return nullptr;
  return std::make_shared<ZTBlockOperation>(ConstructionKey{}, std::move(executionBlock), std::move(startHandler),
                                            std::move(cancellationHandler), std::move(successHandler),
                                            std::move(failureHandler));
}

ZTBlockOperation::ZTBlockOperation(ConstructionKey, ExecutionBlock executionBlock, Handler startHandler, Handler cancellationHandler,
                                   Handler successHandler, FailureHandler failureHandler)
    : executionBlock_(std::move(executionBlock)),
      startHandler_(std::move(startHandler)),
      successHandler_(std::move(successHandler)),
      failureHandler_(std::move(failureHandler)) {
  if (cancellationHandler) {
    setCancellationHandler([handler = std::move(cancellationHandler)](ZTCancellationHandlingOperation& operation) {
      handler(static_cast<ZTBlockOperation&>(operation));
    });
  }
}

void ZTBlockOperation::doMain() {
  if (startHandler_) startHandler_(*this);
  std::optional<ZTError> error;
  const bool succeeded = executionBlock_(*this, error);
  if (!succeeded && !error) error = ZTError(ZTPOSIXErrorDomain, EFAULT);
  handleCompletionWithError(error);
}

void ZTBlockOperation::handleCompletionWithError(const std::optional<ZTError>& error) {
  if (isCancelled()) {
    if (cancellationHandler()) cancellationHandler()(*this);
  } else if (error) {
    failureHandler_(*this, *error);
  } else if (successHandler_) {
    successHandler_(*this);
  }
}

std::shared_ptr<ZTConcurrentBlockOperation> ZTConcurrentBlockOperation::create(
    ExecutionBlock executionBlock, AsyncExecutionBlock asyncExecutionBlock, std::shared_ptr<ZTThread> workerThread,
    Handler startHandler, Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler) {
  return make<ZTConcurrentBlockOperation>(
      std::move(executionBlock), std::move(asyncExecutionBlock), std::move(workerThread), std::move(startHandler),
      std::move(cancellationHandler), std::move(successHandler), std::move(failureHandler));
}

std::shared_ptr<ZTConcurrentBlockOperation> ZTConcurrentBlockOperation::createWithExecutionBlock(
    ExecutionBlock executionBlock, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
    Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler) {
  if (!executionBlock) return nullptr;
  return create(std::move(executionBlock), nullptr, std::move(workerThread), std::move(startHandler),
                std::move(cancellationHandler), std::move(successHandler), std::move(failureHandler));
}

std::shared_ptr<ZTConcurrentBlockOperation> ZTConcurrentBlockOperation::createWithAsyncExecutionBlock(
    AsyncExecutionBlock asyncExecutionBlock, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
    Handler cancellationHandler, FailureHandler failureHandler) {
  return create(nullptr, std::move(asyncExecutionBlock), std::move(workerThread), std::move(startHandler),
                std::move(cancellationHandler), nullptr, std::move(failureHandler));
}

ZTConcurrentBlockOperation::ZTConcurrentBlockOperation(ConstructionKey key, ExecutionBlock executionBlock,
                                                       AsyncExecutionBlock asyncExecutionBlock,
                                                       std::shared_ptr<ZTThread> workerThread, Handler startHandler,
                                                       Handler cancellationHandler, SuccessHandler successHandler,
                                                       FailureHandler failureHandler)
    : ZTConcurrentOperation(key, std::move(workerThread), std::move(startHandler), std::move(cancellationHandler),
                            std::move(failureHandler)),
      executionBlock_(std::move(executionBlock)),
      asyncExecutionBlock_(std::move(asyncExecutionBlock)),
      successHandler_(std::move(successHandler)) {}

void ZTConcurrentBlockOperation::main() {
  // A block that throws is logged and ends the operation as a failure rather than leaving it executing.
  if (asyncExecutionBlock_) {
    if (!zt::detail::callLoggingExceptions("The execution block of a concurrent block operation",
                                           [&] { asyncExecutionBlock_(*this); }))
      finishWithError(std::nullopt);
    return;
  }
  std::optional<ZTError> error;
  if (executionBlock_ && !zt::detail::callLoggingExceptions("The execution block of a concurrent block operation",
                                                            [&] { executionBlock_(*this, error); }) &&
      !error)
    error = ZTError(ZTCocoaErrorDomain, -1);
  finishWithSuccessHandler(
      [this] {
        if (successHandler_) successHandler_(*this);
      },
      std::move(error));
}

std::shared_ptr<ZTAlwaysFailingOperation> ZTAlwaysFailingOperation::create(ZTError error,
                                                                           FailureHandler failureHandler) {
  if (!failureHandler) return nullptr;
  return std::make_shared<ZTAlwaysFailingOperation>(ConstructionKey{}, std::move(error), std::move(failureHandler));
}

ZTAlwaysFailingOperation::ZTAlwaysFailingOperation(ConstructionKey, ZTError error, FailureHandler failureHandler)
    : error_(std::move(error)), failureHandler_(std::move(failureHandler)) {}

void ZTAlwaysFailingOperation::main() { failureHandler_(*this, error_); }
