#include "zentrel/platform/file_coordinator.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <exception>
#include <list>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/internal/coordination_locks.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"

using zt::internal::claimPath;
using zt::internal::isSameOrInside;

struct ZTFileCoordinator::Impl {
  std::weak_ptr<ZTFilePresenter> presenter;
  std::atomic<std::uint64_t> cancelGeneration{0};
  std::atomic<double> waitTimeoutSeconds{600.0};
};

namespace {

using Clock = std::chrono::steady_clock;
using Items = std::vector<std::pair<std::string, bool>>;  // claim path, write?

// One claim, from the moment it is asked for until it is released.
struct Request {
  Items items;
  const ZTFileCoordinator::Impl* coordinator = nullptr;
  std::uint64_t cancelGeneration = 0;
  std::thread::id thread;
  std::uint64_t sequence = 0;
  bool granted = false;
  std::vector<std::string> movedPaths;  // moves announced under this claim (old and new paths)
};

// A presenter's messages wait here and are run one at a time on its queue.
struct Delivery {
  ZTMutex mutex;
  std::deque<std::function<void(ZTFilePresenter&)>> pending ZT_GUARDED_BY(mutex);
  bool draining ZT_GUARDED_BY(mutex) = false;
};

struct PresenterEntry {
  std::weak_ptr<ZTFilePresenter> presenter;
  const ZTFilePresenter* address = nullptr;
  std::shared_ptr<Delivery> delivery;
};

struct CoordinationState {
  ZTMutex mutex;
  ZTConditionVariable changed;  // a claim was released, moved or cancelled
  std::list<Request*> requests ZT_GUARDED_BY(mutex);  // granted and waiting, in arrival order
  std::uint64_t nextSequence ZT_GUARDED_BY(mutex) = 0;

  ZTMutex presentersMutex;
  std::vector<PresenterEntry> presenters ZT_GUARDED_BY(presentersMutex);
};

CoordinationState* gState = nullptr;
std::once_flag gStateOnce;

// In a forked child only the forking thread exists: the claims of the parent's other threads (and
// a lock they may have held) are gone with them, so the child starts with a fresh table.
void resetStateInChild() {
  gState = new CoordinationState;
  zt::internal::resetLockFolderAfterFork();
}

CoordinationState& state() {
  std::call_once(gStateOnce, [] {
    gState = new CoordinationState;  // never destroyed: claims may run while the process exits
    ::pthread_atfork(nullptr, nullptr, resetStateInChild);
  });
  return *gState;
}

bool conflicts(const Request& a, const Request& b) {
  for (const auto& [pathA, writeA] : a.items) {
    for (const auto& [pathB, writeB] : b.items) {
      if ((writeA || writeB) && (isSameOrInside(pathA, pathB) || isSameOrInside(pathB, pathA))) return true;
    }
  }
  return false;
}

ZTError makeError(std::int64_t code, std::string description) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = std::move(description);
  return ZTError(ZTCocoaErrorDomain, code, std::move(info));
}

ZTError cancelledError() { return makeError(ZTUserCancelledError, "The claim was cancelled."); }

std::string relocate(const std::string& path, const std::string& oldPath, const std::string& newPath) {
  return newPath + path.substr(oldPath.size());
}

// --- presenters -------------------------------------------------------------------------------

void drain(const std::shared_ptr<Delivery>& delivery, const std::weak_ptr<ZTFilePresenter>& weakPresenter,
           const std::shared_ptr<ZTDispatchQueue>& queue) {
  constexpr int kMessagesPerTurn = 64;  // then the queue serves others before the rest
  for (int i = 0; i < kMessagesPerTurn; ++i) {
    std::function<void(ZTFilePresenter&)> message;
    {
      ZTLockGuard lock(delivery->mutex);
      if (delivery->pending.empty()) {
        delivery->draining = false;
        return;
      }
      message = std::move(delivery->pending.front());
      delivery->pending.pop_front();
    }
    const auto presenter = weakPresenter.lock();
    if (!presenter) continue;
    try {
      message(*presenter);
    } catch (const std::exception& e) {
      ZTLogf("ERROR: a file presenter's message threw: %s", e.what());
    } catch (...) {
      ZTLog("ERROR: a file presenter's message threw");
    }
  }
  queue->async([delivery, weakPresenter, queue] { drain(delivery, weakPresenter, queue); });
}

void send(const PresenterEntry& entry, ZTFilePresenter& presenter, std::function<void(ZTFilePresenter&)> message) {
  std::shared_ptr<ZTDispatchQueue> queue;
  try {
    queue = presenter.presentedItemOperationQueue();
  } catch (...) {
    ZTLog("ERROR: a file presenter's presentedItemOperationQueue threw; it is not told of the change");
    return;
  }
  if (!queue) return;
  {
    ZTLockGuard lock(entry.delivery->mutex);
    entry.delivery->pending.push_back(std::move(message));
    if (entry.delivery->draining) return;
    entry.delivery->draining = true;
  }
  queue->async([delivery = entry.delivery, weak = entry.presenter, queue] { drain(delivery, weak, queue); });
}

