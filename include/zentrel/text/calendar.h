#pragma once
// ZTCalendar: a calendar in a locale and a time zone, which says on which day, in which month and
// year a date falls, and where a day begins. Backed by ICU's calendars, so the locale's calendar
// system applies ("th_TH" counts Buddhist years; "de_DE@calendar=gregorian" forces Gregorian).
//
// Value semantics: copies are independent. One thread at a time per value (a calendar keeps ICU
// state between calls); copies may go to other threads.
//
// Bad input: an unknown time-zone identifier gives ICU's "Etc/Unknown" zone, which runs on GMT; an unknown locale the root
// (Gregorian). Dates beyond what ICU's calendars hold (NaN, infinities, year ±5,000,000) give zero
// components and are their own start of day.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"
#include "zentrel/text/locale.h"

struct ZTDateComponents {
  std::int32_t era = 0;
  std::int32_t year = 0;
  std::int32_t month = 0;  // 1 to 12 (13 in calendars with a leap month)
  std::int32_t day = 0;    // day of the month, from 1
  std::int32_t hour = 0;
  std::int32_t minute = 0;
  std::int32_t second = 0;
  friend bool operator==(const ZTDateComponents&, const ZTDateComponents&) = default;
};

// A calendar in a locale and a time zone: day, month and year of a date, and where a day begins.
class ZT_API ZTCalendar {
 public:
  // The locale's calendar in the given zone (empty: the process's default time zone, from TZ or
  // /etc/localtime as ICU reads them).
  explicit ZTCalendar(const ZTLocale& locale, std::string_view timeZoneIdentifier = {});
  ZTCalendar(const ZTCalendar& other);
  ZTCalendar& operator=(const ZTCalendar& other);
  ZTCalendar(ZTCalendar&&) noexcept;
  ZTCalendar& operator=(ZTCalendar&&) noexcept;
  ~ZTCalendar();

  // The current locale's calendar in the default time zone, as they are now.
  [[nodiscard]] static ZTCalendar currentCalendar();

  // ICU's calendar type ("gregorian", "buddhist"...).
  std::string calendarIdentifier() const;
  const ZTLocale& locale() const { return locale_; }
  // Keeps the zone of the calendar.
  void setLocale(const ZTLocale& locale);
  std::string timeZoneIdentifier() const;
  void setTimeZoneIdentifier(std::string_view identifier);

  [[nodiscard]] ZTDateComponents components(ZTDate date) const;
  // The first moment of the day the date falls on (local midnight, or the first moment after a
  // daylight-saving jump that skips midnight).
  [[nodiscard]] ZTDate startOfDayForDate(ZTDate date) const;
  // Same era, year, month and day.
  [[nodiscard]] bool isDateInSameDayAsDate(ZTDate a, ZTDate b) const;

 private:
  struct Impl;
  ZTLocale locale_;
  std::unique_ptr<Impl> impl_;
};

namespace zt {
// The current calendar with the locale "<language>_<country>": the language the application's
// texts are shown in and the current locale's country. An application translated into German
// running in a Swiss region gets de_CH. The language is gettext's: the first entry of LANGUAGE when
// messages are localised, else the language of the LC_MESSAGES locale, else the current locale's
// ("en" in the C locale). Without a country, the locale is the language alone.
ZT_API ZTCalendar currentCalendarWithCurrentAppLocalization();
}  // namespace zt
