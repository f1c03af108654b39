#include "zentrel/platform/file_manager.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/internal/file_system.h"
#include "zentrel/platform/log.h"

using namespace zt::platform_internal;

namespace {

// Deeper trees than this are refused (copy, remove, compare) or cut (enumeration). Paths that deep
// exceed PATH_MAX long before on any real file system.
constexpr int kMaximumDepth = 4096;
// Attempts at a fresh temporary name before giving up.
constexpr int kTemporaryNameAttempts = 64;

std::string toString(std::string_view text) { return std::string(text); }

bool startsWithFolder(std::string_view path, std::string_view folder) {
  return path.size() > folder.size() && path.substr(0, folder.size()) == folder && path[folder.size()] == '/';
}

// --- Delegate questions

enum class Answer { Yes, No, Cancelled };

enum class Question { Copy, Move, Remove, Link };

Answer ask(ZTFileManager& manager, Question question, const std::string& source, const std::string& destination,
           ZTError* error) {
  auto delegate = manager.delegate();
  if (!delegate) return Answer::Yes;
  try {
    bool yes = true;
    switch (question) {
      case Question::Copy: yes = delegate->shouldCopyItemAtPath(manager, source, destination); break;
      case Question::Move: yes = delegate->shouldMoveItemAtPath(manager, source, destination); break;
      case Question::Remove: yes = delegate->shouldRemoveItemAtPath(manager, source); break;
      case Question::Link: yes = delegate->shouldLinkItemAtPath(manager, source, destination); break;
    }
    return yes ? Answer::Yes : Answer::No;
  } catch (const std::exception& exception) {
    ZTLogf("ZTFileManager: the delegate threw while asked about %s: %s; the operation is cancelled", source.c_str(),
           exception.what());
  } catch (...) {
    ZTLogf("ZTFileManager: the delegate threw while asked about %s; the operation is cancelled", source.c_str());
  }
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = "The operation was cancelled.";
  info[ZTFilePathErrorKey] = source;
  if (!destination.empty()) info[ZTDestinationFilePathErrorKey] = destination;
  ZTSetError(error, ZTError(ZTCocoaErrorDomain, ZTUserCancelledError, std::move(info)));
  return Answer::Cancelled;
}

// --- Temporary names beside a destination

std::string temporarySibling(const std::string& destination) {
  const std::size_t slash = destination.find_last_of('/');
  const std::string folder = slash == std::string::npos ? std::string() : destination.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? destination : destination.substr(slash + 1);
  if (name.size() > 200) name.resize(200);  // keep room for the suffix within NAME_MAX
  std::uint64_t random = 0;
  if (getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
    random = static_cast<std::uint64_t>(getpid()) * 0x9E3779B97F4A7C15ull ^ reinterpret_cast<std::uintptr_t>(&name);
  }
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, ".zt-%012llx", static_cast<unsigned long long>(random & 0xFFFFFFFFFFFFull));
  return folder + "." + name + suffix;
}

// Renames without replacing: fails with EEXIST when the destination exists. File systems without
// RENAME_NOREPLACE get a hard link for non-folders (atomic too) and, for folders or where hard
// links are refused too, a rename after checking that the destination is free.
bool renameNoReplace(const std::string& from, const std::string& to, bool isFolder) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (!isFolder) {
    if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) == 0) {
      unlink(from.c_str());
      return true;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return false;
    // No hard links here either: a checked rename, racy only against a writer at the same moment.
  }
  struct stat existing;
  if (lstat(to.c_str(), &existing) == 0) {
    errno = EEXIST;
    return false;
  }
  return rename(from.c_str(), to.c_str()) == 0;
}

// --- Removal

enum class Removal { Removed, Kept, Failed };

