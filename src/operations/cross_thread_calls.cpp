#include "zentrel/operations/cross_thread_calls.h"

#include <atomic>
#include <chrono>
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
      // The main queue runs every call it is given: its loop is never closed.
      [](const std::shared_ptr<ZTDispatchQueue>& queue, std::function<void()> call) {
        (void)queue->sync(std::move(call));
      },
      std::move(block));
}

namespace zt {

bool detail::performOnThread(const std::shared_ptr<ZTThread>& thread, std::function<void()> call, bool waitUntilDone) {
  if (!thread || !call) return false;
  const auto& loop = thread->runLoop();  // the thread holds it; no reference-count traffic
  if (waitUntilDone && loop->isCurrent()) {
    call();
    return true;
  }
  if (thread->isCancelled() || thread->isFinished()) return false;
  if (!waitUntilDone) return loop->post(std::move(call));

  // The promise travels inside the queued call: if the loop drops the call unrun, the promise is
  // destroyed with it and the wait ends at once with broken_promise. A call that raced with the
  // loop's closing may instead sit in a loop that never runs it; for that rare case the waiter
  // checks now and then whether the loop closed before the call started. (`started` is set before
  // the call reads `closed`, and read after the waiter has seen `closed`, so exactly one side gives
  // up.) The call refers to its loop by plain pointer: it lives inside that loop.
  auto done = std::make_shared<std::promise<void>>();
  auto finished = done->get_future();
  auto started = std::make_shared<std::atomic<bool>>(false);
  ZTRunLoop* const target = loop.get();
  const bool queued = target->post([call = std::move(call), done = std::move(done), started, target] {
    started->store(true);
    if (target->isClosed()) return;
    try {
      call();
      done->set_value();
    } catch (...) {
      done->set_exception(std::current_exception());
    }
  });
  if (!queued) return false;
  while (finished.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    if (loop->isClosed() && !started->load()) return false;
  }
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
  (void)detail::performOnThread(thread, std::move(block), false);  // not waited for: a dropped call is not reported
}

bool performBlock(std::function<void()> block, const std::shared_ptr<ZTThread>& thread, bool waitUntilDone) {
  return detail::performOnThread(thread, std::move(block), waitUntilDone);
}

}  // namespace zt
