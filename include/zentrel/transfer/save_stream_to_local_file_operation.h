#pragma once
// ZTSaveStreamToLocalFileOperation: drains an input stream into a private staging file on the
// operation's worker thread and, once the stream ends, moves the finished file to its destination
// under file coordination, so a half-written file is never visible at the destination.
//
// Creating: create() returns nullptr when there is no worker thread or the stream has already been
// opened (its status is anything but ZTStreamStatus::NotOpen), and when the worker thread is
// unusable (see concurrent_operation.h). The operation becomes the stream's delegate; leave the
// stream alone afterwards (no other delegate, no scheduling, no reads).
//
// What it does, all on the worker thread:
//  - main(): returns at once when cancelled. Otherwise creates the staging file
//    ZTTemporaryDirectoryAdd(ZTUUIDString()) in the library's private temporary folder (failing
//    with ZTPOSIXErrorDomain code 5, EIO, no user info, when it cannot be made), opens a write
//    handle on it, schedules the stream on the worker thread's run loop and opens it.
//  - Stream events: open completed and has bytes available each lead to exactly one read
//    (readAvailableBytes); error occurred fails the operation with the stream's error; end
//    encountered completes it (handleCompletion). Other events are ignored.
//  - readAvailableBytes(): one read into the stream's own lent buffer when it offers one (no
//    allocation), otherwise into a 10 MiB scratch buffer allocated for that read and freed after
//    it; the bytes read are appended to the staging file as they are, without a copy. A read that
//    fails fails the operation with the stream's error. A full disk or exhausted quota (ENOSPC,
//    EDQUOT) fails it with ZTCocoaErrorDomain code 640 (ZTFileWriteOutOfSpaceError) whose
//    description is ZTLocalizedString("No space left on device"); any other write failure (EFBIG
//    beyond a file-size limit, EIO...) fails it with the file handle's error.
//  - handleCompletion(): flushes the staging file to disk, closes it and the stream, and moves it
//    to localFilePath() with zt::moveItemWithCoordinationFromPath under a coordinator acting for
//    filePresenter(), options 0 (an existing destination is never replaced: that fails with
//    ZTFileWriteFileExistsError). Then the success handler runs, or the failure handler with the
//    move's error.
//  - handleError(): closes the stream, removes the staging file and fails with the error.
// On every way out — success, failure, cancellation — the stream is unscheduled and closed, and
// the staging file is either at the destination or removed.
//
// Cancellation: cancel() may be called from any thread. It sets the cancelled flag at once; the
// clean-up (close the stream, remove the staging file, then report the cancellation through the
// cancellation handler) runs on the worker thread, queued behind whatever the worker is doing, so
// it never races with a read or an append; a final move still waiting for its coordination claim
// is ended at once. If the worker thread has ended, the clean-up runs on
// the calling thread once the worker can no longer touch the stream. A cancellation that
// arrives while the finished file is being moved into place is honoured by removing the moved file
// again. Once the outcome is decided (the success handler is about to run) cancel() has no effect
// and isCancelled() stays false.
//
// Ownership: the operation keeps the stream, the presenter and its handlers; the stream refers to
// the operation weakly, as to any delegate. Keep the operation until it has finished (a queue
// does): one whose last reference goes while it runs closes its stream and removes its staging
// file when it is destroyed, and reports nothing. The staging file belongs to the operation from
// main() until it is moved into place (then to the destination) or removed. Handlers that throw
// are logged through ZTLog and the operation completes all the same.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_coordinator.h"
#include "zentrel/platform/file_handle.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/platform/thread.h"
#include "zentrel/platform/thread_annotations.h"

class ZT_API ZTSaveStreamToLocalFileOperation : public ZTConcurrentOperation, public ZTStreamDelegate {
 public:
  using SuccessHandler = std::function<void(ZTSaveStreamToLocalFileOperation& operation)>;

  // Bytes read at most per event when the stream lends no buffer of its own.
  static constexpr std::size_t kScratchBufferSize = 10'485'760;

  [[nodiscard]] static std::shared_ptr<ZTSaveStreamToLocalFileOperation> create(
      std::shared_ptr<ZTInputStream> inputStream, std::string localFilePath,
      std::shared_ptr<ZTFilePresenter> filePresenter, std::shared_ptr<ZTThread> workerThread,
      Handler startHandler, Handler cancellationHandler, SuccessHandler successHandler,
      FailureHandler failureHandler);

  // Reached only through create().
  ZTSaveStreamToLocalFileOperation(ConstructionKey key, std::shared_ptr<ZTInputStream> inputStream,
                                   std::string localFilePath, std::shared_ptr<ZTFilePresenter> filePresenter,
                                   std::shared_ptr<ZTThread> workerThread, Handler startHandler,
                                   Handler cancellationHandler, SuccessHandler successHandler,
                                   FailureHandler failureHandler);
  ~ZTSaveStreamToLocalFileOperation() override;

  const std::shared_ptr<ZTInputStream>& inputStream() const { return inputStream_; }
  const std::string& localFilePath() const { return localFilePath_; }
  const std::shared_ptr<ZTFilePresenter>& filePresenter() const { return filePresenter_; }
  // The staging file; empty until main() has made it. Any thread.
  std::string temporaryFilePath() const;
  // The write handle on the staging file; null before main() and after it is closed. Any thread.
  std::shared_ptr<ZTFileHandle> temporaryFileHandle() const;
  const SuccessHandler& successHandler() const { return successHandler_; }

  void main() override;
  void cancel() override;
  // The stream's delegate call, on the worker thread.
  void stream(ZTStream& stream, ZTStreamEvent eventCode) override;

 protected:
  // The steps, on the worker thread; a subclass may extend them (calling these).
  virtual void readAvailableBytes();
  virtual void handleCompletion();
  virtual void handleError(const ZTError& error);
  virtual void closeInputStream();
  virtual void removeTemporaryFile();

 private:
  void cleanUpAfterCancellation();
  // Marks the outcome decided; false when a cancellation came first (the operation is then cancelled).
  bool decideSuccess();
  // A write failure of the staging file as reported: a full disk or quota becomes code 640.
  static ZTError stagingWriteError(const ZTError& error);

  const std::shared_ptr<ZTInputStream> inputStream_;
  const std::string localFilePath_;
  const std::shared_ptr<ZTFilePresenter> filePresenter_;
  const SuccessHandler successHandler_;

  mutable ZTMutex mutex_;
  std::string temporaryFilePath_ ZT_GUARDED_BY(mutex_);
  std::shared_ptr<ZTFileHandle> temporaryFileHandle_ ZT_GUARDED_BY(mutex_);
  // Whether the staging file is still the operation's to remove (not yet moved into place).
  bool ownsTemporaryFile_ ZT_GUARDED_BY(mutex_) = false;
  // The coordinator of the final move, so that cancel() can end a claim that is still waiting.
  std::shared_ptr<ZTFileCoordinator> coordinator_ ZT_GUARDED_BY(mutex_);
  // Which of cancel() and the decision of the outcome came first: each side stores its own flag,
  // then reads the other's (both sequentially consistent), so at least one sees the other.
  std::atomic<bool> cancelRequested_{false};
  std::atomic<bool> outcomeDecided_{false};
  // Worker thread only (and the destructor): the stream has been closed, no event is acted on.
  bool inputClosed_ = false;
  std::weak_ptr<ZTRunLoop> scheduledRunLoop_;
};
