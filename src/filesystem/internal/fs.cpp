#include "filesystem/internal/fs.h"

#include <sys/stat.h>

#include <cerrno>

namespace zt::fs_internal {

bool usablePath(std::string_view path) { return !path.empty() && path.find('\0') == std::string_view::npos; }

bool itemExists(std::string_view path) {
  if (!usablePath(path)) return false;
  struct stat st {};
  return ::lstat(std::string(path).c_str(), &st) == 0;
}

bool isDirectory(std::string_view path) {
  bool folder = false;
  return itemExists(path, folder) && folder;
}

bool itemExists(std::string_view path, bool& isFolder) {
  isFolder = false;
  if (!usablePath(path)) return false;
  struct stat st {};
  const std::string p(path);
  if (::stat(p.c_str(), &st) != 0) {
    return ::lstat(p.c_str(), &st) == 0;  // a dangling link is still an item
  }
  isFolder = S_ISDIR(st.st_mode);
  return true;
}

bool createDirectories(std::string_view path, unsigned mode) {
  if (!usablePath(path)) {
    errno = EINVAL;
    return false;
  }
  std::string p(path);
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  if (isDirectory(p)) return true;
  for (std::size_t i = 1; i <= p.size(); ++i) {
    if (i != p.size() && p[i] != '/') continue;
    const std::string prefix = p.substr(0, i);
    if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST) return false;
  }
  if (!isDirectory(p)) {
    errno = ENOTDIR;
    return false;
  }
  return true;
}

}  // namespace zt::fs_internal
