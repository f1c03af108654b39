#include "zentrel/filesystem/file_handle_copy.h"

#include <cerrno>
#include <cstdint>

#include "zentrel/platform/file_manager.h"

namespace {
constexpr std::size_t kChunk = 32768;
// A source that never ends (a device of zeros) stops here.
constexpr std::uint64_t kMaximumCopy = std::uint64_t{1} << 50;
}  // namespace

void ZTCopyDataFromFileHandleToFileHandle(ZTFileHandle& source, ZTFileHandle& destination, ZTError* error) {
  for (std::uint64_t copied = 0;; copied += kChunk) {
    if (copied >= kMaximumCopy) {
      ZTSetError(error, ZTFileErrorWithPOSIXCode(EFBIG, {}, true));
      return;
    }
    const auto chunk = source.readDataUpToLength(kChunk, error);
    if (!chunk) return;
    if (!chunk->empty() && !destination.writeData(*chunk, error)) return;
    if (chunk->size() < kChunk) return;
  }
}
