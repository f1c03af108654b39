#include "zentrel/operations/operation_queue.h"

#include <time.h>

#include <chrono>
#include <cstdio>

#include "operations/internal/ready_operations.h"
#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"

namespace zt::detail {

// Operations waiting for their start() on the worker thread. One posted call starts every
// operation gathered since the previous one, in order, so a busy queue does not post per operation.
struct PendingStarts : std::enable_shared_from_this<PendingStarts> {
  std::shared_ptr<ZTThread> thread;
  std::mutex mutex;
  std::vector<std::shared_ptr<ZTOperation>> operations;  // guarded by mutex
  bool posted = false;                                    // guarded by mutex

  void schedule(std::vector<std::shared_ptr<ZTOperation>>& batch) {
    bool post = false;
    {
      std::lock_guard lock(mutex);
      for (auto& operation : batch) operations.push_back(std::move(operation));
      if (!posted) posted = post = true;
    }
    batch.clear();
    if (!post) return;
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

  std::vector<std::shared_ptr<ZTOperation>> take() {
    std::lock_guard lock(mutex);
    posted = false;
    return std::move(operations);
  }

  void startAll() {
    for (const auto& operation : take()) operation->start();
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
  std::unordered_map<const ZTOperation*, Observed> observed;
  {
    std::lock_guard lock(observingMutex_);
    observed.swap(observingOperationsSet_);
  }
  for (auto& [key, entry] : observed)
    if (auto operation = entry.operation.lock()) operation->removeObserver(entry.observation);
}

void ZTOperationQueue::addOperation(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  addOperations({operation});
}

void ZTOperationQueue::addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  if (operations.empty()) return;
  std::lock_guard lock(monitor_);
  for (const auto& operation : operations) {
    if (!operation || operation->isFinished() || operation->isExecuting()) continue;
    if (disposed_) return;
    const ZTOperation* key = operation.get();
    if (readyOperationsIndex_.count(key) || notReadyOperationsSet_.count(key) || executingOperationsSet_.count(key))
      continue;
    // Observe first, then read the state: a change that happens in between reaches the handlers,
    // which wait for this monitor and then find the operation where it belongs.
    startObservingOperationProperties(operation);
    if (operation->isReady()) insertReady(operation);
    else notReadyOperationsSet_.emplace(key, operation);
  }
  startNextOperationIfPossible();
}

void ZTOperationQueue::insertReady(const OperationPointer& operation) {
  readyOperations_->insert(operation);
  readyOperationsIndex_.insert(operation.get());
}

void ZTOperationQueue::startNextOperationIfPossible() {
  std::lock_guard lock(monitor_);
  if (suspended_ || disposed_) return;
  std::vector<OperationPointer> toStart;
  while (!readyOperations_->empty()) {
    if (static_cast<std::int64_t>(executingOperationsSet_.size()) >= maxConcurrentOperationCount_) break;
    OperationPointer operation = readyOperations_->popFront();
    readyOperationsIndex_.erase(operation.get());
    if (operation->isFinished()) {
      stopObservingOperationProperties(operation.get());
      continue;
    }
    executingOperationsSet_.emplace(operation.get(), operation);
    toStart.push_back(std::move(operation));
  }
  if (!toStart.empty()) pendingStarts_->schedule(toStart);
}

void ZTOperationQueue::startObservingOperationProperties(const OperationPointer& operation) {
  std::lock_guard lock(observingMutex_);
  auto [it, inserted] = observingOperationsSet_.try_emplace(operation.get());
  if (!inserted) {
    ZTLogf("Trying to obsorve same operation %s twice.", describe(operation.get()).c_str());
    return;
  }
  std::weak_ptr<ZTOperationQueue> weakSelf = weak_from_this();
  it->second.operation = operation;
  it->second.observation = operation->addObserver(
      {std::string(ZTOperationIsReadyKey), std::string(ZTOperationIsFinishedKey)},
      [weakSelf](ZTOperation& changed, std::string_view key, ZTKeyValueChange change) {
        if (change != ZTKeyValueChange::DidChange) return;
        auto self = weakSelf.lock();
        if (!self) return;
        if (key == ZTOperationIsReadyKey) self->handleOperationIsReadyPropertyChange(changed);
        else if (key == ZTOperationIsFinishedKey) self->handleOperationIsFinishedPropertyChange(changed);
      });
}

void ZTOperationQueue::stopObservingOperationProperties(ZTOperation* operation) {
  Observed entry;
  {
    std::lock_guard lock(observingMutex_);
    auto it = observingOperationsSet_.find(operation);
    if (it == observingOperationsSet_.end()) {
      ZTLogf("Trying to stop obsorvation of operation %s which we are not observing.", describe(operation).c_str());
      return;
    }
    entry = std::move(it->second);
    observingOperationsSet_.erase(it);
  }
  if (auto observed = entry.operation.lock()) observed->removeObserver(entry.observation);
}

void ZTOperationQueue::handleOperationIsReadyPropertyChange(ZTOperation& operation) {
  std::lock_guard lock(monitor_);
  if (disposed_) return;
  const ZTOperation* key = &operation;
  const bool waitingReady = readyOperationsIndex_.count(key) != 0;
  auto notReady = notReadyOperationsSet_.find(key);
  // A late callback for an operation that has already left the queue changes nothing.
  if (!waitingReady && notReady == notReadyOperationsSet_.end()) return;
  if (operation.isReady()) {
    if (!waitingReady) insertReady(notReady->second);
    if (notReady != notReadyOperationsSet_.end()) notReadyOperationsSet_.erase(notReady);
    startNextOperationIfPossible();
  } else if (!operation.isExecuting() && waitingReady) {
    notReadyOperationsSet_.emplace(key, operation.shared_from_this());
    readyOperations_->remove(key);
    readyOperationsIndex_.erase(key);
  }
}

void ZTOperationQueue::handleOperationIsFinishedPropertyChange(ZTOperation& operation) {
  std::shared_ptr<ZTOperationQueue> self;
  {
    std::lock_guard lock(monitor_);
    if (!operation.isFinished()) return;
    const ZTOperation* key = &operation;
    // Keep the operation alive until this handler is done with it.
    OperationPointer held;
    if (auto it = executingOperationsSet_.find(key); it != executingOperationsSet_.end()) {
      held = std::move(it->second);
      executingOperationsSet_.erase(it);
    } else if (readyOperationsIndex_.erase(key)) {
      readyOperations_->remove(key);
    } else if (auto waiting = notReadyOperationsSet_.find(key); waiting != notReadyOperationsSet_.end()) {
      held = std::move(waiting->second);
      notReadyOperationsSet_.erase(waiting);
    } else {
      return;  // not one of ours any more
    }
    stopObservingOperationProperties(&operation);
    startNextOperationIfPossible();
    if (operationsCountLocked() == 0) self = shared_from_this();
  }
  if (self) ZTNotificationCenter::defaultCenter()->postNotificationName(ZTOperationQueueDidBecameEmptyNotification, self);
}

void ZTOperationQueue::cancelAllOperationsInCollections(bool includeExecuting, bool stopObservingExecutingOperations) {
  std::vector<OperationPointer> operations;
  if (includeExecuting) {
    for (const auto& [key, operation] : executingOperationsSet_) {
      if (stopObservingExecutingOperations) stopObservingOperationProperties(operation.get());
      operations.push_back(operation);
    }
  }
  readyOperations_->forEach([&](const OperationPointer& operation) { operations.push_back(operation); });
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
    for (auto it = executingOperationsSet_.begin(); it != executingOperationsSet_.end();) {
      auto* concurrent = dynamic_cast<ZTConcurrentOperation*>(it->second.get());
      if (concurrent && concurrent->workerThread() && concurrent->workerThread()->runLoop()->isCurrent()) {
        stopObservingOperationProperties(it->second.get());
        it = executingOperationsSet_.erase(it);
      } else {
        ++it;
      }
    }
    readyOperations_->forEach([&](const OperationPointer& operation) { stopObservingOperationProperties(operation.get()); });
    readyOperations_->clear();
    readyOperationsIndex_.clear();
    for (const auto& [key, operation] : notReadyOperationsSet_) stopObservingOperationProperties(operation.get());
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
  return static_cast<std::int64_t>(executingOperationsSet_.size() + readyOperationsIndex_.size() +
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
  for (const auto& [key, operation] : executingOperationsSet_) result.push_back(operation);
  readyOperations_->forEach([&](const OperationPointer& operation) { result.push_back(operation); });
  for (const auto& [key, operation] : notReadyOperationsSet_) result.push_back(operation);
  return result;
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperationQueue::executingOperations() const {
  std::lock_guard lock(monitor_);
  std::vector<OperationPointer> result;
  for (const auto& [key, operation] : executingOperationsSet_) result.push_back(operation);
  return result;
}

std::string ZTOperationQueue::description() const {
  std::string list = "(";
  const auto all = operations();
  for (std::size_t i = 0; i < all.size(); ++i) list += (i ? ",\n    " : "\n    ") + describe(all[i].get());
  list += all.empty() ? ")" : "\n)";
  char head[64];
  std::snprintf(head, sizeof head, "%p", static_cast<const void*>(this));
  return "<" + ZTDebugClassNameForObject(this) + ": " + head + "; name = " + name() +
         "; maxConcurrentOperationCount = " + std::to_string(maxConcurrentOperationCount()) +
         "; operations = " + list + ">";
}
