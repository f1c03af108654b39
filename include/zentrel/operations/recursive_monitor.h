#pragma once
// ZTRecursiveMonitor: a recursive lock that is fair — threads that wait for it get it strictly in
// the order in which they arrived. The owner may lock it again and must unlock as often as it
// locked before the next waiter gets it.
//
// Usable with std::lock_guard / std::unique_lock. unlock() does not check the caller: an
// unbalanced unlock on a free monitor leaves the count at 0 and hands the monitor to the first
// waiter, if any. Thread-safe; not copyable.

#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

class ZT_API ZTRecursiveMonitor {
 public:
  ZTRecursiveMonitor() = default;
  ZTRecursiveMonitor(const ZTRecursiveMonitor&) = delete;
  ZTRecursiveMonitor& operator=(const ZTRecursiveMonitor&) = delete;

  void lock();
  void unlock();

  // The owning thread; a default-constructed id when free.
  std::thread::id accessingThread() const;
  void setAccessingThread(std::thread::id thread);
  std::int64_t accessingThreadLocksCount() const;
  void setAccessingThreadLocksCount(std::int64_t count);
  // The waiting threads, first to be served first.
  std::vector<std::thread::id> waitingThreadsQueue() const;

 private:
  mutable ZTMutex variablesLock_;
  ZTMutex conditionLock_;
  ZTConditionVariable condition_;  // waited on with conditionLock_ until this thread is named owner
  std::thread::id accessingThread_ ZT_GUARDED_BY(variablesLock_);
  std::int64_t accessingThreadLocksCount_ ZT_GUARDED_BY(variablesLock_) = 0;
  std::deque<std::thread::id> waitingThreadsQueue_ ZT_GUARDED_BY(variablesLock_);
};
