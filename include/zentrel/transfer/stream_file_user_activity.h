#pragma once
// ZTStreamFileUserActivity: the common part of sending one file to another device over the
// continuation streams of a ZTUserActivity, and of receiving it. Use its two subclasses:
// ZTUploadFileUserActivity (the sender) and ZTDownloadFileUserActivity (the receiver).
//
// It owns the user activity (and is its delegate), a serial queue for the staging copies
// (fileOperationQueue(), one operation at a time), the stream plumbing, progress reporting and the
// failure path. Files are never streamed from or into their final place: the sender streams a
// private copy of its file and the receiver writes into a private file that is copied to the
// destination once complete (both copies are ZTCopyFileAsyncOperation on worker threads of their
// own, run one after another by fileOperationQueue()).
//
// The continuation stream carries the file's bytes and nothing else; the receiver learns the size
// out of band (the sender's application puts it into the activity's user info, see
// ZTHandoffFileSizeKey) and treats it as the only end-of-file criterion.
//
// Threads: an object is used from the main thread. Its streams are scheduled on the main run
// loop, so every stream event, every block sent and received and every delegate call runs on the
// main thread, which the application (or a test) must keep running (ZTRunLoop::main()). The
// staging copies run on worker threads; their results come back through
// performOnMainThreadSynchronouslyIfPossible. invalidate() waits for queued copies to finish.
//
// Failure: every failure is logged (one line, beginning with the reporting method's name, such as
// "-[ZTDownloadFileUserActivity start]") and ends in invalidateAndNotifyDelegateAboutFail(): the
// object is invalidated first and the delegate then hears only that it failed. Invalidation is
// idempotent, runs from the destructor too, and deletes the private staged files — on success as
// well, so release the object (or call invalidate()) once the delegate has been told.
//
// A delegate method that throws is caught and logged; the transfer keeps its promises (a failure
// is still reported as a failure, a delivered file stays delivered).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/user_activity.h"

class ZTOperationQueue;
class ZTStreamFileUserActivity;

// User-info keys the sender fills in for the receiver: the file's size in bytes (an unsigned
// integer) and its name (a text, one path component).
inline constexpr const char* ZTHandoffFileSizeKey = "fileSize";
inline constexpr const char* ZTHandoffFileNameKey = "fileName";

// Told about the start, progress and failure of a transfer, on the main thread. Every method is
// optional (does nothing unless overridden).
class ZT_API ZTStreamFileUserActivityDelegate {
 public:
  virtual ~ZTStreamFileUserActivityDelegate() = default;
  // The continuation stream has opened.
  virtual void userActivityDidStartStreamFile(ZTStreamFileUserActivity& activity);
  // A fraction from 0 to 1, at most one call per 0.1 s and per 1 % step (so the last call may be
  // below 1 when completion follows closely).
  virtual void userActivityStreamFileProgress(ZTStreamFileUserActivity& activity, float progress);
  // Whether userActivityStreamFileProgress is wanted; when false the throttling state is not
  // touched either.
  virtual bool respondsToStreamFileProgress() const { return true; }
  // The transfer failed; the object has already been invalidated.
  virtual void userActivityDidFailStreamFile(ZTStreamFileUserActivity& activity);
};

