#pragma once
// Which operating system release is running, for working around a distribution's known problems or
// telling a user what they run. The release comes from os-release(5) (/etc/os-release, else
// /usr/lib/os-release): VERSION_ID for the numbers, PRETTY_NAME for the readable text. The kernel's
// own version is a separate question, answered by the kernel functions below.
//
// Every function may be called from any thread, reads the file afresh and never throws. A missing,
// truncated or garbled file, or a release without a numeric VERSION_ID (a rolling distribution),
// gives the zero version.

#include <compare>
#include <cstdint>
#include <string>

#include "zentrel/platform/export.h"

// A version as major.minor.patch; missing components are 0.
struct ZTVersionTriple {
  std::int64_t majorVersion = 0;
  std::int64_t minorVersion = 0;
  std::int64_t patchVersion = 0;
  constexpr auto operator<=>(const ZTVersionTriple&) const = default;
};

// major + minor / 10^d, where d is the number of digits of minor as VERSION_ID writes it: "10.15"
// gives 10.15, "10.9" gives 10.9, "11.0" and "12" give 11.0 and 12.0, "22.04" gives 22.04.
// 0 when there is no numeric VERSION_ID.
[[nodiscard]] ZT_API float ZTGetSystemVersion();

// VERSION_ID's first three dot-separated numbers ("3.19.1" -> 3, 19, 1; "12" -> 12, 0, 0); each
// component is the run of digits it begins with. All zero when unavailable.
[[nodiscard]] ZT_API ZTVersionTriple ZTOperatingSystemVersion();

// The release as people read it: PRETTY_NAME ("Debian GNU/Linux 12 (bookworm)"), else
// "NAME VERSION", else NAME, else "Linux".
[[nodiscard]] ZT_API std::string ZTOperatingSystemVersionString();

// Whether the running release is at least major.minor.patch (compared component by component).
[[nodiscard]] ZT_API bool isOperatingSystemAtLeastVersionWithPatch(std::int64_t major, std::int64_t minor,
                                                                   std::int64_t patch);
// The same with patch 0.
[[nodiscard]] ZT_API bool isOperatingSystemAtLeastVersion(std::int64_t major, std::int64_t minor);
// Whether all three components equal the running release's.
[[nodiscard]] ZT_API bool isOperatingSystemVersionExactly(std::int64_t major, std::int64_t minor,
                                                          std::int64_t patch);

// The running kernel's release text as uname(2) gives it ("6.1.0-13-amd64"); "" when unavailable.
[[nodiscard]] ZT_API std::string ZTKernelVersionString();
// Its leading numbers ("6.1.0-13-amd64" -> 6, 1, 0); all zero when unavailable.
[[nodiscard]] ZT_API ZTVersionTriple ZTKernelVersion();
