#include "zentrel/operations/operation_queue.h"

#include <time.h>

#include <chrono>
#include <cstdio>

#include "operations/internal/ready_operations.h"
#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"

namespace zt::detail {

// Operations waiting for their start() on the worker thread. One posted call starts every
// operation gathered since the previous one, in order, so a busy queue does not post per operation.
struct PendingStarts : std::enable_shared_from_this<PendingStarts> {
  std::shared_ptr<ZTThread> thread;
  std::mutex mutex;
  std::vector<std::shared_ptr<ZTOperation>> operations;  // guarded by mutex
  bool posted = false;                                   // guarded by mutex

  void schedule(std::vector<std::shared_ptr<ZTOperation>>& batch) {
    bool post = false;
    {
      std::lock_guard lock(mutex);
      for (auto& operation : batch) operations.push_back(std::move(operation));
      if (!posted) posted = post = true;
    }
    batch.clear();
    if (post) postStartAll();
  }

  void postStartAll() {
    auto self = shared_from_this();
    if (zt::performBlock([self] { self->startAll(); }, thread, false)) return;
    std::size_t dropped;
    {
      std::lock_guard lock(mutex);
      dropped = operations.size();
      operations.clear();
      posted = false;
    }
    ZTLogf("ERROR: The operation queue's worker thread is not running; %zu operations could not be started.", dropped);
  }

  // Operations not yet started, for dispose() on the worker thread.
  std::vector<std::shared_ptr<ZTOperation>> take() {
    std::lock_guard lock(mutex);
    return std::move(operations);
  }

  // Starts gathered while these start join this turn, up to a bound, so that a busy queue does not
  // keep its thread from other work for long.
  void startAll() {
    constexpr std::size_t kMaxStartsPerTurn = 512;
    std::size_t started = 0;
    for (;;) {
      std::vector<std::shared_ptr<ZTOperation>> batch;
      {
        std::lock_guard lock(mutex);
        if (operations.empty()) {
          posted = false;
          return;
        }
        if (started >= kMaxStartsPerTurn) break;
        batch.swap(operations);
      }
      for (const auto& operation : batch) operation->start();
      started += batch.size();
    }
    postStartAll();
  }
};

}  // namespace zt::detail

namespace {

std::string describe(const ZTOperation* operation) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(operation));
  std::string text = "<" + ZTDebugClassNameForObject(operation) + ": " + address;
  if (operation) {
    const std::string name = operation->name();
    if (!name.empty()) text += "; name = " + name;
  }
  return text + ">";
}

}  // namespace

ZTComparisonResult ZTOperationsComparator(const ZTOperation& a, const ZTOperation& b) {
  const auto pa = a.queuePriority();
  const auto pb = b.queuePriority();
  if (pa == pb) return ZTComparisonResult::OrderedSame;
  return pa > pb ? ZTComparisonResult::OrderedAscending : ZTComparisonResult::OrderedDescending;
}

namespace {
// Where an operation is within its queue (ZTOperation::queueState_).
enum QueueState { kOutside = 0, kNotReady = 1, kReady = 2, kExecuting = 3 };
}  // namespace

std::shared_ptr<ZTOperationQueue> ZTOperationQueue::create(std::shared_ptr<ZTThread> workerThread) {
  if (!workerThread) return nullptr;
  return std::shared_ptr<ZTOperationQueue>(new ZTOperationQueue(std::move(workerThread)));
}

ZTOperationQueue::ZTOperationQueue(std::shared_ptr<ZTThread> workerThread)
    : workerThread_(std::move(workerThread)),
      readyOperations_(std::make_unique<zt::detail::ReadyOperations>()),
      pendingStarts_(std::make_shared<zt::detail::PendingStarts>()) {
  pendingStarts_->thread = workerThread_;
}

ZTOperationQueue::~ZTOperationQueue() {
  // Let every operation still here go, so that it can join another queue.
  std::lock_guard lock(monitor_);
  std::vector<OperationPointer> held(executingOperationsSet_.begin(), executingOperationsSet_.end());
  readyOperations_->forEach([&](ZTOperation* operation) { held.push_back(std::move(operation->queueHold_)); });
  for (const auto& [key, operation] : notReadyOperationsSet_) held.push_back(operation);
  for (const auto& operation : held) release(*operation);
}

