#include "zentrel/transfer/save_stream_to_local_file_operation.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <span>

#include "zentrel/filesystem/coordinated_file_operations.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/localization.h"
#include "zentrel/platform/uuid.h"

std::shared_ptr<ZTSaveStreamToLocalFileOperation> ZTSaveStreamToLocalFileOperation::create(
    std::shared_ptr<ZTInputStream> inputStream, std::string localFilePath,
    std::shared_ptr<ZTFilePresenter> filePresenter, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
    Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler) {
  if (!workerThread || !inputStream || inputStream->streamStatus() != ZTStreamStatus::NotOpen) return nullptr;
  auto operation = make<ZTSaveStreamToLocalFileOperation>(
      inputStream, std::move(localFilePath), std::move(filePresenter), std::move(workerThread),
      std::move(startHandler), std::move(cancellationHandler), std::move(successHandler), std::move(failureHandler));
  if (!operation) return nullptr;
  inputStream->setDelegate(std::static_pointer_cast<ZTStreamDelegate>(operation));
  return operation;
}

ZTSaveStreamToLocalFileOperation::ZTSaveStreamToLocalFileOperation(
    ConstructionKey key, std::shared_ptr<ZTInputStream> inputStream, std::string localFilePath,
    std::shared_ptr<ZTFilePresenter> filePresenter, std::shared_ptr<ZTThread> workerThread, Handler startHandler,
    Handler cancellationHandler, SuccessHandler successHandler, FailureHandler failureHandler)
    : ZTConcurrentOperation(key, std::move(workerThread), std::move(startHandler), std::move(cancellationHandler),
                            std::move(failureHandler)),
      inputStream_(std::move(inputStream)),
      localFilePath_(std::move(localFilePath)),
      filePresenter_(std::move(filePresenter)),
      successHandler_(std::move(successHandler)) {}

ZTSaveStreamToLocalFileOperation::~ZTSaveStreamToLocalFileOperation() {
  // Released while it ran: nobody hears of it any more, but nothing is left open or behind.
  if (!inputClosed_ && inputStream_) {
    inputStream_->setDelegate({});
    inputStream_->close();
  }
  ZTLockGuard lock(mutex_);
  if (temporaryFileHandle_) temporaryFileHandle_->close();
  if (ownsTemporaryFile_) ::unlink(temporaryFilePath_.c_str());
}

std::string ZTSaveStreamToLocalFileOperation::temporaryFilePath() const {
  ZTLockGuard lock(mutex_);
  return temporaryFilePath_;
}

std::shared_ptr<ZTFileHandle> ZTSaveStreamToLocalFileOperation::temporaryFileHandle() const {
  ZTLockGuard lock(mutex_);
  return temporaryFileHandle_;
}

void ZTSaveStreamToLocalFileOperation::main() {
  if (isCancelled()) return;  // the clean-up queued by cancel() reports it

  const std::string path = ZTTemporaryDirectoryAdd(ZTUUIDString());
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  {
    ZTLockGuard lock(mutex_);
    temporaryFilePath_ = path;
    if (descriptor >= 0) {
      temporaryFileHandle_ = ZTFileHandle::create(descriptor, true);
      ownsTemporaryFile_ = true;
    }
  }
  if (descriptor < 0) {
    finishWithError(ZTError(ZTPOSIXErrorDomain, EIO));
    return;
  }

  const auto runLoop = ZTRunLoop::current();
  scheduledRunLoop_ = runLoop;
  inputStream_->scheduleInRunLoop(*runLoop, ZTDefaultRunLoopMode);
  inputStream_->open();
}

void ZTSaveStreamToLocalFileOperation::stream(ZTStream& stream, ZTStreamEvent eventCode) {
  if (inputClosed_ || &stream != inputStream_.get()) return;
  if (isCancelled()) {
    // cancel() has queued the same clean-up; doing it now stops reading at once.
    cleanUpAfterCancellation();
    return;
  }
  switch (eventCode) {
    case ZTStreamEvent::OpenCompleted:
    case ZTStreamEvent::HasBytesAvailable:
      readAvailableBytes();
      break;
    case ZTStreamEvent::ErrorOccurred:
      handleError(inputStream_->streamError().value_or(ZTError(ZTPOSIXErrorDomain, EIO)));
      break;
    case ZTStreamEvent::EndEncountered:
      handleCompletion();
      break;
    default:
      break;
  }
}

ZTError ZTSaveStreamToLocalFileOperation::stagingWriteError(const ZTError& error) {
  const auto underlying = error.underlyingError();
  const bool outOfSpace = underlying && underlying->domain() == ZTPOSIXErrorDomain &&
                          (underlying->code() == ENOSPC || underlying->code() == EDQUOT);
  if (!outOfSpace) return error;
  ZTValue userInfo = ZTValue::dictionary();
  userInfo[ZTLocalizedDescriptionKey] = ZTValue(ZTLocalizedString("No space left on device"));
  userInfo[ZTUnderlyingErrorKey] = underlying->toValue();
  return ZTError(ZTCocoaErrorDomain, ZTFileWriteOutOfSpaceError, std::move(userInfo));
}

