#include "zentrel/transfer/download_file_user_activity.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
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
constexpr const char* kInit = "-[ZTDownloadFileUserActivity initWithUserActivity:expectedFileSize:filePath:]";
constexpr const char* kContinue = "-[ZTDownloadFileUserActivity continueReceivingData:end:]";
// Reads handled in one has-bytes event; the stream reports the rest on its next turn.
constexpr int kMaxReadsPerEvent = 256;

std::string streamName(const ZTStream& stream) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&stream));
  return "<" + ZTDebugClassNameForObject(&stream) + ": " + address + ">";
}
}  // namespace

std::shared_ptr<ZTDownloadFileUserActivity> ZTDownloadFileUserActivity::create(std::shared_ptr<ZTUserActivity> userActivity,
                                                                               std::uint64_t expectedFileSize,
                                                                               std::string filePath) {
  if (!userActivity) {
    ZTLogf("%s nil == userActivity", kInit);
    return nullptr;
  }
  if (expectedFileSize == 0) {
    ZTLogf("%s 0 == fileSize", kInit);
    return nullptr;
  }
  if (filePath.empty()) {
    ZTLogf("%s 0 == filePath.length", kInit);
    return nullptr;
  }
  std::shared_ptr<ZTDownloadFileUserActivity> download(
      new ZTDownloadFileUserActivity(std::move(userActivity), expectedFileSize, std::move(filePath)));
  download->attachToUserActivity();
  return download;
}

ZTDownloadFileUserActivity::ZTDownloadFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity,
                                                       std::uint64_t expectedFileSize, std::string filePath)
    : ZTStreamFileUserActivity(std::move(userActivity)), destinationInputFilePath_(std::move(filePath)) {
  setTotalFileSize(expectedFileSize);
}

ZTDownloadFileUserActivity::~ZTDownloadFileUserActivity() { invalidate(); }

void ZTDownloadFileUserActivity::setDelegate(std::weak_ptr<ZTDownloadFileUserActivityDelegate> delegate) {
  downloadDelegate_ = delegate;
  std::shared_ptr<ZTDownloadFileUserActivityDelegate> strong = delegate.lock();
  if (strong) setDelegateBase(std::weak_ptr<ZTStreamFileUserActivityDelegate>(strong));
  else setDelegateBase({});
}

std::shared_ptr<ZTDownloadFileUserActivityDelegate> ZTDownloadFileUserActivity::downloadDelegate() const {
  return downloadDelegate_.lock();
}

std::string ZTDownloadFileUserActivity::descriptionForStream(const ZTStream&) const { return "Download stream"; }