void ZTOperationQueue::addOperation(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  addOperations({operation});
}

void ZTOperationQueue::addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  if (operations.empty()) return;
  std::lock_guard lock(monitor_);
  std::string refused;
  for (const auto& operation : operations) {
    if (!operation || operation->isFinished() || operation->isExecuting()) continue;
    if (disposed_) return;
    const void* owner = nullptr;
    if (!operation->queueOwner_.compare_exchange_strong(owner, this, std::memory_order_acq_rel)) {
      // Already here: nothing to do. In another queue: refused, after the others are under way.
      if (owner != this && refused.empty()) refused = describe(operation.get());
      continue;
    }
    // Observe first, then read the state: a change that happens in between reaches the handlers,
    // which wait for this monitor and then find the operation where it belongs.
    startObservingOperationProperties(operation);
    if (operation->isReady()) {
      insertReady(operation);
    } else {
      operation->queueState_ = kNotReady;
      notReadyOperationsSet_.emplace(operation.get(), operation);
    }
  }
  startNextOperationIfPossible();
  if (!refused.empty())
    throw ZTInternalInconsistencyException("The operation " + refused + " is already in another operation queue.");
}

void ZTOperationQueue::insertReady(const OperationPointer& operation) {
  operation->queueState_ = kReady;
  operation->queueHold_ = operation;
  readyOperations_->insert(operation.get());
}

void ZTOperationQueue::addExecuting(OperationPointer operation) {
  operation->queueState_ = kExecuting;
  operation->queueIndex_ = executingOperationsSet_.size();
  executingOperationsSet_.push_back(std::move(operation));
}

ZTOperationQueue::OperationPointer ZTOperationQueue::removeExecuting(ZTOperation& operation) {
  const std::size_t index = operation.queueIndex_;
  OperationPointer removed = std::move(executingOperationsSet_[index]);
  if (index + 1 != executingOperationsSet_.size()) {
    executingOperationsSet_[index] = std::move(executingOperationsSet_.back());
    executingOperationsSet_[index]->queueIndex_ = index;
  }
  executingOperationsSet_.pop_back();
  return removed;
}

void ZTOperationQueue::release(ZTOperation& operation) {
  stopObservingOperationProperties(&operation);
  operation.queueState_ = kOutside;
  operation.queueOwner_.store(nullptr, std::memory_order_release);
}

void ZTOperationQueue::startNextOperationIfPossible() {
  std::lock_guard lock(monitor_);
  if (suspended_ || disposed_) return;
  std::vector<OperationPointer>& toStart = toStartScratch_;
  while (!readyOperations_->empty()) {
    if (static_cast<std::int64_t>(executingOperationsSet_.size()) >= maxConcurrentOperationCount_) break;
    OperationPointer operation = std::move(readyOperations_->popFront()->queueHold_);
    if (operation->isFinished()) {
      release(*operation);
      continue;
    }
    addExecuting(operation);
    toStart.push_back(std::move(operation));
  }
  // The next operation to start was usually created long ago; fetch it into the cache while the
  // ones just started run, since a long ready list is walked in an order memory cannot predict.
  if (ZTOperation* next = readyOperations_->front()) {
    const char* bytes = reinterpret_cast<const char*>(next);
    for (std::size_t offset = 0; offset < sizeof(ZTOperation) + 128; offset += 64) __builtin_prefetch(bytes + offset);
  }
  if (!toStart.empty()) pendingStarts_->schedule(toStart);
}

void ZTOperationQueue::operationChanged(const std::shared_ptr<void>& queue, ZTOperation& operation,
                                        std::string_view key) {
  auto* self = static_cast<ZTOperationQueue*>(queue.get());
  if (key == ZTOperationIsReadyKey)
    self->handleOperationIsReadyPropertyChange(operation);
  else if (key == ZTOperationIsFinishedKey)
    self->handleOperationIsFinishedPropertyChange(operation);
}

