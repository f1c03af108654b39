#pragma once
// ZTFileDescriptor: the sole owner of an open file descriptor, which it closes when it goes away.
//
// Move-only, like std::unique_ptr: moving hands the descriptor over and leaves the source empty;
// release() gives it up without closing. An empty handle holds -1. Closing happens in the
// destructor and in reset(); a close that fails is not reported there (the descriptor is gone
// either way, as POSIX leaves it on Linux) — call close() to learn whether buffered data reached
// the file system.
//
// A handle is a plain value: one thread at a time, like any object without a lock.

#include "zentrel/platform/export.h"

class ZT_API ZTFileDescriptor {
 public:
  ZTFileDescriptor() noexcept = default;
  // Takes ownership of `descriptor` (-1 for none).
  explicit ZTFileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~ZTFileDescriptor();

  ZTFileDescriptor(ZTFileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  ZTFileDescriptor& operator=(ZTFileDescriptor&& other) noexcept;
  ZTFileDescriptor(const ZTFileDescriptor&) = delete;
  ZTFileDescriptor& operator=(const ZTFileDescriptor&) = delete;

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }

  // Gives up ownership without closing; the handle becomes empty.
  [[nodiscard]] int release() noexcept {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
  }
  // Closes the descriptor held, if any, and takes ownership of `descriptor`.
  void reset(int descriptor = -1) noexcept;
  // Closes now; false (errno set) when close() reported an error. The handle is empty afterwards.
  [[nodiscard]] bool close() noexcept;

 private:
  int descriptor_ = -1;
};
