#pragma once
// ZTFileHandle: an open file (or pipe, or terminal) to read, write, seek and synchronise, with every
// failure reported as a ZTError in ZTCocoaErrorDomain with the POSIX error underneath (see
// file_manager.h for the codes): a full disk is ZTFileWriteOutOfSpaceError (640, "No space left on
// device"), a handle already closed is ZTFileReadUnknownError / ZTFileWriteUnknownError with EBADF
// underneath. Nothing throws.
//
// Ownership: a handle opened by a path, and one made with closeOnDealloc, closes its descriptor
// when the last shared_ptr goes; close() closes it earlier. The standard-stream handles never
// close their descriptor.
//
// Threads: a handle may be shared between threads; its calls are serialised, so a read and a seek
// from two threads never see half of each other (the file offset is still one, shared). A call
// blocked on a pipe or terminal keeps the others waiting until it returns.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

class ZT_API ZTFileHandle {
 public:
  // Opens an existing file: for reading; for writing (not truncated, offset at 0); for both.
  // nullptr, with an error when asked, when it cannot be opened (missing: ZTFileReadNoSuchFileError
  // when reading, ZTFileNoSuchFileError when writing).
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleForReadingAtPath(std::string_view path,
                                                                                ZTError* error = nullptr);
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleForWritingAtPath(std::string_view path,
                                                                                ZTError* error = nullptr);
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleForUpdatingAtPath(std::string_view path,
                                                                                 ZTError* error = nullptr);
  // Wraps a descriptor the caller opened; with closeOnDealloc the handle takes ownership of it.
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> create(int fileDescriptor, bool closeOnDealloc);

  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleWithStandardInput();
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleWithStandardOutput();
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleWithStandardError();
  // Reads give no data, writes are discarded (/dev/null).
  [[nodiscard]] static std::shared_ptr<ZTFileHandle> fileHandleWithNullDevice();

  ~ZTFileHandle();
  ZTFileHandle(const ZTFileHandle&) = delete;
  ZTFileHandle& operator=(const ZTFileHandle&) = delete;

  // The descriptor, or -1 once closed. Still owned by the handle.
  int fileDescriptor() const;

  // Reads until `length` bytes or the end of the file (fewer bytes means the end was reached; empty
  // data at the end). nullopt with an error on a read failure.
  [[nodiscard]] std::optional<ZTBytes> readDataUpToLength(std::size_t length, ZTError* error = nullptr);
  // Reads everything from the current offset to the end. A source that never ends fails with
  // ZTFileReadTooLargeError once more than 1 TiB, or more than memory allows, has been read.
  [[nodiscard]] std::optional<ZTBytes> readDataToEndOfFile(ZTError* error = nullptr);

  // Writes all of the data at the current offset. On failure part of it may have been written.
  bool writeData(std::span<const std::uint8_t> data, ZTError* error = nullptr);
  bool writeData(std::string_view data, ZTError* error = nullptr);

  [[nodiscard]] std::optional<std::uint64_t> offsetInFile(ZTError* error = nullptr);
  bool seekToOffset(std::uint64_t offset, ZTError* error = nullptr);
  // Moves to the end and answers the offset there (the file's size for a regular file).
  [[nodiscard]] std::optional<std::uint64_t> seekToEndReturningOffset(ZTError* error = nullptr);
  // Cuts (or extends) the file to `offset` and moves there.
  bool truncateAtOffset(std::uint64_t offset, ZTError* error = nullptr);

  // Waits until what was written is on the storage device (fsync). A pipe or terminal, which has
  // nothing to flush, succeeds.
  bool synchronize(ZTError* error = nullptr);
  // Closes the descriptor now, even one not owned; later calls fail with EBADF underneath. Closing
  // twice succeeds.
  bool close(ZTError* error = nullptr);

 private:
  friend struct ZTFileHandleAccess;
  ZTFileHandle(int fileDescriptor, bool closeOnDealloc, std::string path);

  mutable ZTMutex mutex_;
  int descriptor_ ZT_GUARDED_BY(mutex_);
  bool closeOnDealloc_;
  const std::string path_;  // for error messages; empty when not opened by path
};