Removal removeTree(ZTFileManager* manager, const std::string& path, int depth, ZTError* error) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) {
    if (errno == ENOENT && depth > 0) return Removal::Removed;  // vanished meanwhile
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
    return Removal::Failed;
  }
  if (manager) {
    switch (ask(*manager, Question::Remove, path, {}, error)) {
      case Answer::Yes: break;
      case Answer::No: return Removal::Kept;
      case Answer::Cancelled: return Removal::Failed;
    }
  }
  if (!S_ISDIR(info.st_mode)) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
      ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
      return Removal::Failed;
    }
    return Removal::Removed;
  }
  if (depth >= kMaximumDepth) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(ELOOP, path));
    return Removal::Failed;
  }
  std::vector<std::string> names;
  if (!readFolderNames(path, names)) {
    if (errno == ENOENT) return Removal::Removed;
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
    return Removal::Failed;
  }
  bool keptSomething = false;
  for (const auto& name : names) {
    switch (removeTree(manager, path + "/" + name, depth + 1, error)) {
      case Removal::Removed: break;
      case Removal::Kept: keptSomething = true; break;
      case Removal::Failed: return Removal::Failed;
    }
  }
  if (keptSomething) return Removal::Kept;
  if (rmdir(path.c_str()) != 0 && errno != ENOENT) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
    return Removal::Failed;
  }
  return Removal::Removed;
}

// --- Copy and link

enum class Mode { Copy, Link };

struct TreeCopy {
  ZTFileManager* manager = nullptr;  // the one to ask, or nullptr to ask no one
  Mode mode = Mode::Copy;
  ZTError* error = nullptr;
  std::string rootSource;
  std::string rootDestination;

  enum class Result { Done, Skipped, Failed };

