#include "zentrel/filesystem/file_manager_delegate.h"

#include <utility>

namespace {
struct ConstructibleDelegate : ZTFileManagerDelegate {
  ConstructibleDelegate() = default;
};
}  // namespace

std::shared_ptr<ZTFileManagerDelegate> ZTFileManagerDelegate::create() {
  return std::make_shared<ConstructibleDelegate>();
}

ZTFileManagerDelegate::ProgressHandler ZTFileManagerDelegate::progressHandler() const {
  ZTLockGuard lock(mutex_);
  return progressHandler_;
}

void ZTFileManagerDelegate::setProgressHandler(ProgressHandler handler) {
  ZTLockGuard lock(mutex_);
  progressHandler_ = std::move(handler);
}

bool ZTFileManagerDelegate::ask(const ZTFileURL& sourceURL, const std::optional<ZTFileURL>& destinationURL) const {
  const ProgressHandler handler = progressHandler();  // called outside the lock: it may set another
  if (!handler) return true;
  bool proceed = true;
  handler(sourceURL, destinationURL, &proceed);
  return proceed;
}

bool ZTFileManagerDelegate::shouldMoveItemAtURL(ZTFileManager&, const ZTFileURL& sourceURL,
                                                const ZTFileURL& destinationURL) {
  return ask(sourceURL, destinationURL);
}

bool ZTFileManagerDelegate::shouldCopyItemAtURL(ZTFileManager&, const ZTFileURL& sourceURL,
                                                const ZTFileURL& destinationURL) {
  return ask(sourceURL, destinationURL);
}

bool ZTFileManagerDelegate::shouldRemoveItemAtURL(ZTFileManager&, const ZTFileURL& url) {
  return ask(url, std::nullopt);
}

bool ZTFileManagerDelegate::shouldLinkItemAtURL(ZTFileManager&, const ZTFileURL& sourceURL,
                                                const ZTFileURL& destinationURL) {
  return ask(sourceURL, destinationURL);
}

bool ZTFileManagerDelegate::shouldCopyItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                                 const std::string& destinationPath) {
  return shouldCopyItemAtURL(fileManager, ZTFileURL::fileURLWithPath(sourcePath),
                             ZTFileURL::fileURLWithPath(destinationPath));
}

bool ZTFileManagerDelegate::shouldMoveItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                                 const std::string& destinationPath) {
  return shouldMoveItemAtURL(fileManager, ZTFileURL::fileURLWithPath(sourcePath),
                             ZTFileURL::fileURLWithPath(destinationPath));
}

bool ZTFileManagerDelegate::shouldRemoveItemAtPath(ZTFileManager& fileManager, const std::string& path) {
  return shouldRemoveItemAtURL(fileManager, ZTFileURL::fileURLWithPath(path));
}

bool ZTFileManagerDelegate::shouldLinkItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                                 const std::string& destinationPath) {
  return shouldLinkItemAtURL(fileManager, ZTFileURL::fileURLWithPath(sourcePath),
                             ZTFileURL::fileURLWithPath(destinationPath));
}
