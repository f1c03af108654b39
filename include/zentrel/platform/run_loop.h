#pragma once
// ZTRunLoop: the event loop of one thread. Other threads hand it calls (post), and it fires
// timers and file-descriptor sources, always on the thread that runs it. Built on one
// asio::io_context.
//
// Every thread has at most one run loop: ZTRunLoop::current() creates it on first use, and
// ZTRunLoop::main() is the one of the process's main thread (the thread whose id is the process
// id), which the application — or a test — runs with run(), runOnce() or runWithCondition().
//
// Threads: post(), stop(), scheduleTimer() and addFileDescriptorSource() may be called from any
// thread; the run* functions only from the loop's own thread. Every callback runs on the thread
// that runs the loop, in the order its event arrived (posted calls in the order they were posted).
// A callback that throws is caught, reported through ZTLog, and the loop goes on.
//
// Ownership: held by std::shared_ptr. A loop can be closed (its thread ended): pending calls are
// then dropped without running and destroyed, and later posts are refused. A post racing with the
// close may be accepted and then never run; its function object is destroyed with the loop.

#include <chrono>
#include <functional>
#include <memory>

#include "zentrel/platform/export.h"

class ZTRunLoop;
namespace zt::internal {
struct RunLoopImpl;
}  // namespace zt::internal

// A timer scheduled on a run loop. Fires on the loop's thread; a repeating timer fires every
// interval until invalidated. Invalidation is safe from any thread and from the timer's own callback;
// after invalidate() returns on the loop's thread the callback does not run again.
class ZT_API ZTTimer : public std::enable_shared_from_this<ZTTimer> {
 public:
  using Callback = std::function<void(ZTTimer& timer)>;
  virtual ~ZTTimer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
  virtual std::chrono::duration<double> timeInterval() const = 0;
};

// A file descriptor watched by a run loop for readiness. The descriptor is not owned: it is never
// closed by the loop. The callback runs on the loop's thread each time the descriptor is ready,
// until cancelled. Cancel before closing the descriptor.
class ZT_API ZTFileDescriptorSource {
 public:
  enum class Event { Readable, Writable };
  using Callback = std::function<void(ZTFileDescriptorSource& source)>;
  virtual ~ZTFileDescriptorSource() = default;
  virtual void cancel() = 0;
  virtual bool isCancelled() const = 0;
  virtual int fileDescriptor() const = 0;
};

// The event loop of one thread: calls posted from other threads, timers and file-descriptor sources.
class ZT_API ZTRunLoop : public std::enable_shared_from_this<ZTRunLoop> {
 public:
  using Clock = std::chrono::steady_clock;
  using Seconds = std::chrono::duration<double>;

  // The run loop of the calling thread, created on first use.
  static std::shared_ptr<ZTRunLoop> current();
  // The run loop of the process's main thread. It always counts as having a source, so running
  // it blocks until its deadline when nothing happens, as a main event loop does.
  static std::shared_ptr<ZTRunLoop> main();

  ~ZTRunLoop();
  ZTRunLoop(const ZTRunLoop&) = delete;
  ZTRunLoop& operator=(const ZTRunLoop&) = delete;

  // Queues a call. Returns false (and destroys the call unrun) when the loop is closed or the call
  // is empty.
  [[nodiscard]] bool post(std::function<void()> call);

  [[nodiscard]] std::shared_ptr<ZTTimer> scheduleTimer(Seconds interval, bool repeats, ZTTimer::Callback callback);
  [[nodiscard]] std::shared_ptr<ZTFileDescriptorSource> addFileDescriptorSource(
      int fd, ZTFileDescriptorSource::Event event, ZTFileDescriptorSource::Callback callback);

  // Keeps the loop blocking while it has nothing to do, for as long as the returned token lives
  // (a loop without any source returns from runOnce at once). Worker threads hold one for life.
  class KeepAlive {
   public:
    KeepAlive() = default;
    KeepAlive(KeepAlive&&) noexcept = default;
    KeepAlive& operator=(KeepAlive&&) noexcept = default;
    ~KeepAlive();
    void reset();

   private:
    friend class ZTRunLoop;
    std::shared_ptr<void> guard_;  // holds the loop's work guard (and the loop)
  };
  [[nodiscard]] KeepAlive keepAlive();

  // Runs one turn: waits until one event (posted call, timer, file-descriptor source) has been
  // handled or the deadline passes. Returns false when the loop had nothing to run at all — no
  // pending call and no source or keep-alive — or was stopped or closed; true otherwise, also when
  // the deadline passed with nothing to do.
  bool runOnce(Clock::time_point deadline);
  bool runOnce(Seconds limit) { return runOnce(Clock::now() + std::chrono::duration_cast<Clock::duration>(limit)); }

  // Runs turns until stop() is called, the loop has nothing to run, or it is closed.
  void run();
  // Runs turns until the deadline, stop(), or nothing to run.
  void runUntil(Clock::time_point deadline);

  // Runs the loop in slices of 100 µs while condition() is true, for at most timeout: the
  // condition is checked before each slice; the wait ends early when a slice reports that the loop
  // has nothing to run. A polling wait for short waits on the calling thread's loop.
  void runWithCondition(const std::function<bool()>& condition, Seconds timeout);
  // The same without a time limit.
  void runWithCondition(const std::function<bool()>& condition);

  // Makes the turn now running return as soon as its current callback is done; a stop while no
  // turn runs ends the next turn at once. Any thread.
  void stop();

  // Closes the loop: pending calls and sources are dropped, later posts are refused. Called by a
  // thread when it ends; a closed loop cannot be reopened. Any thread; idempotent.
  void close();
  bool isClosed() const;

  // True when the calling thread is the one running (owning) this loop.
  bool isCurrent() const;

 private:
  ZTRunLoop();
  friend class ZTThread;
  // A loop for a thread that has not run yet; it belongs to whichever thread binds it.
  static std::shared_ptr<ZTRunLoop> makeUnbound();
  // Makes the calling thread the loop's owner and its current() loop.
  void bindToCallingThread();
  std::unique_ptr<zt::internal::RunLoopImpl> impl_;
};
