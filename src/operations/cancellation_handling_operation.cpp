#include "zentrel/operations/cancellation_handling_operation.h"

#include "zentrel/operations/internal/guarded_call.h"

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"

ZTCancellationHandlingOperation::ZTCancellationHandlingOperation(Handler cancellationHandler)
    : cancellationHandler_(std::move(cancellationHandler)) {}

void ZTCancellationHandlingOperation::start() {
  if (isExecuting() || isFinished()) return;
  mainWasCalled_.store(false, std::memory_order_release);
  ZTOperation::start();
  if (!mainWasCalled() && isCancelled() && cancellationHandler_)
    zt::detail::callLoggingExceptions("The cancellation handler of an operation", [&] { cancellationHandler_(*this); });
}

void ZTCancellationHandlingOperation::main() {
  mainWasCalled_.store(true, std::memory_order_release);
  doMain();
}

void ZTCancellationHandlingOperation::doMain() {
  throw ZTInternalInconsistencyException(ZTAbstractMethodReason("doMain", ZTDebugClassNameForObject(this)));
}
