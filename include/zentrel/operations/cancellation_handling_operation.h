#pragma once
// ZTCancellationHandlingOperation: a synchronous operation that calls a handler when it was
// cancelled before its work ran — so the owner learns that the work will never happen. Once the
// work (doMain()) has begun, cancellation is the work's own business and the handler is not called.
//
// Subclasses override doMain(). The handler runs on the thread that calls start(), after the
// operation has finished. Set it before the operation starts. A handler that throws is logged
// through ZTLog and does not reach the caller of start(); the operation has finished already.

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "zentrel/operations/operation.h"
#include "zentrel/platform/export.h"

class ZT_API ZTCancellationHandlingOperation : public ZTOperation {
 public:
  using Handler = std::function<void(ZTCancellationHandlingOperation& operation)>;

  explicit ZTCancellationHandlingOperation(Handler cancellationHandler = {});

  void start() override;
  // Records that the work ran, then calls doMain().
  void main() override;
  // Abstract: throws ZTInternalInconsistencyException "You must override doMain in <class> class."
  virtual void doMain();

  bool mainWasCalled() const { return mainWasCalled_.load(std::memory_order_acquire); }
  const Handler& cancellationHandler() const { return cancellationHandler_; }
  void setCancellationHandler(Handler handler) { cancellationHandler_ = std::move(handler); }

 private:
  Handler cancellationHandler_;
  std::atomic<bool> mainWasCalled_{false};
};
