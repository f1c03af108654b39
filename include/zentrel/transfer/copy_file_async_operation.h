#pragma once
// ZTCopyFileAsyncOperation: copies one file to a destination path on a worker thread, under file
// coordination, without blocking the caller. If a file already stands at the destination it is
// either recognised as identical (nothing is copied and the existing file is the result) or left
// alone while the copy gets a fresh unique name beside it ("a.txt" -> "a-1.txt"); after success
// destinationFilePath() names the file actually written (or reused).
//
// Creating: there is no factory of its own. Make it like any concurrent operation, then set the
// paths (and optionally the success handler) before it starts:
//
//   auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(workerThread, startHandler,
//                                                                      cancellationHandler, failureHandler);
//   copy->setSourceFilePath(source);
//   copy->setDestinationFilePath(destination);
//   copy->setSuccessHandler([](ZTCopyFileAsyncOperation& op) { use(op.destinationFilePath()); });
//   queue->addOperation(copy);   // or copy->start()
//
// (make<ZTCopyFileAsyncOperation>(ZTConcurrentOperation::spawnedWorkerThread, ...) gives it a
// worker thread of its own.) nullptr when the worker thread is unusable (see concurrent_operation.h).
//
// What main() does, on the worker thread:
//  1. creates the destination's parent folder with its missing parents; failing that, the
//     operation fails with the file manager's error;
//  2. stops here, reporting cancellation, when cancelled;
//  3. when an item exists at the destination, compares contents (coordinated on the path chosen by
//     filePathForCoordinateAccess(true), the other compared as it stands): equal contents finish
//     with success at once, copying nothing; different contents make the destination the first
//     free "Mac style" unique name beside it (ZTGenerateMacStyleUniquePath), after another
//     cancellation check; a coordination error fails the operation unchanged;
//  4. copies with zt::copyItemWithCoordinationFromPath (never replacing anything); the success
//     handler then runs with the operation, or the failure handler with the copy's error.
// The copy itself is whole or absent: the file manager builds it under a hidden name beside the
// destination and renames it into place.
//
// Cancellation: cancel() may be called from any thread. It is noticed before the comparison and
// before picking a unique name; it also ends a coordination claim that is still waiting. When it
// arrives while the copy is under way, the copy runs to its end, the file it produced is removed
// again and the operation reports cancellation (cancellation handler, not the failure handler):
// a cancelled copy leaves nothing new at the destination. Once the outcome has been decided (the
// success handler is about to run) cancel() has no effect and isCancelled() stays false.
//
// Threads: configure the operation before it starts. While it runs, destinationFilePath() may be
// read from any thread (it changes once, when a unique name is chosen); the handlers all run on
// the worker thread. A success handler that throws is logged through ZTLog and the operation
// still completes. Bad input (a missing source, an unreadable or unwritable folder, a destination
// under a regular file) never throws: it ends in the failure handler with a ZTCocoaErrorDomain file
// error (see zentrel/platform/file_manager.h).

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_coordinator.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

class ZT_API ZTCopyFileAsyncOperation : public ZTConcurrentOperation {
 public:
  using SuccessHandler = std::function<void(ZTCopyFileAsyncOperation& operation)>;

  using ZTConcurrentOperation::ZTConcurrentOperation;

  // Which of the two paths is the coordinated one in the contents comparison:
  // filePathForCoordinateAccess(true) is the source when set, the destination otherwise.
  bool coordinateAccessForSource() const;
  void setCoordinateAccessForSource(bool value);

  std::string sourceFilePath() const;
  void setSourceFilePath(std::string path);

  // The target path; replaced by a unique name when a different file stands there, so after
  // success it names the file actually written (or the identical file reused).
  std::string destinationFilePath() const;
  void setDestinationFilePath(std::string path);

  // Optional; runs on the worker thread after a successful copy (or reuse).
  SuccessHandler successHandler() const;
  void setSuccessHandler(SuccessHandler handler);

  // With true: the source path when coordinateAccessForSource() is set, else the destination path.
  // With false: the other one.
  std::string filePathForCoordinateAccess(bool coordinated) const;

  void main() override;
  void cancel() override;

 private:
  // The coordinator of the running copy, so that cancel() can end a claim that is still waiting.
  std::shared_ptr<ZTFileCoordinator> currentCoordinator() const;
  // Marks the outcome decided; false when a cancellation came first (the operation is then cancelled).
  bool decideSuccess();
  void finishWithCopySuccess();

  mutable ZTMutex mutex_;
  bool coordinateAccessForSource_ ZT_GUARDED_BY(mutex_) = false;
  std::string sourceFilePath_ ZT_GUARDED_BY(mutex_);
  std::string destinationFilePath_ ZT_GUARDED_BY(mutex_);
  SuccessHandler successHandler_ ZT_GUARDED_BY(mutex_);
  std::shared_ptr<ZTFileCoordinator> coordinator_ ZT_GUARDED_BY(mutex_);
  // Which of cancel() and the decision of the outcome came first: each side stores its own flag,
  // then reads the other's (both sequentially consistent), so at least one sees the other.
  std::atomic<bool> cancelRequested_{false};
  std::atomic<bool> outcomeDecided_{false};
};
