#include "zentrel/operations/compound_operation.h"

#include <cstdio>

#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/internal/guarded_call.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"

std::shared_ptr<ZTCompoundConcurrentOperation> ZTCompoundConcurrentOperation::create(
    std::vector<std::shared_ptr<ZTOperation>> operations, std::uint64_t options, std::shared_ptr<ZTThread> workerThread,
    Handler startHandler, Handler cancellationHandler, CompletionHandler completionHandler) {
  if (!completionHandler || operations.empty()) return nullptr;
  return make<ZTCompoundConcurrentOperation>(std::move(operations), options, std::move(workerThread),
                                             std::move(startHandler), std::move(cancellationHandler),
                                             std::move(completionHandler));
}

ZTCompoundConcurrentOperation::ZTCompoundConcurrentOperation(ConstructionKey key,
                                                             std::vector<std::shared_ptr<ZTOperation>> operations,
                                                             std::uint64_t options,
                                                             std::shared_ptr<ZTThread> workerThread,
                                                             Handler startHandler, Handler cancellationHandler,
                                                             CompletionHandler completionHandler)
    : ZTConcurrentOperation(key, std::move(workerThread), std::move(startHandler), std::move(cancellationHandler)),
      operations_(std::move(operations)),
      options_(options),
      completionHandler_(std::move(completionHandler)) {
  std::erase(operations_, nullptr);
}

ZTCompoundConcurrentOperation::~ZTCompoundConcurrentOperation() {
  if (operationQueue_) operationQueue_->dispose();
  cancelOperationQueueSpawnedThreadIfNeeded();
  if (emptyQueueObserver_) ZTNotificationCenter::defaultCenter()->removeObserver(emptyQueueObserver_);
}

std::vector<std::shared_ptr<ZTOperation>> ZTCompoundConcurrentOperation::operations() const {
  ZTLockGuard lock(mutex_);
  return operations_;
}

std::shared_ptr<ZTOperationQueue> ZTCompoundConcurrentOperation::operationQueue() const {
  ZTLockGuard lock(mutex_);
  return operationQueue_;
}

void ZTCompoundConcurrentOperation::main() {
  std::shared_ptr<ZTThread> queueThread = workerThread();
  if (!queueThread) {
    char name[96];
    std::snprintf(name, sizeof name, "Compound Operation (%p) Worker Thread", static_cast<const void*>(this));
    queueThread = ZTThreadWithRunLoop::spawnThreadWithName(name);
  }
  auto queue = ZTOperationQueue::create(queueThread);
  queue->setSuspended(true);
  std::weak_ptr<ZTCompoundConcurrentOperation> weakSelf =
      std::static_pointer_cast<ZTCompoundConcurrentOperation>(shared_from_this());
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      ZTOperationQueueDidBecameEmptyNotification, queue.get(), nullptr, [weakSelf](const ZTNotification&) {
        if (auto self = weakSelf.lock()) self->handleConcurrentOperationQueueDidBecameEmptyNotification();
      });
  std::vector<std::shared_ptr<ZTOperation>> members;
  {
    ZTLockGuard lock(mutex_);
    operationQueue_ = queue;
    emptyQueueObserver_ = std::move(observer);
    members = operations_;
  }
  // Added while suspended so that the queue orders them by priority before any starts.
  try {
    queue->addOperations(members);
  } catch (const ZTInternalInconsistencyException& e) {
    // A member that runs in another queue stays there; the others go ahead.
    ZTLogf("ERROR: %s", e.what());
  }
  // Cancelled meanwhile: the members must not start as if nothing happened.
  if (isCancelled()) queue->cancelAllOperations();
  queue->setSuspended(false);
  // Nothing to wait for (no members, or all finished elsewhere): no queue drain will report it.
  if (queue->operationsCount() == 0) handleConcurrentOperationQueueDidBecameEmptyNotification();
}

void ZTCompoundConcurrentOperation::cancel() {
  ZTConcurrentOperation::cancel();
  std::shared_ptr<ZTOperationQueue> queue;
  std::vector<std::shared_ptr<ZTOperation>> members;
  {
    ZTLockGuard lock(mutex_);
    queue = operationQueue_;
    if (!queue) members = operations_;
  }
  if (queue) {
    queue->cancelAllOperations();
    return;
  }
  for (const auto& member : members) member->cancel();
}