std::vector<PresenterEntry> livePresenters() {
  CoordinationState& s = state();
  ZTLockGuard lock(s.presentersMutex);
  std::erase_if(s.presenters, [](const PresenterEntry& e) { return e.presenter.expired(); });
  return s.presenters;
}

// Calls visit(entry, presenter, its claim path) for every registered presenter but `excluded`.
template <class Visit>
void forEachPresenter(const ZTFilePresenter* excluded, Visit&& visit) {
  for (const auto& entry : livePresenters()) {
    const auto presenter = entry.presenter.lock();
    if (!presenter || presenter.get() == excluded) continue;
    std::string presented;
    try {
      presented = presenter->presentedItemURL();
    } catch (...) {
      ZTLog("ERROR: a file presenter's presentedItemURL threw; it is not told of the change");
      continue;
    }
    const auto path = claimPath(presented);
    if (!path) continue;
    visit(entry, *presenter, *path);
  }
}

void tellPresentersOfChange(const std::string& changed, const ZTFilePresenter* excluded) {
  forEachPresenter(excluded, [&](const PresenterEntry& entry, ZTFilePresenter& presenter, const std::string& path) {
    if (isSameOrInside(changed, path)) {
      send(entry, presenter, [](ZTFilePresenter& p) { p.presentedItemDidChange(); });
    } else if (isSameOrInside(path, changed)) {
      send(entry, presenter, [changed](ZTFilePresenter& p) { p.presentedSubitemDidChangeAtURL(changed); });
    }
  });
}

void tellPresentersOfMove(const std::string& oldPath, const std::string& newPath, const ZTFilePresenter* excluded) {
  forEachPresenter(excluded, [&](const PresenterEntry& entry, ZTFilePresenter& presenter, const std::string& path) {
    if (isSameOrInside(oldPath, path)) {
      send(entry, presenter,
           [moved = relocate(path, oldPath, newPath)](ZTFilePresenter& p) { p.presentedItemDidMoveToURL(moved); });
    } else if (isSameOrInside(path, oldPath)) {
      send(entry, presenter,
           [oldPath, newPath](ZTFilePresenter& p) { p.presentedSubitemAtURLDidMoveToURL(oldPath, newPath); });
    }
  });
}

// --- claims -----------------------------------------------------------------------------------

bool isCancelled(const Request& request) {
  return request.coordinator->cancelGeneration.load() != request.cancelGeneration;
}

// Grants the claim inside the process: waits for conflicting claims that are granted, and for
// conflicting claims that asked earlier (so a stream of readers cannot starve a writer).
std::optional<ZTError> acquireInProcess(Request& request, Clock::time_point deadline) {
  CoordinationState& s = state();
  ZTUniqueLock lock(s.mutex);
  bool holdsAny = false;
  for (const Request* other : s.requests) {
    if (!other->granted || other->thread != request.thread) continue;
    holdsAny = true;
    if (conflicts(*other, request)) {
      return makeError(ZTFileLockingError,
                       "The claim conflicts with a claim this thread holds; it would wait for itself.");
    }
  }
  request.sequence = s.nextSequence++;
  s.requests.push_back(&request);
  for (;;) {
    if (isCancelled(request)) {
      s.requests.remove(&request);
      s.changed.notify_all();  // claims that queued behind this one may go now
      return cancelledError();
    }
    bool blocked = false;
    for (const Request* other : s.requests) {
      if (other == &request) continue;
      const bool counts = other->granted || (!holdsAny && other->sequence < request.sequence);
      if (counts && conflicts(*other, request)) {
        blocked = true;
        break;
      }
    }
    if (!blocked) {
      request.granted = true;
      return std::nullopt;
    }
    if (Clock::now() >= deadline) {
      s.requests.remove(&request);
      s.changed.notify_all();  // claims that queued behind this one may go now
      return makeError(ZTFileLockingError, "The claim was not granted in time.");
    }
    s.changed.wait_until(lock, deadline);
  }
}

void releaseInProcess(Request& request) {
  CoordinationState& s = state();
  {
    ZTLockGuard lock(s.mutex);
    s.requests.remove(&request);
  }
  s.changed.notify_all();
}

