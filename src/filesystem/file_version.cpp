#include "zentrel/filesystem/file_version.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <regex>
#include <set>
#include <tuple>

#include "zentrel/filesystem/trash.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/mutex.h"

namespace {

struct NameParts {
  std::string_view stem;
  std::string_view extension;  // without the dot; empty when none
};

NameParts splitName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {name, {}};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

// One row per sync client. `middle` matches what the client puts between the stem and the
// extension; the group numbers say where the device, the date and the time are (0: absent).
enum class DateForm { Compact, Dashed };  // "20240305" / "2024-03-05"
struct ClientPattern {
  const char* client;
  std::regex middle;
  int deviceGroup;
  int dateGroup;
  int timeGroup;
  DateForm dateForm;
};

const std::vector<ClientPattern>& clientPatterns() {
  static const auto* patterns = new std::vector<ClientPattern>{
      {"Syncthing", std::regex(R"(^\.sync-conflict-(\d{8})-(\d{6})-([A-Za-z0-9]+)$)"), 3, 1, 2, DateForm::Compact},
      {"Nextcloud", std::regex(R"(^ \(conflicted copy (?:(.+) )?(\d{4}-\d{2}-\d{2}) (\d{6})\)$)"), 1, 2, 3,
       DateForm::Dashed},
      {"Nextcloud", std::regex(R"(^_conflict-(\d{8})-(\d{6})$)"), 0, 1, 2, DateForm::Compact},
      {"Dropbox", std::regex(R"(^ \((.+)(?:'|\xE2\x80\x99)s conflicted copy (\d{4}-\d{2}-\d{2})\)(?: \(\d+\))?$)"), 1,
       2, 0, DateForm::Dashed},
  };
  return *patterns;
}

int digits(const std::string& text, std::size_t at, std::size_t count) {
  int value = 0;
  for (std::size_t i = 0; i < count; ++i) value = value * 10 + (text[at + i] - '0');
  return value;
}

// Local time of the date (and time, when given) in a name; nullopt when it is not a real date.
std::optional<ZTDate> dateFromName(const std::string& date, const std::string& time, DateForm form) {
  std::tm parts{};
  if (form == DateForm::Compact) {
    parts.tm_year = digits(date, 0, 4) - 1900;
    parts.tm_mon = digits(date, 4, 2) - 1;
    parts.tm_mday = digits(date, 6, 2);
  } else {
    parts.tm_year = digits(date, 0, 4) - 1900;
    parts.tm_mon = digits(date, 5, 2) - 1;
    parts.tm_mday = digits(date, 8, 2);
  }
  if (!time.empty()) {
    parts.tm_hour = digits(time, 0, 2);
    parts.tm_min = digits(time, 2, 2);
    parts.tm_sec = digits(time, 4, 2);
  }
  if (parts.tm_mon < 0 || parts.tm_mon > 11 || parts.tm_mday < 1 || parts.tm_mday > 31 || parts.tm_hour > 23 ||
      parts.tm_min > 59 || parts.tm_sec > 60)
    return std::nullopt;
  std::tm normalised = parts;
  normalised.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&normalised);
  if (seconds == static_cast<std::time_t>(-1) && errno == EOVERFLOW) return std::nullopt;
  if (normalised.tm_mday != parts.tm_mday || normalised.tm_mon != parts.tm_mon) return std::nullopt;  // 31 April
  return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(seconds));
}

// A resolved mark names one file: device, inode and status-change time (which no one can set, so
// a new file on a reused inode is not taken for the old one).
using FileKey = std::tuple<std::uint64_t, std::uint64_t, std::int64_t>;
struct ResolvedMarks {
  ZTMutex mutex;
  std::set<FileKey> keys ZT_GUARDED_BY(mutex);
};
ResolvedMarks& resolvedMarks() {
  static auto* marks = new ResolvedMarks;
  return *marks;
}
bool isMarkedResolved(const FileKey& key) {
  auto& marks = resolvedMarks();
  ZTLockGuard lock(marks.mutex);
  return marks.keys.count(key) != 0;
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}
std::string lastComponent(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

ZTDate dateOf(const struct timespec& time) {
  return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(time.tv_sec) +
                                               static_cast<double>(time.tv_nsec) / 1e9);
}

std::int64_t nanoseconds(const struct timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

}  // namespace

