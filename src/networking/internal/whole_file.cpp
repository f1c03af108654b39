#include "networking/internal/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "zentrel/filesystem/temporary_files.h"

namespace zt::networking_internal {
namespace {

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

bool writeAll(int fd, const std::uint8_t* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

void syncFolder(const std::string& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

// Fills a fresh temporary file beside path through fill(fd), then renames it over path.
template <class Fill>
bool replaceWhole(const std::string& path, Fill fill, ZTError* error) {
  if (path.empty()) {
    ZTSetError(error, ZTError::posix(ENOENT, path));
    return false;
  }
  const std::string folder = folderOf(path);
  ZTError creationError;
  auto temporary = ZTTempFile(folder, ".part", &creationError);
  if (!temporary) {
    ZTSetError(error, creationError);
    return false;
  }
  const int fd = temporary->descriptor.get();
  ::fchmod(fd, 0644);  // a document, readable as a downloaded file usually is
  int failure = 0;
  if (!fill(fd)) failure = errno ? errno : EIO;
  if (!failure && ::fsync(fd) != 0) failure = errno;
  temporary->descriptor.reset();
  if (!failure && ::rename(temporary->path.c_str(), path.c_str()) != 0) failure = errno;
  if (failure) {
    ::unlink(temporary->path.c_str());
    ZTSetError(error, ZTError::posix(failure, path));
    return false;
  }
  syncFolder(folder);
  return true;
}

}  // namespace

bool writeWholeFile(const std::string& path, std::span<const std::uint8_t> data, ZTError* error) {
  return replaceWhole(path, [&](int fd) { return writeAll(fd, data.data(), data.size()); }, error);
}

bool moveIntoPlaceWhole(const std::string& source, const std::string& destination, ZTError* error) {
  if (::rename(source.c_str(), destination.c_str()) == 0) {
    syncFolder(folderOf(destination));
    return true;
  }
  if (errno != EXDEV) {
    ZTSetError(error, ZTError::posix(errno, destination));
    return false;
  }
  const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    ZTSetError(error, ZTError::posix(errno, source));
    return false;
  }
  const bool ok = replaceWhole(
      destination,
      [&](int fd) {
        std::vector<std::uint8_t> buffer(1 << 16);
        for (;;) {  // bounded by the source file's size
          const ssize_t n = ::read(in, buffer.data(), buffer.size());
          if (n < 0 && errno == EINTR) continue;
          if (n < 0) return false;
          if (n == 0) return true;
          if (!writeAll(fd, buffer.data(), static_cast<std::size_t>(n))) return false;
        }
      },
      error);
  ::close(in);
  if (ok) ::unlink(source.c_str());
  return ok;
}

}  // namespace zt::networking_internal
