#pragma once
// ZTNotFound: the index or count that means "no such element" throughout the library — the largest
// signed 64-bit value, so it survives a round trip through signed and unsigned 64-bit integers.

#include <cstddef>
#include <cstdint>
#include <limits>

inline constexpr std::size_t ZTNotFound = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max());
