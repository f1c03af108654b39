#include "filesystem/internal/xdg_dirs.h"

#include <errno.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "filesystem/internal/fs.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/log.h"

namespace zt::fs_internal {

namespace {

std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string absoluteFromEnvironment(const EnvironmentLookup& env, const char* name, const std::string& fallback) {
  const std::optional<std::string> value = env(name);
  if (value && !value->empty() && value->front() == '/') return withoutTrailingSlash(*value);
  return fallback;
}

// The contents of a regular file of at most 1 MiB (a user-dirs file is a few hundred bytes);
// empty for anything else, so a FIFO or a device in its place is never read.
std::string readSmallFile(const std::string& path) {
  struct stat st {};
  if (!usablePath(path) || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > (1 << 20)) return {};
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

}  // namespace

EnvironmentLookup processEnvironment() {
  return [](const char* name) -> std::optional<std::string> {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
  };
}

std::optional<std::string> userDatabaseHome() {
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  struct passwd entry {};
  struct passwd* result = nullptr;
  while (true) {
    const int status = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
    if (status == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (status != 0 || result == nullptr || entry.pw_dir == nullptr || entry.pw_dir[0] == '\0') return std::nullopt;
    return std::string(entry.pw_dir);
  }
}

std::string xdgDataHome(const std::string& home, const EnvironmentLookup& env) {
  return absoluteFromEnvironment(env, "XDG_DATA_HOME", stringByAppendingPathComponent(home, ".local/share"));
}

std::string xdgCacheHome(const std::string& home, const EnvironmentLookup& env) {
  return absoluteFromEnvironment(env, "XDG_CACHE_HOME", stringByAppendingPathComponent(home, ".cache"));
}

std::string xdgConfigHome(const std::string& home, const EnvironmentLookup& env) {
  return absoluteFromEnvironment(env, "XDG_CONFIG_HOME", stringByAppendingPathComponent(home, ".config"));
}

std::optional<std::string> userDirectoryFromUserDirsFile(std::string_view contents, std::string_view key,
                                                         const std::string& home) {
  std::optional<std::string> found;
  std::size_t start = 0;
  while (start < contents.size()) {
    std::size_t end = contents.find('\n', start);
    if (end == std::string_view::npos) end = contents.size();
    std::string_view line = contents.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.empty() || line.front() == '#') continue;
    if (line.substr(0, key.size()) != key || line.size() <= key.size() || line[key.size()] != '=') continue;
    std::string_view value = line.substr(key.size() + 1);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t' || value.back() == '\r'))
      value.remove_suffix(1);
    if (value.size() < 2 || value.front() != '"' || value.back() != '"') continue;
    value = value.substr(1, value.size() - 2);
    std::string unescaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (value[i] == '\\' && i + 1 < value.size()) ++i;
      unescaped.push_back(value[i]);
    }
    if (unescaped.rfind("$HOME", 0) == 0 && (unescaped.size() == 5 || unescaped[5] == '/')) {
      found = stringByAppendingPathComponent(home, unescaped.substr(5));
    } else if (!unescaped.empty() && unescaped.front() == '/') {
      found = withoutTrailingSlash(unescaped);
    }
    // A later line for the same key wins, as when the file is sourced by a shell.
  }
  return found;
}

std::string documentsDirectory(const std::string& home, const EnvironmentLookup& env) {
  const std::string file = stringByAppendingPathComponent(xdgConfigHome(home, env), "user-dirs.dirs");
  if (auto documents = userDirectoryFromUserDirsFile(readSmallFile(file), "XDG_DOCUMENTS_DIR", home)) return *documents;
  return stringByAppendingPathComponent(home, "Documents");
}

std::string applicationDirectory(const std::string& documents, const std::string& home) {
  const std::string folder = withoutTrailingSlash(documents);
  if (folder == withoutTrailingSlash(home)) return home;
  const std::string parent = stringByDeletingLastPathComponent(folder);
  return parent.empty() || parent == "/" ? home : parent;
}

std::optional<std::string> homeTrash(const std::string& home, const EnvironmentLookup& env) {
  const std::string trash = stringByAppendingPathComponent(xdgDataHome(home, env), "Trash");
  for (const char* folder : {"files", "info"}) {
    if (!createDirectories(stringByAppendingPathComponent(trash, folder), 0700)) return std::nullopt;
  }
  return trash;
}

std::string trashDirectory(const std::string& home, const EnvironmentLookup& env) {
  if (std::optional<std::string> found = homeTrash(home, env)) return *found;
  ZTLog(
      "Failed to get trash directory using NSSearchPathForDirectoriesInDomains(). Trying to generate path to trash...");
  return stringByAppendingPathComponent(home, ".Trash");
}

std::string applicationSupportDirectory(const std::string& dataHome, const std::string& executable,
                                        const std::function<std::string()>& temporaryFolder) {
  const std::string path = stringByAppendingPathComponent(dataHome, executable);
  bool folder = false;
  if (itemExists(path, folder)) {
    if (folder) return path;
    ZTLogf("*** WARNING %s directory is not a directory, fail", path.c_str());
    ZTLog("*** Returning NSTemporaryDirectory but this is FAIL-FAIL");
    return temporaryFolder();
  }
  if (!createDirectories(path)) {
    ZTLogf("*** Unable to create %s", path.c_str());
    ZTLog("*** Returning NSTemporaryDirectory but this is FAIL-FAIL");
    return temporaryFolder();
  }
  return path;
}

std::string executableName() {
  char buffer[4096];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  std::string name;
  if (length > 0) {
    name = lastPathComponent(std::string_view(buffer, static_cast<std::size_t>(length)));
    constexpr std::string_view kDeleted = " (deleted)";
    if (name.size() > kDeleted.size() && name.compare(name.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0) {
      name.resize(name.size() - kDeleted.size());
    }
  }
  if (name.empty() || name == "/") name = program_invocation_short_name;
  return name;
}

}  // namespace zt::fs_internal
