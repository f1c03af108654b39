#pragma once
// ZTFileSystemUpdatesWatcher: watches a fixed list of files and folders and tells its delegate when
// a burst of changes to one of them begins and when it has settled. It does not report every
// change: the first change of a burst starts the report, and the burst is over once the item's
// state (below) has stayed the same for the settle interval (one second unless changed). An
// application uses it to reload a document or a folder listing once another process has finished
// writing it, and stops listening while it writes the item itself (the ignoring calls).
//
// File state — a ZTValue dictionary that the reports carry:
// - a regular file (or any item that is not a folder): { kModificationDateKey: ZTDate,
//   kSizeKey: unsigned size in bytes };
// - a folder: one entry per direct child (not recursive), keyed by the child's full path, each a
//   dictionary with the child's kModificationDateKey and, for regular files only, its kSizeKey.
//   Children are described as they are (a symbolic link as a link); the watched path itself is
//   followed when it is a link;
// - nothing at the path: an empty dictionary.
// A child whose attributes cannot be read is left out, logging
//   "ERROR: Files watcher. Unable to get directory (<child>) attributes. Error: <error>."
// (the same line, with the folder's path, when the folder's list cannot be read); an item whose
// attributes cannot be read has the empty state, logging
//   "ERROR: Files watcher. Unable to get file (<path>) attributes. Error: <error>."
//
// How changes are noticed (Linux): one inotify instance per watcher, read by a file-descriptor
// source of the main run loop, so an idle watcher costs no CPU. Each item is watched itself and
// through its parent folder (events of the parent filtered to the item's name): an atomic save
// (a temporary file renamed over the item), delete-and-recreate, and an item that does not exist
// yet keep being watched and are reported. A queue overflow of the kernel counts as a change of
// every watched item. Events of the parent folder about other names are read and dropped: an
// item in a very busy folder (/tmp) costs a little CPU for each change there. A folder's children are watched through the folder itself, so a change
// inside a grandchild folder shows only as the child folder's new modification date.
//
// Paths are taken as bytes, exactly as given (any encoding; relative paths against the working
// directory at the time each watch is set up). An item counts as watched when the item or its
// parent folder could be watched: a missing file in an existing folder is watched and its
// creation reported. It counts as ignored — isIgnoringFileSystemUpdatesForFileAtPath() is true,
// no report ever comes — when neither can be watched (an empty path, a path holding a NUL byte, a
// missing parent folder, no permission to read either), logging
//   "ERROR: Files watcher. Unable to watch (<path>). Error: <error>."
// When the system's limit of inotify watches is reached the item counts as ignored too, and one
// line per process names the setting to raise (fs.inotify.max_user_watches). A folder that may
// not be read is watched through its parent only: its replacement and its own attribute changes
// are reported, changes inside it are not, and its state is empty. When the parent folder itself
// goes away, the item's removal is reported; should both come back later, that is noticed once
// watching the item is restarted (begin, then end ignoring).
//
// Threads: the watcher is created, driven and destroyed on the main thread, and its delegate is
// called there, from ZTRunLoop::main(), which the application runs. Nothing is locked.
//
// Ownership: held by std::shared_ptr (create). The delegate is held weakly. Destroying the watcher
// stops every watch, cancels pending compares and closes the inotify descriptor; no report comes
// afterwards, also not for a burst in progress. A delegate may destroy or reconfigure the watcher
// from inside a report.
//
// A delegate method that throws is logged through ZTLog and the watcher keeps watching: a start
// report that threw still gets its finish report.

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/value.h"

class ZTFileSystemUpdatesWatcher;
class ZTFileDescriptorSource;
class ZTTimer;

// Receives the two reports of a ZTFileSystemUpdatesWatcher, on the main thread. Both methods do
// nothing unless overridden; either may throw (logged, the watcher goes on).
class ZT_API ZTFileSystemUpdatesWatcherDelegate {
 public:
  virtual ~ZTFileSystemUpdatesWatcherDelegate() = default;
  // A burst of changes to the item at `path` (as it appears in watchedFiles()) began. `state` is
  // the state from before the burst.
  virtual void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(ZTFileSystemUpdatesWatcher& watcher,
                                                                    const std::string& path, const ZTValue& state);
  // The burst settled: `state` has not changed for the settle interval.
  virtual void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(ZTFileSystemUpdatesWatcher& watcher,
                                                                     const std::string& path, const ZTValue& state);
};

