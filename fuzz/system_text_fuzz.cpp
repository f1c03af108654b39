// The text parsers behind the system queries, fed arbitrary /proc, /sys, /etc and XDG file
// contents: meminfo, route tables, hardware addresses, os-release and machine-info assignments,
// GECOS fields, desktop entries, mimeapps.list, /proc/stat, /proc/<pid>/status, input devices.
#include <cstdlib>

#include "fuzz_input.h"
#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace si = zt::system_internal;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string key = zt_fuzz::text(input, 64);
  const std::string word = zt_fuzz::text(input, 64);
  const std::string text = input.ConsumeRemainingBytesAsString();

  (void)si::parseUnsigned(text);
  (void)si::meminfoBytes(text, key);
  (void)si::freeMemoryFromMeminfo(text);
  (void)si::otherMemoryFromMeminfo(text);
  (void)si::assignmentValue(text, key);
  (void)si::defaultRouteInterface(text);
  (void)si::defaultRouteInterfaceIPv6(text);
  (void)si::parseHardwareAddress(text);
  (void)si::fullNameFromGecos(text, key);
  (void)si::desktopEntryName(text, key);
  (void)si::parseReleaseVersion(text);
  (void)si::releaseDescription(text);
  (void)si::parseKernelRelease(text);
  (void)si::bootTimeFromStat(text);
  (void)si::parseInputDevices(text);
  (void)si::tracerPid(text);
  (void)si::defaultApplications(text, key);
  const std::string added = si::withDefaultApplication(text, key, word);
  (void)si::withoutDefaultApplication(added, key, word);
  return 0;
}
