#include "zentrel/filesystem/temporary_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/temporary_folder.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/uuid.h"

namespace fsi = zt::fs_internal;

namespace {

// The folder files are created in: the private temporary folder for an empty directory, else the
// caller's folder (links followed: it is the caller's choice).
std::optional<fsi::OpenFolder> openFolder(std::string_view directory, ZTError* error) {
  if (directory.empty()) return fsi::openPrivateTemporaryFolder(fsi::processEnvironment(), error);
  std::string path(directory);
  if (!fsi::usablePath(path)) {
    ZTSetError(error, ZTError::posix(EINVAL, path));
    return std::nullopt;
  }
  ZTFileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor) {
    ZTSetError(error, ZTError::posix(errno, path));
    return std::nullopt;
  }
  return fsi::OpenFolder{std::move(path), std::move(descriptor)};
}

}  // namespace

std::optional<ZTTemporaryFile> ZTTempFile(std::string_view directory, std::string_view suffix, ZTError* error) {
  if (suffix.find('/') != std::string_view::npos || suffix.find('\0') != std::string_view::npos) {
    ZTSetError(error, ZTError::posix(EINVAL, std::string(suffix)));
    return std::nullopt;
  }
  std::optional<fsi::OpenFolder> folder = openFolder(directory, error);
  if (!folder) return std::nullopt;
  std::string name;
  ZTFileDescriptor descriptor = fsi::createUniqueFile(folder->descriptor.get(), "", suffix, name);
  if (!descriptor) {
    ZTSetError(error, ZTError::posix(errno, zt::stringByAppendingPathComponent(folder->path, "XXXXXX" + std::string(suffix))));
    return std::nullopt;
  }
  return ZTTemporaryFile{zt::stringByAppendingPathComponent(folder->path, name), std::move(descriptor)};
}

std::string ZTTempName(std::string_view directory, std::string_view suffix) {
  std::optional<ZTTemporaryFile> file = ZTTempFile(directory, suffix);
  if (!file) {
    const std::string folder = directory.empty() ? fsi::privateTemporaryFolderPath(fsi::processEnvironment())
                                                 : std::string(directory);
    const std::string templatePath = zt::stringByAppendingPathComponent(folder, "XXXXXX" + std::string(suffix));
    ZTLogf("*** WARNING ZTTempName: can't create file at path %s", templatePath.c_str());
    return templatePath;
  }
  ::unlink(file->path.c_str());
  // Kept open on purpose: the classic contract leaves the creation's descriptor to the process.
  [[maybe_unused]] const int kept = file->descriptor.release();
  return file->path;
}

std::string ZTTemporaryFilePathWithExtension(std::string_view extension) {
  std::string path = zt::stringByAppendingPathComponent(fsi::privateTemporaryFolderPath(fsi::processEnvironment()),
                                                        ZTUUIDString());
  if (!extension.empty()) {
    path.push_back('.');
    path.append(extension);
  }
  return path;
}

std::optional<std::string> ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(
    const std::optional<std::string>& fileName, bool createDirectory) {
  if (!fileName || (!fileName->empty() && !fsi::isSingleName(*fileName))) return std::nullopt;
  const std::string uuid = ZTUUIDString();
  std::string folder;
  if (std::optional<fsi::OpenFolder> temporary = fsi::openPrivateTemporaryFolder(fsi::processEnvironment(), nullptr)) {
    folder = zt::stringByAppendingPathComponent(temporary->path, uuid);
    if (createDirectory) ::mkdirat(temporary->descriptor.get(), uuid.c_str(), 0700);  // errors ignored
  } else {
    folder = zt::stringByAppendingPathComponent(fsi::privateTemporaryFolderPath(fsi::processEnvironment()), uuid);
  }
  return zt::stringByAppendingPathComponent(folder, *fileName);
}

std::optional<ZTFileURL> ZTURLToTemporaryUniqueDirectoryWithFileNamedInside(const std::optional<std::string>& fileName,
                                                                            bool createDirectory) {
  std::optional<std::string> path = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(fileName, createDirectory);
  if (!path) return std::nullopt;
  return ZTFileURL::fileURLWithPath(*path, false);
}
