#include "zentrel/filesystem/file_attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string>

#include "filesystem/internal/fs.h"
#include "zentrel/platform/log.h"

namespace {
constexpr const char* kBackupAttribute = "user.xdg.robots.backup";
constexpr std::string_view kExcluded = "false";
}  // namespace

std::optional<ZTDate> ZTUnixChangeDateForFile(std::string_view path) {
  if (!zt::fs_internal::usablePath(path)) return std::nullopt;
  struct stat st {};
  if (::stat(std::string(path).c_str(), &st) != 0) return std::nullopt;
  return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(st.st_ctim.tv_sec));
}

std::int64_t ZTSkipMobileBackupAttributeForFile(std::string_view path, bool skip) {
  if (path.empty()) {
    ZTLogf("file == nil in ZTSkipMobileBackupAttributeForFile, attribute = %d", skip ? 1 : 0);
    return -1;
  }
  if (!zt::fs_internal::usablePath(path)) return 0;
  const std::string p(path);
  if (skip) return ::setxattr(p.c_str(), kBackupAttribute, kExcluded.data(), kExcluded.size(), 0) == 0 ? 1 : 0;
  if (::removexattr(p.c_str(), kBackupAttribute) == 0) return 1;
  if (errno != ENODATA) return 0;
  // Nothing to remove: the item is included already, provided it exists and can hold attributes.
  return ::getxattr(p.c_str(), kBackupAttribute, nullptr, 0) >= 0 || errno == ENODATA ? 1 : 0;
}

bool ZTHasSkipMobileBackupAttributeForFile(std::string_view path) {
  if (!zt::fs_internal::usablePath(path)) return false;
  char value[16];
  const ssize_t length = ::getxattr(std::string(path).c_str(), kBackupAttribute, value, sizeof value);
  return length == static_cast<ssize_t>(kExcluded.size()) && std::string_view(value, kExcluded.size()) == kExcluded;
}