  bool fail(int errnoValue, const std::string& path, bool reading, const std::string& destination = {}) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errnoValue, path, reading, destination));
    return false;
  }

  void keepTimes(const std::string& path, const struct stat& source) {
    const struct timespec times[2] = {source.st_atim, source.st_mtim};
    utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  }

  bool copyRegular(const std::string& source, const struct stat& sourceInfo, const std::string& target,
                   const std::string& shownTarget) {
    const int in = open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (in < 0) return fail(errno, source, true);
    const int out = open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0) {
      const int saved = errno;
      ::close(in);
      return fail(saved, shownTarget, false);
    }
    int failure = 0;
    bool failureReading = false;
    if (!copyFileContents(in, out, failure, failureReading)) {
      ::close(in);
      ::close(out);
      return fail(failure, failureReading ? source : shownTarget, failureReading);
    }
    ::close(in);
    fchmod(out, sourceInfo.st_mode & 07777);
    const struct timespec times[2] = {sourceInfo.st_atim, sourceInfo.st_mtim};
    futimens(out, times);
    if (fsync(out) != 0 && errno != EINVAL && errno != EROFS) {
      const int saved = errno;
      ::close(out);
      return fail(saved, shownTarget, false);
    }
    if (::close(out) != 0 && errno != EINTR) return fail(errno, shownTarget, false);
    return true;
  }

  bool copySymbolicLink(const std::string& source, const struct stat& sourceInfo, const std::string& target,
                        const std::string& shownTarget) {
    std::string destination;
    if (!readLink(source, destination)) return fail(errno, source, true);
    if (symlink(destination.c_str(), target.c_str()) != 0) return fail(errno, shownTarget, false);
    keepTimes(target, sourceInfo);
    return true;
  }

  // Creates the item at `target` (a name nobody else uses) from `source`; `shown` is the path the
  // user will see it under, for the delegate and for errors.
  Result item(const std::string& source, const std::string& target, const std::string& shown, int depth) {
    struct stat info;
    if (lstat(source.c_str(), &info) != 0) {
      if (errno == ENOENT && depth > 0) return Result::Skipped;  // vanished meanwhile
      fail(errno, source, true);
      return Result::Failed;
    }
    if (manager) {
      switch (ask(*manager, mode == Mode::Copy ? Question::Copy : Question::Link, source, shown, error)) {
        case Answer::Yes: break;
        case Answer::No: return Result::Skipped;
        case Answer::Cancelled: return Result::Failed;
      }
    }
    if (S_ISDIR(info.st_mode)) return folder(source, info, target, shown, depth) ? Result::Done : Result::Failed;
    if (mode == Mode::Link) {
      if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), 0) != 0) {
        fail(errno, source, false, shown);
        return Result::Failed;
      }
      return Result::Done;
    }
    bool ok = false;
    if (S_ISREG(info.st_mode)) {
      ok = copyRegular(source, info, target, shown);
    } else if (S_ISLNK(info.st_mode)) {
      ok = copySymbolicLink(source, info, target, shown);
    } else if (S_ISFIFO(info.st_mode)) {
      ok = mkfifo(target.c_str(), info.st_mode & 07777) == 0 || fail(errno, shown, false);
      if (ok) {
        chmod(target.c_str(), info.st_mode & 07777);
        keepTimes(target, info);
      }
    } else {
      ok = fail(EOPNOTSUPP, source, true);
    }
    return ok ? Result::Done : Result::Failed;
  }

  bool folder(const std::string& source, const struct stat& info, const std::string& target, const std::string& shown,
              int depth) {
    if (depth >= kMaximumDepth) return fail(ELOOP, source, true);
    std::vector<std::string> names;
    if (!readFolderNames(source, names)) return fail(errno, source, true);
    if (mkdir(target.c_str(), 0700) != 0) return fail(errno, shown, false);
    for (const auto& name : names) {
      const std::string childSource = source + "/" + name;
      if (startsWithFolder(rootDestination, childSource) || childSource == rootDestination) continue;
      if (item(childSource, target + "/" + name, shown + "/" + name, depth + 1) == Result::Failed) return false;
    }
    if (chmod(target.c_str(), info.st_mode & 07777) != 0) return fail(errno, shown, false);
    keepTimes(target, info);
    return true;
  }

  // The whole operation: builds the item under a temporary name beside the destination and renames
  // it into place.
  bool run(const std::string& source, const std::string& destination) {
    rootSource = source;
    rootDestination = destination;
    struct stat info;
    if (lstat(source.c_str(), &info) != 0) return fail(errno, source, true);
    struct stat existing;
    if (lstat(destination.c_str(), &existing) == 0) return fail(EEXIST, source, false, destination);
    if (S_ISDIR(info.st_mode) && startsWithFolder(destination, source)) return fail(EINVAL, source, false, destination);
    if (mode == Mode::Link && !S_ISDIR(info.st_mode)) {
      // A single hard link is atomic already.
      if (manager) {
        switch (ask(*manager, Question::Link, source, destination, error)) {
          case Answer::Yes: break;
          case Answer::No: return true;
          case Answer::Cancelled: return false;
        }
      }
      if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), 0) != 0)
        return fail(errno, source, false, destination);
      return true;
    }
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
      const std::string temporary = temporarySibling(destination);
      struct stat taken;
      if (lstat(temporary.c_str(), &taken) == 0) continue;
      const Result result = item(source, temporary, destination, 0);
      if (result == Result::Skipped) return true;
      if (result == Result::Failed) {
        removeTree(nullptr, temporary, 0, nullptr);
        return false;
      }
      if (!renameNoReplace(temporary, destination, S_ISDIR(info.st_mode))) {
        const int saved = errno;
        removeTree(nullptr, temporary, 0, nullptr);
        return fail(saved, source, false, destination);
      }
      syncFolderOf(destination);
      return true;
    }
    return fail(EEXIST, source, false, destination);
  }
};

// --- Comparison

