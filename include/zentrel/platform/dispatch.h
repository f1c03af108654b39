#pragma once
// Dispatch queues: places to send work without managing threads.
//
// - ZTDispatchQueue::main(): serial, served by the main thread's run loop (ZTRunLoop::main()); its
//   calls run only while the main thread runs that loop.
// - ZTDispatchQueue::global(): concurrent, default priority, served by a process-wide pool of
//   worker threads. The pool keeps a few threads (at least 4, or one per core) and adds threads —
//   up to 64 — while every thread is busy and work is waiting, so calls that block for a while
//   (waiting on another operation, say) do not starve the others. Threads above the minimum that
//   stay idle for 5 seconds end.
//
// All functions are thread-safe. Calls are function objects, run once and then destroyed; an
// empty call is ignored. A call that throws is caught and reported through ZTLog.

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

class ZT_API ZTDispatchQueue : public std::enable_shared_from_this<ZTDispatchQueue> {
 public:
  using Seconds = std::chrono::duration<double>;
  virtual ~ZTDispatchQueue() = default;

  static std::shared_ptr<ZTDispatchQueue> main();
  static std::shared_ptr<ZTDispatchQueue> global();

  // Queues the call and returns at once.
  virtual void async(std::function<void()> call) = 0;
  // Runs the call on the queue and returns when it has run. On the main queue from the main thread
  // the call runs at once on the caller (waiting for itself would never end). Returns false if the
  // queue dropped the call unrun.
  [[nodiscard]] bool sync(std::function<void()> call);
  // Queues the call once the delay has passed.
  virtual void after(Seconds delay, std::function<void()> call) = 0;
  // True when the calling thread is one that serves this queue.
  virtual bool isCurrent() const = 0;

  virtual const char* label() const = 0;
};

// Free-function forms, for code that reads better that way.
inline void ZTDispatchAsync(const std::shared_ptr<ZTDispatchQueue>& queue, std::function<void()> call) {
  if (queue) queue->async(std::move(call));
}
[[nodiscard]] inline bool ZTDispatchSync(const std::shared_ptr<ZTDispatchQueue>& queue, std::function<void()> call) {
  return queue && queue->sync(std::move(call));
}
inline void ZTDispatchAfter(ZTDispatchQueue::Seconds delay, const std::shared_ptr<ZTDispatchQueue>& queue,
                            std::function<void()> call) {
  if (queue) queue->after(delay, std::move(call));
}

// A counting semaphore. wait() blocks until the count is positive, then takes one.
class ZT_API ZTSemaphore {
 public:
  explicit ZTSemaphore(long initialCount = 0) : count_(initialCount) {}
  void signal();
  void wait();
  // Returns false if the timeout passed before a signal came.
  [[nodiscard]] bool wait(std::chrono::duration<double> timeout);

 private:
  ZTMutex mutex_;
  ZTConditionVariable condition_;
  long count_ ZT_GUARDED_BY(mutex_);
};

// Runs a call exactly once per token, however many threads race for it; the others wait until
// the first has finished.
using ZTOnceToken = std::once_flag;
template <class F>
void ZTDispatchOnce(ZTOnceToken& token, F&& call) {
  std::call_once(token, std::forward<F>(call));
}
