#include "filesystem/internal/temporary_folder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <set>

#include "filesystem/internal/fs.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

namespace zt::fs_internal {

namespace {

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// Why an opened folder may not be used, or empty when it may.
std::string whyNotPrivate(int descriptor) {
  struct stat st {};
  if (::fstat(descriptor, &st) != 0) return "cannot be examined";
  if (!S_ISDIR(st.st_mode)) return "is not a folder";
  if (st.st_uid != ::geteuid()) return "belongs to uid " + std::to_string(st.st_uid);
  if ((st.st_mode & 077) != 0) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    return std::string("has mode ") + mode;
  }
  return {};
}

struct Opened {
  ZTFileDescriptor descriptor;
  std::string problem;  // empty when the folder is usable
  int error = 0;        // errno when it could not be opened at all
};

// Creates `path` (mode 0700) when missing, opens it without following a link and checks it.
Opened openChecked(const std::string& path) {
  Opened result;
  if (!usablePath(path)) {
    result.error = EINVAL;
    return result;
  }
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  result.descriptor.reset(::open(path.c_str(), kFlags));
  if (!result.descriptor && errno == ENOENT) {  // made on first use
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
      result.error = errno;
      return result;
    }
    result.descriptor.reset(::open(path.c_str(), kFlags));
  }
  if (!result.descriptor) {
    result.error = errno;
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) {
      result.problem = S_ISLNK(st.st_mode) ? "is a symbolic link" : "is not a folder";
    }
    return result;
  }
  result.problem = whyNotPrivate(result.descriptor.get());
  if (!result.problem.empty()) result.descriptor.reset();
  return result;
}

struct State {
  ZTMutex mutex;
  std::set<std::string> reported ZT_GUARDED_BY(mutex);        // refused folders already logged
  std::map<std::string, std::string> fallbacks ZT_GUARDED_BY(mutex);  // base -> folder made by mkdtemp
};

State& state() {
  static State* const shared = new State;  // never destroyed: used until the process ends
  return *shared;
}

void reportOnce(const std::string& refused, const std::string& problem, const std::string& used) {
  State& s = state();
  {
    ZTLockGuard lock(s.mutex);
    if (!s.reported.insert(refused).second) return;
  }
  ZTLogf("ERROR: the temporary folder %s %s, so it is not private to this user; using %s instead", refused.c_str(),
         problem.c_str(), used.c_str());
}

std::string userFolderName() { return "zentrel-" + std::to_string(::geteuid()); }

}  // namespace

std::string temporaryBase(const EnvironmentLookup& env) {
  const std::optional<std::string> value = env("TMPDIR");
  if (value && !value->empty() && value->front() == '/' && usablePath(*value)) return withoutTrailingSlashes(*value);
  return "/tmp";
}

std::optional<OpenFolder> openPrivateTemporaryFolder(const EnvironmentLookup& env, ZTError* error) {
  const std::string base = temporaryBase(env);
  const std::string intended = base + "/" + userFolderName();
  Opened first = openChecked(intended);
  if (first.descriptor) return OpenFolder{intended, std::move(first.descriptor)};

  // Someone else's folder (or a link, a file) at the name: never used. A folder that merely could
  // not be made (read-only base) is no attack, but the fallbacks serve it as well.
  std::optional<OpenFolder> chosen;
  if (const std::optional<std::string> runtime = env("XDG_RUNTIME_DIR");
      runtime && !runtime->empty() && runtime->front() == '/') {
    const std::string path = withoutTrailingSlashes(*runtime) + "/zentrel";
    Opened opened = openChecked(path);
    if (opened.descriptor) chosen = OpenFolder{path, std::move(opened.descriptor)};
  }
  if (!chosen) {
    State& s = state();
    ZTLockGuard lock(s.mutex);
    auto it = s.fallbacks.find(base);
    if (it != s.fallbacks.end()) {
      Opened opened = openChecked(it->second);
      if (opened.descriptor) chosen = OpenFolder{it->second, std::move(opened.descriptor)};
    }
    if (!chosen) {
      std::string pattern = base + "/" + userFolderName() + "-XXXXXX";
      if (::mkdtemp(pattern.data()) != nullptr) {
        Opened opened = openChecked(pattern);
        if (opened.descriptor) {
          s.fallbacks[base] = pattern;
          chosen = OpenFolder{pattern, std::move(opened.descriptor)};
        }
      }
    }
  }
  if (!first.problem.empty()) reportOnce(intended, first.problem, chosen ? chosen->path : "nothing");
  if (!chosen) {
    ZTSetError(error, ZTError::posix(first.error != 0 ? first.error : EACCES, intended));
    return std::nullopt;
  }
  return chosen;
}

std::string privateTemporaryFolderPath(const EnvironmentLookup& env) {
  if (std::optional<OpenFolder> folder = openPrivateTemporaryFolder(env, nullptr)) return folder->path;
  return temporaryBase(env) + "/" + userFolderName();
}

bool isSingleName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

ZTFileDescriptor createUniqueFile(int folderDescriptor, std::string_view prefix, std::string_view suffix,
                                  std::string& name) {
  static constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  static std::atomic<std::uint64_t> fallbackCounter{0};
  std::string candidate;
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned char random[6];
    if (::getrandom(random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
      // No entropy yet (early boot): a clock and a counter still make distinct names.
      std::uint64_t mix = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                          (fallbackCounter.fetch_add(1) * 0x9E3779B97F4A7C15ull);
      for (unsigned char& byte : random) {
        byte = static_cast<unsigned char>(mix);
        mix = (mix >> 8) | (mix << 56);
      }
    }
    candidate.assign(prefix);
    for (unsigned char byte : random) candidate.push_back(kLetters[byte % 62]);
    candidate.append(suffix);
    const int descriptor = ::openat(folderDescriptor, candidate.c_str(),
                                    O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
      name = std::move(candidate);
      return ZTFileDescriptor(descriptor);
    }
    if (errno != EEXIST) return {};
  }
  errno = EEXIST;
  return {};
}

}  // namespace zt::fs_internal
