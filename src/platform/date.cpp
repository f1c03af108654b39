#include "zentrel/platform/date.h"

#include <cmath>
#include <cstdio>
#include <ctime>

ZTDate ZTDate::now() { return fromSystemClock(std::chrono::system_clock::now()); }

ZTDate ZTDate::fromSystemClock(std::chrono::system_clock::time_point time) {
  const auto sinceEpoch = std::chrono::duration<double>(time.time_since_epoch()).count();
  return dateWithTimeIntervalSince1970(sinceEpoch);
}

ZTDate::Interval ZTDate::timeIntervalSinceNow() const { return timeIntervalSinceDate(now()); }

std::chrono::system_clock::time_point ZTDate::toSystemClock() const {
  using Clock = std::chrono::system_clock;
  // Dates the clock cannot hold (distantFuture() among them with a nanosecond clock) saturate.
  const double seconds = timeIntervalSince1970();
  const double limit = std::chrono::duration<double>(Clock::duration::max()).count() - 1.0;
  if (!(seconds < limit)) return std::isnan(seconds) ? Clock::time_point{} : Clock::time_point::max();
  if (!(seconds > -limit)) return Clock::time_point::min();
  const auto sinceEpoch = std::chrono::duration<double>(seconds);
  return std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(sinceEpoch));
}

std::string ZTDate::description() const {
  const double since1970 = timeIntervalSince1970();
  double whole = std::floor(since1970);
  int millis = static_cast<int>(std::lround((since1970 - whole) * 1000.0));
  if (millis == 1000) {
    whole += 1;
    millis = 0;
  }
  const std::time_t seconds = static_cast<std::time_t>(whole);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
  return text;
}
