#include "zentrel/filesystem/file_version.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <set>
#include <tuple>

#include <plist/plist.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/xdg_dirs.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/filesystem/trash.h"
#include "zentrel/platform/log.h"
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

// One row per sync client. `middle` (an ICU regular expression) matches what the client puts
// between the stem and the extension; the group numbers say where the device, the date and the
// time are (0: absent).
enum class DateForm { Compact, Dashed };  // "20240305" / "2024-03-05"
struct ClientPattern {
  const char* client;
  std::unique_ptr<icu::RegexPattern> middle;
  int deviceGroup;
  int dateGroup;
  int timeGroup;
  DateForm dateForm;
};

std::unique_ptr<icu::RegexPattern> compiled(const char* expression) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where{};
  std::unique_ptr<icu::RegexPattern> pattern(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(expression), where, status));
  return U_SUCCESS(status) ? std::move(pattern) : nullptr;
}

const std::vector<ClientPattern>& clientPatterns() {
  static const auto* patterns = [] {
    auto* table = new std::vector<ClientPattern>;
    table->push_back({"Syncthing", compiled(R"(^\.sync-conflict-([0-9]{8})-([0-9]{6})-([A-Za-z0-9]+)$)"), 3, 1, 2,
                      DateForm::Compact});
    table->push_back({"Nextcloud", compiled(R"(^ \(conflicted copy (?:(.+) )?([0-9]{4}-[0-9]{2}-[0-9]{2}) ([0-9]{6})\)$)"),
                      1, 2, 3, DateForm::Dashed});
    table->push_back({"Nextcloud", compiled(R"(^_conflict-([0-9]{8})-([0-9]{6})$)"), 0, 1, 2, DateForm::Compact});
    table->push_back({"Dropbox",
                      compiled(R"(^ \((.+)(?:'|\x{2019})s conflicted copy ([0-9]{4}-[0-9]{2}-[0-9]{2})\)(?: \([0-9]+\))?$)"),
                      1, 2, 0, DateForm::Dashed});
    return table;
  }();
  return *patterns;
}

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
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
  errno = 0;
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

bool copyContents(int source, int target);

// ---- the version store ----

constexpr const char* kStoreListName = "versions.plist";

struct StoredEntry {
  std::string file;
  double date = 0;  // seconds since the reference date
  std::optional<std::string> savingComputer;
  bool conflict = false;
  bool resolved = false;
};
struct StoredList {
  std::string item;
  std::vector<StoredEntry> entries;
};

std::string storeDirectory() {
  // XDG_DATA_HOME is read at each call; the home folder is asked of the user database once (the
  // lookup reads /etc/passwd, which would otherwise cost every listing).
  static const std::string home = ZTHomeDirectory();
  return zt::fs_internal::xdgDataHome(home, zt::fs_internal::processEnvironment()) + "/zentrel/versions";
}

std::string storeFolderFor(const std::string& itemPath) {
  std::uint64_t hash = 1469598103934665603ull;  // FNV-1a: stable across runs and builds
  for (const unsigned char c : itemPath) hash = (hash ^ c) * 1099511628211ull;
  char key[17];
  std::snprintf(key, sizeof key, "%016llx", static_cast<unsigned long long>(hash));
  return storeDirectory() + "/" + key;
}

