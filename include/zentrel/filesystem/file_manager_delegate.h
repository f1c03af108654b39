#pragma once
// ZTFileManagerDelegate: a file-manager delegate that turns the manager's per-item "should"
// questions (copy, move, remove, link) into one handler, `progressHandler`. Despite its name the
// handler decides: it gets the source, the destination (none for a removal) and a proceed flag
// preset to true, and may clear the flag to skip the item. With no handler set every answer is yes.
//
//   auto manager = ZTFileManager::create();
//   auto delegate = ZTFileManagerDelegate::create();
//   delegate->setProgressHandler([](const ZTFileURL& source, const std::optional<ZTFileURL>&, bool* proceed) {
//     *proceed = zt::pathExtension(source.path()) != "tmp";
//   });
//   manager->setDelegate(delegate);   // held weakly: keep `delegate` alive
//
// Threads: the handler runs on the thread that runs the file operation; setting it from another
// thread is safe (an operation under way keeps the handler it already read). A handler that throws
// cancels the operation, as ZTFileManager::Delegate describes (logged, ZTUserCancelledError).

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/mutex.h"

class ZT_API ZTFileManagerDelegate : public ZTFileManager::Delegate {
 public:
  using ProgressHandler =
      std::function<void(const ZTFileURL& sourceURL, const std::optional<ZTFileURL>& destinationURL, bool* proceed)>;

  [[nodiscard]] static std::shared_ptr<ZTFileManagerDelegate> create();

  // The questions in URL form; each answers true without a handler, else the handler's flag.
  bool shouldMoveItemAtURL(ZTFileManager& fileManager, const ZTFileURL& sourceURL, const ZTFileURL& destinationURL);
  bool shouldCopyItemAtURL(ZTFileManager& fileManager, const ZTFileURL& sourceURL, const ZTFileURL& destinationURL);
  bool shouldRemoveItemAtURL(ZTFileManager& fileManager, const ZTFileURL& url);
  bool shouldLinkItemAtURL(ZTFileManager& fileManager, const ZTFileURL& sourceURL, const ZTFileURL& destinationURL);

  ProgressHandler progressHandler() const;
  void setProgressHandler(ProgressHandler handler);

  // ZTFileManager::Delegate: the path questions, answered through the URL forms above.
  bool shouldCopyItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                            const std::string& destinationPath) override;
  bool shouldMoveItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                            const std::string& destinationPath) override;
  bool shouldRemoveItemAtPath(ZTFileManager& fileManager, const std::string& path) override;
  bool shouldLinkItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                            const std::string& destinationPath) override;

 protected:
  ZTFileManagerDelegate() = default;

 private:
  bool ask(const ZTFileURL& sourceURL, const std::optional<ZTFileURL>& destinationURL) const;

  mutable ZTMutex mutex_;
  ProgressHandler progressHandler_ ZT_GUARDED_BY(mutex_);
};
