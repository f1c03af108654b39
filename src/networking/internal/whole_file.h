#pragma once
// Files a user sees, written whole: a temporary file beside the destination (created exclusively,
// never through a link), filled, flushed to disk and renamed over the destination, then the folder
// flushed. On failure the temporary file is removed and the destination is as it was.

#include <cstdint>
#include <span>
#include <string>

#include "zentrel/platform/error.h"

namespace zt::networking_internal {

bool writeWholeFile(const std::string& path, std::span<const std::uint8_t> data, ZTError* error);
// Moves the file at source to destination the same way (copying when they are on different file
// systems); the source is removed on success.
bool moveIntoPlaceWhole(const std::string& source, const std::string& destination, ZTError* error);

}  // namespace zt::networking_internal
