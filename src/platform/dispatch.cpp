#include "zentrel/platform/dispatch.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <algorithm>
#include <deque>
#include <future>
#include <system_error>
#include <thread>

#include "platform/internal/system_thread.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/thread.h"

namespace {
void runReporting(const std::function<void()>& call, const char* queue) {
  try {
    call();
  } catch (const std::exception& e) {
    ZTLogf("ERROR: uncaught exception in a call on queue %s: %s", queue, e.what());
  } catch (...) {
    ZTLogf("ERROR: uncaught exception in a call on queue %s", queue);
  }
}

// Fires delayed calls for every queue: one thread with an asio timer queue.
class DelayedCalls {
 public:
  static DelayedCalls& shared() {
    static auto* instance = new DelayedCalls;  // never destroyed: calls may be scheduled during exit
    return *instance;
  }
  void schedule(ZTDispatchQueue::Seconds delay, std::function<void()> fire) {
    auto timer = std::make_shared<asio::steady_timer>(
        context_, std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::max(delay, {})));
    timer->async_wait([timer, fire = std::move(fire)](const std::error_code& ec) {
      if (!ec) fire();
    });
  }

 private:
  DelayedCalls() : guard_(context_.get_executor()) {
    std::thread([this] {
      pthread_setname_np(pthread_self(), "zt.dispatch.at");
      context_.run();
    }).detach();
  }
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard_;
};

class MainQueue final : public ZTDispatchQueue {
 public:
  void async(std::function<void()> call) override {
    if (!call) return;
    (void)ZTRunLoop::main()->post([call = std::move(call)] { runReporting(call, "main"); });  // never closed
  }
  void after(Seconds delay, std::function<void()> call) override {
    if (!call) return;
    DelayedCalls::shared().schedule(delay, [self = shared_from_this(), call = std::move(call)]() mutable {
      self->async(std::move(call));
    });
  }
  bool isCurrent() const override { return zt::internal::callingThreadIsMain(); }
  const char* label() const override { return "main"; }
};

// The global concurrent queue: an elastic pool of worker threads.
class GlobalQueue final : public ZTDispatchQueue {
 public:
  GlobalQueue()
      : minimumThreads_(std::max(4u, std::thread::hardware_concurrency())),
        maximumThreads_(std::max(64u, minimumThreads_)) {}

  void async(std::function<void()> call) override {
    if (!call) return;
    bool spawn = false;
    {
      ZTLockGuard lock(mutex_);
      pending_.push_back(std::move(call));
      // A woken worker stays counted as idle until it has taken a call, so compare the calls
      // waiting with the workers that can still take them: each waiting call beyond those needs a
      // thread, or it would queue behind calls that may be waiting for it.
      if (pending_.size() > idle_ && threads_ < maximumThreads_) {
        ++threads_;
        spawn = true;
      }
    }
    if (spawn) {
      try {
        std::thread([this] { work(); }).detach();
      } catch (const std::system_error& e) {  // out of threads: the ones there take the call later
        ZTLogf("ERROR: cannot add a thread to queue global: %s", e.what());
        ZTLockGuard lock(mutex_);
        --threads_;
      }
    }
    condition_.notify_one();
  }
  void after(Seconds delay, std::function<void()> call) override {
    if (!call) return;
    DelayedCalls::shared().schedule(delay, [this, call = std::move(call)]() mutable { async(std::move(call)); });
  }
  bool isCurrent() const override { return onWorker_; }
  const char* label() const override { return "global"; }

 private:
  void work() {
    pthread_setname_np(pthread_self(), "zt.dispatch.gl");
    onWorker_ = true;
    ZTUniqueLock lock(mutex_);
    for (;;) {
      if (pending_.empty()) {
        ++idle_;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        bool woke = true;
        while (pending_.empty()) {
          if (condition_.wait_until(lock, deadline) == std::cv_status::timeout) {
            woke = !pending_.empty();
            break;
          }
        }
        --idle_;
        if (!woke && threads_ > minimumThreads_) {
          --threads_;
          return;
        }
        continue;
      }
      auto call = std::move(pending_.front());
      pending_.pop_front();
      lock.unlock();
      runReporting(call, "global");
      call = nullptr;  // destroy captured state outside the lock
      lock.lock();
    }
  }

  static thread_local bool onWorker_;
  const unsigned minimumThreads_;
  const unsigned maximumThreads_;
  ZTMutex mutex_;
  ZTConditionVariable condition_;
  std::deque<std::function<void()>> pending_ ZT_GUARDED_BY(mutex_);
  unsigned threads_ ZT_GUARDED_BY(mutex_) = 0;
  unsigned idle_ ZT_GUARDED_BY(mutex_) = 0;
};
thread_local bool GlobalQueue::onWorker_ = false;
}  // namespace

std::shared_ptr<ZTDispatchQueue> ZTDispatchQueue::main() {
  static auto* queue = new std::shared_ptr<ZTDispatchQueue>(std::make_shared<MainQueue>());
  return *queue;
}

std::shared_ptr<ZTDispatchQueue> ZTDispatchQueue::global() {
  static auto* queue = new std::shared_ptr<ZTDispatchQueue>(std::make_shared<GlobalQueue>());
  return *queue;
}

bool ZTDispatchQueue::sync(std::function<void()> call) {
  if (!call) return false;
  if (this == main().get() && zt::internal::callingThreadIsMain()) {
    runReporting(call, label());
    return true;
  }
  // The promise lives inside the queued call: if the call is dropped unrun, the promise is
  // destroyed with it and the wait ends with broken_promise instead of hanging.
  auto done = std::make_shared<std::promise<void>>();
  auto finished = done->get_future();
  async([call = std::move(call), done = std::move(done)]() mutable {
    call();
    done->set_value();
  });
  try {
    finished.get();
    return true;
  } catch (const std::future_error&) {
    return false;
  }
}

void ZTSemaphore::signal() {
  // Notify while holding the lock: a waiter may destroy the semaphore as soon as it returns.
  ZTLockGuard lock(mutex_);
  ++count_;
  condition_.notify_one();
}

void ZTSemaphore::wait() {
  ZTUniqueLock lock(mutex_);
  while (count_ <= 0) condition_.wait(lock);
  --count_;
}

bool ZTSemaphore::wait(std::chrono::duration<double> timeout) {
  ZTUniqueLock lock(mutex_);
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::ceil<Clock::duration>(timeout);
  while (count_ <= 0)
    if (condition_.wait_until(lock, deadline) == std::cv_status::timeout && count_ <= 0) return false;
  --count_;
  return true;
}
