#include "zentrel/filesystem/file_system_updates_watcher.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <map>
#include <utility>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/inotify_hooks.h"
#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"

namespace {

// Every watch carries the same mask: inotify keeps one watch per inode and instance, and a second
// inotify_add_watch of an inode (a watched folder that is also the parent of another watched
// item) replaces the mask rather than adding to it.
constexpr std::uint32_t kWatchMask = IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE | IN_DELETE |
                                     IN_DELETE_SELF | IN_MOVE_SELF | IN_EXCL_UNLINK;
// Reads per readiness callback; what is left makes the descriptor ready again at once.
constexpr int kMaxReadsPerTurn = 64;
// Folder children described per capture, at most.
constexpr std::size_t kMaxFolderChildren = 1'000'000;

enum class Role { Item, Parent };

std::atomic<bool> watchLimitReported{false};

// The error as the attribute lines show it (the error's full description), and the short text of
// the watcher's own lines.
std::string errorText(int errnoValue, const std::string& path) { return ZTError::posix(errnoValue, path).description(); }
std::string shortErrorText(int errnoValue) { return ZTError::posix(errnoValue).localizedDescription(); }

void reportWatchLimit(const std::string& path) {
  if (watchLimitReported.exchange(true)) return;
  ZTLogf("ERROR: Files watcher. The system's limit of inotify watches is reached; (%s) and further items are "
         "not watched. Raise fs.inotify.max_user_watches (sysctl fs.inotify.max_user_watches=<count>) to watch them.",
         path.c_str());
}

// The watched path split into the folder that holds it and its name in that folder. No parent for
// "/" and for names that never appear in a folder's events ("." and "..").
struct PathParts {
  std::string parent;
  std::string name;
};

std::optional<PathParts> splitPath(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  if (trimmed == "/") return std::nullopt;
  const auto slash = trimmed.rfind('/');
  PathParts parts;
  if (slash == std::string::npos) {
    parts.parent = ".";
    parts.name = trimmed;
  } else {
    parts.parent = slash == 0 ? "/" : trimmed.substr(0, slash);
    parts.name = trimmed.substr(slash + 1);
  }
  if (parts.name.empty() || parts.name == "." || parts.name == "..") return std::nullopt;
  return parts;
}

ZTDate modificationDate(const struct stat& st) {
  return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(st.st_mtim.tv_sec) +
                                               static_cast<double>(st.st_mtim.tv_nsec) / 1e9);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The inotify instance and which watched item each of its watches serves.

namespace zt::filesystem_internal {
namespace {
InotifyAddWatchFunction& addWatchFunction() {
  static InotifyAddWatchFunction function;
  return function;
}
}  // namespace
void setInotifyAddWatchForTesting(InotifyAddWatchFunction function) { addWatchFunction() = std::move(function); }
}  // namespace zt::filesystem_internal

class ZTFileSystemUpdatesWatcher::Inotify {
 public:
  struct Binding {
    std::size_t index;
    Role role;
    bool operator==(const Binding&) const = default;
  };

  explicit Inotify(ZTFileDescriptor fd) : fd_(std::move(fd)) {}
  int fd() const { return fd_.get(); }

  // Adds (or joins) the watch of the inode at `path` for the item at `index`. The descriptor, or -1
  // with errno set.
  int add(const std::string& path, std::size_t index, Role role) {
    const auto& hook = zt::filesystem_internal::addWatchFunction();
    const int wd = hook ? hook(fd_.get(), path.c_str(), kWatchMask) : ::inotify_add_watch(fd_.get(), path.c_str(), kWatchMask);
    if (wd < 0) return -1;
    auto& list = bindings_[wd];
    if (std::find(list.begin(), list.end(), Binding{index, role}) == list.end()) list.push_back({index, role});
    return wd;
  }

  // The item at `index` no longer needs the watch; the watch goes when nothing needs it.
  void remove(int wd, std::size_t index, Role role) {
    const auto found = bindings_.find(wd);
    if (found == bindings_.end()) return;
    std::erase(found->second, Binding{index, role});
    if (found->second.empty()) {
      bindings_.erase(found);
      ::inotify_rm_watch(fd_.get(), wd);
    }
  }

