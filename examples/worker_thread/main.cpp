// A worker thread that does work for the main thread and reports back on it.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/worker_thread

#include <zentrel/operations/cross_thread_calls.h>
#include <zentrel/operations/thread_with_run_loop.h>
#include <zentrel/platform/run_loop.h>

#include <iostream>

int main() {
  auto worker = ZTThreadWithRunLoop::spawnThreadWithName("example worker");

  bool reported = false;
  zt::performBlock(
      [&] {
        long long total = 0;
        for (int i = 1; i <= 1000; ++i) total += i;
        // Back to the main thread with the result: it runs when the main run loop turns.
        // The main run loop is never closed, so the post is always accepted.
        (void)ZTRunLoop::main()->post([&, total] {
          std::cout << "The worker added 1..1000 = " << total << "\n";
          reported = true;
        });
      },
      worker);

  ZTRunLoop::main()->runWithCondition([&] { return !reported; }, std::chrono::seconds(5));
  worker->cancel();
  worker->waitUntilFinished();
  return reported ? 0 : 1;
}
