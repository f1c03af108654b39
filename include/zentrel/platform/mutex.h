#pragma once
// Locks that clang's thread-safety analysis understands: std::mutex and std::recursive_mutex with
// the capability annotations of zentrel/platform/thread_annotations.h, and RAII guards for them.
// They cost nothing over the standard types they wrap.
//
//   ZTMutex mutex_;
//   std::vector<int> items_ ZT_GUARDED_BY(mutex_);
//   ...
//   ZTLockGuard lock(mutex_);        // scope-bound, like std::lock_guard
//   items_.push_back(1);
//
// Waiting on a condition: ZTUniqueLock can be released and re-acquired within its scope, and
// ZTConditionVariable waits with it. Write the wait as a loop in the function that holds the lock,
// so that the analysis sees every read of a guarded field under it:
//
//   ZTUniqueLock lock(mutex_);
//   while (!ready_) condition_.wait(lock);
//
// Like the standard types, none of them may be copied or moved; a ZTMutex must be unlocked by the
// thread that locked it.

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "zentrel/platform/thread_annotations.h"

class ZT_CAPABILITY("mutex") ZTMutex {
 public:
  ZTMutex() = default;
  ZTMutex(const ZTMutex&) = delete;
  ZTMutex& operator=(const ZTMutex&) = delete;

  void lock() ZT_ACQUIRE() { mutex_.lock(); }
  void unlock() ZT_RELEASE() { mutex_.unlock(); }
  bool try_lock() ZT_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  // The standard mutex underneath, for code that must hand it to a standard facility.
  std::mutex& native() ZT_RETURN_CAPABILITY(this) { return mutex_; }

 private:
  std::mutex mutex_;
};

// A mutex that the thread holding it may lock again; it is released by as many unlocks.
class ZT_CAPABILITY("mutex") ZTRecursiveMutex {
 public:
  ZTRecursiveMutex() = default;
  ZTRecursiveMutex(const ZTRecursiveMutex&) = delete;
  ZTRecursiveMutex& operator=(const ZTRecursiveMutex&) = delete;

  void lock() ZT_ACQUIRE() { mutex_.lock(); }
  void unlock() ZT_RELEASE() { mutex_.unlock(); }
  bool try_lock() ZT_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::recursive_mutex mutex_;
};

// Holds a lock for the guard's scope.
template <class Mutex>
class ZT_SCOPED_CAPABILITY ZTLockGuard {
 public:
  explicit ZTLockGuard(Mutex& mutex) ZT_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~ZTLockGuard() ZT_RELEASE() { mutex_.unlock(); }
  ZTLockGuard(const ZTLockGuard&) = delete;
  ZTLockGuard& operator=(const ZTLockGuard&) = delete;

 private:
  Mutex& mutex_;
};

// Holds a ZTMutex for its scope; may release it and take it again in between, and is what
// ZTConditionVariable waits with.
class ZT_SCOPED_CAPABILITY ZTUniqueLock {
 public:
  explicit ZTUniqueLock(ZTMutex& mutex) ZT_ACQUIRE(mutex) : lock_(mutex.native()) {}
  ~ZTUniqueLock() ZT_RELEASE() {}
  ZTUniqueLock(const ZTUniqueLock&) = delete;
  ZTUniqueLock& operator=(const ZTUniqueLock&) = delete;

  void lock() ZT_ACQUIRE() { lock_.lock(); }
  void unlock() ZT_RELEASE() { lock_.unlock(); }

  std::unique_lock<std::mutex>& native() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

// std::condition_variable for ZTUniqueLock. Spurious wake-ups happen: wait in a loop on the
// condition (see above).
class ZTConditionVariable {
 public:
  void notify_one() noexcept { condition_.notify_one(); }
  void notify_all() noexcept { condition_.notify_all(); }

  void wait(ZTUniqueLock& lock) { condition_.wait(lock.native()); }
  template <class Clock, class Duration>
  std::cv_status wait_until(ZTUniqueLock& lock, const std::chrono::time_point<Clock, Duration>& deadline) {
    return condition_.wait_until(lock.native(), deadline);
  }
  template <class Rep, class Period>
  std::cv_status wait_for(ZTUniqueLock& lock, const std::chrono::duration<Rep, Period>& duration) {
    return condition_.wait_for(lock.native(), duration);
  }

 private:
  std::condition_variable condition_;
};