  // The kernel dropped the watch (IN_IGNORED): forget it without removing it.
  std::vector<Binding> forget(int wd) {
    const auto found = bindings_.find(wd);
    if (found == bindings_.end()) return {};
    auto list = std::move(found->second);
    bindings_.erase(found);
    return list;
  }

  std::vector<Binding> bindings(int wd) const {
    const auto found = bindings_.find(wd);
    return found == bindings_.end() ? std::vector<Binding>{} : found->second;
  }

 private:
  ZTFileDescriptor fd_;
  std::map<int, std::vector<Binding>> bindings_;
};

struct ZTFileSystemUpdatesWatcher::Slot {
  std::optional<PathParts> parts;
  bool watching = false;  // the item's "source": false while ignored
  int itemWd = -1;
  dev_t itemDevice = 0;
  ino_t itemInode = 0;
  int parentWd = -1;
  dev_t parentDevice = 0;
  ino_t parentInode = 0;
  std::optional<ZTValue> prevState;
  std::shared_ptr<ZTTimer> timer;
  bool processing = false;
  int reportedItemError = 0;  // the item's own watch failed with this; logged once
};

// ---------------------------------------------------------------------------------------------

void ZTFileSystemUpdatesWatcherDelegate::fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(
    ZTFileSystemUpdatesWatcher&, const std::string&, const ZTValue&) {}
void ZTFileSystemUpdatesWatcherDelegate::fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(
    ZTFileSystemUpdatesWatcher&, const std::string&, const ZTValue&) {}

std::shared_ptr<ZTFileSystemUpdatesWatcher> ZTFileSystemUpdatesWatcher::create(
    const std::string& watchedFile, std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate) {
  return create(std::vector<std::string>{watchedFile}, std::move(delegate));
}

std::shared_ptr<ZTFileSystemUpdatesWatcher> ZTFileSystemUpdatesWatcher::create(
    std::vector<std::string> watchedFiles, std::weak_ptr<ZTFileSystemUpdatesWatcherDelegate> delegate) {
  if (watchedFiles.empty()) return nullptr;
  std::shared_ptr<ZTFileSystemUpdatesWatcher> watcher(new ZTFileSystemUpdatesWatcher(std::move(watchedFiles)));
  watcher->delegate_ = std::move(delegate);

  ZTFileDescriptor fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!fd) {
    const int error = errno;
    ZTLogf("ERROR: Files watcher. Unable to create an inotify instance%s. Error: %s.",
           error == EMFILE ? " (the limit fs.inotify.max_user_instances is reached)" : "",
           shortErrorText(error).c_str());
  } else {
    const int raw = fd.get();
    watcher->inotify_ = std::make_unique<Inotify>(std::move(fd));
    std::weak_ptr<ZTFileSystemUpdatesWatcher> weak = watcher;
    watcher->source_ = ZTRunLoop::main()->addFileDescriptorSource(raw, ZTFileDescriptorSource::Event::Readable,
                                                                  [weak](ZTFileDescriptorSource&) {
                                                                    if (auto self = weak.lock()) self->readEvents();
                                                                  });
    if (!watcher->source_) watcher->inotify_.reset();
  }
  watcher->endIgnoringFileSystemUpdates();
  return watcher;
}

ZTFileSystemUpdatesWatcher::ZTFileSystemUpdatesWatcher(std::vector<std::string> files)
    : filesToWatch_(std::move(files)), slots_(filesToWatch_.size()) {
  for (std::size_t i = 0; i < filesToWatch_.size(); ++i) slots_[i].parts = splitPath(filesToWatch_[i]);
}

ZTFileSystemUpdatesWatcher::~ZTFileSystemUpdatesWatcher() {
  beginIgnoringFileSystemUpdates();
  for (auto& slot : slots_) {
    if (slot.timer) slot.timer->invalidate();
    slot.timer.reset();
  }
  if (source_) source_->cancel();
  source_.reset();
  inotify_.reset();  // closes the descriptor, which drops every watch left
}

