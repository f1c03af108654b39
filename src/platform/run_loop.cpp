#include "zentrel/platform/run_loop.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <exception>
#include <optional>
#include <vector>

#include "platform/internal/system_thread.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"

using zt::internal::currentSystemThreadId;
using zt::internal::RunLoopImpl;

namespace {
using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

void reportException(const char* where) {
  try {
    throw;
  } catch (const std::exception& e) {
    ZTLogf("ERROR: uncaught exception in %s on a run loop: %s", where, e.what());
  } catch (...) {
    ZTLogf("ERROR: uncaught exception in %s on a run loop", where);
  }
}
}  // namespace

class TimerImpl;
class FileDescriptorSourceImpl;

struct zt::internal::RunLoopImpl {
  // The default concurrency hint, not 1: with a hint of 1 asio keeps a call posted from inside a
  // running call in that call's private queue until it returns, so a nested turn (runWithCondition
  // inside a call) could never see what its own call posted to this loop.
  asio::io_context context;
  // Once set, no callback runs again. A post that passed its check just before closing lands in a
  // loop that will never run it; it is destroyed with the loop.
  std::atomic<bool> closed{false};
  std::atomic<long> ownerThread{0};  // kernel id of the thread that runs the loop; 0 = not yet bound
  std::atomic<bool> stopRequested{false};  // stop() was called and no turn has ended because of it yet
  std::optional<WorkGuard> permanentGuard;  // the main loop always has a source

  ZTMutex sourcesMutex;
  std::vector<std::weak_ptr<TimerImpl>> timers ZT_GUARDED_BY(sourcesMutex);
  std::vector<std::weak_ptr<FileDescriptorSourceImpl>> descriptors ZT_GUARDED_BY(sourcesMutex);

  bool isOwner() const { return ownerThread.load(std::memory_order_relaxed) == currentSystemThreadId(); }
  // Before a turn: asio also stops a context that ran out of work, which must not keep the next
  // turn from running what was posted since. Returns false when a requested stop ends this turn.
  bool prepareTurn() {
    if (!context.stopped()) return true;
    context.restart();
    return !stopRequested.exchange(false);
  }
  void endTurn() {
    if (context.stopped()) {
      context.restart();
      stopRequested = false;
    }
  }
  void cancelSources();
  void drain();
};

// ---------------------------------------------------------------------------------------------
// Timers. Every operation on the asio timer happens on the loop's own thread, except the first
// arming, done before the timer is shared with anyone.

class TimerImpl final : public ZTTimer {
 public:
  TimerImpl(std::shared_ptr<ZTRunLoop> loop, RunLoopImpl& impl, ZTRunLoop::Seconds interval, bool repeats,
            Callback callback)
      : loop_(std::move(loop)),
        impl_(impl),
        timer_(impl.context),
        interval_(std::chrono::duration_cast<std::chrono::steady_clock::duration>(interval)),
        repeats_(repeats),
        callback_(std::move(callback)) {
    if (interval_ < std::chrono::steady_clock::duration::zero()) interval_ = {};
    // A repeating timer with no interval would fire without end; give it the smallest period.
    if (repeats_ && interval_ == std::chrono::steady_clock::duration::zero()) interval_ = std::chrono::microseconds(100);
    timer_.expires_after(interval_);
  }

  void arm() {
    timer_.async_wait([self = std::static_pointer_cast<TimerImpl>(shared_from_this())](const std::error_code& ec) {
      self->fired(ec);
    });
  }

  void invalidate() override {
    if (!valid_.exchange(false)) return;
    if (impl_.isOwner()) {
      timer_.cancel();
    } else {
      asio::post(impl_.context,
                 [self = std::static_pointer_cast<TimerImpl>(shared_from_this())] { self->timer_.cancel(); });
    }
  }
  void cancelOnOwnerThread() {
    valid_ = false;
    timer_.cancel();
  }
  bool isValid() const override { return valid_.load(); }
  std::chrono::duration<double> timeInterval() const override { return interval_; }

 private:
  void fired(const std::error_code& ec) {
    if (ec || !valid_.load() || impl_.closed.load()) return;
    if (!repeats_) valid_ = false;
    try {
      callback_(*this);
    } catch (...) {
      reportException("a timer");
    }
    if (repeats_ && valid_.load()) {
      auto next = timer_.expiry() + interval_;
      const auto now = std::chrono::steady_clock::now();
      if (next < now) next = now;  // a late loop fires once, not once per missed period
      timer_.expires_at(next);
      arm();
    }
  }

  std::shared_ptr<ZTRunLoop> loop_;
  RunLoopImpl& impl_;  // the loop's, alive as long as loop_
  asio::steady_timer timer_;
  std::chrono::steady_clock::duration interval_;
  bool repeats_;
  Callback callback_;
  std::atomic<bool> valid_{true};
};