bool sameContents(const std::string& a, const std::string& b, bool followLinks, int depth) {
  struct stat infoA, infoB;
  const int statResultA = followLinks ? stat(a.c_str(), &infoA) : lstat(a.c_str(), &infoA);
  const int statResultB = followLinks ? stat(b.c_str(), &infoB) : lstat(b.c_str(), &infoB);
  if (statResultA != 0 || statResultB != 0) return false;
  if ((infoA.st_mode & S_IFMT) != (infoB.st_mode & S_IFMT)) return false;
  if (infoA.st_dev == infoB.st_dev && infoA.st_ino == infoB.st_ino) return true;
  if (S_ISREG(infoA.st_mode)) return infoA.st_size == infoB.st_size && sameFileBytes(a, b);
  if (S_ISLNK(infoA.st_mode)) {
    std::string destinationA, destinationB;
    return readLink(a, destinationA) && readLink(b, destinationB) && destinationA == destinationB;
  }
  if (S_ISDIR(infoA.st_mode)) {
    if (depth >= kMaximumDepth) return false;
    std::vector<std::string> namesA, namesB;
    if (!readFolderNames(a, namesA) || !readFolderNames(b, namesB)) return false;
    std::sort(namesA.begin(), namesA.end());
    std::sort(namesB.begin(), namesB.end());
    if (namesA != namesB) return false;
    for (const auto& name : namesA) {
      if (!sameContents(a + "/" + name, b + "/" + name, false, depth + 1)) return false;
    }
    return true;
  }
  if (S_ISCHR(infoA.st_mode) || S_ISBLK(infoA.st_mode)) return infoA.st_rdev == infoB.st_rdev;
  return true;  // pipes and sockets hold no contents of their own
}

std::string accountName(uid_t uid) {
  struct passwd entry;
  struct passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_name) return found->pw_name;
  return {};
}

std::string groupName(gid_t gid) {
  struct group entry;
  struct group* found = nullptr;
  char buffer[4096];
  if (getgrgid_r(gid, &entry, buffer, sizeof buffer, &found) == 0 && found && found->gr_name) return found->gr_name;
  return {};
}

}  // namespace

// --- Errors

ZTError ZTFileErrorWithPOSIXCode(int errnoValue, std::string_view path, bool forReading,
                                 std::string_view destinationPath) {
  std::int64_t code = forReading ? ZTFileReadUnknownError : ZTFileWriteUnknownError;
  switch (errnoValue) {
    case ENOENT:
    case ENOTDIR: code = forReading ? ZTFileReadNoSuchFileError : ZTFileNoSuchFileError; break;
    case EEXIST:
    case ENOTEMPTY: code = ZTFileWriteFileExistsError; break;
    case EACCES:
    case EPERM: code = forReading ? ZTFileReadNoPermissionError : ZTFileWriteNoPermissionError; break;
    case ENOSPC:
    case EDQUOT: code = ZTFileWriteOutOfSpaceError; break;
    case EROFS: code = ZTFileWriteVolumeReadOnlyError; break;
    case ENAMETOOLONG:
    case EILSEQ: code = forReading ? ZTFileReadInvalidFileNameError : ZTFileWriteInvalidFileNameError; break;
    case EFBIG:
      if (forReading) code = ZTFileReadTooLargeError;
      break;
    default: break;
  }
  const ZTError underlying = ZTError::posix(errnoValue, toString(path));
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = underlying.localizedDescription();
  if (!path.empty()) info[ZTFilePathErrorKey] = toString(path);
  if (!destinationPath.empty()) info[ZTDestinationFilePathErrorKey] = toString(destinationPath);
  info[ZTUnderlyingErrorKey] = underlying.toValue();
  return ZTError(ZTCocoaErrorDomain, code, std::move(info));
}

namespace {

// Empty paths name nothing; a NUL would make the kernel see another, shorter path.
bool usablePath(std::string_view path, bool forReading, ZTError* error) {
  if (path.empty()) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(ENOENT, path, forReading));
    return false;
  }
  if (path.find('\0') != std::string_view::npos) {
    ZTError failure = ZTFileErrorWithPOSIXCode(EINVAL, path, forReading);
    ZTSetError(error, ZTError(ZTCocoaErrorDomain,
                              forReading ? ZTFileReadInvalidFileNameError : ZTFileWriteInvalidFileNameError,
                              failure.userInfo()));
    return false;
  }
  return true;
}

}  // namespace