void ZTFileSystemUpdatesWatcher::checkIndex(std::size_t index) const {
  if (index >= slots_.size()) {
    throw ZTRangeException("index " + std::to_string(index) + " beyond bounds [0 .. " +
                           std::to_string(slots_.size() - 1) + "]");
  }
}

bool ZTFileSystemUpdatesWatcher::isIgnoringFileSystemUpdates() const {
  return std::none_of(slots_.begin(), slots_.end(), [](const Slot& slot) { return slot.watching; });
}

void ZTFileSystemUpdatesWatcher::beginIgnoringFileSystemUpdates() {
  for (std::size_t i = 0; i < slots_.size(); ++i) beginIgnoringFileSystemUpdatesForFileAtIndex(i);
}

void ZTFileSystemUpdatesWatcher::endIgnoringFileSystemUpdates() {
  for (std::size_t i = 0; i < slots_.size(); ++i) endIgnoringFileSystemUpdatesForFileAtIndex(i);
}

void ZTFileSystemUpdatesWatcher::beginIgnoringFileSystemUpdatesForFileAtPath(std::string_view path) {
  const auto found = std::find(filesToWatch_.begin(), filesToWatch_.end(), path);
  if (found != filesToWatch_.end()) beginIgnoringFileSystemUpdatesForFileAtIndex(found - filesToWatch_.begin());
}

void ZTFileSystemUpdatesWatcher::endIgnoringFileSystemUpdatesForFileAtPath(std::string_view path) {
  const auto found = std::find(filesToWatch_.begin(), filesToWatch_.end(), path);
  if (found != filesToWatch_.end()) endIgnoringFileSystemUpdatesForFileAtIndex(found - filesToWatch_.begin());
}

bool ZTFileSystemUpdatesWatcher::isIgnoringFileSystemUpdatesForFileAtPath(std::string_view path) const {
  const auto found = std::find(filesToWatch_.begin(), filesToWatch_.end(), path);
  return found == filesToWatch_.end() || !slots_[found - filesToWatch_.begin()].watching;
}

namespace {

// The inode a watch of `path` should be on now (links followed): 0, or the errno of stat.
int currentInode(const std::string& path, dev_t& device, ino_t& inode) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return errno;
  device = st.st_dev;
  inode = st.st_ino;
  return 0;
}

}  // namespace

void ZTFileSystemUpdatesWatcher::beginIgnoringFileSystemUpdatesForFileAtIndex(std::size_t index) {
  checkIndex(index);
  Slot& slot = slots_[index];
  if (inotify_) {
    if (slot.itemWd >= 0) inotify_->remove(slot.itemWd, index, Role::Item);
    if (slot.parentWd >= 0) inotify_->remove(slot.parentWd, index, Role::Parent);
  }
  slot.itemWd = -1;
  slot.parentWd = -1;
  slot.watching = false;
  if (slot.timer) slot.timer->invalidate();
  slot.timer.reset();
  slot.prevState.reset();
  slot.processing = false;
}

namespace {

// An item that exists but cannot be watched itself (no permission, kernel memory) is still followed
// through its folder's watch, which reports changes of the folder's entries. Said once per error,
// not at every burst.
void noteItemWatchError(const std::string& path, int itemError, bool parentWatched, int& reported) {
  const bool fallback = parentWatched && itemError != 0 && itemError != ENOENT && itemError != ENOSPC;
  if (fallback && itemError != reported) {
    ZTLogf("WARNING: Files watcher. (%s) cannot be watched itself (%s); it is followed through its folder.",
           path.c_str(), shortErrorText(itemError).c_str());
  }
  reported = fallback ? itemError : 0;
}

// Brings one watch of a slot (the item's or its parent's) in line with what is at `path` now: a
// new inode there (an atomic save, a re-created item) gets a fresh watch, a vanished one loses
// it. 0 when the watch is in place, else the errno of the failed stat or inotify_add_watch.
template <class Inotify, class RoleT>
int syncWatch(Inotify& inotify, const std::string& path, std::size_t index, RoleT role, int& wd, dev_t& device,
              ino_t& inode) {
  dev_t nowDevice = 0;
  ino_t nowInode = 0;
  const int missing = currentInode(path, nowDevice, nowInode);
  if (wd >= 0 && !missing && nowDevice == device && nowInode == inode) return 0;
  if (wd >= 0) {
    inotify.remove(wd, index, role);
    wd = -1;
  }
  if (missing) return missing;
  const int added = inotify.add(path, index, role);
  if (added < 0) return errno;
  wd = added;
  device = nowDevice;
  inode = nowInode;
  return 0;
}

}  // namespace

