#pragma once
// File coordination: read and write claims on files and folders, so that code in this process,
// and other programs that use this library, do not read a document while it is half written, or
// write it from two places at once; and file presenters, objects that show or hold an item and
// want to hear when someone else moves or changes it.
//
// Items are named by absolute paths (std::string, UTF-8). The method names keep the classic
// "URL" vocabulary; the file URL type lives in the filesystem area, above this one, and its
// path() is what these functions take. A relative path is made absolute against the current
// folder. Paths are compared after a lexical clean-up ("//", ".", "..", trailing "/") and with
// symbolic links resolved in the folders above the item (never in the item's own last component:
// a claim on a link is a claim on the link).
//
// Rules of a claim:
//   - readers share, writers exclude: a read claim waits for write claims on the same item, a
//     write claim waits for every other claim on it;
//   - a claim on a folder covers everything below it: it conflicts with a claim on any item
//     inside (unless both only read), and a claim inside waits for a conflicting folder claim;
//   - a claim on two items takes both or waits for both, so two opposite moves cannot deadlock;
//   - in this process a waiting claim on an item that another claim moves (and announces with
//     itemAtURLDidMoveToURL) is granted on the item's new location, which the accessor receives;
//   - across processes claims are open-file-description locks (F_OFD_SETLK) on one lock file per
//     item, in a per-user folder ($XDG_RUNTIME_DIR/zentrel-coordination, else
//     <$TMPDIR or /tmp>/zentrel-coordination-<uid>, mode 0700, checked before use). Two programs
//     using the library on one document serialise, and the claims of a process that dies are
//     released by the kernel. Folder claims conflict with claims inside across processes too
//     (see docs/architecture/file-coordination.md). Lock files are never removed: see
//     the same page for the rule. When no such folder can be used, claims coordinate inside the
//     process only, and the library logs that once.
//
// Threads: every function may be called from any thread. A claim runs its accessor synchronously
// on the calling thread, once, after the claim is granted, and releases the claim when the
// accessor returns. An accessor that throws gets its claim released and its exception passed on
// to the caller unchanged. A claim asked for, on the same thread, inside an accessor whose claim
// it conflicts with would wait for itself: it fails at once with ZTFileLockingError.
//
// Failures (the accessor is then not called, the result is false and *outError, when given, is
// set), all in ZTCocoaErrorDomain but the last: an empty path or one holding NUL
// (ZTFileReadInvalidFileNameError, or ZTFileWriteInvalidFileNameError when a write was asked);
// cancel() while the claim waits (ZTUserCancelledError); a claim not granted within waitTimeout()
// (ZTFileLockingError); a lock file that cannot be opened (ZTPOSIXErrorDomain, the errno value).

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_manager.h"  // the file error codes

using ZTFileCoordinatorReadingOptions = std::uint64_t;
// Read the item as it is on disk. Presenters here are never asked to save first, so every read
// claim reads the item as it is; the option is accepted for callers written against the classic
// interface.
inline constexpr ZTFileCoordinatorReadingOptions ZTFileCoordinatorReadingWithoutChanges = 1u << 0;
// Only the metadata that is available at once is read. Files here are always local, so this is
// an ordinary read claim.
inline constexpr ZTFileCoordinatorReadingOptions ZTFileCoordinatorReadingImmediatelyAvailableMetadataOnly = 1u << 2;

using ZTFileCoordinatorWritingOptions = std::uint64_t;
// The writer will delete the item: presenters of it are told presentedItemDidChange afterwards
// (there is no separate deletion message).
inline constexpr ZTFileCoordinatorWritingOptions ZTFileCoordinatorWritingForDeleting = 1u << 0;
// The writer will move the item and announce it with itemAtURLDidMoveToURL.
inline constexpr ZTFileCoordinatorWritingOptions ZTFileCoordinatorWritingForMoving = 1u << 1;
// The writer will replace the item (or create it).
inline constexpr ZTFileCoordinatorWritingOptions ZTFileCoordinatorWritingForReplacing = 1u << 3;

// An object that presents an item to the user (a document, a folder shown in a window) and wants
// to hear when code under another coordinator in this process moves or changes it. Register it
// with ZTFileCoordinator::addFilePresenter. Presenters in other processes are not told: watch
// the file for that.
//
// Messages are delivered on presentedItemOperationQueue(), one at a time and in the order they
// were sent, even on a concurrent queue. A message that throws is caught and logged; the next
// one is still delivered. presentedItemURL() is asked on the thread that sends a message, and is
// then skipped if it throws.
class ZT_API ZTFilePresenter {
 public:
  virtual ~ZTFilePresenter() = default;