void ZTCompoundConcurrentOperation::handleConcurrentOperationQueueDidBecameEmptyNotification() {
  if (!waitUntilFinishedAndCompletionHandlersAreCalled()) {
    finish();
    return;
  }
  std::weak_ptr<ZTCompoundConcurrentOperation> weakSelf =
      std::static_pointer_cast<ZTCompoundConcurrentOperation>(shared_from_this());
  ZTDispatchQueue::global()->async([weakSelf] {
    std::vector<std::shared_ptr<ZTOperation>> members;
    if (auto self = weakSelf.lock())
      members = self->operations();
    else
      return;
    for (const auto& member : members) member->waitUntilFinishedAndCompletionHandlerCalled();
    auto self = weakSelf.lock();
    if (!self) return;
    if (!self->workerThread()) {
      self->finish();
      return;
    }
    zt::performBlock([self] { self->finish(); }, self->workerThread());
  });
}

void ZTCompoundConcurrentOperation::finish() {
  finishWithSuccessHandler([this] {
    if (completionHandler_) completionHandler_(*this);
  });
}

namespace {
// Members that no queue will ever start are started here, as cancelled, and finish at once, so
// whoever waits on one of them is released. A member that another queue holds is left to it.
void finishAsCancelled(const std::vector<std::shared_ptr<ZTOperation>>& members) {
  for (const auto& member : members) {
    member->cancel();
    if (!member->holder() && !member->isExecuting() && !member->isFinished())
      zt::detail::callLoggingExceptions("An operation's start() in a cancelled compound operation",
                                        [&] { member->start(); });
  }
}
}  // namespace

void ZTCompoundConcurrentOperation::completeOperation() {
  std::vector<std::shared_ptr<ZTOperation>> neverQueued;
  {
    ZTLockGuard lock(mutex_);
    if (!operationQueue_) {
      neverQueued = operations_;
      membersSettled_ = true;
    }
  }
  finishAsCancelled(neverQueued);
  // The spawned queue thread is ended before the operation reports finished, so that anyone the
  // finish wakes finds it ended (cancelling only asks it to stop after the current turn).
  cancelOperationQueueSpawnedThreadIfNeeded();
  ZTConcurrentOperation::completeOperation();
}

void ZTCompoundConcurrentOperation::cancelOperationQueueSpawnedThreadIfNeeded() {
  std::shared_ptr<ZTThread> queueThread;
  {
    ZTLockGuard lock(mutex_);
    if (operationQueue_) queueThread = operationQueue_->workerThread();
  }
  if (queueThread && queueThread != workerThread() && !queueThread->isCancelled()) queueThread->cancel();
}

std::shared_ptr<ZTMutableCompoundConcurrentOperation> ZTMutableCompoundConcurrentOperation::create(
    std::vector<std::shared_ptr<ZTOperation>> operations, std::uint64_t options, std::shared_ptr<ZTThread> workerThread,
    Handler startHandler, Handler cancellationHandler, CompletionHandler completionHandler) {
  if (!completionHandler) return nullptr;
  return make<ZTMutableCompoundConcurrentOperation>(std::move(operations), options, std::move(workerThread),
                                                    std::move(startHandler), std::move(cancellationHandler),
                                                    std::move(completionHandler));
}

void ZTMutableCompoundConcurrentOperation::addOperation(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  addOperations({operation});
}

void ZTMutableCompoundConcurrentOperation::addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  if (isExecuting()) return;
  addOperationsBeforeStart(operations);
}

void ZTCompoundConcurrentOperation::addOperationsBeforeStart(
    const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  std::vector<std::shared_ptr<ZTOperation>> late;
  {
    ZTLockGuard lock(mutex_);
    if (operationQueue_) return;
    for (const auto& operation : operations) {
      if (!operation) continue;
      operations_.push_back(operation);
      if (membersSettled_) late.push_back(operation);
    }
  }
  // Completed without running (cancelled first): a member added now would otherwise wait forever.
  finishAsCancelled(late);
}