void ZTFileSystemUpdatesWatcher::endIgnoringFileSystemUpdatesForFileAtIndex(std::size_t index) {
  checkIndex(index);
  Slot& slot = slots_[index];
  if (slot.watching) return;
  const std::string& path = filesToWatch_[index];
  if (!inotify_) return;  // reported when the instance could not be made
  if (!zt::fs_internal::usablePath(path)) {
    ZTLogf("ERROR: Files watcher. Unable to watch (%s). Error: %s.", path.c_str(), shortErrorText(EINVAL).c_str());
    return;
  }
  const int itemError = syncWatch(*inotify_, path, index, Role::Item, slot.itemWd, slot.itemDevice, slot.itemInode);
  int parentError = ENOENT;
  if (slot.parts) {
    parentError = syncWatch(*inotify_, slot.parts->parent, index, Role::Parent, slot.parentWd, slot.parentDevice,
                            slot.parentInode);
  }
  if (itemError == ENOSPC || parentError == ENOSPC) {
    reportWatchLimit(path);
    beginIgnoringFileSystemUpdatesForFileAtIndex(index);
    return;
  }
  noteItemWatchError(path, itemError, slot.parentWd >= 0, slot.reportedItemError);
  if (slot.itemWd < 0 && slot.parentWd < 0) {
    const int error = itemError == ENOENT && slot.parts ? parentError : itemError;
    ZTLogf("ERROR: Files watcher. Unable to watch (%s). Error: %s.", path.c_str(),
           shortErrorText(error ? error : ENOENT).c_str());
    return;
  }
  slot.watching = true;
  slot.prevState = captureStateForFileAtIndex(index);
}

// ---------------------------------------------------------------------------------------------
// Events.

void ZTFileSystemUpdatesWatcher::readEvents() {
  if (!inotify_) return;
  const auto self = shared_from_this();  // a delegate may let go of the watcher during a report
  std::vector<char> changed(slots_.size(), 0);
  std::vector<char> rewatch(slots_.size(), 0);
  alignas(struct inotify_event) char buffer[64 * 1024];

  const auto markAll = [&] {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].watching) changed[i] = rewatch[i] = 1;
    }
  };

  for (int reads = 0; reads < kMaxReadsPerTurn; ++reads) {
    const ssize_t got = ::read(inotify_->fd(), buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      break;  // EAGAIN: drained
    }
    if (got == 0) break;
    std::size_t offset = 0;
    while (offset + sizeof(struct inotify_event) <= static_cast<std::size_t>(got)) {
      struct inotify_event event;
      std::memcpy(&event, buffer + offset, sizeof event);
      const std::size_t total = sizeof(struct inotify_event) + event.len;
      if (offset + total > static_cast<std::size_t>(got)) break;
      const char* rawName = buffer + offset + sizeof(struct inotify_event);
      const std::string_view name = event.len ? std::string_view(rawName, ::strnlen(rawName, event.len)) : std::string_view();
      offset += total;

      if (event.mask & IN_Q_OVERFLOW) {
        markAll();
        continue;
      }
      if (event.wd < 0) continue;
      if (event.mask & IN_IGNORED) {
        for (const auto& binding : inotify_->forget(event.wd)) {
          Slot& slot = slots_[binding.index];
          if (binding.role == Role::Item && slot.itemWd == event.wd) slot.itemWd = -1;
          if (binding.role == Role::Parent && slot.parentWd == event.wd) slot.parentWd = -1;
          if (slot.watching) changed[binding.index] = rewatch[binding.index] = 1;
        }
        continue;
      }
      for (const auto& binding : inotify_->bindings(event.wd)) {
        const Slot& slot = slots_[binding.index];
        if (!slot.watching) continue;
        if (binding.role == Role::Item) {
          changed[binding.index] = 1;
          if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) rewatch[binding.index] = 1;
        } else if (name.empty()) {
          if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) changed[binding.index] = rewatch[binding.index] = 1;
        } else if (slot.parts && name == slot.parts->name) {
          changed[binding.index] = 1;
          if (event.mask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO)) rewatch[binding.index] = 1;
        }
      }
    }
  }

  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (!rewatch[i] || !slots_[i].watching) continue;
    Slot& slot = slots_[i];
    const std::string& path = filesToWatch_[i];
    const int itemError = syncWatch(*inotify_, path, i, Role::Item, slot.itemWd, slot.itemDevice, slot.itemInode);
    int parentError = 0;
    if (slot.parts) {
      parentError = syncWatch(*inotify_, slot.parts->parent, i, Role::Parent, slot.parentWd, slot.parentDevice,
                              slot.parentInode);
    }
    if (itemError == ENOSPC || parentError == ENOSPC) {
      reportWatchLimit(path);
      beginIgnoringFileSystemUpdatesForFileAtIndex(i);
      changed[i] = 0;
      continue;
    }
    noteItemWatchError(path, itemError, slot.parentWd >= 0, slot.reportedItemError);
  }
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (changed[i] && slots_[i].watching) handleFilesUpdatesForFileAtIndex(i);
  }
}

