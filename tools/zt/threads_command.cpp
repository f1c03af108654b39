// `zt threads`: starts worker threads, moves calls between them and the main thread, and shows what
// happened, with timings. Everything it prints is measured as it runs.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/notification_helpers.h"
#include "zentrel/operations/recursive_monitor.h"
#include "zentrel/operations/task_lock.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/run_loop.h"

namespace ztool {
namespace {
using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string ms(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 10 ? "%.3f ms" : "%.1f ms", value);
  return text;
}

}  // namespace

// Owns the worker thread of the tour; the worker is named after it.
struct ThreadsTour {};

namespace {
int countPrimesBelow(int limit) {
  int count = 0;
  for (int n = 2; n < limit; ++n) {
    bool prime = true;
    for (int d = 2; d * d <= n; ++d) {
      if (n % d == 0) {
        prime = false;
        break;
      }
    }
    count += prime;
  }
  return count;
}
}  // namespace

int runThreadsTour(int calls) {
  std::cout << "Worker threads and cross-thread calls\n\n";

  ThreadsTour owner;
  auto start = Clock::now();
  auto worker = ZTThreadWithRunLoop::spawnThreadWithNameProviderObject(&owner);
  std::cout << "1. Started a worker thread named \"" << worker->name() << "\"\n"
            << "   (OS thread " << worker->systemThreadId() << "); start() returned after " << ms(millisecondsSince(start))
            << " with the thread already running its loop.\n";

  // A waited call comes back false only when the worker dropped it: it ended unexpectedly.
  const auto workerEnded = [] {
    std::cout << "The worker thread ended unexpectedly.\n";
    return 1;
  };

  std::vector<int> order;
  std::mutex orderMutex;
  for (int i = 1; i <= 3; ++i) {
    zt::performBlock(
        [&, i] {
          std::lock_guard lock(orderMutex);
          order.push_back(i);
        },
        worker);
  }
  if (!zt::performBlock([] {}, worker, true)) return workerEnded();
  std::cout << "2. Sent three calls without waiting; they ran on the worker in the order sent: " << order[0] << ", "
            << order[1] << ", " << order[2] << ".\n";

  int primes = 0;
  start = Clock::now();
  if (!zt::performBlock([&] { primes = countPrimesBelow(200'000); }, worker, true)) return workerEnded();
  std::cout << "3. Waited for a call: the worker counted " << primes << " primes below 200,000 in "
            << ms(millisecondsSince(start)) << " (round trip included).\n";

  std::atomic<int> counter{0};
  start = Clock::now();
  for (int i = 0; i < calls; ++i) zt::performBlock([&counter] { counter.fetch_add(1); }, worker);
  if (!zt::performBlock([] {}, worker, true)) return workerEnded();
  const double elapsed = millisecondsSince(start);
  std::cout << "4. Sent " << calls << " calls from the main thread: all " << counter.load() << " ran, in "
            << ms(elapsed) << " (" << static_cast<long long>(calls / (elapsed / 1000.0)) << " calls per second).\n";

  // A notification posted on the worker reaches an observer on the main thread.
  std::atomic<bool> delivered{false};
  std::atomic<bool> onMain{false};
  auto observer = zt::addObserverAndAutomaticallyRemoveAfterFiringForName(
      "ZTDemoFinishedNotification", nullptr, [&](const ZTNotification&) {
        onMain = ZTThread::isMainThread();
        delivered = true;
      });
  start = Clock::now();
  zt::performBlock(
      [] { ZTNotificationCenter::defaultCenter()->postNotificationName("ZTDemoFinishedNotification"); }, worker);
  ZTRunLoop::main()->runWithCondition([&] { return !delivered.load(); }, std::chrono::seconds(5));
  std::cout << "5. The worker posted a notification; the observer ran " << (onMain ? "on the main thread" : "elsewhere")
            << " after " << ms(millisecondsSince(start)) << ", once, and removed itself.\n";

  std::atomic<int> finished{0};
  std::atomic<bool> blockRan{false};
  auto taskLock = ZTTaskLock::taskLockWithBlock([&] { blockRan = true; });
  ZTSemaphore allReleased;
  for (int i = 0; i < 4; ++i) {
    auto release = taskLock->getLock();
    ZTDispatchQueue::global()->async([&, release, i] {
      std::this_thread::sleep_for(std::chrono::milliseconds(5 * (i + 1)));
      ++finished;
      release();
      allReleased.signal();
    });
  }
  bool jobsEnded = true;
  for (int i = 0; i < 4; ++i) jobsEnded = allReleased.wait(std::chrono::seconds(5)) && jobsEnded;
  std::cout << "6. A task lock handed out 4 locks to jobs on the global queue; its block ran "
            << (blockRan ? "once, when the last of the " : "NOT after the ") << finished.load() << " jobs released.\n";

  ZTRecursiveMonitor monitor;
  std::vector<char> arrivals;
  std::mutex arrivalsMutex;
  monitor.lock();
  std::vector<std::thread> waiters;
  for (char name : {'A', 'B', 'C'}) {
    waiters.emplace_back([&, name] {
      std::lock_guard guard(monitor);
      std::lock_guard record(arrivalsMutex);
      arrivals.push_back(name);
    });
    while (monitor.waitingThreadsQueue().size() < static_cast<std::size_t>(name - 'A' + 1)) std::this_thread::yield();
  }
  monitor.unlock();
  for (auto& t : waiters) t.join();
  std::cout << "7. Three threads queued A, B, C on a fair recursive monitor and got it in that order: " << arrivals[0]
            << ", " << arrivals[1] << ", " << arrivals[2] << ".\n";

  start = Clock::now();
  worker->cancel();
  worker->waitUntilFinished();
  bool dropped = !zt::performBlock([] {}, worker, true);
  std::cout << "8. Cancelled the worker: it ended after " << ms(millisecondsSince(start)) << "; a call sent afterwards was "
            << (dropped ? "dropped, and the caller did not hang" : "unexpectedly run") << ".\n";
  zt::removeObserverSafetly(observer);
  return delivered && blockRan && jobsEnded && dropped ? 0 : 1;
}

int runThreadsTourWithDefaults() { return runThreadsTour(100000); }

void addThreadsCommand(CLI::App& app) {
  auto* command = app.add_subcommand("threads", "Start worker threads and move calls between threads, with timings");
  command->footer("Example: zt threads --calls 100000");
  static int calls = 100000;
  command->add_option("--calls", calls, "How many calls to send to the worker in the throughput step")
      ->check(CLI::Range(1, 100000000))
      ->capture_default_str();
  command->callback([] {
    const int status = runThreadsTour(calls);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}
}  // namespace ztool
