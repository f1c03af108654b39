#pragma once
// Counting UTF-8 text in UTF-16 code units: the unit in which the library's string lengths,
// indexes and ranges are given (a character outside the Basic Multilingual Plane, such as most
// emoji, counts two).
//
// Invalid UTF-8 counts as U+FFFD (one unit) for each maximal ill-formed subsequence, the rule ICU
// and the Unicode standard recommend, so a count here matches the length of the text after ICU
// converted it. Thread-safe; no allocation.

#include <cstddef>
#include <string_view>

#include "zentrel/platform/export.h"

namespace zt {

ZT_API std::size_t utf16Length(std::string_view utf8) noexcept;

}  // namespace zt
