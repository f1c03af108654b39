#include "zentrel/operations/operation_queue.h"

#include <time.h>

#include <chrono>
#include <cstdio>

#include "zentrel/operations/internal/guarded_call.h"
#include "operations/internal/ready_operations.h"
#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"

namespace zt::detail {

// Operations waiting for their start() on the worker thread. One posted call starts every
// operation gathered since the previous one, in order, so a busy queue does not post per operation.
struct PendingStarts : std::enable_shared_from_this<PendingStarts> {
  std::shared_ptr<ZTThread> thread;
  ZTMutex mutex;
  std::vector<std::shared_ptr<ZTOperation>> operations ZT_GUARDED_BY(mutex);
  bool posted ZT_GUARDED_BY(mutex) = false;

  void schedule(std::vector<std::shared_ptr<ZTOperation>>& batch) {
    bool post = false;
    {
      ZTLockGuard lock(mutex);
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
      ZTLockGuard lock(mutex);
      dropped = operations.size();
      operations.clear();
      posted = false;
    }
    ZTLogf("ERROR: The operation queue's worker thread is not running; %zu operations could not be started.", dropped);
  }

  // Operations not yet started, for dispose() on the worker thread.
  std::vector<std::shared_ptr<ZTOperation>> take() {
    ZTLockGuard lock(mutex);
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
        ZTLockGuard lock(mutex);
        if (operations.empty()) {
          posted = false;
          return;
        }
        if (started >= kMaxStartsPerTurn) break;
        batch.swap(operations);
      }
      // One operation whose start() throws must not cost the others theirs, nor leave posted set.
      for (const auto& operation : batch)
        zt::detail::callLoggingExceptions("An operation's start() on its queue", [&] { operation->start(); });
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

// A member is called only while its queue lives: the operation refers to it through a weak
// reference that shares the queue's ownership. Members are kept and used again (see makeMember()), so
// a late call may reach a member that has moved on to another operation; the handlers tell by the
// operation they are called with.
struct ZTOperationQueue::Member final : ZTOperation::Holder {
  enum class Place { Outside, NotReady, Ready, Executing };

  explicit Member(ZTOperationQueue& owner) : queue(owner) {}

  void operationDidChange(ZTOperation& changed, std::string_view key) override {
    if (key == ZTOperationIsReadyKey)
      queue.handleOperationIsReadyPropertyChange(*this, changed);
    else if (key == ZTOperationIsFinishedKey)
      queue.handleOperationIsFinishedPropertyChange(*this, changed);
  }

  ZTOperationQueue& queue;
  // The queue's reference to the operation from its addition until it leaves the queue (null
  // otherwise). With the fields below, read and written only by the queue under its monitor.
  OperationPointer operation;
  Place place = Place::Outside;
  std::size_t index = 0;  // in executingOperations_ or notReadyOperations_
};

// Each member goes into the ready list with its operation beside it, so that the next operation to
// start can be fetched into the cache before its member has been read.
class ZTOperationQueue::ReadyMembers {
 public:
  std::size_t size() const { return list_.size(); }
  bool empty() const { return list_.empty(); }
  void insert(Member& member) { list_.insert({&member, member.operation.get()}); }
  bool remove(Member& member) { return list_.remove({&member, member.operation.get()}); }
  Member* popFront() { return list_.popFront().member; }
  // The next member to start and its operation; nulls when there is none.
  struct Entry {
    Member* member = nullptr;
    ZTOperation* operation = nullptr;
    bool operator==(const Entry&) const = default;
  };
  Entry front() const { return list_.front(); }
  template <class F>
  void forEach(F&& f) const {
    list_.forEach([&](const Entry& entry) { f(entry.member); });
  }
  void clear() { list_.clear(); }