void ZTDownloadFileUserActivity::start() {
  if (started_ || isInvalidated()) return;
  started_ = true;
  inputFilePath_ = ZTTempName({}, {});
  auto activity = userActivity();
  if (!activity->supportsContinuationStreams()) {
    ZTLogf("%s User activity MUST support continuation streams!", "-[ZTDownloadFileUserActivity start]");
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
  activity->getContinuationStreamsWithCompletionHandler(
      [weakSelf](std::shared_ptr<ZTInputStream> inputStream, std::shared_ptr<ZTOutputStream> outputStream,
                 const std::optional<ZTError>& error) {
        auto self = std::static_pointer_cast<ZTDownloadFileUserActivity>(weakSelf.lock());
        if (!self || self->isInvalidated()) {
          if (inputStream) inputStream->close();
          return;
        }
        if (error || !inputStream) {
          ZTLogf("%s Couldn't get continuation streams due %s", "-[ZTDownloadFileUserActivity start]_block_invoke",
                 error ? error->description().c_str() : "(no stream)");
          self->invalidateAndNotifyDelegateAboutFail();
          return;
        }
        self->unusedOutputStream_ = std::move(outputStream);
        self->inputStream_ = std::move(inputStream);
        self->openStream(self->inputStream_);
      });
}

void ZTDownloadFileUserActivity::handleHasBytesAvailableEventForStream(ZTStream& stream) {
  if (!inputStream_ || &stream != inputStream_.get()) {
    ZTLogf("%s Unknown stream %s", "-[ZTDownloadFileUserActivity handleHasBytesAvailableEventForStream:]",
           streamName(stream).c_str());
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  std::array<std::uint8_t, kReadSize> buffer;
  for (int reads = 0; reads < kMaxReadsPerEvent && inputStream_ && inputStream_->hasBytesAvailable(); ++reads) {
    const std::int64_t count = inputStream_->read(buffer.data(), buffer.size());
    if (count <= 0) break;  // a negative count is followed by the stream's error event
    addTransferredDataSize(static_cast<std::uint64_t>(count));
    continueReceivingData(std::span<const std::uint8_t>(buffer.data(), static_cast<std::size_t>(count)), false);
    if (isInvalidated()) return;
    notifyDelegateAboutProgressUsingTransferredDataSize(transferredDataSize());
    if (transferredDataSize() == totalFileSize()) {
      invalidateInputStream();
      continueReceivingData({}, true);
    }
  }
}

void ZTDownloadFileUserActivity::handleEndEncounteredEventForStream(ZTStream& stream) {
  if (!inputStream_ || &stream != inputStream_.get()) return;
  invalidateInputStream();
  notifyDelegateAboutProgressUsingTransferredDataSize(totalFileSize());
  continueReceivingData({}, true);
}

void ZTDownloadFileUserActivity::continueReceivingData(std::span<const std::uint8_t> data, bool end) {
  if (!data.empty()) {
    if (!inputFileHandle_) {
      ZTError error;
      const int fd = ::open(inputFilePath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
      if (fd < 0) error = ZTError::posix(errno, inputFilePath_);
      else inputFileHandle_ = ZTFileHandle::create(fd, true);
      if (!inputFileHandle_) {
        ZTLogf("%s Couldn't create input file handle due %s", kContinue, error.description().c_str());
        invalidateAndNotifyDelegateAboutFail();
        return;
      }
    }
    ZTError error;
    if (!inputFileHandle_->writeData(data, &error)) {
      ZTLogf("%s Couldn't write input file due %s", kContinue, error.description().c_str());
      invalidateAndNotifyDelegateAboutFail();
      return;
    }
  }
  if (!end) return;
  if (transferredDataSize() < totalFileSize()) {
    ZTLogf("%s self.transferredDataSize < self.totalFileSize", kContinue);
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  invalidateInputFileHandle();
  auto queue = fileOperationQueue();
  if (!queue) return;
  std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
  auto thread = ZTThreadWithRunLoop::spawnThread();
  auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(
      thread, ZTConcurrentOperation::Handler{}, ZTConcurrentOperation::Handler{},
      [weakSelf](ZTConcurrentOperation&, const ZTError& error) {
        ZTLogf("%s Couldn't copy input file due %s", "-[ZTDownloadFileUserActivity continueReceivingData:end:]_block_invoke",
               error.description().c_str());
        performOnMainThreadSynchronouslyIfPossible([weakSelf] {
          if (auto self = weakSelf.lock()) self->invalidateAndNotifyDelegateAboutFail();
        });
      });
  if (!copy) {
    thread->cancel();
    ZTLogf("%s Couldn't create the copy operation", kContinue);
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  copy->setCancelsWorkerThreadOnCompletion(true);
  copy->setSourceFilePath(inputFilePath_);
  copy->setDestinationFilePath(destinationInputFilePath_);
  copy->setCoordinateAccessForSource(false);
  copy->setSuccessHandler([weakSelf](ZTCopyFileAsyncOperation& operation) {
    const std::string delivered = operation.destinationFilePath();
    performOnMainThreadSynchronouslyIfPossible([weakSelf, delivered] {
      auto self = std::static_pointer_cast<ZTDownloadFileUserActivity>(weakSelf.lock());
      if (!self) return;
      if (auto delegate = self->downloadDelegate()) {
        try {
          delegate->userActivityDidDownloadFileAtPath(*self, delivered);
        } catch (const std::exception& e) {
          ZTLogf("%s userActivityDidDownloadFileAtPath: threw: %s",
                 "-[ZTDownloadFileUserActivity continueReceivingData:end:]_block_invoke", e.what());
        } catch (...) {
          ZTLogf("%s userActivityDidDownloadFileAtPath: threw",
                 "-[ZTDownloadFileUserActivity continueReceivingData:end:]_block_invoke");
        }
      }
    });
  });
  queue->addOperation(copy);
}

void ZTDownloadFileUserActivity::invalidateInputStream() {
  if (auto stream = std::move(inputStream_)) closeStream(stream);
}

void ZTDownloadFileUserActivity::invalidateInputFileHandle() {
  if (auto handle = std::move(inputFileHandle_)) {
    (void)handle->synchronize();
    (void)handle->close();
  }
}

void ZTDownloadFileUserActivity::invalidate() {
  ZTStreamFileUserActivity::invalidate();
  invalidateInputStream();
  if (auto output = std::move(unusedOutputStream_)) output->close();
  invalidateInputFileHandle();
  if (!inputFilePath_.empty()) {
    ::unlink(inputFilePath_.c_str());
    inputFilePath_.clear();
  }
}