// Watches files and folders and reports when a burst of changes to one begins and when it settles.
class ZT_API ZTFileSystemUpdatesWatcher : public std::enable_shared_from_this<ZTFileSystemUpdatesWatcher> {
 public:
  using Seconds = std::chrono::duration<double>;

  // The keys of a file state: the file manager's attribute keys, so a state reads like attributes.
  static constexpr const char* kModificationDateKey = ZTFileModificationDate;
  static constexpr const char* kSizeKey = ZTFileSize;
  static constexpr Seconds kDefaultSettleInterval{1.0};

  // A watcher of one item / of the listed items (in this order; indexes below refer to it), every
  // item watched from the start. nullptr for an empty list. Main thread.
  [[nodiscard]] static std::shared_ptr<ZTFileSystemUpdatesWatcher> create(
      const std::string& watchedFile, std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate);
  [[nodiscard]] static std::shared_ptr<ZTFileSystemUpdatesWatcher> create(
      std::vector<std::string> watchedFiles, std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate);

  ~ZTFileSystemUpdatesWatcher();
  ZTFileSystemUpdatesWatcher(const ZTFileSystemUpdatesWatcher&) = delete;
  ZTFileSystemUpdatesWatcher& operator=(const ZTFileSystemUpdatesWatcher&) = delete;

  // True when no item is being watched.
  bool isIgnoringFileSystemUpdates() const;

  // Stop watching: no report is made for the item until watching ends again, also not the finish
  // of a burst in progress (it ends silently). The path forms skip a path not in the list; the
  // index forms throw ZTRangeException for an index out of range.
  void beginIgnoringFileSystemUpdates();
  void beginIgnoringFileSystemUpdatesForFileAtPath(std::string_view path);
  void beginIgnoringFileSystemUpdatesForFileAtIndex(std::size_t index);
  // Start watching again (nothing changes for an item already watched); the item's state is
  // captured now and the next burst is reported against it.
  void endIgnoringFileSystemUpdates();
  void endIgnoringFileSystemUpdatesForFileAtPath(std::string_view path);
  void endIgnoringFileSystemUpdatesForFileAtIndex(std::size_t index);
  // True for an ignored item and for a path not in the list.
  bool isIgnoringFileSystemUpdatesForFileAtPath(std::string_view path) const;

  // The steps of the watcher, for subclasses and for an application that learns of a change by
  // other means. Index forms throw ZTRangeException for an index out of range.
  //
  // A change of the item: starts a burst (start report, compare scheduled) unless one is in
  // progress. Does nothing for an ignored item.
  void handleFilesUpdatesForFileAtIndex(std::size_t index);
  // True when the two states differ.
  static bool isFileState(const ZTValue& state, const ZTValue& otherState);
  // The timed compare: restarts the quiet period if the state changed, else reports the finish.
  void directoryStateCompareTimerFired(ZTTimer& timer);
  void cancelPreviousScheduledFileStateCompareForFileAtIndex(std::size_t index);
  void scheduleFileStateCompareForFileAtIndex(std::size_t index);
  // The item's state now (see above).
  ZTValue captureStateForFileAtIndex(std::size_t index) const;
  // The same for any path.
  static ZTValue captureStateForPath(const std::string& path);

  std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate() const { return delegate_; }
  void setDelegate(std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate) { delegate_ = std::move(delegate); }
  const std::vector<std::string>& watchedFiles() const { return filesToWatch_; }

  // How long a state must stay unchanged for a burst to count as finished; one second unless set.
  // Applies to compares scheduled afterwards. Negative values count as zero.
  Seconds settleInterval() const { return settleInterval_; }
  void setSettleInterval(Seconds interval);

 private:
  struct Slot;
  class Inotify;
  explicit ZTFileSystemUpdatesWatcher(std::vector<std::string> files);

  void checkIndex(std::size_t index) const;
  void readEvents();

  std::vector<std::string> filesToWatch_;
  std::vector<Slot> slots_;  // one per watched file, same order
  std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate_;
  Seconds settleInterval_ = kDefaultSettleInterval;
  std::unique_ptr<Inotify> inotify_;
  std::shared_ptr<ZTFileDescriptorSource> source_;
};