std::optional<std::string> stringIn(plist_t dict, const char* key) {
  plist_t node = plist_dict_get_item(dict, key);
  if (!node || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  char* value = nullptr;
  plist_get_string_val(node, &value);
  if (!value) return std::nullopt;
  std::string result(value);
  std::free(value);
  return result;
}

// The store's list for a folder; empty when missing or unreadable.
StoredList readStoredList(const std::string& folder) {
  StoredList list;
  const std::string path = folder + "/" + kStoreListName;
  Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (fd.get() < 0) return list;
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > (16 << 20)) return list;
  std::string bytes(static_cast<std::size_t>(info.st_size), '\0');
  std::size_t got = 0;
  while (got < bytes.size()) {  // each turn reads at least one byte or ends
    const ssize_t n = ::read(fd.get(), bytes.data() + got, bytes.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<std::size_t>(n);
  }
  bytes.resize(got);
  plist_t root = nullptr;
  if (!bytes.empty()) plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  if (!root) return list;
  if (plist_get_node_type(root) == PLIST_DICT) {
    list.item = stringIn(root, "item").value_or("");
    plist_t versions = plist_dict_get_item(root, "versions");
    if (versions && plist_get_node_type(versions) == PLIST_ARRAY) {
      const std::uint32_t count = plist_array_get_size(versions);
      for (std::uint32_t i = 0; i < count; ++i) {
        plist_t item = plist_array_get_item(versions, i);
        if (!item || plist_get_node_type(item) != PLIST_DICT) continue;
        StoredEntry entry;
        const auto file = stringIn(item, "file");
        if (!file || file->empty() || file->find('/') != std::string::npos || *file == "." || *file == "..") continue;
        entry.file = *file;
        if (plist_t date = plist_dict_get_item(item, "date"); date && plist_get_node_type(date) == PLIST_REAL)
          plist_get_real_val(date, &entry.date);
        entry.savingComputer = stringIn(item, "savingComputer");
        std::uint8_t flag = 0;
        if (plist_t conflict = plist_dict_get_item(item, "conflict"); conflict && plist_get_node_type(conflict) == PLIST_BOOLEAN) {
          plist_get_bool_val(conflict, &flag);
          entry.conflict = flag != 0;
        }
        if (plist_t resolved = plist_dict_get_item(item, "resolved"); resolved && plist_get_node_type(resolved) == PLIST_BOOLEAN) {
          plist_get_bool_val(resolved, &flag);
          entry.resolved = flag != 0;
        }
        list.entries.push_back(std::move(entry));
      }
    }
  }
  plist_free(root);
  return list;
}

// Writes the list whole: a temporary file in the folder, flushed, renamed over the old list.
bool writeStoredList(const std::string& folder, const StoredList& list, ZTError* error) {
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "item", plist_new_string(list.item.c_str()));
  plist_t versions = plist_new_array();
  for (const StoredEntry& entry : list.entries) {
    plist_t item = plist_new_dict();
    plist_dict_set_item(item, "file", plist_new_string(entry.file.c_str()));
    plist_dict_set_item(item, "date", plist_new_real(entry.date));
    if (entry.savingComputer) plist_dict_set_item(item, "savingComputer", plist_new_string(entry.savingComputer->c_str()));
    plist_dict_set_item(item, "conflict", plist_new_bool(entry.conflict));
    plist_dict_set_item(item, "resolved", plist_new_bool(entry.resolved));
    plist_array_append_item(versions, item);
  }
  plist_dict_set_item(root, "versions", versions);
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root, &xml, &length);
  plist_free(root);
  const std::string path = folder + "/" + kStoreListName;
  if (!xml) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(ENOMEM, path, false));
    return false;
  }
  const std::string bytes(xml, length);
  plist_to_xml_free(xml);
  std::string temporary = folder + "/.versions.plist.XXXXXX";
  Descriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (fd.get() < 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, path, false));
    return false;
  }
  std::size_t written = 0;
  int failure = 0;
  while (written < bytes.size()) {  // each turn writes at least one byte or fails
    const ssize_t n = ::write(fd.get(), bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      failure = n < 0 ? errno : EIO;
      break;
    }
    written += static_cast<std::size_t>(n);
  }
  if (failure == 0 && (::fsync(fd.get()) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0)) failure = errno;
  if (failure != 0) {
    ::unlink(temporary.c_str());
    ZTSetError(error, ZTFileErrorWithPOSIXCode(failure, path, false));
    return false;
  }
  Descriptor folderFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folderFd.get() >= 0) ::fsync(folderFd.get());
  return true;
}

