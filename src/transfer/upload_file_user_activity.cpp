#include "zentrel/transfer/upload_file_user_activity.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "zentrel/filesystem/temporary_files.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/log.h"
#include "zentrel/transfer/copy_file_async_operation.h"

namespace {
std::string streamName(const ZTStream& stream) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&stream));
  return "<" + ZTDebugClassNameForObject(&stream) + ": " + address + ">";
}
}  // namespace

std::shared_ptr<ZTUploadFileUserActivity> ZTUploadFileUserActivity::create(std::shared_ptr<ZTUserActivity> userActivity) {
  if (!userActivity) ZTLogf("%s nil == userActivity", "-[ZTUploadFileUserActivity initWithUserActivity:]");
  std::shared_ptr<ZTUploadFileUserActivity> upload(new ZTUploadFileUserActivity(std::move(userActivity)));
  upload->attachToUserActivity();
  return upload;
}

ZTUploadFileUserActivity::ZTUploadFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity)
    : ZTStreamFileUserActivity(std::move(userActivity)) {}

ZTUploadFileUserActivity::~ZTUploadFileUserActivity() { invalidate(); }

void ZTUploadFileUserActivity::setDelegate(std::weak_ptr<ZTUploadFileUserActivityDelegate> delegate) {
  uploadDelegate_ = delegate;
  std::shared_ptr<ZTUploadFileUserActivityDelegate> strong = delegate.lock();
  setDelegateBase(std::weak_ptr<ZTStreamFileUserActivityDelegate>(strong));
  if (!strong) setDelegateBase({});
}

std::shared_ptr<ZTUploadFileUserActivityDelegate> ZTUploadFileUserActivity::uploadDelegate() const {
  return uploadDelegate_.lock();
}

bool ZTUploadFileUserActivity::becomeCurrent(ZTError* error) {
  if (!userActivity()) {
    ZTSetError(error, ZTError(ZTUserActivityErrorDomain, ZTUserActivityErrorInvalidated,
                              ZTValueDictionary{{ZTLocalizedDescriptionKey, "There is no user activity to make current."}}));
    return false;
  }
  userActivity()->setSupportsContinuationStreams(true);
  return userActivity()->becomeCurrent(error);
}

std::string ZTUploadFileUserActivity::descriptionForStream(const ZTStream&) const { return "Upload stream"; }

void ZTUploadFileUserActivity::userActivityDidReceiveInputStream(ZTUserActivity&, std::shared_ptr<ZTInputStream> inputStream,
                                                                 std::shared_ptr<ZTOutputStream> outputStream) {
  (void)inputStream;  // nothing ever flows back
  if (isInvalidated() || outputStream_ || copyOutputFileOperationInitiated_) {
    ZTLogf("%s Already sending; another receiver is turned away",
           "-[ZTUploadFileUserActivity userActivity:didReceiveInputStream:outputStream:]");
    if (outputStream) outputStream->close();
    if (inputStream) inputStream->close();
    return;
  }
  std::string path;
  if (auto delegate = uploadDelegate()) {
    try {
      path = delegate->pathForUploadFileUserActivity(*this);
    } catch (const std::exception& e) {
      ZTLogf("%s pathForUploadFileUserActivity: threw: %s",
             "-[ZTUploadFileUserActivity userActivity:didReceiveInputStream:outputStream:]", e.what());
    } catch (...) {
      ZTLogf("%s pathForUploadFileUserActivity: threw",
             "-[ZTUploadFileUserActivity userActivity:didReceiveInputStream:outputStream:]");
    }
  }
  sourceOutputFilePath_ = path;
  struct stat info {};
  if (!path.empty() && ::stat(path.c_str(), &info) == 0) setTotalFileSize(static_cast<std::uint64_t>(info.st_size));
  outputStream_ = std::move(outputStream);
  openStream(outputStream_);
}