void ZTFileSystemUpdatesWatcher::handleFilesUpdatesForFileAtIndex(std::size_t index) {
  checkIndex(index);
  if (!slots_[index].watching || slots_[index].processing) return;
  slots_[index].processing = true;
  const ZTValue before = slots_[index].prevState.value_or(ZTValue::dictionary());
  const std::string path = filesToWatch_[index];
  if (const auto delegate = delegate_.lock()) {
    try {
      delegate->fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(*this, path, before);
    } catch (const std::exception& e) {
      ZTLogf("ERROR: Files watcher. The delegate's start report for (%s) threw: %s", path.c_str(), e.what());
    } catch (...) {
      ZTLogf("ERROR: Files watcher. The delegate's start report for (%s) threw an unknown exception", path.c_str());
    }
  }
  // The delegate may have stopped watching the item (or begun and ended again: a new burst then
  // has its own flag).
  Slot& slot = slots_[index];
  if (!slot.watching || !slot.processing) return;
  cancelPreviousScheduledFileStateCompareForFileAtIndex(index);
  slot.prevState = captureStateForFileAtIndex(index);
  scheduleFileStateCompareForFileAtIndex(index);
}

bool ZTFileSystemUpdatesWatcher::isFileState(const ZTValue& state, const ZTValue& otherState) {
  return !(state == otherState);
}

void ZTFileSystemUpdatesWatcher::cancelPreviousScheduledFileStateCompareForFileAtIndex(std::size_t index) {
  checkIndex(index);
  Slot& slot = slots_[index];
  if (slot.timer) slot.timer->invalidate();
  slot.timer.reset();
}

void ZTFileSystemUpdatesWatcher::scheduleFileStateCompareForFileAtIndex(std::size_t index) {
  cancelPreviousScheduledFileStateCompareForFileAtIndex(index);
  std::weak_ptr<ZTFileSystemUpdatesWatcher> weak = weak_from_this();
  slots_[index].timer = ZTRunLoop::main()->scheduleTimer(settleInterval_, false, [weak](ZTTimer& timer) {
    if (auto self = weak.lock()) self->directoryStateCompareTimerFired(timer);
  });
}

