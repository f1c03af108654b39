#include "zentrel/transfer/copy_file_async_operation.h"

#include "zentrel/filesystem/coordinated_file_operations.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/unique_names.h"
#include "zentrel/platform/file_manager.h"

bool ZTCopyFileAsyncOperation::coordinateAccessForSource() const {
  ZTLockGuard lock(mutex_);
  return coordinateAccessForSource_;
}

void ZTCopyFileAsyncOperation::setCoordinateAccessForSource(bool value) {
  ZTLockGuard lock(mutex_);
  coordinateAccessForSource_ = value;
}

std::string ZTCopyFileAsyncOperation::sourceFilePath() const {
  ZTLockGuard lock(mutex_);
  return sourceFilePath_;
}

void ZTCopyFileAsyncOperation::setSourceFilePath(std::string path) {
  ZTLockGuard lock(mutex_);
  sourceFilePath_ = std::move(path);
}

std::string ZTCopyFileAsyncOperation::destinationFilePath() const {
  ZTLockGuard lock(mutex_);
  return destinationFilePath_;
}

void ZTCopyFileAsyncOperation::setDestinationFilePath(std::string path) {
  ZTLockGuard lock(mutex_);
  destinationFilePath_ = std::move(path);
}

ZTCopyFileAsyncOperation::SuccessHandler ZTCopyFileAsyncOperation::successHandler() const {
  ZTLockGuard lock(mutex_);
  return successHandler_;
}

void ZTCopyFileAsyncOperation::setSuccessHandler(SuccessHandler handler) {
  ZTLockGuard lock(mutex_);
  successHandler_ = std::move(handler);
}

std::string ZTCopyFileAsyncOperation::filePathForCoordinateAccess(bool coordinated) const {
  ZTLockGuard lock(mutex_);
  return coordinated == coordinateAccessForSource_ ? sourceFilePath_ : destinationFilePath_;
}

std::shared_ptr<ZTFileCoordinator> ZTCopyFileAsyncOperation::currentCoordinator() const {
  ZTLockGuard lock(mutex_);
  return coordinator_;
}

void ZTCopyFileAsyncOperation::cancel() {
  cancelRequested_.store(true);
  if (outcomeDecided_.load()) return;  // the success is already being reported
  ZTConcurrentOperation::cancel();
  if (const auto coordinator = currentCoordinator()) coordinator->cancel();
}

bool ZTCopyFileAsyncOperation::decideSuccess() {
  outcomeDecided_.store(true);
  if (!cancelRequested_.load()) return true;
  // cancel() may have seen the decision and returned early: make sure the flag is set all the same.
  ZTConcurrentOperation::cancel();
  return false;
}

void ZTCopyFileAsyncOperation::finishWithCopySuccess() {
  finishWithSuccessHandler([this] {
    if (const auto handler = successHandler()) handler(*this);
  });
}

void ZTCopyFileAsyncOperation::main() {
  const auto fileManager = ZTFileManager::defaultManager();
  const std::string source = sourceFilePath();
  std::string destination = destinationFilePath();

  ZTError error;
  std::string parent = zt::stringByDeletingLastPathComponent(destination);
  if (parent.empty() && !destination.empty()) parent.push_back('.');  // a relative name: the current folder
  if (!fileManager->createDirectoryAtPath(parent, true, ZTValue(), &error)) {
    finishWithError(error);
    return;
  }
  if (isCancelled()) {
    finishAfterCancellation();
    return;
  }

  const auto coordinator = ZTFileCoordinator::create();
  {
    ZTLockGuard lock(mutex_);
    coordinator_ = coordinator;
  }
  if (cancelRequested_.load()) coordinator->cancel();

  if (fileManager->fileExistsAtPath(destination, nullptr, ZTLinkTraversal::DontFollow)) {
    ZTError comparisonError;
    const bool equal = zt::contentsEqualAtPathAndPathWithCoordination(
        *fileManager, filePathForCoordinateAccess(true), filePathForCoordinateAccess(false), coordinator,
        &comparisonError);
    if (!comparisonError.domain().empty()) {
      finishWithError(comparisonError);
      return;
    }
    if (equal) {
      if (decideSuccess()) {
        finishWithCopySuccess();
      } else {
        finishAfterCancellation();
      }
      return;
    }
    if (isCancelled()) {
      finishAfterCancellation();
      return;
    }
    destination = ZTGenerateMacStyleUniquePath(destination, false);
    setDestinationFilePath(destination);
  }

  if (!zt::copyItemWithCoordinationFromPath(*fileManager, source, destination, coordinator, 0, &error)) {
    finishWithError(error);
    return;
  }
  if (decideSuccess()) {
    finishWithCopySuccess();
    return;
  }
  // Cancelled while copying: the copy is new (copies never replace), so it is ours to take back.
  (void)zt::removeItemAtPathWithCoordination(*fileManager, destination, nullptr, 0, nullptr);
  finishAfterCancellation();
}
