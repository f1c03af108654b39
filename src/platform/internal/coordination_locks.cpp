#include "platform/internal/coordination_locks.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"

namespace zt::internal {
namespace {

std::string joinComponents(const std::vector<std::string_view>& parts, std::size_t count) {
  if (count == 0) return "/";
  std::string out;
  for (std::size_t i = 0; i < count; ++i) {
    out += '/';
    out += parts[i];
  }
  return out;
}

std::optional<std::string> resolvedFolder(const std::string& folder) {
  char buffer[PATH_MAX];
  if (::realpath(folder.c_str(), buffer) == nullptr) return std::nullopt;
  return std::string(buffer);
}

std::uint64_t fnv1a(std::string_view text, std::uint64_t offsetBasis) {
  std::uint64_t hash = offsetBasis;
  for (const unsigned char c : text) {
    hash ^= c;
    hash *= 1099511628211ull;
  }
  return hash;
}

std::string absoluteEnvironmentPath(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] != '/') return {};
  std::string path(value);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

struct FolderCache {
  ZTMutex mutex;
  std::string path ZT_GUARDED_BY(mutex);
  int descriptor ZT_GUARDED_BY(mutex) = -1;
  std::set<std::string> refused ZT_GUARDED_BY(mutex);  // folders already logged as unusable
};

// Never destroyed: claims may run while the process exits. A function-local static, so that claims
// made by other libraries' static initialisers find it made.
FolderCache*& folderCacheSlot() {
  static FolderCache* cache = new FolderCache;
  return cache;
}

FolderCache& folderCache() { return *folderCacheSlot(); }

// Opens (making it when missing) a folder that only the effective user can use; -1 otherwise.
int openPrivateFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return -1;
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::geteuid() ||
      (info.st_mode & 077) != 0) {
    ::close(fd);
    errno = EPERM;
    return -1;
  }
  return fd;
}

off_t randomMark() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  return static_cast<off_t>(1 + generator() % (std::uint64_t{1} << 40));
}

}  // namespace

std::optional<std::string> claimPath(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return std::nullopt;
  std::string full;
  if (path.front() != '/') {
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof cwd) == nullptr) return std::nullopt;
    full = cwd;
    full += '/';
  }
  full += path;

  std::vector<std::string_view> parts;
  std::string_view rest(full);
  while (!rest.empty()) {
    const auto slash = rest.find('/');
    const std::string_view part = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  if (parts.empty()) return std::string("/");

  // Resolve links in the longest existing folder above the item; the rest is kept as written.
  const std::size_t folderCount = parts.size() - 1;
  for (std::size_t existing = folderCount + 1; existing-- > 0;) {
    const auto resolved = resolvedFolder(joinComponents(parts, existing));
    if (!resolved) continue;
    std::string out = *resolved;
    for (std::size_t i = existing; i < parts.size(); ++i) {
      if (out.size() > 1) out += '/';
      else if (out.empty()) out = "/";
      out += parts[i];
    }
    return out;
  }
  return joinComponents(parts, parts.size());
}

bool isSameOrInside(std::string_view outer, std::string_view inner) {
  if (inner.size() < outer.size() || inner.compare(0, outer.size(), outer) != 0) return false;
  if (inner.size() == outer.size()) return true;
  return outer == "/" || inner[outer.size()] == '/';
}

std::vector<std::string> foldersAbove(const std::string& path) {
  std::vector<std::string> folders;
  if (path == "/") return folders;
  folders.emplace_back("/");
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    folders.push_back(path.substr(0, slash));
  }
  return folders;
}

void LockMode::add(const LockMode& other) {
  exclusiveAll = exclusiveAll || other.exclusiveAll;
  sharedItem = sharedItem || other.sharedItem;
  sharedInner = sharedInner || other.sharedInner;
  if (other.exclusiveMark) {
    exclusiveMark = true;
    mark = other.mark;
  }
}

