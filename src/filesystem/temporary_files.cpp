#include "zentrel/filesystem/temporary_files.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <vector>

#include "filesystem/internal/fs.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/uuid.h"

std::string ZTTempName(std::string_view directory, std::string_view suffix) {
  const std::string folder = directory.empty() ? ZTTemporaryDirectory() : std::string(directory);
  const std::string templatePath = zt::stringByAppendingPathComponent(folder, "XXXXXX" + std::string(suffix));
  std::vector<char> writable(templatePath.begin(), templatePath.end());
  writable.push_back('\0');
  // The descriptor is deliberately kept open: the name was reserved by this process.
  const bool usable = zt::fs_internal::usablePath(templatePath) && suffix.find('/') == std::string_view::npos;
  if (!usable || ::mkostemps(writable.data(), static_cast<int>(suffix.size()), O_CLOEXEC) == -1) {
    // The name was not created here, so nothing is deleted; the (possibly filled-in) template is
    // answered as it stands.
    ZTLogf("*** WARNING ZTTempName: can't create file at path %s", writable.data());
    return std::string(writable.data());
  }
  const std::string path(writable.data());
  ::unlink(path.c_str());
  return path;
}

std::string ZTTemporaryFilePathWithExtension(std::string_view extension) {
  std::string path = ZTTemporaryDirectoryAdd(ZTUUIDString());
  if (!extension.empty()) {
    path.push_back('.');
    path.append(extension);
  }
  return path;
}

std::optional<std::string> ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(
    const std::optional<std::string>& fileName, bool createDirectory) {
  if (!fileName) return std::nullopt;
  const std::string folder = ZTTemporaryDirectoryAdd(ZTUUIDString());
  if (createDirectory) zt::fs_internal::createDirectories(folder);
  return zt::stringByAppendingPathComponent(folder, *fileName);
}

std::optional<ZTFileURL> ZTURLToTemporaryUniqueDirectoryWithFileNamedInside(const std::optional<std::string>& fileName,
                                                                            bool createDirectory) {
  std::optional<std::string> path = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(fileName, createDirectory);
  if (!path) return std::nullopt;
  return ZTFileURL::fileURLWithPath(*path, false);
}
