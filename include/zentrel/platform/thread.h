#pragma once
// ZTThread: an operating-system thread with identity — a name shown to the OS, a priority, a
// cancellation flag, executing and finished flags — and a run loop of its own to which other
// threads can post calls. The counterpart of a platform thread object.
//
// Subclass and override main(), or pass a body to create(). The running thread keeps its ZTThread
// alive until main() returns; after that the thread's run loop is closed, so calls still queued for
// it are dropped (and destroyed) rather than left waiting.
//
// Threads that the library did not start (the main thread, threads of other libraries) get a
// ZTThread on first use of currentThread(), which then always answers the same object on that
// thread.
//
// Cancellation is cooperative: cancel() sets a flag that main() is expected to check, and stops the
// run-loop turn the thread may be in, so that a thread waiting in its loop notices at once.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/run_loop.h"

class ZT_API ZTThread : public std::enable_shared_from_this<ZTThread> {
 public:
  // A thread that runs body once started; an empty body makes a thread that returns at once.
  [[nodiscard]] static std::shared_ptr<ZTThread> create(std::function<void()> body = {});
  virtual ~ZTThread();
  ZTThread(const ZTThread&) = delete;
  ZTThread& operator=(const ZTThread&) = delete;

  static std::shared_ptr<ZTThread> currentThread();
  static std::shared_ptr<ZTThread> mainThread();
  // True on the process's main thread.
  static bool isMainThread();
  bool isMain() const;

  // Starts the OS thread. Starting twice, or starting a thread the library did not create, throws
  // ZTInternalInconsistencyException.
  virtual void start();
  // The thread's work. Default: runs the body given to create().
  virtual void main();

  void cancel();
  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }
  bool isExecuting() const { return executing_.load(std::memory_order_acquire); }
  bool isFinished() const { return finished_.load(std::memory_order_acquire); }

  // The name, shown to the OS (first 15 bytes, as Linux allows) once the thread runs.
  std::string name() const;
  void setName(std::string name);

  // Scheduling priority from 0.0 (lowest) to 1.0 (highest); 0.5 is normal. On Linux it becomes the
  // thread's nice value (0.5 = 0, 0 = 19, 1 = -20). Returns false when the system refused it
  // (raising priority needs privileges); the value is kept and applied again when the thread starts.
  double threadPriority() const;
  [[nodiscard]] bool setThreadPriority(double priority);

  // The thread's run loop. For a thread created here it exists from creation, so calls can be
  // posted before start(); they run once the thread runs its loop.
  const std::shared_ptr<ZTRunLoop>& runLoop() const { return runLoop_; }

  // Blocks until the thread has finished; returns at once for the calling thread itself or a
  // thread that was never started.
  void waitUntilFinished();

  // The kernel's id of the thread (0 before it runs).
  long systemThreadId() const { return tid_.load(std::memory_order_acquire); }

 protected:
  ZTThread();

 private:
  enum class Kind { Created, Adopted };
  struct AdoptTag {};
  ZTThread(AdoptTag, std::shared_ptr<ZTRunLoop> loop);
  static void entry(std::shared_ptr<ZTThread> self);
  static std::shared_ptr<ZTThread> adoptCallingThread();
  bool applyPriority();
  void applyName();

  Kind kind_ = Kind::Created;
  std::function<void()> body_;
  std::shared_ptr<ZTRunLoop> runLoop_;
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> executing_{false};
  std::atomic<bool> finished_{false};
  std::atomic<bool> started_{false};
  std::atomic<long> tid_{0};
  mutable ZTMutex mutex_;
  std::string name_ ZT_GUARDED_BY(mutex_);
  double priority_ ZT_GUARDED_BY(mutex_) = 0.5;
  ZTMutex finishMutex_;
  ZTConditionVariable finishCondition_;  // waited on with finishMutex_ until finished_
};