std::vector<LockRequest> lockRequestsFor(const std::vector<std::pair<std::string, bool>>& items) {
  std::map<std::string, LockMode> modes;  // std::string order is the global lock order
  const off_t mark = randomMark();
  for (const auto& [path, write] : items) {
    LockMode own;
    if (write) {
      own.exclusiveAll = true;
    } else {
      own.sharedItem = true;
      own.exclusiveMark = true;
      own.mark = mark;
    }
    modes[path].add(own);
    LockMode above;
    if (write) above.sharedInner = true;
    else above.sharedItem = true;
    for (const auto& folder : foldersAbove(path)) modes[folder].add(above);
  }
  std::vector<LockRequest> requests;
  requests.reserve(modes.size());
  for (auto& [path, mode] : modes) requests.push_back({path, mode});
  return requests;
}

std::string lockFolderPath() {
  const std::string runtime = absoluteEnvironmentPath("XDG_RUNTIME_DIR");
  if (!runtime.empty()) return runtime + "/zentrel-coordination";
  std::string base = absoluteEnvironmentPath("TMPDIR");
  if (base.empty()) base = "/tmp";
  return base + "/zentrel-coordination-" + std::to_string(::geteuid());
}

void resetLockFolderAfterFork() { folderCacheSlot() = new FolderCache; }

int lockFolderDescriptor() {
  const std::string path = lockFolderPath();
  FolderCache& cache = folderCache();
  ZTLockGuard lock(cache.mutex);
  if (cache.descriptor >= 0 && cache.path == path) return cache.descriptor;
  const int fd = openPrivateFolder(path);
  if (fd < 0) {
    if (cache.refused.insert(path).second) {
      ZTLogf("ERROR: file coordination with other processes is off: %s is not a private folder of this user (%s)",
             path.c_str(), std::strerror(errno));
    }
    return -1;
  }
  // A descriptor handed out before stays open: another thread may be using it right now.
  cache.path = path;
  cache.descriptor = fd;
  return fd;
}

std::string lockFileName(const std::string& claimPath) {
  char name[48];
  std::snprintf(name, sizeof name, "%016llx%016llx.lock",
                static_cast<unsigned long long>(fnv1a(claimPath, 14695981039346656037ull)),
                static_cast<unsigned long long>(fnv1a(claimPath, 0x9e3779b97f4a7c15ull)));
  return name;
}

HeldLocks::HeldLocks(HeldLocks&& other) noexcept : fds_(std::move(other.fds_)) { other.fds_.clear(); }

HeldLocks& HeldLocks::operator=(HeldLocks&& other) noexcept {
  if (this != &other) {
    release();
    fds_ = std::move(other.fds_);
    other.fds_.clear();
  }
  return *this;
}

HeldLocks::~HeldLocks() { release(); }

void HeldLocks::release() {
  for (const int fd : fds_) ::close(fd);
  fds_.clear();
}

HeldLocks::Step HeldLocks::tryAcquire(int folder, const std::vector<LockRequest>& requests, ZTError* error) {
  while (fds_.size() < requests.size()) {
    const LockRequest& request = requests[fds_.size()];
    const std::string name = lockFileName(request.path);
    const int fd = ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
      ZTSetError(error, ZTError::posix(errno, lockFolderPath() + "/" + name));
      return Step::Failed;
    }
    auto lockRange = [fd](short type, off_t start, off_t length) {
      struct flock range {};
      range.l_type = type;
      range.l_whence = SEEK_SET;
      range.l_start = start;
      range.l_len = length;  // 0: to the end of any file size
      int result;
      int attempts = 0;
      do {
        result = ::fcntl(fd, F_OFD_SETLK, &range);
      } while (result != 0 && errno == EINTR && ++attempts < 100);
      return result == 0;
    };
    const LockMode& mode = request.mode;
    bool ok = true;
    if (mode.exclusiveAll) {
      ok = lockRange(F_WRLCK, 0, 0);
    } else {
      if (ok && mode.sharedItem) ok = lockRange(F_RDLCK, 0, 1);
      if (ok && mode.sharedInner) ok = lockRange(F_RDLCK, 1, 0);
      if (ok && mode.exclusiveMark) ok = lockRange(F_WRLCK, mode.mark, 1);
    }
    if (!ok) {
      const int failure = errno;
      ::close(fd);  // drops whatever part of this file was taken
      if (failure == EAGAIN || failure == EACCES) return Step::WouldBlock;
      ZTSetError(error, ZTError::posix(failure, lockFolderPath() + "/" + name));
      return Step::Failed;
    }
    fds_.push_back(fd);
  }
  return Step::Done;
}

}  // namespace zt::internal
