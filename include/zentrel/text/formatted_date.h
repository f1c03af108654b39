#pragma once
// ZTFormattedDate: a date that shows itself as a person would say it: "Today", "Yesterday", or
// the date in the current locale's medium style ("Jan 2, 2026", "02.01.2026").
//
// "Today" and "Yesterday" go through ZTLocalizedString (gettext, the English text as message id),
// so they come from the application's translations. Days are counted in one calendar shared by
// every ZTFormattedDate (the current calendar: current locale, default time zone), and dates are
// shown by one shared date formatter (medium date, no time). Both are made once, not per call,
// and made again when ZTCurrentLocaleDidChangeNotification is posted on the default notification
// centre (or update() is called); setDateFormatter() puts in a formatter of the application's
// choice, which stays until the next locale change.
//
// A plain value type; every member may be called from any thread: the shared calendar and
// formatter are used under one lock. A date's year, month and day are computed on first use and
// kept (until the shared calendar is made again).
//
// Bad input: a date beyond the calendar's range (NaN, infinities) is never "Today" or "Yesterday"
// and shows as the empty text.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"
#include "zentrel/text/date_formatter.h"

class ZT_API ZTFormattedDate {
 public:
  explicit ZTFormattedDate(double timeIntervalSinceReferenceDate) : seconds_(timeIntervalSinceReferenceDate) {}
  explicit ZTFormattedDate(ZTDate date) : seconds_(date.timeIntervalSinceReferenceDate()) {}
  // std::nullopt for no date.
  [[nodiscard]] static std::optional<ZTFormattedDate> create(const std::optional<ZTDate>& date);
  // Only the instant is copied, not the cached day.
  ZTFormattedDate(const ZTFormattedDate& other) : seconds_(other.seconds_) {}
  ZTFormattedDate& operator=(const ZTFormattedDate& other) {
    if (this != &other) {
      seconds_ = other.seconds_;
      cachedGeneration_ = 0;
    }
    return *this;
  }

  double timeIntervalSinceReferenceDate() const { return seconds_; }
  ZTDate date() const { return ZTDate(seconds_); }

  // Whether the other date falls on this date's day in the shared calendar.
  [[nodiscard]] bool isSameDay(ZTDate other) const;
  // "Today" when the date falls on the day of now, "Yesterday" on the day of now minus 86,400
  // seconds, else the shared formatter's text. The second form takes "now" from the caller.
  [[nodiscard]] std::string formattedStringRepresentation() const;
  [[nodiscard]] std::string formattedStringRepresentation(ZTDate now) const;

  // Makes the shared formatter (medium date, no time) and calendar again from the current locale
  // and time zone.
  static void update();
  // Replaces the shared formatter by a copy of the given one; nullptr is ignored.
  static void setDateFormatter(const std::shared_ptr<const ZTDateFormatter>& formatter);

  friend bool operator==(const ZTFormattedDate& a, const ZTFormattedDate& b) { return a.seconds_ == b.seconds_; }

 private:
  double seconds_;
  // The day in the shared calendar, valid when cachedGeneration_ is the calendar's generation;
  // read and written under the shared lock only.
  mutable std::uint64_t cachedGeneration_ = 0;
  mutable std::int32_t cachedEra_ = 0, cachedYear_ = 0, cachedMonth_ = 0, cachedDay_ = 0;
};