void ZTSaveStreamToLocalFileOperation::readAvailableBytes() {
  std::uint8_t* buffer = nullptr;
  std::size_t length = 0;
  std::unique_ptr<std::uint8_t[]> scratch;
  if (!inputStream_->getBuffer(&buffer, &length)) {
    scratch.reset(new (std::nothrow) std::uint8_t[kScratchBufferSize]);
    if (!scratch) {
      handleError(ZTError::posix(ENOMEM));
      return;
    }
    buffer = scratch.get();
    length = kScratchBufferSize;
  }

  const std::int64_t count = inputStream_->read(buffer, length);
  if (count < 0) {
    handleError(inputStream_->streamError().value_or(ZTError(ZTPOSIXErrorDomain, EIO)));
    return;
  }
  if (count == 0) return;

  const auto handle = temporaryFileHandle();
  ZTError error;
  if (!handle) {
    handleError(ZTError::posix(EBADF));
  } else if (!handle->writeData(std::span<const std::uint8_t>(buffer, static_cast<std::size_t>(count)), &error)) {
    handleError(stagingWriteError(error));
  }
}

void ZTSaveStreamToLocalFileOperation::handleCompletion() {
  const auto handle = temporaryFileHandle();
  ZTError error;
  if (!handle || !handle->synchronize(&error) || !handle->close(&error)) {
    // A file system that reports a full disk only when flushing (network, some quotas) ends here.
    handleError(handle ? stagingWriteError(error) : ZTError::posix(EBADF));
    return;
  }
  closeInputStream();
  if (isCancelled()) {
    cleanUpAfterCancellation();
    return;
  }

  const std::string source = temporaryFilePath();
  const auto fileManager = ZTFileManager::defaultManager();
  const auto coordinator = ZTFileCoordinator::create(filePresenter_);
  {
    ZTLockGuard lock(mutex_);
    coordinator_ = coordinator;
  }
  if (cancelRequested_.load()) coordinator->cancel();
  if (!zt::moveItemWithCoordinationFromPath(*fileManager, source, localFilePath_, coordinator, 0, &error)) {
    removeTemporaryFile();
    finishWithError(error);
    return;
  }
  {
    ZTLockGuard lock(mutex_);
    ownsTemporaryFile_ = false;
  }
  if (!decideSuccess()) {
    // Cancelled while the file was moved into place: it is new (moves never replace), so ours to take back.
    (void)zt::removeItemAtPathWithCoordination(*fileManager, localFilePath_, coordinator, 0, nullptr);
    finishAfterCancellation();
    return;
  }
  finishWithSuccessHandler([this] {
    if (successHandler_) successHandler_(*this);
  });
}

void ZTSaveStreamToLocalFileOperation::handleError(const ZTError& error) {
  closeInputStream();
  removeTemporaryFile();
  finishWithError(error);
}

void ZTSaveStreamToLocalFileOperation::closeInputStream() {
  inputClosed_ = true;
  inputStream_->setDelegate({});
  if (const auto runLoop = scheduledRunLoop_.lock()) inputStream_->removeFromRunLoop(*runLoop, ZTDefaultRunLoopMode);
  inputStream_->close();
}

void ZTSaveStreamToLocalFileOperation::removeTemporaryFile() {
  ZTLockGuard lock(mutex_);
  if (temporaryFileHandle_) temporaryFileHandle_->close();
  if (ownsTemporaryFile_) {
    ::unlink(temporaryFilePath_.c_str());
    ownsTemporaryFile_ = false;
  }
}

bool ZTSaveStreamToLocalFileOperation::decideSuccess() {
  outcomeDecided_.store(true);
  if (!cancelRequested_.load()) return true;
  ZTConcurrentOperation::cancel();  // cancel() may have seen the decision and returned early
  return false;
}

void ZTSaveStreamToLocalFileOperation::cleanUpAfterCancellation() {
  closeInputStream();
  removeTemporaryFile();
  finishAfterCancellation();
}

void ZTSaveStreamToLocalFileOperation::cancel() {
  cancelRequested_.store(true);
  if (outcomeDecided_.load()) return;  // the success is already being reported
  ZTConcurrentOperation::cancel();
  std::shared_ptr<ZTFileCoordinator> coordinator;
  {
    ZTLockGuard lock(mutex_);
    coordinator = coordinator_;
  }
  if (coordinator) coordinator->cancel();

  auto self = std::static_pointer_cast<ZTSaveStreamToLocalFileOperation>(shared_from_this());
  const auto thread = workerThread();
  if (thread->runLoop()->isCurrent()) {
    cleanUpAfterCancellation();
    return;
  }
  if (zt::performBlock([self] { self->cleanUpAfterCancellation(); }, thread, false)) return;
  // The worker thread takes no more calls: once it has ended nothing else touches the stream, and
  // the clean-up can run here. Its current call (one read and append at most) bounds the wait.
  thread->waitUntilFinished();
  cleanUpAfterCancellation();
}