// ---------------------------------------------------------------------------------------------
// File-descriptor sources. The descriptor belongs to the caller: it is released, never closed.

class FileDescriptorSourceImpl final : public ZTFileDescriptorSource,
                                       public std::enable_shared_from_this<FileDescriptorSourceImpl> {
 public:
  FileDescriptorSourceImpl(std::shared_ptr<ZTRunLoop> loop, RunLoopImpl& impl, int fd, Event event, Callback callback)
      : loop_(std::move(loop)),
        impl_(impl),
        descriptor_(impl.context),
        fd_(fd),
        event_(event),
        callback_(std::move(callback)) {}
  ~FileDescriptorSourceImpl() override {
    if (descriptor_.is_open()) descriptor_.release();
  }

  bool open(std::error_code& ec) {
    descriptor_.assign(fd_, ec);
    return !ec;
  }

  void arm() {
    const auto type = event_ == Event::Readable ? asio::posix::descriptor_base::wait_read
                                                : asio::posix::descriptor_base::wait_write;
    descriptor_.async_wait(type, [self = shared_from_this()](const std::error_code& ec) { self->ready(ec); });
  }

  void cancel() override {
    if (cancelled_.exchange(true)) return;
    if (impl_.isOwner()) {
      stop();
    } else {
      asio::post(impl_.context, [self = shared_from_this()] { self->stop(); });
    }
  }
  void cancelOnOwnerThread() {
    cancelled_ = true;
    stop();
  }
  bool isCancelled() const override { return cancelled_.load(); }
  int fileDescriptor() const override { return fd_; }

 private:
  void stop() {
    if (!descriptor_.is_open()) return;
    std::error_code ignored;
    descriptor_.cancel(ignored);
    descriptor_.release();
  }
  void ready(const std::error_code& ec) {
    if (ec || cancelled_.load() || impl_.closed.load()) return;
    try {
      callback_(*this);
    } catch (...) {
      reportException("a file-descriptor source");
    }
    if (!cancelled_.load() && descriptor_.is_open()) arm();
  }

  std::shared_ptr<ZTRunLoop> loop_;
  RunLoopImpl& impl_;  // the loop's, alive as long as loop_
  asio::posix::stream_descriptor descriptor_;
  int fd_;
  Event event_;
  Callback callback_;
  std::atomic<bool> cancelled_{false};
};

void zt::internal::RunLoopImpl::cancelSources() {
  std::vector<std::shared_ptr<TimerImpl>> liveTimers;
  std::vector<std::shared_ptr<FileDescriptorSourceImpl>> liveDescriptors;
  {
    ZTLockGuard lock(sourcesMutex);
    for (auto& weak : timers)
      if (auto t = weak.lock()) liveTimers.push_back(std::move(t));
    for (auto& weak : descriptors)
      if (auto d = weak.lock()) liveDescriptors.push_back(std::move(d));
    timers.clear();
    descriptors.clear();
  }
  for (auto& t : liveTimers) t->cancelOnOwnerThread();
  for (auto& d : liveDescriptors) d->cancelOnOwnerThread();
}

void zt::internal::RunLoopImpl::drain() {
  // Runs on the owner thread of a closed loop: handlers see `closed` and return without calling
  // anything, so this only destroys what was queued.
  cancelSources();
  permanentGuard.reset();
  context.restart();
  while (context.poll() > 0) {
  }
}

// ---------------------------------------------------------------------------------------------

namespace {
struct CurrentLoopHolder {
  std::shared_ptr<ZTRunLoop> loop;
  ~CurrentLoopHolder() {
    // A thread that ends closes its loop (the main loop lives as long as the process).
    if (loop && loop != ZTRunLoop::main()) loop->close();
  }
};
thread_local CurrentLoopHolder currentLoop;
}  // namespace

ZTRunLoop::ZTRunLoop() : impl_(std::make_unique<RunLoopImpl>()) {}

ZTRunLoop::~ZTRunLoop() {
  impl_->closed = true;
  impl_->permanentGuard.reset();
}

std::shared_ptr<ZTRunLoop> ZTRunLoop::makeUnbound() { return std::shared_ptr<ZTRunLoop>(new ZTRunLoop()); }

void ZTRunLoop::bindToCallingThread() {
  impl_->ownerThread = currentSystemThreadId();
  currentLoop.loop = shared_from_this();
}

std::shared_ptr<ZTRunLoop> ZTRunLoop::main() {
  // Never destroyed: worker threads may still post to it while the process exits.
  static auto* loop = [] {
    auto* holder = new std::shared_ptr<ZTRunLoop>(new ZTRunLoop());
    (*holder)->impl_->ownerThread = static_cast<long>(::getpid());
    (*holder)->impl_->permanentGuard.emplace((*holder)->impl_->context.get_executor());
    return holder;
  }();
  return *loop;
}

