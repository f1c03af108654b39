#include "zentrel/system/os_version.h"

#include <sys/utsname.h>

#include <cmath>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace zt::system_internal {

namespace {

// The run of digits at the front of text; its value (nullopt when there are none, or too many to
// be a version number) and how many digits it has.
std::optional<std::int64_t> leadingNumber(std::string_view text, std::size_t& digits) {
  digits = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  if (digits == 0 || digits > 9) return std::nullopt;
  std::int64_t value = 0;
  for (std::size_t i = 0; i < digits; ++i) value = value * 10 + (text[i] - '0');
  return value;
}

ZTVersionTriple parseTriple(std::string_view text, std::size_t* minorDigits) {
  ZTVersionTriple triple;
  std::int64_t* parts[] = {&triple.majorVersion, &triple.minorVersion, &triple.patchVersion};
  if (minorDigits) *minorDigits = 0;
  for (int i = 0; i < 3; ++i) {
    std::size_t digits = 0;
    auto number = leadingNumber(text, digits);
    if (!number) {
      if (i == 0) return {};
      break;
    }
    *parts[i] = *number;
    if (i == 1 && minorDigits) *minorDigits = digits;
    text = text.substr(digits);
    if (text.empty() || text[0] != '.') break;
    text = text.substr(1);
  }
  return triple;
}

}  // namespace

ReleaseVersion parseReleaseVersion(std::string_view versionID) {
  ReleaseVersion version;
  std::size_t minorDigits = 0;
  version.triple = parseTriple(trimmed(versionID), &minorDigits);
  double value = static_cast<double>(version.triple.majorVersion);
  if (minorDigits > 0) value += static_cast<double>(version.triple.minorVersion) / std::pow(10.0, minorDigits);
  version.value = static_cast<float>(value);
  return version;
}

std::optional<std::string> osReleaseTextAt(const std::string& root) {
  if (auto text = readTextFile(root + "/etc/os-release", 64u * 1024u)) return text;
  return readTextFile(root + "/usr/lib/os-release", 64u * 1024u);
}

ReleaseVersion releaseVersionAt(const std::string& root) {
  auto text = osReleaseTextAt(root);
  if (!text) return {};
  auto versionID = assignmentValue(*text, "VERSION_ID");
  return versionID ? parseReleaseVersion(*versionID) : ReleaseVersion{};
}

std::string releaseDescription(std::string_view osRelease) {
  if (auto pretty = assignmentValue(osRelease, "PRETTY_NAME"); pretty && !pretty->empty()) return *pretty;
  auto name = assignmentValue(osRelease, "NAME");
  auto version = assignmentValue(osRelease, "VERSION");
  if (name && !name->empty()) return version && !version->empty() ? *name + " " + *version : *name;
  return "Linux";
}

ZTVersionTriple parseKernelRelease(std::string_view release) { return parseTriple(trimmed(release), nullptr); }

}  // namespace zt::system_internal

float ZTGetSystemVersion() { return zt::system_internal::releaseVersionAt("").value; }

ZTVersionTriple ZTOperatingSystemVersion() { return zt::system_internal::releaseVersionAt("").triple; }

std::string ZTOperatingSystemVersionString() {
  auto text = zt::system_internal::osReleaseTextAt("");
  return zt::system_internal::releaseDescription(text ? *text : std::string_view());
}

bool isOperatingSystemAtLeastVersionWithPatch(std::int64_t major, std::int64_t minor, std::int64_t patch) {
  return ZTOperatingSystemVersion() >= ZTVersionTriple{major, minor, patch};
}

bool isOperatingSystemAtLeastVersion(std::int64_t major, std::int64_t minor) {
  return isOperatingSystemAtLeastVersionWithPatch(major, minor, 0);
}

bool isOperatingSystemVersionExactly(std::int64_t major, std::int64_t minor, std::int64_t patch) {
  return ZTOperatingSystemVersion() == ZTVersionTriple{major, minor, patch};
}

std::string ZTKernelVersionString() {
  struct utsname names;
  if (::uname(&names) != 0) return {};
  return names.release;
}

ZTVersionTriple ZTKernelVersion() { return zt::system_internal::parseKernelRelease(ZTKernelVersionString()); }