struct ZTFileVersion::Impl {
  static std::shared_ptr<ZTFileVersion> make(const std::string& path, std::string documentName,
                                             std::optional<ZTConflictCopyName> conflict, const struct stat* info) {
    std::shared_ptr<ZTFileVersion> version(new ZTFileVersion);
    version->url_ = ZTFileURL::fileURLWithPath(path);
    version->localizedName_ = std::move(documentName);
    version->conflict_ = std::move(conflict);
    if (info) {
      version->modificationDate_ = dateOf(info->st_mtim);
      version->device_ = info->st_dev;
      version->inode_ = info->st_ino;
      version->changeNanoseconds_ = nanoseconds(info->st_ctim);
      version->identityKnown_ = true;
    }
    return version;
  }
  static FileKey key(const ZTFileVersion& version) {
    return {version.device_, version.inode_, version.changeNanoseconds_};
  }
};

std::optional<ZTConflictCopyName> ZTFileVersion::parseConflictCopyName(std::string_view itemName,
                                                                       std::string_view candidateName) {
  const NameParts item = splitName(itemName);
  if (item.stem.empty() || candidateName.size() <= itemName.size()) return std::nullopt;
  const std::size_t tail = item.extension.empty() ? 0 : item.extension.size() + 1;
  if (candidateName.substr(0, item.stem.size()) != item.stem) return std::nullopt;
  if (tail != 0 && (candidateName.substr(candidateName.size() - tail, 1) != "." ||
                    candidateName.substr(candidateName.size() - item.extension.size()) != item.extension))
    return std::nullopt;
  const std::string_view middleText = candidateName.substr(item.stem.size(), candidateName.size() - item.stem.size() - tail);
  // Every client's name says "conflict": other names sharing the stem skip the table.
  if (middleText.find("conflict") == std::string_view::npos) return std::nullopt;
  const std::string middle(middleText);
  for (const ClientPattern& pattern : clientPatterns()) {
    std::smatch match;
    if (!std::regex_match(middle, match, pattern.middle)) continue;
    const std::string time = pattern.timeGroup ? match[pattern.timeGroup].str() : std::string();
    const std::optional<ZTDate> date = dateFromName(match[pattern.dateGroup].str(), time, pattern.dateForm);
    if (!date) return std::nullopt;
    ZTConflictCopyName result;
    result.syncClient = pattern.client;
    if (pattern.deviceGroup && match[pattern.deviceGroup].matched && match[pattern.deviceGroup].length() > 0)
      result.deviceName = match[pattern.deviceGroup].str();
    result.nameDate = *date;
    return result;
  }
  return std::nullopt;
}

std::shared_ptr<ZTFileVersion> ZTFileVersion::currentVersionOfItemAtURL(const ZTFileURL& url) {
  if (!url.isFileURL() || url.path().empty() || url.path() == "/") return nullptr;
  struct stat info {};
  if (::lstat(url.path().c_str(), &info) != 0) return nullptr;
  return Impl::make(url.path(), lastComponent(url.path()), std::nullopt, &info);
}