void ZTFileSystemUpdatesWatcher::directoryStateCompareTimerFired(ZTTimer& timer) {
  const auto found = std::find_if(slots_.begin(), slots_.end(), [&](const Slot& slot) { return slot.timer.get() == &timer; });
  if (found == slots_.end()) return;  // a compare that was cancelled as it fired
  const std::size_t index = static_cast<std::size_t>(found - slots_.begin());
  const auto self = shared_from_this();
  Slot& slot = slots_[index];
  slot.timer.reset();
  if (!slot.watching) return;

  // An atomic save or re-creation during the burst may have left a watch on an inode no longer at
  // the path, or none at all.
  if (inotify_) {
    const int itemError = syncWatch(*inotify_, filesToWatch_[index], index, Role::Item, slot.itemWd, slot.itemDevice,
                                    slot.itemInode);
    int parentError = 0;
    if (slot.parts) {
      parentError = syncWatch(*inotify_, slot.parts->parent, index, Role::Parent, slot.parentWd, slot.parentDevice,
                              slot.parentInode);
    }
    if (itemError == ENOSPC || parentError == ENOSPC) {
      reportWatchLimit(filesToWatch_[index]);
      beginIgnoringFileSystemUpdatesForFileAtIndex(index);
      return;
    }
    noteItemWatchError(filesToWatch_[index], itemError, slot.parentWd >= 0, slot.reportedItemError);
  }

  ZTValue state = captureStateForFileAtIndex(index);
  if (!slot.prevState || isFileState(state, *slot.prevState)) {
    slot.prevState = std::move(state);
    scheduleFileStateCompareForFileAtIndex(index);
    return;
  }
  slot.processing = false;
  const std::string path = filesToWatch_[index];
  if (const auto delegate = delegate_.lock()) {
    try {
      delegate->fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(*this, path, state);
    } catch (const std::exception& e) {
      ZTLogf("ERROR: Files watcher. The delegate's finish report for (%s) threw: %s", path.c_str(), e.what());
    } catch (...) {
      ZTLogf("ERROR: Files watcher. The delegate's finish report for (%s) threw an unknown exception", path.c_str());
    }
  }
}

void ZTFileSystemUpdatesWatcher::setSettleInterval(Seconds interval) {
  settleInterval_ = interval < Seconds::zero() ? Seconds::zero() : interval;
}

// ---------------------------------------------------------------------------------------------
// States.

ZTValue ZTFileSystemUpdatesWatcher::captureStateForFileAtIndex(std::size_t index) const {
  checkIndex(index);
  return captureStateForPath(filesToWatch_[index]);
}

ZTValue ZTFileSystemUpdatesWatcher::captureStateForPath(const std::string& path) {
  ZTValueDictionary state;
  if (!zt::fs_internal::usablePath(path)) return state;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    const int error = errno;
    if (error != ENOENT && error != ENOTDIR) {
      ZTLogf("ERROR: Files watcher. Unable to get file (%s) attributes. Error: %s.", path.c_str(),
             errorText(error, path).c_str());
    }
    return state;
  }
  if (!S_ISDIR(st.st_mode)) {
    state[kModificationDateKey] = modificationDate(st);
    state[kSizeKey] = static_cast<std::uint64_t>(st.st_size);
    return state;
  }

  DIR* folder = ::opendir(path.c_str());
  if (!folder) {
    const int error = errno;
    ZTLogf("ERROR: Files watcher. Unable to get directory (%s) attributes. Error: %s.", path.c_str(),
           errorText(error, path).c_str());
    return state;
  }
  const std::string prefix = path.back() == '/' ? path : path + "/";
  std::size_t described = 0;
  while (described < kMaxFolderChildren) {
    errno = 0;
    const struct dirent* entry = ::readdir(folder);
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    ++described;
    const std::string childPath = prefix + std::string(name);
    struct stat child {};
    if (::fstatat(::dirfd(folder), entry->d_name, &child, AT_SYMLINK_NOFOLLOW) != 0) {
      const int error = errno;
      ZTLogf("ERROR: Files watcher. Unable to get directory (%s) attributes. Error: %s.", childPath.c_str(),
             errorText(error, childPath).c_str());
      continue;
    }
    ZTValueDictionary attributes;
    attributes[kModificationDateKey] = modificationDate(child);
    if (S_ISREG(child.st_mode)) attributes[kSizeKey] = static_cast<std::uint64_t>(child.st_size);
    state[childPath] = ZTValue(std::move(attributes));
  }
  ::closedir(folder);
  return state;
}
