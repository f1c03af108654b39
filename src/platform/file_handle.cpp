#include "zentrel/platform/file_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>

#include "platform/internal/file_system.h"
#include "zentrel/platform/file_manager.h"

namespace {

// readDataToEndOfFile gives up beyond this, so that an endless source ends in an error.
constexpr std::size_t kMaximumReadToEnd = std::size_t{1} << 40;
constexpr std::size_t kReadChunk = 64 * 1024;

bool fail(ZTError* error, int errnoValue, const std::string& path, bool reading) {
  ZTSetError(error, ZTFileErrorWithPOSIXCode(errnoValue, path, reading));
  return false;
}

std::shared_ptr<ZTFileHandle> openHandle(std::string_view path, int flags, bool reading, ZTError* error,
                                         std::shared_ptr<ZTFileHandle> (*make)(int, std::string)) {
  const std::string text(path);
  if (text.empty() || text.find('\0') != std::string::npos) {
    fail(error, text.empty() ? ENOENT : EINVAL, text, reading);
    return nullptr;
  }
  int descriptor;
  do {
    descriptor = open(text.c_str(), flags | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    fail(error, errno, text, reading);
    return nullptr;
  }
  return make(descriptor, text);
}

}  // namespace

struct ZTFileHandleAccess {
  static std::shared_ptr<ZTFileHandle> make(int descriptor, bool closeOnDealloc, std::string path) {
    return std::shared_ptr<ZTFileHandle>(new ZTFileHandle(descriptor, closeOnDealloc, std::move(path)));
  }
  static std::shared_ptr<ZTFileHandle> owned(int descriptor, std::string path) {
    return make(descriptor, true, std::move(path));
  }
};

ZTFileHandle::ZTFileHandle(int fileDescriptor, bool closeOnDealloc, std::string path)
    : descriptor_(fileDescriptor), closeOnDealloc_(closeOnDealloc), path_(std::move(path)) {}

ZTFileHandle::~ZTFileHandle() {
  ZTLockGuard lock(mutex_);
  if (closeOnDealloc_ && descriptor_ >= 0) ::close(descriptor_);
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleForReadingAtPath(std::string_view path, ZTError* error) {
  return openHandle(path, O_RDONLY, true, error, &ZTFileHandleAccess::owned);
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleForWritingAtPath(std::string_view path, ZTError* error) {
  return openHandle(path, O_WRONLY, false, error, &ZTFileHandleAccess::owned);
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleForUpdatingAtPath(std::string_view path, ZTError* error) {
  return openHandle(path, O_RDWR, false, error, &ZTFileHandleAccess::owned);
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::create(int fileDescriptor, bool closeOnDealloc) {
  return ZTFileHandleAccess::make(fileDescriptor, closeOnDealloc, {});
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleWithStandardInput() {
  return ZTFileHandleAccess::make(STDIN_FILENO, false, {});
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleWithStandardOutput() {
  return ZTFileHandleAccess::make(STDOUT_FILENO, false, {});
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleWithStandardError() {
  return ZTFileHandleAccess::make(STDERR_FILENO, false, {});
}

std::shared_ptr<ZTFileHandle> ZTFileHandle::fileHandleWithNullDevice() {
  return openHandle("/dev/null", O_RDWR, true, nullptr, &ZTFileHandleAccess::owned);
}

int ZTFileHandle::fileDescriptor() const {
  ZTLockGuard lock(mutex_);
  return descriptor_;
}

namespace {
// Reads until `limit` bytes, the end, or a failure (then errno is in `failure`). The buffer starts at
// `expected` bytes, or one chunk, and doubles as data arrives, so a huge limit on a short source
// costs nothing. Memory that cannot be had fails with EFBIG.
std::optional<ZTBytes> readUpTo(int descriptor, std::size_t limit, std::size_t expected, int& failure) {
  ZTBytes data;
  try {
    data.resize(std::min(limit, expected ? expected : kReadChunk));
    std::size_t total = 0;
    while (total < limit) {  // each turn reads at least one byte, ends, or fails
      if (data.size() == total) data.resize(std::min(limit, std::max(kReadChunk, data.size() * 2)));
      const ssize_t count = ::read(descriptor, data.data() + total, data.size() - total);
      if (count < 0) {
        if (errno == EINTR) continue;
        failure = errno;
        return std::nullopt;
      }
      if (count == 0) break;
      total += static_cast<std::size_t>(count);
    }
    data.resize(total);
  } catch (const std::bad_alloc&) {
    failure = EFBIG;
    return std::nullopt;
  }
  return data;
}
}  // namespace

std::optional<ZTBytes> ZTFileHandle::readDataUpToLength(std::size_t length, ZTError* error) {
  ZTLockGuard lock(mutex_);
  int failure = descriptor_ < 0 ? EBADF : 0;
  std::optional<ZTBytes> data;
  if (!failure) data = readUpTo(descriptor_, length, 0, failure);
  if (failure) fail(error, failure, path_, true);
  return data;
}

std::optional<ZTBytes> ZTFileHandle::readDataToEndOfFile(ZTError* error) {
  ZTLockGuard lock(mutex_);
  int failure = descriptor_ < 0 ? EBADF : 0;
  std::optional<ZTBytes> data;
  if (!failure) {
    // A regular file says how much is left; one byte more lets the last read find the end.
    std::size_t expected = 0;
    struct stat info;
    if (fstat(descriptor_, &info) == 0 && S_ISREG(info.st_mode)) {
      const off_t offset = lseek(descriptor_, 0, SEEK_CUR);
      if (offset >= 0 && offset < info.st_size && static_cast<std::size_t>(info.st_size - offset) < kMaximumReadToEnd)
        expected = static_cast<std::size_t>(info.st_size - offset) + 1;
    }
    data = readUpTo(descriptor_, kMaximumReadToEnd + 1, expected, failure);
    if (data && data->size() > kMaximumReadToEnd) failure = EFBIG;  // a source that never ends
  }
  if (failure) {
    fail(error, failure, path_, true);
    return std::nullopt;
  }
  return data;
}

bool ZTFileHandle::writeData(std::span<const std::uint8_t> data, ZTError* error) {
  ZTLockGuard lock(mutex_);
  if (descriptor_ < 0) return fail(error, EBADF, path_, false);
  if (!zt::platform_internal::writeAll(descriptor_, data.data(), data.size())) return fail(error, errno, path_, false);
  return true;
}

bool ZTFileHandle::writeData(std::string_view data, ZTError* error) {
  return writeData(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()),
                   error);
}

std::optional<std::uint64_t> ZTFileHandle::offsetInFile(ZTError* error) {
  ZTLockGuard lock(mutex_);
  const off_t offset = descriptor_ < 0 ? (errno = EBADF, -1) : lseek(descriptor_, 0, SEEK_CUR);
  if (offset < 0) {
    fail(error, errno, path_, true);
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(offset);
}

bool ZTFileHandle::seekToOffset(std::uint64_t offset, ZTError* error) {
  ZTLockGuard lock(mutex_);
  if (descriptor_ < 0) return fail(error, EBADF, path_, true);
  if (offset > static_cast<std::uint64_t>(INT64_MAX)) return fail(error, EINVAL, path_, true);
  if (lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) < 0) return fail(error, errno, path_, true);
  return true;
}

std::optional<std::uint64_t> ZTFileHandle::seekToEndReturningOffset(ZTError* error) {
  ZTLockGuard lock(mutex_);
  const off_t offset = descriptor_ < 0 ? (errno = EBADF, -1) : lseek(descriptor_, 0, SEEK_END);
  if (offset < 0) {
    fail(error, errno, path_, true);
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(offset);
}

bool ZTFileHandle::truncateAtOffset(std::uint64_t offset, ZTError* error) {
  ZTLockGuard lock(mutex_);
  if (descriptor_ < 0) return fail(error, EBADF, path_, false);
  if (offset > static_cast<std::uint64_t>(INT64_MAX)) return fail(error, EINVAL, path_, false);
  if (ftruncate(descriptor_, static_cast<off_t>(offset)) != 0) return fail(error, errno, path_, false);
  if (lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) < 0) return fail(error, errno, path_, false);
  return true;
}

bool ZTFileHandle::synchronize(ZTError* error) {
  ZTLockGuard lock(mutex_);
  if (descriptor_ < 0) return fail(error, EBADF, path_, false);
  if (fsync(descriptor_) != 0 && errno != EINVAL && errno != EROFS) return fail(error, errno, path_, false);
  return true;
}

bool ZTFileHandle::close(ZTError* error) {
  ZTLockGuard lock(mutex_);
  if (descriptor_ < 0) return true;
  const int descriptor = descriptor_;
  descriptor_ = -1;
  // Linux releases the descriptor even when close reports an error: never retry.
  if (::close(descriptor) != 0 && errno != EINTR) return fail(error, errno, path_, false);
  return true;
}