// --- Delegate defaults

bool ZTFileManager::Delegate::shouldCopyItemAtPath(ZTFileManager&, const std::string&, const std::string&) {
  return true;
}
bool ZTFileManager::Delegate::shouldMoveItemAtPath(ZTFileManager&, const std::string&, const std::string&) {
  return true;
}
bool ZTFileManager::Delegate::shouldRemoveItemAtPath(ZTFileManager&, const std::string&) { return true; }
bool ZTFileManager::Delegate::shouldLinkItemAtPath(ZTFileManager&, const std::string&, const std::string&) {
  return true;
}

// --- Manager

namespace {
struct ConstructibleFileManager : ZTFileManager {
  ConstructibleFileManager() = default;
};
}  // namespace

std::shared_ptr<ZTFileManager> ZTFileManager::defaultManager() {
  static auto* const manager = new std::shared_ptr<ZTFileManager>(std::make_shared<ConstructibleFileManager>());
  return *manager;
}

std::shared_ptr<ZTFileManager> ZTFileManager::create() { return std::make_shared<ConstructibleFileManager>(); }

std::shared_ptr<ZTFileManager::Delegate> ZTFileManager::delegate() const {
  ZTLockGuard lock(mutex_);
  return delegate_.lock();
}

void ZTFileManager::setDelegate(std::weak_ptr<Delegate> delegate) {
  ZTLockGuard lock(mutex_);
  delegate_ = std::move(delegate);
}

bool ZTFileManager::fileExistsAtPath(std::string_view path, bool* isDirectory, ZTLinkTraversal links) const {
  if (isDirectory) *isDirectory = false;
  if (!usablePath(path, true, nullptr)) return false;
  const std::string text(path);
  struct stat info;
  const int result = links == ZTLinkTraversal::Follow ? stat(text.c_str(), &info) : lstat(text.c_str(), &info);
  if (result != 0) return false;
  if (isDirectory) *isDirectory = S_ISDIR(info.st_mode);
  return true;
}

std::optional<ZTValue> ZTFileManager::attributesOfItemAtPath(std::string_view path, ZTError* error,
                                                             ZTLinkTraversal links) const {
  if (!usablePath(path, true, error)) return std::nullopt;
  const std::string text(path);
  struct statx info;
  const int flags = links == ZTLinkTraversal::Follow ? 0 : AT_SYMLINK_NOFOLLOW;
  if (statx(AT_FDCWD, text.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, true));
    return std::nullopt;
  }
  const char* type = ZTFileTypeUnknown;
  switch (info.stx_mode & S_IFMT) {
    case S_IFREG: type = ZTFileTypeRegular; break;
    case S_IFDIR: type = ZTFileTypeDirectory; break;
    case S_IFLNK: type = ZTFileTypeSymbolicLink; break;
    case S_IFSOCK: type = ZTFileTypeSocket; break;
    case S_IFCHR: type = ZTFileTypeCharacterSpecial; break;
    case S_IFBLK: type = ZTFileTypeBlockSpecial; break;
    default: break;
  }
  auto date = [](const struct statx_timestamp& time) {
    return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(time.tv_sec) + time.tv_nsec / 1e9);
  };
  ZTValue attributes = ZTValue::dictionary();
  attributes[ZTFileType] = type;
  attributes[ZTFileSize] = static_cast<std::uint64_t>(info.stx_size);
  attributes[ZTFileModificationDate] = date(info.stx_mtime);
  if (info.stx_mask & STATX_BTIME) attributes[ZTFileCreationDate] = date(info.stx_btime);
  attributes[ZTFilePosixPermissions] = static_cast<std::uint64_t>(info.stx_mode & 07777);
  attributes[ZTFileReferenceCount] = static_cast<std::uint64_t>(info.stx_nlink);
  attributes[ZTFileSystemNumber] = static_cast<std::uint64_t>(makedev(info.stx_dev_major, info.stx_dev_minor));
  attributes[ZTFileSystemFileNumber] = static_cast<std::uint64_t>(info.stx_ino);
  attributes[ZTFileOwnerAccountID] = static_cast<std::uint64_t>(info.stx_uid);
  attributes[ZTFileGroupOwnerAccountID] = static_cast<std::uint64_t>(info.stx_gid);
  if (auto name = accountName(info.stx_uid); !name.empty()) attributes[ZTFileOwnerAccountName] = name;
  if (auto name = groupName(info.stx_gid); !name.empty()) attributes[ZTFileGroupOwnerAccountName] = name;
  return attributes;
}

