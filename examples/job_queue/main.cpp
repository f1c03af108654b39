// Jobs on an operation queue: run one at a time by priority, one waiting for another, and the
// program waiting until the queue has drained.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/job_queue

#include <zentrel/operations/block_operation.h>
#include <zentrel/operations/operation_queue.h>
#include <zentrel/operations/thread_with_run_loop.h>
#include <zentrel/platform/dispatch.h>
#include <zentrel/platform/notification_center.h>

#include <iostream>
#include <mutex>
#include <string>
#include <vector>

int main() {
  auto worker = ZTThreadWithRunLoop::spawnThreadWithName("jobs");
  auto queue = ZTOperationQueue::create(worker);
  queue->setMaxConcurrentOperationCount(1);
  queue->setSuspended(true);  // queue everything first, so that priorities decide the order

  std::mutex mutex;
  std::vector<std::string> order;
  auto job = [&](const std::string& name, std::int64_t priority) {
    auto operation = ZTBlockOperation::create(
        [&, name](ZTBlockOperation&, std::optional<ZTError>&) {
          std::lock_guard lock(mutex);
          order.push_back(name);
          return true;
        },
        nullptr, nullptr, nullptr,  // no start, cancellation or success handlers
        [name](ZTBlockOperation&, const ZTError& error) {
          std::cerr << name << " failed: " << error.localizedDescription() << "\n";
        });
    operation->setQueuePriority(priority);
    return std::shared_ptr<ZTOperation>(operation);
  };
  auto index = job("index files", ZTOperationQueuePriorityNormal);
  auto report = job("send report", ZTOperationQueuePriorityVeryHigh);
  report->addDependency(index);  // very urgent, but it needs the index
  auto mail = job("fetch mail", ZTOperationQueuePriorityHigh);

  ZTSemaphore drained;
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      ZTOperationQueueDidBecameEmptyNotification, queue.get(), nullptr, [&](const ZTNotification&) { drained.signal(); });
  queue->addOperations({index, report, mail});
  queue->setSuspended(false);
  const bool finished = drained.wait(std::chrono::seconds(10));
  ZTNotificationCenter::defaultCenter()->removeObserver(observer);

  std::lock_guard lock(mutex);
  for (std::size_t i = 0; i < order.size(); ++i) std::cout << i + 1 << ". " << order[i] << "\n";
  queue->dispose();
  worker->cancel();
  worker->waitUntilFinished();
  return finished && order.size() == 3 ? 0 : 1;
}
