#pragma once
// ZTThreadWithRunLoop: a worker thread that keeps its run loop turning until it is cancelled.
// Other threads send it work with zt::performBlock(..., thread) (see cross_thread_calls.h) or by
// posting to runLoop(); the calls run on the thread one after another, in the order they arrived.
//
// start() returns only once the thread is executing, so work can be sent right after it. The
// loop turns until it is stopped; cancel() stops the turn, so the thread ends at once (at the
// latest when the call it is running returns). Calls sent to a cancelled thread are dropped, and
// calls still queued when the thread ends are dropped too — their function objects are destroyed,
// which releases anyone waiting for them. A cancelled thread cannot be restarted.
//
// Ownership: the running thread keeps its object alive until it ends, so a thread whose last
// handle is gone still runs until cancel(); keep a std::shared_ptr to send it work. For a thread
// that ends with its owner, use ZTScopedThreadWithRunLoop below. The shared thread (sharedThread()) lives as long as the process and is never
// cancelled by the library.

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/thread.h"

class ZT_API ZTThreadWithRunLoop : public ZTThread {
 public:
  // Prefer the spawn functions, which also start the thread. Subclasses must be default
  // constructible for the spawn functions to create them.
  ZTThreadWithRunLoop() = default;

  // The one process-wide worker thread, created and started on first use (thread-safe), with
  // priority 0.5 and named after the class that asked first: sharedThread<MyWorker>() names it
  // "MyWorker". Later calls, through any class, return the same thread.
  template <class Asker = ZTThreadWithRunLoop>
  [[nodiscard]] static std::shared_ptr<ZTThreadWithRunLoop> sharedThread() {
    return sharedThread(std::string_view(ZTDemangledTypeName(typeid(Asker))));
  }
  [[nodiscard]] static std::shared_ptr<ZTThreadWithRunLoop> sharedThread(std::string_view askingClassName);

  // A new started thread of class T (a ZTThreadWithRunLoop or a subclass), with the given name.
  template <class T = ZTThreadWithRunLoop>
  [[nodiscard]] static std::shared_ptr<T> spawnThreadWithName(std::string name) {
    auto thread = std::make_shared<T>();
    thread->setName(std::move(name));
    thread->start();
    return thread;
  }
  template <class T = ZTThreadWithRunLoop>
  [[nodiscard]] static std::shared_ptr<T> spawnThread() {
    return spawnThreadWithName<T>(std::string());
  }
  // Named "<ClassName: 0x...> Worker Thread" after the object that owns the thread.
  template <class T = ZTThreadWithRunLoop, class Owner>
  [[nodiscard]] static std::shared_ptr<T> spawnThreadWithNameProviderObject(const Owner* object) {
    return spawnThreadWithName<T>(workerThreadName(ZTDebugClassNameForObject(object), object));
  }

  // Returns once the thread reports that it is executing, checking every 10 microseconds. Returns
  // at once for a thread that has already finished (it will never execute again).
  static void ensureExecutingFlagIsSetForThread(const ZTThread& thread);

  // Starts the thread and returns once it is executing.
  void start() override;
  // Turns the run loop until the thread is cancelled.
  void main() override;

  static std::string workerThreadName(const std::string& className, const void* address);
};

// An owning handle on a new ZTThreadWithRunLoop, as std::jthread is on a std::thread: destroying
// (or reset()) cancels the thread and waits until it has finished, so a forgotten cancel() cannot
// leak a thread. Calls still queued then are dropped, which releases anyone waiting for them.
// Destroyed on its own thread (from a call running there), it cancels without waiting for itself.
// Move-only; a moved-from handle owns nothing. Hand thread() to whatever sends the thread work —
// other holders of that pointer keep the object alive, not the thread running.
template <class T = ZTThreadWithRunLoop>
class ZTScopedThreadWithRunLoop {
 public:
  explicit ZTScopedThreadWithRunLoop(std::string name = {})
      : thread_(ZTThreadWithRunLoop::spawnThreadWithName<T>(std::move(name))) {}
  ZTScopedThreadWithRunLoop(ZTScopedThreadWithRunLoop&& other) noexcept = default;
  ZTScopedThreadWithRunLoop& operator=(ZTScopedThreadWithRunLoop&& other) noexcept {
    if (this != &other) {
      reset();
      thread_ = std::move(other.thread_);
    }
    return *this;
  }
  ~ZTScopedThreadWithRunLoop() { reset(); }

  const std::shared_ptr<T>& thread() const { return thread_; }
  T* operator->() const { return thread_.get(); }
  explicit operator bool() const { return thread_ != nullptr; }

  // Cancels the thread and waits for it to finish; afterwards the handle owns nothing.
  void reset() {
    if (!thread_) return;
    const std::shared_ptr<T> thread = std::move(thread_);
    thread->cancel();
    thread->waitUntilFinished();  // returns at once on the thread itself
  }

 private:
  std::shared_ptr<T> thread_;
};
