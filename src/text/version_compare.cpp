#include "zentrel/text/version_compare.h"

#include <array>
#include <cstdint>
#include <limits>

namespace zt {
namespace {

std::array<std::int64_t, 4> scanVersion(std::string_view version, std::string_view skipped) {
  std::array<std::int64_t, 4> parts{};
  std::size_t i = 0;
  for (auto& part : parts) {
    while (i < version.size() && (version[i] == '.' || skipped.find(version[i]) != std::string_view::npos)) ++i;
    std::size_t j = i;
    bool negative = false;
    if (j < version.size() && (version[j] == '+' || version[j] == '-')) {
      negative = version[j] == '-';
      ++j;
    }
    if (j >= version.size() || version[j] < '0' || version[j] > '9') break;
    std::int64_t value = 0;
    bool overflow = false;
    for (; j < version.size() && version[j] >= '0' && version[j] <= '9'; ++j) {
      const int digit = version[j] - '0';
      if (value > (std::numeric_limits<std::int64_t>::max() - digit) / 10) overflow = true;
      if (!overflow) value = value * 10 + digit;
    }
    if (overflow) {
      value = negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    } else if (negative) {
      value = -value;
    }
    part = value;
    i = j;
  }
  return parts;
}

}  // namespace

std::strong_ordering compareVersion(std::string_view version, std::string_view otherVersion,
                                    std::string_view additionalCharactersToBeSkipped) {
  const auto a = scanVersion(version, additionalCharactersToBeSkipped);
  const auto b = scanVersion(otherVersion, additionalCharactersToBeSkipped);
  for (std::size_t k = 0; k < a.size(); ++k) {
    if (a[k] != b[k]) return a[k] <=> b[k];
  }
  return std::strong_ordering::equal;
}

std::string twoNumberVersionFromVersion(std::string_view version) {
  if (version.empty()) return "0";
  const std::size_t firstDot = version.find('.');
  if (firstDot == std::string_view::npos) return std::string(version) + ".0";
  if (firstDot + 1 == version.size() || version[firstDot + 1] == '.') {
    return std::string(version.substr(0, firstDot)) + ".0";
  }
  const std::size_t secondDot = version.find('.', firstDot + 1);
  return std::string(version.substr(0, secondDot));
}

}  // namespace zt