// Reads, changes and writes the item's list under a write claim on it, so that changes from this
// and other processes do not overwrite each other. `change` answers whether anything changed.
bool changeStoredList(const std::string& itemPath, const std::function<bool(StoredList&)>& change, ZTError* error) {
  const std::string folder = storeFolderFor(itemPath);
  if (!zt::fs_internal::createDirectories(folder, 0700)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno ? errno : EIO, folder, false));
    return false;
  }
  bool ok = false;
  ZTError failure;
  const bool claimed = ZTFileCoordinator::create()->coordinateWritingItemAtURL(
      folder + "/" + kStoreListName, ZTFileCoordinatorWritingForReplacing, &failure, [&](const std::string&) {
        StoredList list = readStoredList(folder);
        if (!list.item.empty() && list.item != itemPath) {
          failure = ZTFileErrorWithPOSIXCode(EEXIST, folder, false);  // another item's list: leave it alone
          return;
        }
        list.item = itemPath;
        ok = !change(list) || writeStoredList(folder, list, &failure);
      });
  if (!claimed || !ok) {
    ZTSetError(error, failure);
    return false;
  }
  return true;
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
  static std::shared_ptr<ZTFileVersion> makeStored(const std::string& folder, const std::string& itemPath,
                                                   const StoredEntry& entry) {
    const std::string path = folder + "/" + entry.file;
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return nullptr;
    std::shared_ptr<ZTFileVersion> version(new ZTFileVersion);
    version->url_ = ZTFileURL::fileURLWithPath(path);
    version->localizedName_ = lastComponent(itemPath);
    version->modificationDate_ = ZTDate(entry.date);
    version->device_ = info.st_dev;
    version->inode_ = info.st_ino;
    version->changeNanoseconds_ = nanoseconds(info.st_ctim);
    version->identityKnown_ = true;
    version->storeEntry_ = entry.file;
    version->storedItemPath_ = itemPath;
    version->storedSavingComputer_ = entry.savingComputer;
    version->storedConflict_ = entry.conflict;
    version->storedResolved_ = entry.resolved;
    return version;
  }
  static std::vector<std::shared_ptr<ZTFileVersion>> stored(const std::string& itemPath) {
    std::vector<std::shared_ptr<ZTFileVersion>> versions;
    const std::string folder = storeFolderFor(itemPath);
    const StoredList list = readStoredList(folder);
    if (list.item != itemPath) return versions;
    for (const StoredEntry& entry : list.entries) {
      if (entry.conflict && entry.resolved) continue;
      if (auto version = makeStored(folder, itemPath, entry)) versions.push_back(std::move(version));
    }
    return versions;
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
  const icu::UnicodeString middle =
      icu::UnicodeString::fromUTF8(icu::StringPiece(middleText.data(), static_cast<std::int32_t>(middleText.size())));
  for (const ClientPattern& pattern : clientPatterns()) {
    if (!pattern.middle) continue;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> match(pattern.middle->matcher(middle, status));
    if (U_FAILURE(status) || !match->matches(status) || U_FAILURE(status)) continue;
    const auto group = [&](int n) { return utf8(match->group(n, status)); };
    const std::string time = pattern.timeGroup ? group(pattern.timeGroup) : std::string();
    const std::optional<ZTDate> date = dateFromName(group(pattern.dateGroup), time, pattern.dateForm);
    if (!date || U_FAILURE(status)) return std::nullopt;
    ZTConflictCopyName result;
    result.syncClient = pattern.client;
    if (pattern.deviceGroup) {
      const std::string device = group(pattern.deviceGroup);
      if (!device.empty()) result.deviceName = device;
    }
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
  const int folderFd = directory ? ::dirfd(directory) : -1;
  // readdir ends after the folder's last entry: the loop is bounded by the folder's size.
  while (const struct dirent* entry = directory ? ::readdir(directory) : nullptr) {
    const std::string_view name(entry->d_name);
    std::optional<ZTConflictCopyName> conflict = parseConflictCopyName(itemName, name);
    if (!conflict) continue;
    struct stat info {};
    if (::fstatat(folderFd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) continue;
    if (isMarkedResolved({info.st_dev, info.st_ino, nanoseconds(info.st_ctim)})) continue;
    versions.push_back(Impl::make(folder == "/" ? "/" + std::string(name) : folder + "/" + std::string(name),
                                  itemName, std::move(conflict), &info));
  }
  if (directory) ::closedir(directory);
  std::sort(versions.begin(), versions.end(),
            [](const auto& a, const auto& b) { return a->URL().path() < b->URL().path(); });
  for (auto& version : Impl::stored(url.path())) versions.push_back(std::move(version));
  return versions;
}

std::vector<std::shared_ptr<ZTFileVersion>> ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(const ZTFileURL& url) {
  auto versions = otherVersionsOfItemAtURL(url);
  versions.erase(std::remove_if(versions.begin(), versions.end(), [](const auto& v) { return !v->isConflict(); }),
                 versions.end());
  return versions;
}

std::shared_ptr<ZTFileVersion> ZTFileVersion::addVersionOfItemAtURL(const ZTFileURL& url, const ZTFileURL& contentsURL,
                                                                    const std::optional<std::string>& savingComputerName,
                                                                    bool isConflict, ZTError* error) {
  if (!url.isFileURL() || url.path().empty() || url.path() == "/" || !contentsURL.isFileURL()) {
    ZTSetError(error, ZTError(ZTCocoaErrorDomain, ZTFileWriteInvalidFileNameError));
    return nullptr;
  }
  Descriptor source(::open(contentsURL.path().c_str(), O_RDONLY | O_CLOEXEC));
  struct stat info {};
  if (source.get() < 0 || ::fstat(source.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    const int code = source.get() < 0 ? errno : (S_ISDIR(info.st_mode) ? EISDIR : errno);
    ZTSetError(error, ZTFileErrorWithPOSIXCode(code, contentsURL.path(), true));
    return nullptr;
  }
  const std::string folder = storeFolderFor(url.path());
  if (!zt::fs_internal::createDirectories(folder, 0700)) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno ? errno : EIO, folder, false));
    return nullptr;
  }
  const std::string extension(splitName(lastComponent(url.path())).extension);
  const std::string suffix = extension.empty() ? std::string() : "." + extension;
  std::string copyPath = folder + "/version-XXXXXX" + suffix;
  Descriptor copy(::mkostemps(copyPath.data(), static_cast<int>(suffix.size()), O_CLOEXEC));
  if (copy.get() < 0) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(errno, folder, false));
    return nullptr;
  }
  // The copy is not listed until the property list names it, so a failure leaves nothing behind.
  if (!copyContents(source.get(), copy.get()) || ::fsync(copy.get()) != 0) {
    const int code = errno;
    ::unlink(copyPath.c_str());
    ZTSetError(error, ZTFileErrorWithPOSIXCode(code, copyPath, false));
    return nullptr;
  }
  StoredEntry entry;
  entry.file = lastComponent(copyPath);
  entry.date = dateOf(info.st_mtim).timeIntervalSinceReferenceDate();
  entry.savingComputer = savingComputerName;
  entry.conflict = isConflict;
  if (!changeStoredList(url.path(), [&](StoredList& list) { list.entries.push_back(entry); return true; }, error)) {
    ::unlink(copyPath.c_str());
    return nullptr;
  }
  return Impl::makeStored(folder, url.path(), entry);
}