class ZT_API ZTStreamFileUserActivity : public ZTStreamDelegate,
                                        public ZTUserActivityDelegate,
                                        public std::enable_shared_from_this<ZTStreamFileUserActivity> {
 public:
  ~ZTStreamFileUserActivity() override;
  ZTStreamFileUserActivity(const ZTStreamFileUserActivity&) = delete;
  ZTStreamFileUserActivity& operator=(const ZTStreamFileUserActivity&) = delete;

  const std::shared_ptr<ZTUserActivity>& userActivity() const { return userActivity_; }
  // Held weakly.
  std::shared_ptr<ZTStreamFileUserActivityDelegate> delegate() const { return delegate_.lock(); }

  // Size of the file in bytes, 0 when unknown (no progress is reported then).
  std::uint64_t totalFileSize() const { return totalFileSize_; }
  // Bytes written to or read from the continuation stream so far.
  std::uint64_t transferredDataSize() const { return transferredDataSize_; }
  float notifiedStreamFileProgress() const { return notifiedStreamFileProgress_; }
  // Seconds since the reference date of the last progress report (0 before the first).
  double notifiedStreamFileProgressTime() const { return notifiedStreamFileProgressTime_; }
  // Runs the staging copies, one at a time; null once invalidated.
  const std::shared_ptr<ZTOperationQueue>& fileOperationQueue() const { return fileOperationQueue_; }

  // Drops the activity (and stops being its delegate), cancels the queued copies and waits until
  // they have finished. Idempotent; the subclasses also close their streams and delete their staged
  // files. Main thread.
  virtual void invalidate();
  // invalidate(), then userActivityDidFailStreamFile on the main thread (at once when called there).
  void invalidateAndNotifyDelegateAboutFail();

  // Reports size / totalFileSize (size clamped to the total) to the delegate when at least 0.1 s
  // have passed since the last report and the fraction has grown by at least 0.01. Nothing when the
  // total is 0 or the delegate does not want progress.
  void notifyDelegateAboutProgressUsingTransferredDataSize(std::uint64_t size);

  // The clock of progress throttling and of the sender's write timing: seconds since the reference
  // date. ZTDate::now() unless replaced (for tests and simulations). Main thread.
  void setTimeSource(std::function<double()> timeSource);

  // ZTStreamDelegate: dispatches by event to the handlers below.
  void stream(ZTStream& stream, ZTStreamEvent eventCode) override;

 protected:
  explicit ZTStreamFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity);
  // Completes construction once the object is held by a shared_ptr (becomes the activity's delegate).
  void attachToUserActivity();
  void setDelegateBase(std::weak_ptr<ZTStreamFileUserActivityDelegate> delegate) { delegate_ = std::move(delegate); }
  void setTotalFileSize(std::uint64_t size) { totalFileSize_ = size; }
  void addTransferredDataSize(std::uint64_t count) { transferredDataSize_ += count; }
  double now() const;

  // Opens a stream that has not been opened yet, with this object as its delegate, on the main run
  // loop; a stream in any other state fails the transfer.
  void openStream(const std::shared_ptr<ZTStream>& stream);
  void closeStream(const std::shared_ptr<ZTStream>& stream);

  virtual void handleOpenCompletedEventForStream(ZTStream& stream);
  virtual void handleHasBytesAvailableEventForStream(ZTStream& stream);
  virtual void handleHasSpaceAvailableEventForStream(ZTStream& stream);
  virtual void handleErrorOccurredEventForStream(ZTStream& stream);
  virtual void handleEndEncounteredEventForStream(ZTStream& stream);
  // "Upload stream" / "Download stream"; the base throws ZTInternalInconsistencyException.
  virtual std::string descriptionForStream(const ZTStream& stream) const;

  // Runs the delegate's method, logging what it throws.
  void callDelegate(const char* what, const std::function<void(ZTStreamFileUserActivityDelegate&)>& call);
  // Runs `call` on the main thread (at once when already there) while this object still exists.
  void performOnMainThreadIfAlive(std::function<void(ZTStreamFileUserActivity&)> call);
  bool isInvalidated() const { return invalidated_; }

 private:
  void invalidateBase();

  std::shared_ptr<ZTUserActivity> userActivity_;
  std::weak_ptr<ZTStreamFileUserActivityDelegate> delegate_;
  std::uint64_t totalFileSize_ = 0;
  std::uint64_t transferredDataSize_ = 0;
  float notifiedStreamFileProgress_ = 0.0f;
  double notifiedStreamFileProgressTime_ = 0.0;
  std::shared_ptr<ZTOperationQueue> fileOperationQueue_;
  std::function<double()> timeSource_;
  bool invalidated_ = false;
};
