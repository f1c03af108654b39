// Internet dates from arbitrary bytes: the seven-pattern reader, the ISO 8601 reader and, for every
// date read, the two writers. A date that was read is written back, and what the writers give reads
// again to the same second.
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "zentrel/networking/internet_dates.h"
#include "zentrel/platform/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ZTSetLogSink([](std::string_view) {});
  return 0;
}

namespace {

void requireSameSecond(ZTDate written, const std::optional<ZTDate>& read) {
  if (!read || std::fabs(read->timeIntervalSince1970() - std::floor(written.timeIntervalSince1970())) > 0.5) {
    std::abort();
  }
}

// Years 1 to 9999: the writers' four-digit years without an era read back as the same year.
constexpr double kFirstSecond = -62135596800.0;
constexpr double kLastSecond = 253402300799.0;

void writeAndReadBack(ZTDate date) {
  const double seconds = date.timeIntervalSince1970();
  if (!(seconds >= kFirstSecond && seconds <= kLastSecond)) return;
  const std::string rfc = zt::rfc1123String(date);
  if (!rfc.empty()) requireSameSecond(date, zt::dateFromRFC1123(rfc));
  const std::string iso = zt::ISO8601String(date);
  if (!iso.empty()) requireSameSecond(date, zt::dateFromISO8601String(iso));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto match = zt::parseInternetDate(text)) {
    if (match->format < 1 || match->format > 7) std::abort();
    writeAndReadBack(match->date);
  }
  if (const auto date = zt::dateFromRFC1123(text)) writeAndReadBack(*date);
  if (const auto date = zt::dateFromISO8601String(text)) writeAndReadBack(*date);
  return 0;
}