 private:
  struct Priority {
    std::int64_t operator()(const Entry& entry) const { return entry.operation->queuePriority(); }
  };
  zt::detail::ReadyList<Entry, Priority> list_;
};

std::shared_ptr<ZTOperationQueue> ZTOperationQueue::create(std::shared_ptr<ZTThread> workerThread) {
  if (!workerThread) return nullptr;
  return std::shared_ptr<ZTOperationQueue>(new ZTOperationQueue(std::move(workerThread), false));
}

std::shared_ptr<ZTOperationQueue> ZTOperationQueue::createWithOwnThread(std::string threadName) {
  if (threadName.empty()) threadName = "ZTOperationQueue Worker Thread";
  std::shared_ptr<ZTThread> thread = ZTThreadWithRunLoop::spawnThreadWithName(std::move(threadName));
  if (!thread) return nullptr;
  return std::shared_ptr<ZTOperationQueue>(new ZTOperationQueue(std::move(thread), true));
}

ZTOperationQueue::ZTOperationQueue(std::shared_ptr<ZTThread> workerThread, bool ownsWorkerThread)
    : workerThread_(std::move(workerThread)),
      ownsWorkerThread_(ownsWorkerThread),
      readyOperations_(std::make_unique<ReadyMembers>()),
      pendingStarts_(std::make_shared<zt::detail::PendingStarts>()) {
  pendingStarts_->thread = workerThread_;
}

ZTOperationQueue::~ZTOperationQueue() {
  std::vector<OperationPointer> released;
  {
    // Let every operation still here go, so that it can join another queue.
    ZTLockGuard lock(monitor_);
    std::vector<Member*> members(executingOperations_.begin(), executingOperations_.end());
    readyOperations_->forEach([&](Member* member) { members.push_back(member); });
    members.insert(members.end(), notReadyOperations_.begin(), notReadyOperations_.end());
    released.reserve(members.size());
    for (Member* member : members) released.push_back(release(*member));
  }
  if (!ownsWorkerThread_) return;
  // The owned thread ends with the queue, but only after what is queued on it — starts, finishing
  // hops — has run, and after the operations that never started have been started as cancelled,
  // so that every operation still finishes and nobody waiting on one hangs.
  std::vector<OperationPointer> neverStarted;
  for (const auto& operation : released) {
    if (operation->isFinished()) continue;
    operation->cancel();
    if (!operation->isExecuting()) neverStarted.push_back(operation);
  }
  auto thread = workerThread_;
  auto end = [thread, neverStarted = std::move(neverStarted)] {
    for (const auto& operation : neverStarted)
      if (!operation->holder() && !operation->isExecuting() && !operation->isFinished())
        zt::detail::callLoggingExceptions("An operation's start() on its ending queue", [&] { operation->start(); });
    thread->cancel();
  };
  if (!zt::performBlock(end, thread, false)) thread->cancel();
}

void ZTOperationQueue::addOperation(const std::shared_ptr<ZTOperation>& operation) {
  if (!operation) return;
  addOperations({operation});
}

void ZTOperationQueue::addOperations(const std::vector<std::shared_ptr<ZTOperation>>& operations) {
  if (operations.empty()) return;
  ZTLockGuard lock(monitor_);
  std::string refused;
  for (const auto& operation : operations) {
    if (!operation || operation->isFinished() || operation->isExecuting()) continue;
    if (disposed_) return;
    Member& member = makeMember(operation);
    // Attached first, then the state read: a change that happens in between reaches the handlers,
    // which wait for this monitor and then find the operation where it belongs.
    if (!operation->attachHolder(std::shared_ptr<ZTOperation::Holder>(shared_from_this(), &member))) {
      member.operation = nullptr;
      freeMembers_.push_back(&member);
      // Already here: nothing to do. In another queue: refused, after the others are under way.
      const auto holder = operation->holder();
      const auto* current = dynamic_cast<const Member*>(holder.get());
      if (!(current && &current->queue == this) && refused.empty()) refused = describe(operation.get());
      continue;
    }
    if (operation->isReady())
      insertReady(member);
    else
      addNotReady(member);
  }
  startNextOperationIfPossible();
  if (!refused.empty())
    throw ZTInternalInconsistencyException("The operation " + refused + " is already in another operation queue.");
}

void ZTOperationQueue::insertReady(Member& member) {
  member.place = Member::Place::Ready;
  readyOperations_->insert(member);
}

void ZTOperationQueue::addExecuting(Member& member) {
  member.place = Member::Place::Executing;
  member.index = executingOperations_.size();
  executingOperations_.push_back(&member);
}

void ZTOperationQueue::addNotReady(Member& member) {
  member.place = Member::Place::NotReady;
  member.index = notReadyOperations_.size();
  notReadyOperations_.push_back(&member);
}

namespace {
// Removes the member at its index by moving the last one there.
template <class M>
void removeAt(std::vector<M*>& members, M& member) {
  const std::size_t index = member.index;
  if (index + 1 != members.size()) {
    members[index] = members.back();
    members[index]->index = index;
  }
  members.pop_back();
}
}  // namespace

void ZTOperationQueue::removeExecuting(Member& member) { removeAt(executingOperations_, member); }

void ZTOperationQueue::removeNotReady(Member& member) { removeAt(notReadyOperations_, member); }

ZTOperationQueue::OperationPointer ZTOperationQueue::release(Member& member) {
  member.place = Member::Place::Outside;
  OperationPointer operation = std::move(member.operation);
  if (!operation->detachHolder(member))
    ZTLogf("Trying to stop obsorvation of operation %s which we are not observing.", describe(operation.get()).c_str());
  freeMembers_.push_back(&member);
  return operation;
}

// Members are used again rather than allocated per operation: the queue keeps as many as it once
// held operations at one time, until it is destroyed.
ZTOperationQueue::Member& ZTOperationQueue::makeMember(const OperationPointer& operation) {
  Member* member;
  if (freeMembers_.empty()) {
    member = members_.emplace_back(std::make_unique<Member>(*this)).get();
  } else {
    member = freeMembers_.back();
    freeMembers_.pop_back();
  }
  member->operation = operation;
  return *member;
}

void ZTOperationQueue::startNextOperationIfPossible() {
  if (suspended_ || disposed_) return;
  std::vector<OperationPointer>& toStart = toStartScratch_;
  while (!readyOperations_->empty()) {
    if (static_cast<std::int64_t>(executingOperations_.size()) >= maxConcurrentOperationCount_) break;
    Member& member = *readyOperations_->popFront();
    if (member.operation->isFinished()) {
      release(member);
      continue;
    }
    addExecuting(member);
    toStart.push_back(member.operation);
  }
  // The next operation to start was usually created long ago; fetch it into the cache while the
  // ones just started run, since a long ready list is walked in an order memory cannot predict.
  // (Written out here: GCC drops prefetches from a helper function, which it finds free of effects.)
  if (const auto next = readyOperations_->front(); next.member) {
    __builtin_prefetch(next.member);
    // From the line before the operation, which holds its control block when it was made with
    // std::make_shared: starting it takes a reference.
    const char* bytes = reinterpret_cast<const char*>(next.operation);
    for (std::size_t offset = 0; offset < sizeof(ZTOperation) + 192; offset += 64)
      __builtin_prefetch(bytes + offset - 64);
  }
  if (!toStart.empty()) pendingStarts_->schedule(toStart);
}

void ZTOperationQueue::handleOperationIsReadyPropertyChange(Member& member, ZTOperation& operation) {
  ZTLockGuard lock(monitor_);
  // A late call for an operation that has already left the queue changes nothing.
  if (disposed_ || member.operation.get() != &operation) return;
  const auto place = member.place;
  if (place != Member::Place::Ready && place != Member::Place::NotReady) return;
  if (operation.isReady()) {
    if (place == Member::Place::NotReady) {
      removeNotReady(member);
      insertReady(member);
    }
    startNextOperationIfPossible();
  } else if (place == Member::Place::Ready && !operation.isExecuting()) {
    readyOperations_->remove(member);
    addNotReady(member);
  }
}

void ZTOperationQueue::handleOperationIsFinishedPropertyChange(Member& member, ZTOperation& operation) {
  std::shared_ptr<ZTOperationQueue> self;
  OperationPointer held;  // keeps the operation alive until this handler is done with it
  {
    ZTLockGuard lock(monitor_);
    if (!operation.isFinished() || member.operation.get() != &operation) return;
    switch (member.place) {
      case Member::Place::Executing:
        removeExecuting(member);
        break;
      case Member::Place::Ready:
        readyOperations_->remove(member);
        break;
      case Member::Place::NotReady:
        removeNotReady(member);
        break;
      case Member::Place::Outside:
        return;  // not one of ours any more
    }
    held = release(member);
    startNextOperationIfPossible();
    if (operationsCountLocked() == 0) self = shared_from_this();
  }
  if (self)
    ZTNotificationCenter::defaultCenter()->postNotificationName(ZTOperationQueueDidBecameEmptyNotification, self);
}

void ZTOperationQueue::cancelAllOperationsInCollections(bool includeExecuting) {
  std::vector<OperationPointer> operations;
  if (includeExecuting)
    for (Member* member : executingOperations_) operations.push_back(member->operation);
  readyOperations_->forEach([&](Member* member) { operations.push_back(member->operation); });
  for (Member* member : notReadyOperations_) operations.push_back(member->operation);
  for (const auto& operation : operations) operation->cancel();
}

void ZTOperationQueue::cancelAllOperations() {
  ZTLockGuard lock(monitor_);
  cancelAllOperationsInCollections(true);
}

void ZTOperationQueue::cancelAllButFinishRunningOperations() {
  ZTLockGuard lock(monitor_);
  cancelAllOperationsInCollections(false);
}

void ZTOperationQueue::dispose() {
  const bool onWorkerThread = workerThread_->runLoop()->isCurrent();
  std::vector<OperationPointer> notYetStarted;
  {
    ZTLockGuard lock(monitor_);
    if (disposed_) return;
    disposed_ = true;
    cancelAllOperationsInCollections(true);
    std::vector<OperationPointer> released;
    for (std::size_t i = 0; i < executingOperations_.size();) {
      Member& member = *executingOperations_[i];
      auto* concurrent = dynamic_cast<ZTConcurrentOperation*>(member.operation.get());
      if (concurrent && concurrent->workerThread() && concurrent->workerThread()->runLoop()->isCurrent()) {
        removeExecuting(member);
        released.push_back(release(member));
      } else {
        ++i;
      }
    }
    std::vector<Member*> dropped(notReadyOperations_.begin(), notReadyOperations_.end());
    readyOperations_->forEach([&](Member* member) { dropped.push_back(member); });
    readyOperations_->clear();
    notReadyOperations_.clear();
    for (Member* member : dropped) released.push_back(release(*member));
    // On the worker thread, starts still queued for it could only run after this wait; the
    // operations are cancelled, so starting them now just lets them complete.
    if (onWorkerThread) notYetStarted = pendingStarts_->take();
  }
  for (const auto& operation : notYetStarted)
    zt::detail::callLoggingExceptions("An operation's start() on its disposed queue", [&] { operation->start(); });

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  const timespec tenMicroseconds{0, 10'000};
  for (;;) {
    {
      ZTLockGuard lock(monitor_);
      if (executingOperations_.empty()) return;
    }
    if (std::chrono::steady_clock::now() >= deadline) return;
    nanosleep(&tenMicroseconds, nullptr);
  }
}

bool ZTOperationQueue::isDisposed() const {
  ZTLockGuard lock(monitor_);
  return disposed_;
}

std::int64_t ZTOperationQueue::maxConcurrentOperationCount() const {
  ZTLockGuard lock(monitor_);
  return maxConcurrentOperationCount_;
}

void ZTOperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  ZTLockGuard lock(monitor_);
  maxConcurrentOperationCount_ = count < 1 ? 5 : count;
}

bool ZTOperationQueue::isSuspended() const {
  ZTLockGuard lock(monitor_);
  return suspended_;
}

void ZTOperationQueue::setSuspended(bool suspended) {
  ZTLockGuard lock(monitor_);
  const bool resumed = suspended_ && !suspended;
  suspended_ = suspended;
  if (resumed) startNextOperationIfPossible();
}

std::string ZTOperationQueue::name() const {
  ZTLockGuard lock(monitor_);
  return name_;
}

void ZTOperationQueue::setName(std::string name) {
  ZTLockGuard lock(monitor_);
  name_ = std::move(name);
}

std::int64_t ZTOperationQueue::operationsCountLocked() const {
  return static_cast<std::int64_t>(executingOperations_.size() + readyOperations_->size() +
                                   notReadyOperations_.size());
}

std::int64_t ZTOperationQueue::operationsCount() const {
  ZTLockGuard lock(monitor_);
  return operationsCountLocked();
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperationQueue::operations() const {
  ZTLockGuard lock(monitor_);
  std::vector<OperationPointer> result;
  result.reserve(static_cast<std::size_t>(operationsCountLocked()));
  for (const Member* member : executingOperations_) result.push_back(member->operation);
  readyOperations_->forEach([&](Member* member) { result.push_back(member->operation); });
  for (const Member* member : notReadyOperations_) result.push_back(member->operation);
  return result;
}

std::vector<std::shared_ptr<ZTOperation>> ZTOperationQueue::executingOperations() const {
  ZTLockGuard lock(monitor_);
  std::vector<OperationPointer> result;
  result.reserve(executingOperations_.size());
  for (const Member* member : executingOperations_) result.push_back(member->operation);
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
         "; maxConcurrentOperationCount = " + std::to_string(maxConcurrentOperationCount()) + "; operations = " + list +
         ">";
}