// Takes the cross-process locks, polling: a blocking F_OFD_SETLKW could not be interrupted by
// cancel() from another thread. The poll backs off from 0.2 ms to 10 ms and wakes at once on
// cancel().
std::optional<ZTError> acquireAcrossProcesses(Request& request, zt::internal::HeldLocks& held,
                                              Clock::time_point deadline) {
  const int folder = zt::internal::lockFolderDescriptor();
  if (folder < 0) return std::nullopt;  // logged once; coordination stays inside the process
  const auto locks = zt::internal::lockRequestsFor(request.items);
  auto backoff = std::chrono::microseconds(200);
  CoordinationState& s = state();
  for (;;) {
    ZTError error;
    switch (held.tryAcquire(folder, locks, &error)) {
      case zt::internal::HeldLocks::Step::Done: return std::nullopt;
      case zt::internal::HeldLocks::Step::Failed: return error;
      case zt::internal::HeldLocks::Step::WouldBlock: break;
    }
    ZTUniqueLock lock(s.mutex);
    if (isCancelled(request)) return cancelledError();
    const auto now = Clock::now();
    if (now >= deadline) return makeError(ZTFileLockingError, "The claim was not granted in time.");
    s.changed.wait_until(lock, std::min(deadline, now + backoff));
    backoff = std::min(backoff * 2, std::chrono::microseconds(10000));
  }
}

// Runs `body` under the claim on `original` (paths as given, write?) and tells presenters of the
// writes. Returns false with *outError set when the claim could not be had.
bool runClaim(ZTFileCoordinator::Impl& impl, const std::vector<std::pair<std::string, bool>>& original,
              ZTError* outError, const std::function<void(const std::vector<std::string>&)>& body) {
  Request request;
  request.coordinator = &impl;
  request.cancelGeneration = impl.cancelGeneration.load();
  request.thread = std::this_thread::get_id();
  for (const auto& [path, write] : original) {
    auto normalized = claimPath(path);
    if (!normalized) {
      ZTSetError(outError, write ? makeError(ZTFileWriteInvalidFileNameError, "The file name is invalid.")
                                 : makeError(ZTFileReadInvalidFileNameError, "The file name is invalid."));
      return false;
    }
    request.items.emplace_back(std::move(*normalized), write);
  }
  const Items asked = request.items;

  const double limit = std::max(0.0, impl.waitTimeoutSeconds.load());
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(std::min(limit, 1e9)));
  if (auto error = acquireInProcess(request, deadline)) {
    ZTSetError(outError, std::move(*error));
    return false;
  }
  zt::internal::HeldLocks held;
  if (auto error = acquireAcrossProcesses(request, held, deadline)) {
    releaseInProcess(request);
    ZTSetError(outError, std::move(*error));
    return false;
  }

  // Moves announced while the claim waited changed request.items; the accessor gets the new
  // locations, and otherwise the paths as the caller wrote them.
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < original.size(); ++i) {
    paths.push_back(request.items[i].first == asked[i].first ? original[i].first : request.items[i].first);
  }

  struct Release {
    Request& request;
    zt::internal::HeldLocks& held;
    ZTFileCoordinator::Impl& impl;
    ~Release() {
      held.release();
      releaseInProcess(request);
      try {
        const auto own = impl.presenter.lock();
        for (const auto& [path, write] : request.items) {
          if (!write) continue;
          const auto& moved = request.movedPaths;
          if (std::find(moved.begin(), moved.end(), path) != moved.end()) continue;
          tellPresentersOfChange(path, own.get());
        }
      } catch (const std::exception& e) {
        ZTLogf("ERROR: file presenters could not be told of a change: %s", e.what());
      }
    }
  } release{request, held, impl};
  body(paths);
  return true;
}

}  // namespace

std::size_t zt::internal::waitingClaimCount() {
  CoordinationState& s = state();
  ZTLockGuard lock(s.mutex);
  return static_cast<std::size_t>(
      std::count_if(s.requests.begin(), s.requests.end(), [](const Request* r) { return !r->granted; }));
}

std::shared_ptr<ZTFileCoordinator> ZTFileCoordinator::create(const std::shared_ptr<ZTFilePresenter>& filePresenter) {
  std::shared_ptr<ZTFileCoordinator> coordinator(new ZTFileCoordinator());
  coordinator->impl_->presenter = filePresenter;
  return coordinator;
}

ZTFileCoordinator::ZTFileCoordinator() : impl_(std::make_unique<Impl>()) {}
ZTFileCoordinator::~ZTFileCoordinator() = default;

void ZTFileCoordinator::addFilePresenter(const std::shared_ptr<ZTFilePresenter>& filePresenter) {
  if (!filePresenter) return;
  CoordinationState& s = state();
  ZTLockGuard lock(s.presentersMutex);
  for (const auto& entry : s.presenters) {
    if (entry.address == filePresenter.get() && !entry.presenter.expired()) return;
  }
  s.presenters.push_back({filePresenter, filePresenter.get(), std::make_shared<Delivery>()});
}

