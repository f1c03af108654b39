#include "zentrel/operations/operation.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "zentrel/operations/internal/guarded_call.h"
#include "zentrel/platform/exceptions.h"

namespace {
using Clock = std::chrono::steady_clock;
}  // namespace

struct ZTOperation::Observation : ZTOperationObservation {
  std::vector<std::string> keys;
  Observer callback;
  std::atomic<bool> removed{false};

  bool wants(std::string_view key) const {
    if (keys.empty()) return true;
    return std::any_of(keys.begin(), keys.end(), [&](const std::string& k) { return k == key; });
  }
};

ZTOperation::ZTOperation() = default;

ZTOperation::~ZTOperation() {
  // Stop listening to dependencies that outlive this operation.
  for (auto& dependency : dependencies_) dependency.operation->removeObserver(dependency.observation);
}

void ZTOperation::start() {
  if (syncStarted_.exchange(true, std::memory_order_acq_rel)) return;
  if (isExecuting() || isFinished()) return;
  struct Finisher {
    ZTOperation& operation;
    bool wasExecuting;
    ~Finisher() noexcept(false) {
      if (wasExecuting) {
        operation.willChangeValueForKey(ZTOperationIsExecutingKey);
        operation.syncExecuting_.store(false, std::memory_order_release);
        operation.didChangeValueForKey(ZTOperationIsExecutingKey);
      }
      operation.willChangeValueForKey(ZTOperationIsFinishedKey);
      operation.syncFinished_.store(true, std::memory_order_release);
      operation.didChangeValueForKey(ZTOperationIsFinishedKey);
    }
  };
  if (isCancelled()) {
    Finisher finisher{*this, false};
    return;
  }
  willChangeValueForKey(ZTOperationIsExecutingKey);
  syncExecuting_.store(true, std::memory_order_release);
  didChangeValueForKey(ZTOperationIsExecutingKey);
  Finisher finisher{*this, true};
  if (!isCancelled()) main();
}

void ZTOperation::main() {}

void ZTOperation::cancel() {
  if (!cancelled_.load(std::memory_order_acquire)) {
    willChangeValueForKey(ZTOperationIsCancelledKey);
    const bool wasCancelled = cancelled_.exchange(true, std::memory_order_acq_rel);
    didChangeValueForKey(ZTOperationIsCancelledKey);
    if (wasCancelled) return;
  }
  updateReadiness();
}

bool ZTOperation::isExecuting() const { return syncExecuting_.load(std::memory_order_acquire); }
bool ZTOperation::isFinished() const { return syncFinished_.load(std::memory_order_acquire); }
bool ZTOperation::isAsynchronous() const { return false; }

void ZTOperation::addDependency(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  if (operation.get() == this) throw ZTInternalInconsistencyException("An operation cannot depend on itself.");
  std::weak_ptr<ZTOperation> weakSelf = weak_from_this();
  if (weakSelf.expired())
    throw ZTInternalInconsistencyException("An operation must be held by std::shared_ptr before it gets dependencies.");
  {
    ZTLockGuard lock(dependenciesMutex_);
    for (const auto& dependency : dependencies_)
      if (dependency.operation == operation) return;
    auto observation = operation->addObserver({std::string(ZTOperationIsFinishedKey)},
                                              [weakSelf](ZTOperation&, std::string_view, ZTKeyValueChange change) {
                                                if (change != ZTKeyValueChange::DidChange) return;
                                                if (auto self = weakSelf.lock()) self->updateReadiness();
                                              });
    dependencies_.push_back({operation, std::move(observation)});
  }
  updateReadiness();
}

