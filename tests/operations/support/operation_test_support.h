#pragma once
// Helpers shared by the operation tests.

#include <atomic>
#include <chrono>
#include <functional>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/operations/thread_with_run_loop.h"

namespace zttest {

// A worker thread that is cancelled when the test is done with it.
struct WorkerThread {
  std::shared_ptr<ZTThreadWithRunLoop> thread;
  explicit WorkerThread(const std::string& name = "test worker")
      : thread(ZTThreadWithRunLoop::spawnThreadWithName(name)) {}
  ~WorkerThread() { thread->cancel(); }
  operator std::shared_ptr<ZTThread>() const { return thread; }
};

// Events in the order they happened, from any thread.
class Recorder {
 public:
  void add(std::string event) {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }
  std::vector<std::string> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }
  std::size_t count(const std::string& event) const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& e : events_) n += e == event;
    return n;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> events_;
};

// Polls condition until it holds or the timeout passes.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

// A concurrent operation whose main() records itself and, when asked, finishes at once; otherwise
// the test finishes it.
class ManualOperation : public ZTConcurrentOperation {
 public:
  using ZTConcurrentOperation::ZTConcurrentOperation;
  std::function<void(ManualOperation&)> onMain;
  std::atomic<int> mainCalls{0};
  std::atomic<std::thread::id> mainThread{};
  bool finishInMain = false;

  void main() override {
    ++mainCalls;
    mainThread = std::this_thread::get_id();
    if (onMain) onMain(*this);
    if (finishInMain) finishWithSuccessHandler(nullptr);
  }

  using ZTConcurrentOperation::setExecuting;
};

// A ManualOperation without a worker thread of its own (so it runs on its queue's thread), named
// `name`, that records `entry` when its main() runs.
inline std::shared_ptr<ManualOperation> namedRecordingOperation(const std::string& name, std::string entry,
                                                                Recorder& recorder, bool finishInMain,
                                                                std::int64_t priority) {
  auto operation = ZTConcurrentOperation::make<ManualOperation>(nullptr);
  operation->setName(name);
  operation->setQueuePriority(priority);
  operation->finishInMain = finishInMain;
  operation->onMain = [&recorder, entry = std::move(entry)](ManualOperation&) { recorder.add(entry); };
  return operation;
}

}  // namespace zttest
