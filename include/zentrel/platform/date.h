#pragma once
// ZTDate: a point in time, counted in seconds (with fractions) from the reference date
// 2001-01-01 00:00:00 UTC. A plain value type: copy it freely, compare it, convert it to and from
// std::chrono::system_clock.

#include <chrono>
#include <compare>
#include <string>

#include "zentrel/platform/export.h"

class ZT_API ZTDate {
 public:
  using Interval = double;  // seconds
  // Seconds between the Unix epoch (1970-01-01 UTC) and the reference date.
  static constexpr Interval kTimeIntervalBetween1970AndReferenceDate = 978307200.0;

  constexpr ZTDate() = default;
  constexpr explicit ZTDate(Interval secondsSinceReferenceDate) : seconds_(secondsSinceReferenceDate) {}

  [[nodiscard]] static ZTDate now();
  [[nodiscard]] static constexpr ZTDate dateWithTimeIntervalSince1970(Interval seconds) {
    return ZTDate(seconds - kTimeIntervalBetween1970AndReferenceDate);
  }
  [[nodiscard]] static ZTDate fromSystemClock(std::chrono::system_clock::time_point time);
  // Far ahead of and far behind any real date (year 4001 and year 1 of the common era).
  [[nodiscard]] static constexpr ZTDate distantFuture() { return ZTDate(63113904000.0); }
  [[nodiscard]] static constexpr ZTDate distantPast() { return ZTDate(-63114076800.0); }

  constexpr Interval timeIntervalSinceReferenceDate() const { return seconds_; }
  constexpr Interval timeIntervalSince1970() const { return seconds_ + kTimeIntervalBetween1970AndReferenceDate; }
  constexpr Interval timeIntervalSinceDate(ZTDate other) const { return seconds_ - other.seconds_; }
  Interval timeIntervalSinceNow() const;
  constexpr ZTDate dateByAddingTimeInterval(Interval seconds) const { return ZTDate(seconds_ + seconds); }
  std::chrono::system_clock::time_point toSystemClock() const;

  // ISO 8601 in UTC with milliseconds, e.g. "2001-01-01T00:00:00.000Z".
  std::string description() const;

  constexpr auto operator<=>(const ZTDate&) const = default;

 private:
  Interval seconds_ = 0.0;
};