void ZTOperationQueue::startObservingOperationProperties(const OperationPointer& operation) {
  std::lock_guard lock(operation->observersMutex_);
  if (operation->queueHook_) {
    ZTLogf("Trying to obsorve same operation %s twice.", describe(operation.get()).c_str());
    return;
  }
  operation->queueHook_ = &ZTOperationQueue::operationChanged;
  operation->queueHookTarget_ = std::static_pointer_cast<void>(shared_from_this());
  operation->hasQueueHook_.store(true, std::memory_order_release);
}

void ZTOperationQueue::stopObservingOperationProperties(ZTOperation* operation) {
  std::lock_guard lock(operation->observersMutex_);
  if (!operation->queueHook_) {
    ZTLogf("Trying to stop obsorvation of operation %s which we are not observing.", describe(operation).c_str());
    return;
  }
  operation->hasQueueHook_.store(false, std::memory_order_release);
  operation->queueHook_ = nullptr;
  operation->queueHookTarget_.reset();
}

void ZTOperationQueue::handleOperationIsReadyPropertyChange(ZTOperation& operation) {
  std::lock_guard lock(monitor_);
  if (disposed_ || operation.queueOwner_.load(std::memory_order_acquire) != this) return;
  // A late callback for an operation that has already left the queue changes nothing.
  const int state = operation.queueState_;
  if (state != kReady && state != kNotReady) return;
  if (operation.isReady()) {
    if (state == kNotReady) {
      auto waiting = notReadyOperationsSet_.find(&operation);
      OperationPointer held = std::move(waiting->second);
      notReadyOperationsSet_.erase(waiting);
      insertReady(held);
    }
    startNextOperationIfPossible();
  } else if (state == kReady && !operation.isExecuting()) {
    OperationPointer held = std::move(operation.queueHold_);
    readyOperations_->remove(&operation);
    operation.queueState_ = kNotReady;
    notReadyOperationsSet_.emplace(&operation, std::move(held));
  }
}

void ZTOperationQueue::handleOperationIsFinishedPropertyChange(ZTOperation& operation) {
  std::shared_ptr<ZTOperationQueue> self;
  {
    std::lock_guard lock(monitor_);
    if (!operation.isFinished() || operation.queueOwner_.load(std::memory_order_acquire) != this) return;
    // Keep the operation alive until this handler is done with it.
    OperationPointer held;
    switch (operation.queueState_) {
      case kExecuting:
        held = removeExecuting(operation);
        break;
      case kReady:
        held = std::move(operation.queueHold_);
        readyOperations_->remove(&operation);
        break;
      case kNotReady: {
        auto waiting = notReadyOperationsSet_.find(&operation);
        held = std::move(waiting->second);
        notReadyOperationsSet_.erase(waiting);
        break;
      }
      default:
        return;  // not one of ours any more
    }
    release(operation);
    startNextOperationIfPossible();
    if (operationsCountLocked() == 0) self = shared_from_this();
  }
  if (self)
    ZTNotificationCenter::defaultCenter()->postNotificationName(ZTOperationQueueDidBecameEmptyNotification, self);
}

void ZTOperationQueue::cancelAllOperationsInCollections(bool includeExecuting, bool stopObservingExecutingOperations) {
  std::vector<OperationPointer> operations;
  if (includeExecuting) {
    for (const auto& operation : executingOperationsSet_) {
      if (stopObservingExecutingOperations) stopObservingOperationProperties(operation.get());
      operations.push_back(operation);
    }
  }
  readyOperations_->forEach([&](ZTOperation* operation) { operations.push_back(operation->queueHold_); });
  for (const auto& [key, operation] : notReadyOperationsSet_) operations.push_back(operation);
  for (const auto& operation : operations) operation->cancel();
}

void ZTOperationQueue::cancelAllOperations() {
  std::lock_guard lock(monitor_);
  cancelAllOperationsInCollections(true, false);
}

void ZTOperationQueue::cancelAllButFinishRunningOperations() {
  std::lock_guard lock(monitor_);
  cancelAllOperationsInCollections(false, false);
}