void ZTUploadFileUserActivity::handleHasSpaceAvailableEventForStream(ZTStream& stream) {
  if (!outputStream_ || &stream != outputStream_.get()) {
    ZTLogf("%s Unknown stream %s", "-[ZTUploadFileUserActivity handleHasSpaceAvailableEventForStream:]",
           streamName(stream).c_str());
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  if (!outputData_ && lastOutputData_) {
    ZTLogf("%s Data upload max delta %f", "-[ZTUploadFileUserActivity handleHasSpaceAvailableEventForStream:]",
           maxUploadTimeDelta_);
    if (closingTimer_) return;  // already scheduled
    std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
    const double delay = maxUploadTimeDelta_ * kClosingDelayFactor;
    performOnMainThreadSynchronouslyIfPossible([this, weakSelf, delay] {
      auto self = weakSelf.lock();
      if (!self || isInvalidated()) return;
      closingTimer_ = ZTRunLoop::main()->scheduleTimer(std::chrono::duration<double>(delay), false, [weakSelf](ZTTimer&) {
        if (auto strong = weakSelf.lock())
          static_cast<ZTUploadFileUserActivity&>(*strong).finishUploadAndNotifyDelegateAboutSuccess();
      });
    });
    return;
  }
  if (!outputData_ && !lastOutputData_) continueSendingData();
  sendOutputDataToStream();
}

void ZTUploadFileUserActivity::continueSendingData() {
  if (outputFileHandle_) {
    ZTError error;
    auto block = outputFileHandle_->readDataUpToLength(kBlockSize, &error);
    if (!block) {
      ZTLogf("%s Couldn't read output file due %s", "-[ZTUploadFileUserActivity continueSendingData]",
             error.description().c_str());
      invalidateAndNotifyDelegateAboutFail();
      return;
    }
    auto offset = outputFileHandle_->offsetInFile();
    const bool end = offset && *offset == endOfOutputFile_;
    if (block->empty() && !end) {
      ZTLogf("%s The output file ended early", "-[ZTUploadFileUserActivity continueSendingData]");
      invalidateAndNotifyDelegateAboutFail();
      return;
    }
    sendData(std::move(*block), end);
    return;
  }
  if (copyOutputFileOperationInitiated_) {
    ZTLogf("%s Copy output file operation already initiated!", "-[ZTUploadFileUserActivity continueSendingData]");
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  auto queue = fileOperationQueue();
  if (!queue) return;
  std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
  auto thread = ZTThreadWithRunLoop::spawnThread();
  auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(
      thread, ZTConcurrentOperation::Handler{}, ZTConcurrentOperation::Handler{},
      [weakSelf](ZTConcurrentOperation&, const ZTError& error) {
        ZTLogf("%s Couldn't copy output file due %s", "-[ZTUploadFileUserActivity continueSendingData]_block_invoke",
               error.description().c_str());
        performOnMainThreadSynchronouslyIfPossible([weakSelf] {
          if (auto self = weakSelf.lock()) self->invalidateAndNotifyDelegateAboutFail();
        });
      });
  if (!copy) {
    thread->cancel();
    ZTLogf("%s Couldn't create the copy operation", "-[ZTUploadFileUserActivity continueSendingData]");
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  copy->setCancelsWorkerThreadOnCompletion(true);
  copy->setSourceFilePath(sourceOutputFilePath_);
  copy->setCoordinateAccessForSource(true);
  copy->setDestinationFilePath(ZTTempName({}, {}));
  copy->setSuccessHandler([weakSelf](ZTCopyFileAsyncOperation& operation) {
    const std::string staged = operation.destinationFilePath();
    performOnMainThreadSynchronouslyIfPossible([weakSelf, staged] {
      if (auto self = weakSelf.lock()) static_cast<ZTUploadFileUserActivity&>(*self).stagingCopyFinished(staged);
    });
  });
  copyOutputFileOperationInitiated_ = true;
  queue->addOperation(copy);
}

void ZTUploadFileUserActivity::stagingCopyFinished(const std::string& stagedPath) {
  if (isInvalidated()) {
    ::unlink(stagedPath.c_str());  // the copy finished after the transfer ended
    return;
  }
  outputFilePath_ = stagedPath;
  ZTError error;
  outputFileHandle_ = ZTFileHandle::fileHandleForReadingAtPath(stagedPath, &error);
  if (!outputFileHandle_) {
    ZTLogf("%s Couldn't create output file handle due %s", "-[ZTUploadFileUserActivity continueSendingData]_block_invoke",
           error.description().c_str());
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  endOfOutputFile_ = outputFileHandle_->seekToEndReturningOffset().value_or(0);
  (void)outputFileHandle_->seekToOffset(0);
  continueSendingData();
}

void ZTUploadFileUserActivity::sendData(ZTBytes data, bool end) {
  outputDataByteIndex_ = 0;
  lastOutputData_ = end;
  outputData_ = std::move(data);
  if (outputData_->empty()) {
    // An empty file: no write will bring another has-space event, so go to the end at once.
    outputData_.reset();
    if (end && outputStream_) handleHasSpaceAvailableEventForStream(*outputStream_);
    return;
  }
  sendOutputDataToStream();
}

void ZTUploadFileUserActivity::sendOutputDataToStream() {
  if (!outputData_ || !outputStream_) return;
  const double time = now();
  const std::size_t remaining = outputData_->size() - static_cast<std::size_t>(outputDataByteIndex_);
  const std::size_t length = std::min(remaining, kWriteSize);
  const std::int64_t written = outputStream_->write(outputData_->data() + outputDataByteIndex_, length);
  if (written < 0) return;  // the stream's error event follows and fails the transfer
  outputDataByteIndex_ += static_cast<std::uint64_t>(written);
  if (outputDataByteIndex_ >= outputData_->size()) outputData_.reset();
  addTransferredDataSize(static_cast<std::uint64_t>(written));
  notifyDelegateAboutProgressUsingTransferredDataSize(transferredDataSize());
  if (lastUploadTimeTime_ == 0) lastUploadTimeTime_ = time;
  maxUploadTimeDelta_ = std::max(time - lastUploadTimeTime_, maxUploadTimeDelta_);
  lastUploadTimeTime_ = time;
}

void ZTUploadFileUserActivity::finishUploadAndNotifyDelegateAboutSuccess() {
  closingTimer_.reset();
  invalidateOutputStream();
  notifyDelegateAboutProgressUsingTransferredDataSize(totalFileSize());
  const std::string path = sourceOutputFilePath_;
  if (auto delegate = uploadDelegate()) {
    try {
      delegate->userActivityDidUploadFileAtPath(*this, path);
    } catch (const std::exception& e) {
      ZTLogf("%s userActivityDidUploadFileAtPath: threw: %s",
             "-[ZTUploadFileUserActivity finishUploadAndNotifyDelegateAboutSuccess]", e.what());
    } catch (...) {
      ZTLogf("%s userActivityDidUploadFileAtPath: threw", "-[ZTUploadFileUserActivity finishUploadAndNotifyDelegateAboutSuccess]");
    }
  }
}

void ZTUploadFileUserActivity::invalidateOutputStream() {
  if (auto stream = std::move(outputStream_)) closeStream(stream);
}

void ZTUploadFileUserActivity::invalidate() {
  ZTStreamFileUserActivity::invalidate();
  if (ZTThread::isMainThread() && closingTimer_) closingTimer_->invalidate();
  closingTimer_.reset();
  invalidateOutputStream();
  if (auto handle = std::move(outputFileHandle_)) (void)handle->close();
  sourceOutputFilePath_.clear();
  outputData_.reset();
  if (!outputFilePath_.empty()) {
    ::unlink(outputFilePath_.c_str());
    outputFilePath_.clear();
  }
}
