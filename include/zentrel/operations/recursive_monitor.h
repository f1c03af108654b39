#pragma once
// ZTRecursiveMonitor: a recursive lock that is fair — threads that wait for it get it strictly in
// the order in which they arrived. The owner may lock it again and must unlock as often as it
// locked before the next waiter gets it.
//
// Usable with std::lock_guard / std::unique_lock. unlock() does not check the caller: an
// unbalanced unlock on a free monitor leaves the count at 0 and hands the monitor to the first
// waiter, if any. Thread-safe; not copyable.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "zentrel/platform/export.h"

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
  mutable std::mutex variablesLock_;
  std::mutex conditionLock_;
  std::condition_variable condition_;
  std::thread::id accessingThread_;                 // guarded by variablesLock_
  std::int64_t accessingThreadLocksCount_ = 0;      // guarded by variablesLock_
  std::deque<std::thread::id> waitingThreadsQueue_;  // guarded by variablesLock_
};