void ZTFileCoordinator::removeFilePresenter(const ZTFilePresenter* filePresenter) {
  CoordinationState& s = state();
  ZTLockGuard lock(s.presentersMutex);
  std::erase_if(s.presenters, [&](const PresenterEntry& e) { return e.address == filePresenter || e.presenter.expired(); });
}

std::vector<std::shared_ptr<ZTFilePresenter>> ZTFileCoordinator::filePresenters() {
  std::vector<std::shared_ptr<ZTFilePresenter>> result;
  for (const auto& entry : livePresenters()) {
    if (auto presenter = entry.presenter.lock()) result.push_back(std::move(presenter));
  }
  return result;
}

bool ZTFileCoordinator::coordinateReadingItemAtURL(const std::string& path, ZTFileCoordinatorReadingOptions,
                                                   ZTError* outError, const Accessor& reader) {
  return runClaim(*impl_, {{path, false}}, outError, [&](const std::vector<std::string>& paths) {
    if (reader) reader(paths[0]);
  });
}

bool ZTFileCoordinator::coordinateWritingItemAtURL(const std::string& path, ZTFileCoordinatorWritingOptions,
                                                   ZTError* outError, const Accessor& writer) {
  return runClaim(*impl_, {{path, true}}, outError, [&](const std::vector<std::string>& paths) {
    if (writer) writer(paths[0]);
  });
}

bool ZTFileCoordinator::coordinateReadingItemAtURL(const std::string& readingPath, ZTFileCoordinatorReadingOptions,
                                                   const std::string& writingPath, ZTFileCoordinatorWritingOptions,
                                                   ZTError* outError, const DoubleAccessor& readerWriter) {
  return runClaim(*impl_, {{readingPath, false}, {writingPath, true}}, outError,
                  [&](const std::vector<std::string>& paths) {
                    if (readerWriter) readerWriter(paths[0], paths[1]);
                  });
}

bool ZTFileCoordinator::coordinateWritingItemAtURL(const std::string& path1, ZTFileCoordinatorWritingOptions,
                                                   const std::string& path2, ZTFileCoordinatorWritingOptions,
                                                   ZTError* outError, const DoubleAccessor& writer) {
  return runClaim(*impl_, {{path1, true}, {path2, true}}, outError, [&](const std::vector<std::string>& paths) {
    if (writer) writer(paths[0], paths[1]);
  });
}

void ZTFileCoordinator::itemAtURLWillMoveToURL(const std::string& oldPath, const std::string& newPath) {
  const auto from = claimPath(oldPath);
  if (!from || !claimPath(newPath)) return;
  CoordinationState& s = state();
  bool covered = false;
  {
    ZTLockGuard lock(s.mutex);
    for (const Request* request : s.requests) {
      if (!request->granted || request->thread != std::this_thread::get_id()) continue;
      for (const auto& [path, write] : request->items) covered = covered || (write && isSameOrInside(path, *from));
    }
  }
  if (!covered) {
    ZTLogf("ERROR: %s is moved without a write claim on it; the move is not coordinated", oldPath.c_str());
  }
}

void ZTFileCoordinator::itemAtURLDidMoveToURL(const std::string& oldPath, const std::string& newPath) {
  const auto from = claimPath(oldPath);
  const auto to = claimPath(newPath);
  if (!from || !to || *from == *to) return;
  CoordinationState& s = state();
  {
    ZTLockGuard lock(s.mutex);
    for (Request* request : s.requests) {
      if (request->granted) {
        if (request->thread == std::this_thread::get_id() && request->coordinator == impl_.get()) {
          request->movedPaths.push_back(*from);
          request->movedPaths.push_back(*to);
        }
        continue;
      }
      for (auto& [path, write] : request->items) {
        if (isSameOrInside(*from, path)) path = relocate(path, *from, *to);
      }
    }
  }
  s.changed.notify_all();
  const auto own = impl_->presenter.lock();
  tellPresentersOfMove(*from, *to, own.get());
}

void ZTFileCoordinator::cancel() {
  CoordinationState& s = state();
  {
    ZTLockGuard lock(s.mutex);
    impl_->cancelGeneration.fetch_add(1);
  }
  s.changed.notify_all();
}

ZTFileCoordinator::Seconds ZTFileCoordinator::waitTimeout() const { return Seconds(impl_->waitTimeoutSeconds.load()); }

void ZTFileCoordinator::setWaitTimeout(Seconds timeout) { impl_->waitTimeoutSeconds.store(timeout.count()); }

std::shared_ptr<ZTFilePresenter> ZTFileCoordinator::filePresenter() const { return impl_->presenter.lock(); }