std::shared_ptr<ZTRunLoop> ZTRunLoop::current() {
  if (currentLoop.loop) return currentLoop.loop;
  if (zt::internal::callingThreadIsMain()) {
    currentLoop.loop = main();
  } else {
    auto loop = makeUnbound();
    loop->bindToCallingThread();
  }
  return currentLoop.loop;
}

bool ZTRunLoop::isCurrent() const { return impl_->isOwner(); }

bool ZTRunLoop::post(std::function<void()> call) {
  if (!call) return false;
  RunLoopImpl& impl = *impl_;
  if (impl.closed.load()) return false;
  asio::post(impl.context, [&impl, call = std::move(call)] {
    if (impl.closed.load(std::memory_order_relaxed)) return;
    try {
      call();
    } catch (...) {
      reportException("a posted call");
    }
  });
  return true;
}

std::shared_ptr<ZTTimer> ZTRunLoop::scheduleTimer(Seconds interval, bool repeats, ZTTimer::Callback callback) {
  if (!callback || impl_->closed.load()) return nullptr;
  auto timer = std::make_shared<TimerImpl>(shared_from_this(), *impl_, interval, repeats, std::move(callback));
  {
    RunLoopImpl& impl = *impl_;
    ZTLockGuard lock(impl.sourcesMutex);
    std::erase_if(impl.timers, [](const auto& weak) { return weak.expired(); });
    impl.timers.push_back(timer);
  }
  timer->arm();
  return timer;
}

std::shared_ptr<ZTFileDescriptorSource> ZTRunLoop::addFileDescriptorSource(int fd, ZTFileDescriptorSource::Event event,
                                                                           ZTFileDescriptorSource::Callback callback) {
  if (!callback || fd < 0 || impl_->closed.load()) return nullptr;
  auto source = std::make_shared<FileDescriptorSourceImpl>(shared_from_this(), *impl_, fd, event, std::move(callback));
  std::error_code ec;
  if (!source->open(ec)) {
    ZTLogf("ERROR: cannot watch file descriptor %d: %s", fd, ec.message().c_str());
    return nullptr;
  }
  {
    RunLoopImpl& impl = *impl_;
    ZTLockGuard lock(impl.sourcesMutex);
    std::erase_if(impl.descriptors, [](const auto& weak) { return weak.expired(); });
    impl.descriptors.push_back(source);
  }
  source->arm();
  return source;
}

ZTRunLoop::KeepAlive::~KeepAlive() = default;
void ZTRunLoop::KeepAlive::reset() { guard_.reset(); }

ZTRunLoop::KeepAlive ZTRunLoop::keepAlive() {
  struct Guard {
    std::shared_ptr<ZTRunLoop> loop;
    WorkGuard work;
  };
  KeepAlive token;
  token.guard_ = std::make_shared<Guard>(Guard{shared_from_this(), WorkGuard(impl_->context.get_executor())});
  return token;
}

bool ZTRunLoop::runOnce(Clock::time_point deadline) {
  RunLoopImpl& impl = *impl_;
  if (impl.closed.load()) {
    if (impl.isOwner()) impl.drain();
    return false;
  }
  if (!impl.prepareTurn()) return false;
  const std::size_t handled = impl.context.run_one_until(deadline);
  if (impl.closed.load()) {
    impl.drain();
    return false;
  }
  if (impl.context.stopped()) {
    impl.endTurn();
    return handled > 0;  // stopped, or nothing left to run
  }
  return true;
}

void ZTRunLoop::run() {
  RunLoopImpl& impl = *impl_;
  if (!impl.closed.load() && impl.prepareTurn()) impl.context.run();
  if (impl.closed.load()) impl.drain();
  else impl.endTurn();
}

void ZTRunLoop::runUntil(Clock::time_point deadline) {
  RunLoopImpl& impl = *impl_;
  if (!impl.closed.load() && impl.prepareTurn()) impl.context.run_until(deadline);
  if (impl.closed.load()) impl.drain();
  else impl.endTurn();
}

void ZTRunLoop::runWithCondition(const std::function<bool()>& condition, Seconds timeout) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::min(timeout, Seconds(std::chrono::hours(24 * 365 * 100))));
  constexpr auto slice = std::chrono::microseconds(100);
  while (condition && condition()) {
    if (!runOnce(Clock::now() + slice)) break;
    if (Clock::now() > deadline) break;
  }
}

void ZTRunLoop::runWithCondition(const std::function<bool()>& condition) {
  runWithCondition(condition, Seconds(std::chrono::hours(24 * 365 * 100)));
}

void ZTRunLoop::stop() {
  impl_->stopRequested = true;
  impl_->context.stop();
}

void ZTRunLoop::close() {
  RunLoopImpl& impl = *impl_;
  if (impl.closed.exchange(true)) return;
  if (impl.isOwner()) impl.drain();
  else impl.context.stop();  // the owner drains when its current turn returns
}

bool ZTRunLoop::isClosed() const { return impl_->closed.load(); }
