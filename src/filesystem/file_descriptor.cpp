#include "zentrel/filesystem/file_descriptor.h"

#include <unistd.h>

ZTFileDescriptor::~ZTFileDescriptor() { reset(); }

ZTFileDescriptor& ZTFileDescriptor::operator=(ZTFileDescriptor&& other) noexcept {
  if (this != &other) reset(other.release());
  return *this;
}

void ZTFileDescriptor::reset(int descriptor) noexcept {
  if (descriptor_ >= 0 && descriptor_ != descriptor) ::close(descriptor_);
  descriptor_ = descriptor;
}

bool ZTFileDescriptor::close() noexcept {
  if (descriptor_ < 0) return true;
  // On Linux the descriptor is released even when close() fails (EINTR included): never retry.
  return ::close(release()) == 0;
}