void ZTOperationQueue::dispose() {
  const bool onWorkerThread = workerThread_->runLoop()->isCurrent();
  std::vector<OperationPointer> notYetStarted;
  {
    std::lock_guard lock(monitor_);
    if (disposed_) return;
    disposed_ = true;
    cancelAllOperationsInCollections(true, false);
    for (std::size_t i = 0; i < executingOperationsSet_.size();) {
      auto* concurrent = dynamic_cast<ZTConcurrentOperation*>(executingOperationsSet_[i].get());
      if (concurrent && concurrent->workerThread() && concurrent->workerThread()->runLoop()->isCurrent()) {
        OperationPointer removed = removeExecuting(*concurrent);
        release(*removed);
      } else {
        ++i;
      }
    }
    std::vector<OperationPointer> dropped;
    readyOperations_->forEach([&](ZTOperation* operation) { dropped.push_back(std::move(operation->queueHold_)); });
    readyOperations_->clear();
    for (const auto& operation : dropped) release(*operation);
    for (const auto& [key, operation] : notReadyOperationsSet_) release(*operation);
    notReadyOperationsSet_.clear();
    // On the worker thread, starts still queued for it could only run after this wait; the
    // operations are cancelled, so starting them now just lets them complete.
    if (onWorkerThread) notYetStarted = pendingStarts_->take();
  }
  for (const auto& operation : notYetStarted) operation->start();

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  const timespec tenMicroseconds{0, 10'000};
  for (;;) {
    {
      std::lock_guard lock(monitor_);
      if (executingOperationsSet_.empty()) return;
    }
    if (std::chrono::steady_clock::now() >= deadline) return;
    nanosleep(&tenMicroseconds, nullptr);
  }
}

bool ZTOperationQueue::isDisposed() const {
  std::lock_guard lock(monitor_);
  return disposed_;
}

std::int64_t ZTOperationQueue::maxConcurrentOperationCount() const {
  std::lock_guard lock(monitor_);
  return maxConcurrentOperationCount_;
}

void ZTOperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  std::lock_guard lock(monitor_);
  maxConcurrentOperationCount_ = count < 1 ? 5 : count;
}

bool ZTOperationQueue::isSuspended() const {
  std::lock_guard lock(monitor_);
  return suspended_;
}

void ZTOperationQueue::setSuspended(bool suspended) {
  bool resumed;
  {
    std::lock_guard lock(monitor_);
    resumed = suspended_ && !suspended;
    suspended_ = suspended;
  }
  if (resumed) startNextOperationIfPossible();
}

std::string ZTOperationQueue::name() const {
  std::lock_guard lock(monitor_);
  return name_;
}

void ZTOperationQueue::setName(std::string name) {
  std::lock_guard lock(monitor_);
  name_ = std::move(name);
}

std::int64_t ZTOperationQueue::operationsCountLocked() const {
  return static_cast<std::int64_t>(executingOperationsSet_.size() + readyOperations_->size() +
                                   notReadyOperationsSet_.size());
}

std::int64_t ZTOperationQueue::operationsCount() const {
  std::lock_guard lock(monitor_);
  return operationsCountLocked();
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperationQueue::operations() const {
  std::lock_guard lock(monitor_);
  std::vector<OperationPointer> result;
  result.reserve(static_cast<std::size_t>(operationsCountLocked()));
  result.insert(result.end(), executingOperationsSet_.begin(), executingOperationsSet_.end());
  readyOperations_->forEach([&](ZTOperation* operation) { result.push_back(operation->queueHold_); });
  for (const auto& [key, operation] : notReadyOperationsSet_) result.push_back(operation);
  return result;
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperationQueue::executingOperations() const {
  std::lock_guard lock(monitor_);
  return executingOperationsSet_;
}

std::string ZTOperationQueue::description() const {
  std::string list = "(";
  const auto all = operations();
  for (std::size_t i = 0; i < all.size(); ++i) list += (i ? ",\n    " : "\n    ") + describe(all[i].get());
  list += all.empty() ? ")" : "\n)";
  char head[64];
  std::snprintf(head, sizeof head, "%p", static_cast<const void*>(this));
  return "<" + ZTDebugClassNameForObject(this) + ": " + head + "; name = " + name() +
         "; maxConcurrentOperationCount = " + std::to_string(maxConcurrentOperationCount()) + "; operations = " + list +
         ">";
}
