#pragma once
// Operations built from callables.
//
// ZTBlockOperation: synchronous. start() runs, on the calling thread: the start handler, then the
// execution block, then exactly one of the cancellation handler (when cancelled meanwhile), the
// failure handler (when the block failed) or the success handler. The block fails by returning
// false or by storing an error; false without an error reports ZTPOSIXErrorDomain code 14 (EFAULT).
// Cancelled before it starts, only the cancellation handler runs, once.
//
// ZTConcurrentBlockOperation: a ZTConcurrentOperation (handlers on its worker thread). Either a
// synchronous execution block, after which it finishes at once — failing when the block stored an
// error, succeeding otherwise — or an asynchronous block, which must later call one of the
// finishing methods; until then the operation stays executing. A block that throws is logged
// through ZTLog and the operation finishes as a failure (ZTCocoaErrorDomain code -1, unless the block
// stored an error first); handlers that throw are logged and the operation completes all the same.
//
// ZTBlockOperation is synchronous: an exception from its block or handlers finishes the operation
// and then reaches the caller of start(); a queue that started it logs it and goes on.
//
// Handlers are set at creation and never changed by the operations.

#include <functional>
#include <memory>
#include <optional>

#include "zentrel/operations/cancellation_handling_operation.h"
#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

class ZT_API ZTBlockOperation : public ZTCancellationHandlingOperation {
  struct ConstructionKey {
    explicit ConstructionKey() = default;
  };

 public:
  using ExecutionBlock = std::function<bool(ZTBlockOperation& operation, std::optional<ZTError>& error)>;
  using Handler = std::function<void(ZTBlockOperation& operation)>;
  using FailureHandler = std::function<void(ZTBlockOperation& operation, const ZTError& error)>;

  // nullptr when the execution block or the failure handler is empty.
  [[nodiscard]] static std::shared_ptr<ZTBlockOperation> create(ExecutionBlock executionBlock, Handler startHandler,
                                                                Handler cancellationHandler,
                                                                Handler successHandler,
                                                                FailureHandler failureHandler);
  // Reached only through create(): the key is private.
  ZTBlockOperation(ConstructionKey, ExecutionBlock executionBlock, Handler startHandler, Handler cancellationHandler,
                   Handler successHandler, FailureHandler failureHandler);

  void doMain() override;

 private:
  void handleCompletionWithError(const std::optional<ZTError>& error);

  ExecutionBlock executionBlock_;
  Handler startHandler_;
  Handler successHandler_;
  FailureHandler failureHandler_;
};

// A concurrent operation built from callables: it finishes when its work calls back.
class ZT_API ZTConcurrentBlockOperation : public ZTConcurrentOperation {
 public:
  using ExecutionBlock = std::function<void(ZTConcurrentBlockOperation& operation, std::optional<ZTError>& error)>;
  using AsyncExecutionBlock = std::function<void(ZTConcurrentBlockOperation& operation)>;
  using SuccessHandler = std::function<void(ZTConcurrentBlockOperation& operation)>;

  // nullptr when the worker thread is unusable (see ZTConcurrentOperation).
  [[nodiscard]] static std::shared_ptr<ZTConcurrentBlockOperation> create(
      ExecutionBlock executionBlock, AsyncExecutionBlock asyncExecutionBlock, std::shared_ptr<ZTThread> workerThread,
      Handler startHandler, Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler);
  // Synchronous block; nullptr also when it is empty.
  [[nodiscard]] static std::shared_ptr<ZTConcurrentBlockOperation> createWithExecutionBlock(
      ExecutionBlock executionBlock, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
      Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler);
  // Asynchronous block, which finishes the operation itself.
  [[nodiscard]] static std::shared_ptr<ZTConcurrentBlockOperation> createWithAsyncExecutionBlock(
      AsyncExecutionBlock asyncExecutionBlock, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
      Handler cancellationHandler, FailureHandler failureHandler);

  // Reached only through the create functions (see ZTConcurrentOperation::ConstructionKey).
  ZTConcurrentBlockOperation(ConstructionKey key, ExecutionBlock executionBlock, AsyncExecutionBlock asyncExecutionBlock,
                             std::shared_ptr<ZTThread> workerThread, Handler startHandler, Handler cancellationHandler,
                             SuccessHandler successHandler, FailureHandler failureHandler);

  void main() override;

 private:
  ExecutionBlock executionBlock_;
  AsyncExecutionBlock asyncExecutionBlock_;
  SuccessHandler successHandler_;
};

// An operation that does nothing but report an error it was given: for callers that must return an
// operation although they already know the outcome. Synchronous; main() calls the failure handler.
class ZT_API ZTAlwaysFailingOperation : public ZTOperation {
  struct ConstructionKey {
    explicit ConstructionKey() = default;
  };

 public:
  using FailureHandler = std::function<void(ZTAlwaysFailingOperation& operation, const ZTError& error)>;

  // nullptr when the failure handler is empty.
  [[nodiscard]] static std::shared_ptr<ZTAlwaysFailingOperation> create(ZTError error,
                                                                        FailureHandler failureHandler);
  // Reached only through create(): the key is private.
  ZTAlwaysFailingOperation(ConstructionKey, ZTError error, FailureHandler failureHandler);

  void main() override;
  const ZTError& error() const { return error_; }

 private:
  ZTError error_;
  FailureHandler failureHandler_;
};