std::vector<std::shared_ptr<ZTFileVersion>> ZTFileVersion::otherVersionsOfItemAtURL(const ZTFileURL& url) {
  std::vector<std::shared_ptr<ZTFileVersion>> versions;
  if (!url.isFileURL() || url.path().empty() || url.path() == "/") return versions;
  const std::string folder = parentOf(url.path());
  const std::string itemName = lastComponent(url.path());
  DIR* directory = ::opendir(folder.c_str());
  if (!directory) return versions;
  const int folderFd = ::dirfd(directory);
  // readdir ends after the folder's last entry: the loop is bounded by the folder's size.
  while (const struct dirent* entry = ::readdir(directory)) {
    const std::string_view name(entry->d_name);
    std::optional<ZTConflictCopyName> conflict = parseConflictCopyName(itemName, name);
    if (!conflict) continue;
    struct stat info {};
    if (::fstatat(folderFd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) continue;
    if (isMarkedResolved({info.st_dev, info.st_ino, nanoseconds(info.st_ctim)})) continue;
    versions.push_back(Impl::make(folder == "/" ? "/" + std::string(name) : folder + "/" + std::string(name),
                                  itemName, std::move(conflict), &info));
  }
  ::closedir(directory);
  std::sort(versions.begin(), versions.end(),
            [](const auto& a, const auto& b) { return a->URL().path() < b->URL().path(); });
  return versions;
}

std::vector<std::shared_ptr<ZTFileVersion>> ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(const ZTFileURL& url) {
  return otherVersionsOfItemAtURL(url);
}

bool ZTFileVersion::isResolved() const {
  if (!isConflict() || !identityKnown_) return false;
  return isMarkedResolved(Impl::key(*this));
}

void ZTFileVersion::setResolved(bool resolved) {
  if (!isConflict() || !identityKnown_) return;
  auto& marks = resolvedMarks();
  ZTLockGuard lock(marks.mutex);
  if (resolved)
    marks.keys.insert(Impl::key(*this));
  else
    marks.keys.erase(Impl::key(*this));
}

std::optional<std::string> ZTFileVersion::localizedNameOfSavingComputer() const {
  if (!conflict_) return std::nullopt;
  return conflict_->deviceName;
}

std::string ZTFileVersion::description() const {
  return "<ZTFileVersion: " + url_.path() + (isConflict() ? " conflict>" : ">");
}

namespace {

// Copies the file open at `source` (of `size` bytes) to `target`, both open descriptors.
bool copyContents(int source, int target) {
  bool useCopyRange = true;
  char buffer[1 << 16];
  // Each turn moves at least one byte or ends: bounded by the source's length.
  for (;;) {
    if (useCopyRange) {
      const ssize_t moved = ::copy_file_range(source, nullptr, target, nullptr, 1 << 30, 0);
      if (moved > 0) continue;
      if (moved == 0) return true;
      if (errno == EINTR) continue;
      if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP) {
        useCopyRange = false;
        continue;
      }
      return false;
    }
    const ssize_t got = ::read(source, buffer, sizeof buffer);
    if (got == 0) return true;
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    for (ssize_t written = 0; written < got;) {
      const ssize_t put = ::write(target, buffer + written, static_cast<std::size_t>(got - written));
      if (put < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      written += put;
    }
  }
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Writes the contents of `sourcePath` over `targetPath` through a hidden temporary file beside it.
bool replaceWholeFile(const std::string& sourcePath, const std::string& targetPath, ZTError* error) {
  Descriptor source(::open(sourcePath.c_str(), O_RDONLY | O_CLOEXEC));
  if (source.get() < 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, sourcePath, true));
    return false;
  }
  struct stat info {};
  if (::fstat(source.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(S_ISDIR(info.st_mode) ? EISDIR : errno, sourcePath, true));
    return false;
  }
  const std::string folder = parentOf(targetPath);
  std::string temporary = folder + "/." + lastComponent(targetPath) + ".zt-XXXXXX";
  Descriptor target(::mkostemp(temporary.data(), O_CLOEXEC));
  if (target.get() < 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, targetPath, false));
    return false;
  }
  int failure = 0;
  if (::fchmod(target.get(), info.st_mode & 07777) != 0 || !copyContents(source.get(), target.get()) ||
      ::fsync(target.get()) != 0 || ::rename(temporary.c_str(), targetPath.c_str()) != 0)
    failure = errno;
  if (failure != 0) {
    ::unlink(temporary.c_str());
    ZTSetError(error, ZTFileErrorWithPOSIXCode(failure, targetPath, false));
    return false;
  }
  Descriptor folderFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folderFd.get() >= 0) ::fsync(folderFd.get());
  return true;
}

}  // namespace

std::optional<ZTFileURL> ZTFileVersion::replaceItemAtURL(const ZTFileURL& url, std::uint64_t options, ZTError* error,
                                                         const std::shared_ptr<ZTFileCoordinator>& fileCoordinator) {
  (void)options;
  if (!url.isFileURL() || url.path().empty() || url.path() == "/") {
    ZTSetError(error, ZTError(ZTCocoaErrorDomain, ZTFileWriteInvalidFileNameError));
    return std::nullopt;
  }
  if (url.path() == url_.path()) return url;
  const auto coordinator = fileCoordinator ? fileCoordinator : ZTFileCoordinator::create();
  bool replaced = false;
  ZTError replaceError;
  ZTError claimError;
  const bool claimed = coordinator->coordinateReadingItemAtURL(
      url_.path(), 0, url.path(), ZTFileCoordinatorWritingForReplacing, &claimError,
      [&](const std::string& readPath, const std::string& writePath) {
        replaced = replaceWholeFile(readPath, writePath, &replaceError);
      });
  if (!claimed) {
    ZTSetError(error, claimError);
    return std::nullopt;
  }
  if (!replaced) {
    ZTSetError(error, replaceError);
    return std::nullopt;
  }
  return url;
}

bool ZTFileVersion::removeAndReturnError(ZTError* error) {
  if (!isConflict()) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(EPERM, url_.path(), false));
    return false;
  }
  return zt::moveItemToTrash(url_.path(), error).has_value();
}