bool ZTFileManager::setAttributes(const ZTValue& attributes, std::string_view path, ZTError* error) {
  if (!usablePath(path, false, error)) return false;
  const std::string text(path);
  const ZTValue& permissions = attributes[ZTFilePosixPermissions];
  if (permissions.isInteger() && chmod(text.c_str(), static_cast<mode_t>(permissions.uintValue() & 07777)) != 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
    return false;
  }
  if (const ZTDate* date = attributes[ZTFileModificationDate].getIf<ZTDate>()) {
    const double seconds = date->timeIntervalSince1970();
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    const double whole = std::floor(seconds);
    times[1].tv_sec = static_cast<time_t>(whole);
    times[1].tv_nsec = static_cast<long>((seconds - whole) * 1e9);
    if (times[1].tv_nsec >= 1000000000L) times[1].tv_nsec = 999999999L;
    if (utimensat(AT_FDCWD, text.c_str(), times, 0) != 0) {
      ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
      return false;
    }
  }
  return true;
}

std::optional<std::vector<std::string>> ZTFileManager::contentsOfDirectoryAtPath(std::string_view path,
                                                                                  ZTError* error) const {
  if (!usablePath(path, true, error)) return std::nullopt;
  std::vector<std::string> names;
  if (!readFolderNames(std::string(path), names)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, true));
    return std::nullopt;
  }
  return names;
}

std::optional<std::vector<std::string>> ZTFileManager::subpathsOfDirectoryAtPath(std::string_view path,
                                                                                  ZTError* error) const {
  auto enumerator = enumeratorAtPath(path, error);
  if (!enumerator) return std::nullopt;
  std::optional<ZTError> failure;
  enumerator->setErrorHandler([&failure](const std::string&, const ZTError& walkError) {
    failure = walkError;
    return false;
  });
  std::vector<std::string> paths;
  while (auto next = enumerator->nextObject()) paths.push_back(std::move(*next));
  if (failure) {
    ZTSetError(error, *failure);
    return std::nullopt;
  }
  return paths;
}

std::unique_ptr<ZTDirectoryEnumerator> ZTFileManager::enumeratorAtPath(std::string_view path, ZTError* error) const {
  if (!usablePath(path, true, error)) return nullptr;
  const std::string text(path);
  std::vector<std::string> names;
  if (!readFolderNames(text, names)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, true));
    return nullptr;
  }
  return std::make_unique<ZTDirectoryEnumerator>(text);
}

std::optional<std::string> ZTFileManager::destinationOfSymbolicLinkAtPath(std::string_view path,
                                                                          ZTError* error) const {
  if (!usablePath(path, true, error)) return std::nullopt;
  std::string destination;
  if (!readLink(std::string(path), destination)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, true));
    return std::nullopt;
  }
  return destination;
}

bool ZTFileManager::contentsEqualAtPath(std::string_view path1, std::string_view path2) const {
  if (!usablePath(path1, true, nullptr) || !usablePath(path2, true, nullptr)) return false;
  if (path1 == path2) return fileExistsAtPath(path1, nullptr, ZTLinkTraversal::DontFollow);
  return sameContents(std::string(path1), std::string(path2), true, 0);
}