  // The absolute path of the presented item. A presenter told of a move should answer the new
  // path from then on (presentedItemDidMoveToURL is where it learns it).
  virtual std::string presentedItemURL() const = 0;
  // Where messages are delivered; the global queue unless overridden. Returning nullptr means the
  // presenter is told nothing.
  virtual std::shared_ptr<ZTDispatchQueue> presentedItemOperationQueue() const { return ZTDispatchQueue::global(); }

  // The item was moved to newPath (also when a folder above it was moved).
  virtual void presentedItemDidMoveToURL(const std::string& newPath) { (void)newPath; }
  // The item was written (or deleted) under a write claim.
  virtual void presentedItemDidChange() {}
  // For a presented folder: an item inside was written under a write claim.
  virtual void presentedSubitemDidChangeAtURL(const std::string& path) { (void)path; }
  // For a presented folder: an item inside was moved.
  virtual void presentedSubitemAtURLDidMoveToURL(const std::string& oldPath, const std::string& newPath) {
    (void)oldPath;
    (void)newPath;
  }
};

// Makes read and write claims on files and folders, and tells file presenters about them.
class ZT_API ZTFileCoordinator : public std::enable_shared_from_this<ZTFileCoordinator> {
 public:
  using Seconds = std::chrono::duration<double>;
  using Accessor = std::function<void(const std::string& newPath)>;
  using DoubleAccessor = std::function<void(const std::string& newPath1, const std::string& newPath2)>;

  // A coordinator acting for `filePresenter` (may be null). The presenter is held weakly; it is
  // not told of changes and moves made under this coordinator.
  [[nodiscard]] static std::shared_ptr<ZTFileCoordinator> create(
      const std::shared_ptr<ZTFilePresenter>& filePresenter = nullptr);
  ~ZTFileCoordinator();
  ZTFileCoordinator(const ZTFileCoordinator&) = delete;
  ZTFileCoordinator& operator=(const ZTFileCoordinator&) = delete;

  // Presenters known to every coordinator of the process. Held weakly: a presenter that is
  // destroyed drops out by itself. Adding one twice has no further effect.
  static void addFilePresenter(const std::shared_ptr<ZTFilePresenter>& filePresenter);
  static void removeFilePresenter(const ZTFilePresenter* filePresenter);
  static std::vector<std::shared_ptr<ZTFilePresenter>> filePresenters();

  // A read claim on one item. Returns true when the accessor ran (whatever it did).
  bool coordinateReadingItemAtURL(const std::string& path, ZTFileCoordinatorReadingOptions options,
                                  ZTError* outError, const Accessor& reader);
  // A write claim on one item. Presenters of the item (and of folders above it) are told of the
  // change after the accessor returns, also when it threw.
  bool coordinateWritingItemAtURL(const std::string& path, ZTFileCoordinatorWritingOptions options,
                                  ZTError* outError, const Accessor& writer);
  // A read claim on one item and a write claim on another, taken together.
  bool coordinateReadingItemAtURL(const std::string& readingPath, ZTFileCoordinatorReadingOptions readingOptions,
                                  const std::string& writingPath, ZTFileCoordinatorWritingOptions writingOptions,
                                  ZTError* outError, const DoubleAccessor& readerWriter);
  // Write claims on two items, taken together (a move: source for moving, destination for
  // replacing).
  bool coordinateWritingItemAtURL(const std::string& path1, ZTFileCoordinatorWritingOptions options1,
                                  const std::string& path2, ZTFileCoordinatorWritingOptions options2,
                                  ZTError* outError, const DoubleAccessor& writer);

  // Announce, from inside a write claim, that the item at oldPath is about to move to newPath.
  // Logs an "ERROR: " line when the calling thread holds no write claim covering oldPath (the
  // move would then not be coordinated).
  void itemAtURLWillMoveToURL(const std::string& oldPath, const std::string& newPath);
  // Announce that the item has moved: claims waiting in this process on the item (or on anything
  // inside it) are granted on the new location, and presenters of it are told (except this
  // coordinator's own presenter).
  void itemAtURLDidMoveToURL(const std::string& oldPath, const std::string& newPath);

  // Makes the claims of this coordinator that are waiting now fail with ZTUserCancelledError.
  // A claim already granted (its accessor running) is not affected; later claims are not either.
  // Any thread; the waiting claims return within a few milliseconds.
  void cancel();

  // The longest a claim waits before failing with ZTFileLockingError; 600 s unless set.
  Seconds waitTimeout() const;
  void setWaitTimeout(Seconds timeout);

  // The presenter this coordinator acts for (null when none, or when it has been destroyed).
  std::shared_ptr<ZTFilePresenter> filePresenter() const;

  struct Impl;

 private:
  ZTFileCoordinator();
  std::unique_ptr<Impl> impl_;
};