void ZTOperation::removeDependency(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  Dependency removed;
  {
    ZTLockGuard lock(dependenciesMutex_);
    auto it = std::find_if(dependencies_.begin(), dependencies_.end(),
                           [&](const Dependency& d) { return d.operation == operation; });
    if (it == dependencies_.end()) return;
    removed = std::move(*it);
    dependencies_.erase(it);
  }
  removed.operation->removeObserver(removed.observation);
  updateReadiness();
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperation::dependencies() const {
  ZTLockGuard lock(dependenciesMutex_);
  std::vector<std::shared_ptr<ZTOperation>> result;
  result.reserve(dependencies_.size());
  for (const auto& dependency : dependencies_) result.push_back(dependency.operation);
  return result;
}

bool ZTOperation::computeIsReady() const {
  if (isCancelled()) return true;
  ZTLockGuard lock(dependenciesMutex_);
  return std::all_of(dependencies_.begin(), dependencies_.end(),
                     [](const Dependency& d) { return d.operation->isFinished(); });
}

void ZTOperation::updateReadiness() {
  // One thread at a time recomputes; a request that arrives meanwhile (from another thread, or
  // from an observer re-entering on this one) makes that thread go round once more.
  if (readinessUpdates_.fetch_add(1, std::memory_order_acq_rel) != 0) return;
  do {
    const bool now = computeIsReady();
    if (now != ready_.load(std::memory_order_acquire)) {
      willChangeValueForKey(ZTOperationIsReadyKey);
      ready_.store(now, std::memory_order_release);
      didChangeValueForKey(ZTOperationIsReadyKey);
    }
  } while (readinessUpdates_.fetch_sub(1, std::memory_order_acq_rel) != 1);
}

void ZTOperation::setQueuePriority(std::int64_t priority) {
  std::int64_t normalized;
  if (priority <= -6)
    normalized = ZTOperationQueuePriorityVeryLow;
  else if (priority <= -2)
    normalized = ZTOperationQueuePriorityLow;
  else if (priority < 2)
    normalized = ZTOperationQueuePriorityNormal;
  else if (priority < 6)
    normalized = ZTOperationQueuePriorityHigh;
  else
    normalized = ZTOperationQueuePriorityVeryHigh;
  queuePriority_.store(normalized, std::memory_order_relaxed);
}

std::function<void()> ZTOperation::completionBlock() const {
  ZTLockGuard lock(stateMutex_);
  return completionBlock_;
}

void ZTOperation::setCompletionBlock(std::function<void()> block) {
  ZTLockGuard lock(stateMutex_);
  if (completionClaimed_.load(std::memory_order_acquire)) return;
  completionBlock_ = std::move(block);
}

// Waiters register under stateMutex_ before they check; the finishing side stores its flag first and
// then looks for waiters, so it only takes the lock and notifies when someone may be waiting.
void ZTOperation::waitUntilFinished() {
  ZTUniqueLock lock(stateMutex_);
  waiters_.fetch_add(1);
  while (!finishAnnounced_.load() && !isFinished()) stateCondition_.wait(lock);
  waiters_.fetch_sub(1);
}

bool ZTOperation::waitUntilFinished(Seconds timeout) {
  ZTUniqueLock lock(stateMutex_);
  waiters_.fetch_add(1);
  const auto deadline = Clock::now() + std::chrono::ceil<Clock::duration>(timeout);
  bool finished;
  while (!(finished = finishAnnounced_.load() || isFinished()))
    if (stateCondition_.wait_until(lock, deadline) == std::cv_status::timeout) {
      finished = finishAnnounced_.load() || isFinished();
      break;
    }
  waiters_.fetch_sub(1);
  return finished;
}

void ZTOperation::waitUntilFinishedAndCompletionHandlerCalled() {
  ZTUniqueLock lock(stateMutex_);
  waiters_.fetch_add(1);
  while (!completionHandlerWasCalled_.load()) stateCondition_.wait(lock);
  waiters_.fetch_sub(1);
}

bool ZTOperation::waitUntilFinishedAndCompletionHandlerCalled(Seconds timeout) {
  ZTUniqueLock lock(stateMutex_);
  waiters_.fetch_add(1);
  const auto deadline = Clock::now() + std::chrono::ceil<Clock::duration>(timeout);
  bool called;
  while (!(called = completionHandlerWasCalled_.load()))
    if (stateCondition_.wait_until(lock, deadline) == std::cv_status::timeout) {
      called = completionHandlerWasCalled_.load();
      break;
    }
  waiters_.fetch_sub(1);
  return called;
}

void ZTOperation::wakeWaiters() {
  if (waiters_.load() == 0) return;
  { ZTLockGuard lock(stateMutex_); }
  stateCondition_.notify_all();
}

bool ZTOperation::ztCompletionHandlerWasCalled() const { return completionHandlerWasCalled_.load(); }

std::string ZTOperation::name() const {
  ZTLockGuard lock(stateMutex_);
  return name_;
}

void ZTOperation::setName(std::string name) {
  ZTLockGuard lock(stateMutex_);
  name_ = std::move(name);
}

std::shared_ptr<ZTOperationObservation> ZTOperation::addObserver(std::vector<std::string> keys, Observer callback) {
  if (!callback) return nullptr;
  auto observation = std::make_shared<Observation>();
  observation->keys = std::move(keys);
  observation->callback = std::move(callback);
  ZTLockGuard lock(observersMutex_);
  observers_.push_back(observation);
  observersCount_.store(observers_.size(), std::memory_order_release);
  return observation;
}

bool ZTOperation::removeObserver(const std::shared_ptr<ZTOperationObservation>& observation) {
  if (!observation) return false;
  ZTLockGuard lock(observersMutex_);
  auto it = std::find(observers_.begin(), observers_.end(), observation);
  if (it == observers_.end()) return false;
  (*it)->removed.store(true, std::memory_order_release);
  observers_.erase(it);
  observersCount_.store(observers_.size(), std::memory_order_release);
  return true;
}

std::size_t ZTOperation::observerCount() const { return observersCount_.load(std::memory_order_acquire); }

void ZTOperation::willChangeValueForKey(std::string_view key) { notify(key, ZTKeyValueChange::WillChange); }

void ZTOperation::didChangeValueForKey(std::string_view key) {
  notify(key, ZTKeyValueChange::DidChange);
  if (key == ZTOperationIsFinishedKey && isFinished()) operationDidFinish();
}

void ZTOperation::notify(std::string_view key, ZTKeyValueChange change) {
  if (observersCount_.load(std::memory_order_acquire) != 0) notifyObservers(key, change);
  if (change == ZTKeyValueChange::DidChange && held_.load(std::memory_order_acquire) &&
      (key == ZTOperationIsReadyKey || key == ZTOperationIsFinishedKey))
    notifyHolder(key);
}

void ZTOperation::notifyHolder(std::string_view key) {
  // Called outside the lock, so that the holder may detach (or another attach) meanwhile.
  std::shared_ptr<Holder> holder;
  {
    ZTLockGuard lock(observersMutex_);
    holder = holder_.lock();
  }
  if (holder) holder->operationDidChange(*this, key);
}

bool ZTOperation::attachHolder(const std::shared_ptr<Holder>& holder) {
  if (!holder) return false;
  ZTLockGuard lock(observersMutex_);
  if (holderAddress_) return false;
  holderAddress_ = holder.get();
  holder_ = holder;
  held_.store(true, std::memory_order_release);
  return true;
}

bool ZTOperation::detachHolder(const Holder& holder) {
  ZTLockGuard lock(observersMutex_);
  if (holderAddress_ != &holder) return false;
  held_.store(false, std::memory_order_release);
  holderAddress_ = nullptr;
  holder_.reset();
  return true;
}

std::shared_ptr<ZTOperation::Holder> ZTOperation::holder() const {
  ZTLockGuard lock(observersMutex_);
  return holder_.lock();
}

void ZTOperation::notifyObservers(std::string_view key, ZTKeyValueChange change) {
  // Call a snapshot, outside the lock, so that callbacks may add and remove observers.
  constexpr std::size_t inlineCount = 4;
  std::array<std::shared_ptr<Observation>, inlineCount> inlineSnapshot;
  std::vector<std::shared_ptr<Observation>> snapshot;
  std::size_t count;
  {
    ZTLockGuard lock(observersMutex_);
    count = observers_.size();
    if (count <= inlineCount)
      std::copy(observers_.begin(), observers_.end(), inlineSnapshot.begin());
    else
      snapshot = observers_;
  }
  std::shared_ptr<Observation>* observations = count <= inlineCount ? inlineSnapshot.data() : snapshot.data();
  for (std::size_t i = 0; i < count; ++i) {
    Observation& observation = *observations[i];
    if (observation.removed.load(std::memory_order_acquire) || !observation.wants(key)) continue;
    observation.callback(*this, key, change);
  }
}

void ZTOperation::operationDidFinish() {
  if (completionClaimed_.exchange(true, std::memory_order_acq_rel)) return;
  std::function<void()> block;
  {
    ZTLockGuard lock(stateMutex_);
    block = std::move(completionBlock_);
    completionBlock_ = nullptr;
  }
  finishAnnounced_.store(true);
  wakeWaiters();
  struct Reporter {
    ZTOperation& operation;
    ~Reporter() {
      operation.completionHandlerWasCalled_.store(true);
      operation.wakeWaiters();
    }
  } reporter{*this};
  if (block) zt::detail::callLoggingExceptions("The completion block of an operation", block);
}