bool ZTFileManager::createDirectoryAtPath(std::string_view path, bool withIntermediateDirectories,
                                          const ZTValue& attributes, ZTError* error) {
  if (!usablePath(path, false, error)) return false;
  const ZTValue& permissions = attributes[ZTFilePosixPermissions];
  const bool explicitMode = permissions.isInteger();
  const mode_t mode = explicitMode ? static_cast<mode_t>(permissions.uintValue() & 07777) : 0777;
  const std::string text(path);
  auto makeOne = [&](const std::string& folder) {
    if (mkdir(folder.c_str(), mode) != 0) return false;
    if (explicitMode) chmod(folder.c_str(), mode);
    return true;
  };
  if (!withIntermediateDirectories) {
    if (makeOne(text)) return true;
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path));
    return false;
  }
  // Each prefix ending before a "/" (and the whole path) is made in turn; one that exists must be
  // a folder (or a link to one).
  std::size_t position = 0;
  while (position != std::string::npos) {
    position = text.find('/', position + 1);
    const std::string prefix = text.substr(0, position);
    if (prefix.empty() || prefix.back() == '/') continue;
    if (makeOne(prefix)) continue;
    const int saved = errno;
    struct stat info;
    if (saved == EEXIST || stat(prefix.c_str(), &info) == 0) {
      if (stat(prefix.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) continue;
      ZTSetError(error, ZTFileErrorWithPOSIXCode(EEXIST, prefix));
      return false;
    }
    ZTSetError(error, ZTFileErrorWithPOSIXCode(saved, prefix));
    return false;
  }
  return true;
}

bool ZTFileManager::copyItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error) {
  if (!usablePath(sourcePath, true, error) || !usablePath(destinationPath, false, error)) return false;
  TreeCopy copy;
  copy.manager = this;
  copy.mode = Mode::Copy;
  copy.error = error;
  return copy.run(std::string(sourcePath), std::string(destinationPath));
}

bool ZTFileManager::linkItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error) {
  if (!usablePath(sourcePath, true, error) || !usablePath(destinationPath, false, error)) return false;
  TreeCopy link;
  link.manager = this;
  link.mode = Mode::Link;
  link.error = error;
  return link.run(std::string(sourcePath), std::string(destinationPath));
}

bool ZTFileManager::moveItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error) {
  if (!usablePath(sourcePath, false, error) || !usablePath(destinationPath, false, error)) return false;
  const std::string source(sourcePath), destination(destinationPath);
  struct stat info;
  if (lstat(source.c_str(), &info) != 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, source, false, destination));
    return false;
  }
  struct stat existing;
  if (lstat(destination.c_str(), &existing) == 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(EEXIST, source, false, destination));
    return false;
  }
  if (S_ISDIR(info.st_mode) && startsWithFolder(destination, source)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(EINVAL, source, false, destination));
    return false;
  }
  switch (ask(*this, Question::Move, source, destination, error)) {
    case Answer::Yes: break;
    case Answer::No: return true;
    case Answer::Cancelled: return false;
  }
  if (renameNoReplace(source, destination, S_ISDIR(info.st_mode))) return true;
  if (errno != EXDEV) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, source, false, destination));
    return false;
  }
  TreeCopy copy;  // asks no one: the move was agreed to as a whole
  copy.mode = Mode::Copy;
  copy.error = error;
  if (!copy.run(source, destination)) return false;
  return removeTree(nullptr, source, 0, error) == Removal::Removed;
}

bool ZTFileManager::removeItemAtPath(std::string_view path, ZTError* error) {
  if (!usablePath(path, false, error)) return false;
  return removeTree(this, std::string(path), 0, error) != Removal::Failed;
}

bool ZTFileManager::createSymbolicLinkAtPath(std::string_view path, std::string_view destinationPath,
                                             ZTError* error) {
  if (!usablePath(path, false, error)) return false;
  if (destinationPath.find('\0') != std::string_view::npos || destinationPath.empty()) {
    ZTSetError(error, ZTError(ZTCocoaErrorDomain, ZTFileWriteInvalidFileNameError,
                              ZTFileErrorWithPOSIXCode(EINVAL, path).userInfo()));
    return false;
  }
  const std::string text(path), destination(destinationPath);
  if (symlink(destination.c_str(), text.c_str()) != 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, false, destinationPath));
    return false;
  }
  return true;
}

