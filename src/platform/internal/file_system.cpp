#include "platform/internal/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace zt::platform_internal {

namespace {

constexpr std::size_t kBufferSize = 128 * 1024;

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};

struct DescriptorCloser {
  int descriptor;
  ~DescriptorCloser() {
    if (descriptor >= 0) ::close(descriptor);
  }
};

ssize_t readSome(int descriptor, void* buffer, std::size_t length) {
  for (;;) {  // retried only on EINTR, which a signal handler ends
    const ssize_t count = ::read(descriptor, buffer, length);
    if (count >= 0 || errno != EINTR) return count;
  }
}

// Reads until `length` bytes or the end.
ssize_t readFully(int descriptor, char* buffer, std::size_t length) {
  std::size_t total = 0;
  while (total < length) {
    const ssize_t count = readSome(descriptor, buffer + total, length - total);
    if (count < 0) return -1;
    if (count == 0) break;
    total += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(total);
}

}  // namespace

bool readFolderNames(const std::string& folder, std::vector<std::string>& names) {
  names.clear();
  std::unique_ptr<DIR, FolderCloser> handle(opendir(folder.c_str()));
  if (!handle) return false;
  for (;;) {  // one entry per turn; the folder's size bounds it
    errno = 0;
    const dirent* entry = readdir(handle.get());
    if (!entry) {
      if (errno != 0) return false;
      break;
    }
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.emplace_back(entry->d_name);
  }
  return true;
}

bool readLink(const std::string& path, std::string& destination) {
  std::size_t size = 256;
  for (int attempt = 0; attempt < 8; ++attempt, size *= 4) {
    destination.resize(size);
    const ssize_t length = readlink(path.c_str(), destination.data(), size);
    if (length < 0) return false;
    if (static_cast<std::size_t>(length) < size) {
      destination.resize(static_cast<std::size_t>(length));
      return true;
    }
  }
  errno = ENAMETOOLONG;
  return false;
}

bool copyFileContents(int in, int out, int& failure, bool& failureReading) {
  bool kernelCopy = true;
  bool copiedAny = false;
  for (;;) {  // each turn moves at least one byte or ends at the end of the source
    if (kernelCopy) {
      const ssize_t copied = copy_file_range(in, nullptr, out, nullptr, 1u << 30, 0);
      if (copied > 0) {
        copiedAny = true;
        continue;
      }
      if (copied == 0 && copiedAny) return true;
      if (copied == 0) {
        // Some pseudo file systems answer 0 at once whatever they hold: let a read decide.
        kernelCopy = false;
        continue;
      }
      if (errno == EINTR) continue;
      if (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL || errno == EBADF ||
          errno == ETXTBSY || errno == EPERM) {
        kernelCopy = false;  // these file systems or descriptors refuse it: copy by hand
        continue;
      }
      failure = errno;
      // copy_file_range does not say which side failed; the space and size errors are the writer's.
      failureReading = errno == EIO;
      return false;
    }
    char buffer[kBufferSize];
    const ssize_t count = readSome(in, buffer, sizeof buffer);
    if (count == 0) return true;
    if (count < 0) {
      failure = errno;
      failureReading = true;
      return false;
    }
    if (!writeAll(out, buffer, static_cast<std::size_t>(count))) {
      failure = errno;
      failureReading = false;
      return false;
    }
  }
}

bool writeAll(int descriptor, const void* data, std::size_t length) {
  const char* bytes = static_cast<const char*>(data);
  while (length > 0) {  // each turn writes at least one byte or fails
    const ssize_t written = ::write(descriptor, bytes, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (written == 0) {
      errno = EIO;
      return false;
    }
    bytes += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

bool sameFileBytes(const std::string& a, const std::string& b) {
  DescriptorCloser first{open(a.c_str(), O_RDONLY | O_CLOEXEC)};
  DescriptorCloser second{open(b.c_str(), O_RDONLY | O_CLOEXEC)};
  if (first.descriptor < 0 || second.descriptor < 0) return false;
  auto bufferA = std::make_unique<char[]>(kBufferSize);
  auto bufferB = std::make_unique<char[]>(kBufferSize);
  for (;;) {  // each turn consumes a chunk of both files or ends
    const ssize_t countA = readFully(first.descriptor, bufferA.get(), kBufferSize);
    const ssize_t countB = readFully(second.descriptor, bufferB.get(), kBufferSize);
    if (countA < 0 || countB < 0 || countA != countB) return false;
    if (countA == 0) return true;
    if (std::memcmp(bufferA.get(), bufferB.get(), static_cast<std::size_t>(countA)) != 0) return false;
  }
}

void syncFolderOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  DescriptorCloser descriptor{open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (descriptor.descriptor >= 0) fsync(descriptor.descriptor);
}

}  // namespace zt::platform_internal
