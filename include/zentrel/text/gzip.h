#pragma once
// gzip compression of bytes in memory (zlib, default level, 32 KiB window with gzip header and
// trailer, memory level 8, default strategy). The output is a complete single-member gzip file
// that any gzip reader decompresses.
//
// Stateless; may be called from any thread at once. Input of any size is accepted, including
// more than 4 GiB.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

namespace zt {

// The gzip-compressed bytes. Empty input is returned unchanged (empty, not an empty gzip file).
// nullopt, with a ZTCocoaErrorDomain error that carries zlib's message, when zlib cannot set up or
// run the compression (out of memory).
[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> gzipDeflate(std::span<const std::uint8_t> data,
                                                                        ZTError* error = nullptr);

}  // namespace zt
