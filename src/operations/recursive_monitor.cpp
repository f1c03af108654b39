#include "zentrel/operations/recursive_monitor.h"

void ZTRecursiveMonitor::lock() {
  const auto me = std::this_thread::get_id();
  {
    ZTLockGuard guard(variablesLock_);
    if (accessingThread_ == std::thread::id()) accessingThread_ = me;
    if (accessingThread_ == me) {
      ++accessingThreadLocksCount_;
      return;
    }
    waitingThreadsQueue_.push_back(me);
  }
  // The unlocking thread names the next owner (with a count of 1) before it wakes everyone; only
  // the named thread leaves the loop.
  ZTUniqueLock conditionGuard(conditionLock_);
  for (;;) {
    {
      ZTLockGuard guard(variablesLock_);
      if (accessingThread_ == me) break;
    }
    condition_.wait(conditionGuard);
  }
}

void ZTRecursiveMonitor::unlock() {
  bool handedOver = false;
  {
    ZTLockGuard guard(variablesLock_);
    if (--accessingThreadLocksCount_ < 0) accessingThreadLocksCount_ = 0;
    if (accessingThreadLocksCount_ == 0) {
      handedOver = true;
      if (waitingThreadsQueue_.empty()) {
        accessingThread_ = std::thread::id();
      } else {
        accessingThread_ = waitingThreadsQueue_.front();
        waitingThreadsQueue_.pop_front();
        accessingThreadLocksCount_ = 1;
      }
    }
  }
  if (handedOver) {
    ZTLockGuard conditionGuard(conditionLock_);
    condition_.notify_all();
  }
}

std::thread::id ZTRecursiveMonitor::accessingThread() const {
  ZTLockGuard guard(variablesLock_);
  return accessingThread_;
}

void ZTRecursiveMonitor::setAccessingThread(std::thread::id thread) {
  ZTLockGuard guard(variablesLock_);
  accessingThread_ = thread;
}

std::int64_t ZTRecursiveMonitor::accessingThreadLocksCount() const {
  ZTLockGuard guard(variablesLock_);
  return accessingThreadLocksCount_;
}

void ZTRecursiveMonitor::setAccessingThreadLocksCount(std::int64_t count) {
  ZTLockGuard guard(variablesLock_);
  accessingThreadLocksCount_ = count;
}

std::vector<std::thread::id> ZTRecursiveMonitor::waitingThreadsQueue() const {
  ZTLockGuard guard(variablesLock_);
  return {waitingThreadsQueue_.begin(), waitingThreadsQueue_.end()};
}
