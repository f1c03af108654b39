#include "zentrel/operations/thread_with_run_loop.h"

#include <time.h>

#include <mutex>

std::shared_ptr<ZTThreadWithRunLoop> ZTThreadWithRunLoop::sharedThread(std::string_view askingClassName) {
  static std::once_flag once;
  static std::shared_ptr<ZTThreadWithRunLoop>* shared = nullptr;  // never destroyed: the thread outlives exit
  std::call_once(once, [&] {
    auto thread = std::make_shared<ZTThreadWithRunLoop>();
    (void)thread->setThreadPriority(0.5);  // not started yet: the value is only stored, which cannot fail
    thread->setName(std::string(askingClassName));
    thread->start();
    shared = new std::shared_ptr<ZTThreadWithRunLoop>(std::move(thread));
  });
  return *shared;
}

void ZTThreadWithRunLoop::ensureExecutingFlagIsSetForThread(const ZTThread& thread) {
  const timespec tenMicroseconds{0, 10'000};
  while (!thread.isExecuting() && !thread.isFinished()) nanosleep(&tenMicroseconds, nullptr);
}

void ZTThreadWithRunLoop::start() {
  ZTThread::start();
  ensureExecutingFlagIsSetForThread(*this);
}

void ZTThreadWithRunLoop::main() {
  // The keep-alive is the loop's permanent source: without one an idle loop would return at once
  // from every turn and the thread would spin.
  // A turn handles events until the loop is stopped; cancel() stops it, so the thread notices
  // cancellation at once instead of at the end of a timed slice. (Timed turns would read the clock
  // for every event: a quarter of the cost of a cross-thread call.)
  const auto loop = runLoop();
  auto keepAlive = loop->keepAlive();
  while (!isCancelled()) loop->run();
}

std::string ZTThreadWithRunLoop::workerThreadName(const std::string& className, const void* address) {
  char pointer[32];
  std::snprintf(pointer, sizeof pointer, "%p", address);
  return "<" + className + ": " + pointer + "> Worker Thread";
}
