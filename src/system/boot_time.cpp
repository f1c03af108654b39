#include "zentrel/system/boot_time.h"

#include <atomic>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace zt::system_internal {

std::optional<double> bootTimeFromStat(std::string_view procStat) {
  std::size_t start = 0;
  while (start < procStat.size()) {
    std::size_t end = procStat.find('\n', start);
    if (end == std::string_view::npos) end = procStat.size();
    std::string_view line = procStat.substr(start, end - start);
    start = end + 1;
    if (line.size() > 6 && line.substr(0, 6) == "btime ") {
      auto seconds = parseUnsigned(line.substr(6));
      if (!seconds || *seconds == 0) return std::nullopt;
      return static_cast<double>(*seconds);
    }
  }
  return std::nullopt;
}

}  // namespace zt::system_internal

namespace {
// Seconds since 1970, or a negative number until the first successful reading. Relaxed: every
// thread that reads the file computes the same value.
std::atomic<double> gBootTime{-1.0};
}  // namespace

std::optional<ZTDate> ZTGetBootDate() {
  double seconds = gBootTime.load(std::memory_order_relaxed);
  if (seconds < 0) {
    // /proc/stat grows with the number of CPUs: a few kilobytes per CPU.
    auto text = zt::system_internal::readTextFile("/proc/stat", 16u << 20);
    auto boot = text ? zt::system_internal::bootTimeFromStat(*text) : std::nullopt;
    if (!boot) return std::nullopt;
    seconds = *boot;
    gBootTime.store(seconds, std::memory_order_relaxed);
  }
  return ZTDate::dateWithTimeIntervalSince1970(seconds);
}

double ZTGetSystemUptime() {
  auto boot = ZTGetBootDate();
  return boot ? ZTDate::now().timeIntervalSinceDate(*boot) : 0.0;
}
