#include "zentrel/operations/cross_thread_calls.h"

#include <exception>
#include <future>

void performOnMainThreadUsingDispatchFunction(const ZTDispatchFunction& dispatchFunction, std::function<void()> block) {
  if (!dispatchFunction || !block) return;
  if (ZTThread::isMainThread()) {
    block();
    return;
  }
  dispatchFunction(ZTDispatchQueue::main(), std::move(block));
}

void performOnMainThreadSynchronouslyIfPossible(std::function<void()> block) {
  performOnMainThreadUsingDispatchFunction(&ZTDispatchAsync, std::move(block));
}

void performOnMainThreadSynchronously(std::function<void()> block) {
  performOnMainThreadUsingDispatchFunction(
      [](const std::shared_ptr<ZTDispatchQueue>& queue, std::function<void()> call) { queue->sync(std::move(call)); },
      std::move(block));
}

namespace zt {

bool detail::performOnThread(const std::shared_ptr<ZTThread>& thread, std::function<void()> call, bool waitUntilDone) {
  if (!thread || !call) return false;
  const auto loop = thread->runLoop();
  if (waitUntilDone && loop->isCurrent()) {
    call();
    return true;
  }
  if (thread->isCancelled() || thread->isFinished()) return false;
  if (!waitUntilDone) return loop->post(std::move(call));

  // The promise travels inside the queued call: if the loop drops the call unrun, the promise is
  // destroyed with it and the wait ends with broken_promise instead of hanging.
  auto done = std::make_shared<std::promise<void>>();
  auto finished = done->get_future();
  const bool queued = loop->post([call = std::move(call), done = std::move(done)] {
    try {
      call();
      done->set_value();
    } catch (...) {
      done->set_exception(std::current_exception());
    }
  });
  if (!queued) return false;
  try {
    finished.get();
  } catch (const std::future_error& e) {
    if (e.code() == std::future_errc::broken_promise) return false;
    throw;
  }
  return true;
}

std::shared_ptr<ZTTimer> performBlock(std::function<void()> block, std::chrono::duration<double> delay) {
  if (!block) return nullptr;
  return ZTRunLoop::current()->scheduleTimer(delay, false, [block = std::move(block)](ZTTimer&) { block(); });
}

void performBlock(std::function<void()> block, const std::shared_ptr<ZTThread>& thread) {
  detail::performOnThread(thread, std::move(block), false);
}

bool performBlock(std::function<void()> block, const std::shared_ptr<ZTThread>& thread, bool waitUntilDone) {
  return detail::performOnThread(thread, std::move(block), waitUntilDone);
}

}  // namespace zt
