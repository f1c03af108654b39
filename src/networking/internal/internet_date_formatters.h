#pragma once
// The process's Internet-date formatters and the ways threads may share them. The library uses
// kDefaultSharing; the other ways stay so that the benchmark can measure them side by side.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/networking/internet_dates.h"

namespace zt::internal {

enum class DateFormatterSharing {
  Lock,            // one set of formatters for the process, one lock around every use
  ClonePerThread,  // each thread clones the set on first use and keeps it until it ends
  Pool,            // a thread borrows a cloned set from a pool and gives it back
};

inline constexpr DateFormatterSharing kDefaultSharing = DateFormatterSharing::Pool;

std::optional<ZTInternetDateMatch> parseInternetDate(std::string_view text, DateFormatterSharing sharing);
std::string rfc1123String(ZTDate date, DateFormatterSharing sharing);

// How many formatter sets the pool holds now (made and not dropped), for tests.
std::size_t pooledFormatterSetCount();

// The log form of an outside text: control characters and bytes that are not UTF-8 as "\xNN", cut
// after kZTInternetDateMaximumLength bytes with "…".
std::string printableText(std::string_view text);

}  // namespace zt::internal