std::string ZTFileVersion::versionStoreDirectory() { return storeDirectory(); }

bool ZTFileVersion::isResolved() const {
  if (isStored()) return storedConflict_ && storedResolved_.load();
  if (!isConflict() || !identityKnown_) return false;
  return isMarkedResolved(Impl::key(*this));
}

void ZTFileVersion::setResolved(bool resolved) {
  if (isStored()) {
    if (!storedConflict_) return;
    storedResolved_ = resolved;
    ZTError error;
    const std::string entryName = storeEntry_;
    const bool written = changeStoredList(storedItemPath_, [&](StoredList& list) {
      for (StoredEntry& entry : list.entries)
        if (entry.file == entryName) {
          if (entry.resolved == resolved) return false;
          entry.resolved = resolved;
          return true;
        }
      return false;
    }, &error);
    if (!written) ZTLogf("ERROR: could not record the resolved mark of %s: %s", url_.path().c_str(), error.description().c_str());
    return;
  }
  if (!isConflict() || !identityKnown_) return;
  auto& marks = resolvedMarks();
  ZTLockGuard lock(marks.mutex);
  if (resolved)
    marks.keys.insert(Impl::key(*this));
  else
    marks.keys.erase(Impl::key(*this));
}

std::optional<std::string> ZTFileVersion::localizedNameOfSavingComputer() const {
  if (isStored()) return storedSavingComputer_;
  if (!conflict_) return std::nullopt;
  return conflict_->deviceName;
}

std::string ZTFileVersion::description() const {
  return "<ZTFileVersion: " + url_.path() + (isStored() ? " stored" : "") + (isConflict() ? " conflict>" : ">");
}

namespace {

// Copies the rest of the file open at `source` to `target`.
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
  if (!isConflict() && !isStored()) {
    ZTSetError(error, ZTFileErrorWithPOSIXCode(EPERM, url_.path(), false));
    return false;
  }
  if (!zt::moveItemToTrash(url_.path(), error).has_value()) return false;
  if (!isStored()) return true;
  const std::string entryName = storeEntry_;
  // The copy is in the trash already; an entry left behind is skipped by listings (its copy is gone).
  if (!changeStoredList(storedItemPath_, [&](StoredList& list) {
        const auto before = list.entries.size();
        list.entries.erase(std::remove_if(list.entries.begin(), list.entries.end(),
                                          [&](const StoredEntry& e) { return e.file == entryName; }),
                           list.entries.end());
        return list.entries.size() != before;
      }, nullptr))
    ZTLogf("ERROR: could not remove %s from the version store's list", url_.path().c_str());
  return true;
}