// --- Enumerator

struct ZTDirectoryEnumerator::State {
  struct Level {
    std::string prefix;  // relative path of the folder plus "/", empty for the root
    std::vector<std::string> names;
    std::size_t next = 0;
  };
  std::string root;
  std::vector<Level> levels;
  bool started = false;
  bool stopped = false;
  bool skip = false;
  bool lastIsFolder = false;
  std::string last;
  ZTValue lastAttributes;
  ErrorHandler handler;

  // Reports a failure; false when the walk is to end.
  bool report(const std::string& path, const ZTError& error) {
    if (!handler) return true;
    try {
      if (handler(path, error)) return true;
    } catch (const std::exception& exception) {
      ZTLogf("ZTDirectoryEnumerator: the error handler threw: %s; the walk ends", exception.what());
    } catch (...) {
      ZTLog("ZTDirectoryEnumerator: the error handler threw; the walk ends");
    }
    stopped = true;
    return false;
  }

  void open(const std::string& prefix) {
    Level level;
    level.prefix = prefix;
    const std::string folder = prefix.empty() ? root : root + "/" + prefix.substr(0, prefix.size() - 1);
    if (levels.size() >= static_cast<std::size_t>(kMaximumDepth)) {
      report(folder, ZTFileErrorWithPOSIXCode(ELOOP, folder, true));
      return;
    }
    if (!readFolderNames(folder, level.names)) {
      if (errno == ENOENT && !prefix.empty()) return;  // vanished meanwhile
      report(folder, ZTFileErrorWithPOSIXCode(errno, folder, true));
      return;
    }
    std::sort(level.names.begin(), level.names.end());
    levels.push_back(std::move(level));
  }
};

ZTDirectoryEnumerator::ZTDirectoryEnumerator(std::string rootPath) : state_(std::make_unique<State>()) {
  state_->root = std::move(rootPath);
}

ZTDirectoryEnumerator::~ZTDirectoryEnumerator() = default;

void ZTDirectoryEnumerator::setErrorHandler(ErrorHandler handler) { state_->handler = std::move(handler); }

std::optional<std::string> ZTDirectoryEnumerator::nextObject() {
  State& state = *state_;
  if (state.stopped) return std::nullopt;
  if (!state.started) {
    state.started = true;
    state.open({});
  } else if (state.lastIsFolder && !state.skip) {
    state.open(state.last + "/");
  }
  state.skip = false;
  state.lastIsFolder = false;
  while (!state.stopped && !state.levels.empty()) {
    auto& level = state.levels.back();
    if (level.next >= level.names.size()) {
      state.levels.pop_back();
      continue;
    }
    std::string relative = level.prefix + level.names[level.next++];
    const std::string full = state.root + "/" + relative;
    struct stat info;
    if (lstat(full.c_str(), &info) != 0) {
      if (errno == ENOENT) continue;  // vanished meanwhile
      state.lastAttributes = ZTValue();
    } else {
      state.lastIsFolder = S_ISDIR(info.st_mode);
      state.lastAttributes = ZTFileManager::defaultManager()
                                 ->attributesOfItemAtPath(full, nullptr, ZTLinkTraversal::DontFollow)
                                 .value_or(ZTValue());
    }
    state.last = relative;
    return relative;
  }
  return std::nullopt;
}

const ZTValue& ZTDirectoryEnumerator::fileAttributes() const { return state_->lastAttributes; }

std::size_t ZTDirectoryEnumerator::level() const {
  if (state_->last.empty()) return 0;
  return static_cast<std::size_t>(std::count(state_->last.begin(), state_->last.end(), '/')) + 1;
}

void ZTDirectoryEnumerator::skipDescendants() { state_->skip = true; }

bool ZTDirectoryEnumerator::wasStopped() const { return state_->stopped; }
