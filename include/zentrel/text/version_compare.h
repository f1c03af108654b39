#pragma once
// Comparison of dotted version texts ("1.2", "10.4.11", "2.0b3") and their two-number form.
//
// Stateless; may be called from any thread. Any text is accepted: what cannot be read as a number
// ends the reading and counts as 0.

#include <compare>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

namespace zt {

// Reads up to four integers from each version, skipping "." and every character of
// `additionalCharactersToBeSkipped` before each one (an integer may carry a sign; one that does not
// fit in 64 bits is clamped). Reading stops at the first place where no integer follows; the
// missing parts are 0. The parts are compared in order and the first difference decides:
// less means the first version is the older one. "1.2" and "1.2.0" are equivalent; "1.10" is
// greater than "1.9".
ZT_API std::strong_ordering compareVersion(std::string_view version, std::string_view otherVersion,
                                           std::string_view additionalCharactersToBeSkipped = {});
inline std::strong_ordering compareToVersion(std::string_view version, std::string_view otherVersion,
                                             std::string_view additionalCharactersToBeSkipped = {}) {
  return compareVersion(version, otherVersion, additionalCharactersToBeSkipped);
}

// "major.minor" of a version: "" gives "0"; "3" gives "3.0"; "3." and "3..1" give "3.0"; "3.1.4"
// gives "3.1"; "3.1" stays "3.1".
ZT_API std::string twoNumberVersionFromVersion(std::string_view version);

}  // namespace zt
