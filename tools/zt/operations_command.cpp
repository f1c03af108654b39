// `zt operations`: an operation queue ordering work by priority and dependency, with failures and
// cancellation reported through handlers.

#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/operations/block_operation.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/notification_center.h"

namespace ztool {

int runOperationsTour() {
  std::cout << "Operations\n\n";
  auto worker = ZTThreadWithRunLoop::spawnThreadWithName("zt operations");
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(1);
  queue->setSuspended(true);

  std::mutex logMutex;
  std::vector<std::string> log;
  auto note = [&](std::string line) {
    std::lock_guard lock(logMutex);
    log.push_back(std::move(line));
  };
  auto job = [&](std::string name, std::int64_t priority, bool succeeds = true) {
    auto operation = ZTBlockOperation::create(
        [name, succeeds](ZTBlockOperation&, std::optional<ZTError>& error) {
          if (!succeeds) error = ZTError("ZTDemoErrorDomain", 7, ZTValue(ZTValueDictionary{
                                                                   {ZTLocalizedDescriptionKey, "the disk is full"}}));
          return succeeds;
        },
        nullptr, [&, name](ZTBlockOperation&) { note(name + ": cancelled, never ran"); },
        [&, name](ZTBlockOperation&) { note(name + ": done"); },
        [&, name](ZTBlockOperation&, const ZTError& error) { note(name + ": failed, " + error.localizedDescription()); });
    operation->setQueuePriority(priority);
    return operation;
  };

  auto thumbnails = job("make thumbnails (low priority)", ZTOperationQueuePriorityLow);
  auto index = job("index files (normal)", ZTOperationQueuePriorityNormal);
  auto fetch = job("fetch mail (very high)", ZTOperationQueuePriorityVeryHigh);
  auto report = job("send report (very high, needs the index)", ZTOperationQueuePriorityVeryHigh);
  report->addDependency(index);
  auto backup = job("back up (high)", ZTOperationQueuePriorityHigh, false);
  auto cleanup = job("clean up (normal)", ZTOperationQueuePriorityNormal);

  ZTSemaphore drained;
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      ZTOperationQueueDidBecameEmptyNotification, queue.get(), nullptr,
      [&](const ZTNotification&) { drained.signal(); });
  queue->addOperations({thumbnails, index, fetch, report, backup, cleanup});
  cleanup->cancel();
  std::cout << "1. Queued six jobs on a suspended queue that runs one at a time; \"send report\" waits for\n"
            << "   \"index files\", and \"clean up\" was cancelled before the queue resumed.\n";
  queue->setSuspended(false);
  const bool emptied = drained.wait(std::chrono::seconds(10));
  ZTNotificationCenter::defaultCenter()->removeObserver(observer);

  std::cout << "2. In the order they ended:\n";
  {
    std::lock_guard lock(logMutex);
    for (std::size_t i = 0; i < log.size(); ++i) std::cout << "   " << i + 1 << ". " << log[i] << "\n";
  }
  std::cout << "3. The queue " << (emptied ? "posted that it became empty" : "did NOT report becoming empty")
            << "; " << queue->operationsCount() << " operations left.\n";
  queue->dispose();
  worker->cancel();
  return emptied ? 0 : 1;
}

void addOperationsCommand(CLI::App& app) {
  auto* command = app.add_subcommand("operations", "An operation queue ordering jobs by priority and dependency");
  command->footer("Example: zt operations");
  command->callback([] {
    if (runOperationsTour() != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
