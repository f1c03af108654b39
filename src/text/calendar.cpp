#include "zentrel/text/calendar.h"

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "internal/unicode.h"

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

std::unique_ptr<icu::TimeZone> makeTimeZone(std::string_view identifier) {
  if (identifier.empty()) return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createDefault());
  return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(zt::internal::toUnicode(identifier)));
}

std::unique_ptr<icu::Calendar> makeCalendar(const ZTLocale& locale, std::unique_ptr<icu::TimeZone> zone) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Calendar> calendar(
      icu::Calendar::createInstance(zone.release(), icu::Locale(locale.localeIdentifier().c_str()), status));
  if (U_FAILURE(status) || !calendar) {
    status = U_ZERO_ERROR;
    calendar.reset(icu::Calendar::createInstance(icu::Locale::getRoot(), status));
  }
  return calendar;
}

// ICU's calendars hold about ±5,800,000 years around 1970.
bool inRange(ZTDate date) {
  const double seconds = date.timeIntervalSince1970();
  return std::isfinite(seconds) && std::fabs(seconds) < 1.8e14;
}

}  // namespace

struct ZTCalendar::Impl {
  std::unique_ptr<icu::Calendar> calendar;
};

ZTCalendar::ZTCalendar(const ZTLocale& locale, std::string_view timeZoneIdentifier)
    : locale_(locale), impl_(std::make_unique<Impl>()) {
  impl_->calendar = makeCalendar(locale_, makeTimeZone(timeZoneIdentifier));
}
ZTCalendar::ZTCalendar(const ZTCalendar& other) : locale_(other.locale_), impl_(std::make_unique<Impl>()) {
  impl_->calendar.reset(other.impl_->calendar->clone());
}
ZTCalendar& ZTCalendar::operator=(const ZTCalendar& other) {
  if (this != &other) *this = ZTCalendar(other);
  return *this;
}
ZTCalendar::ZTCalendar(ZTCalendar&&) noexcept = default;
ZTCalendar& ZTCalendar::operator=(ZTCalendar&&) noexcept = default;
ZTCalendar::~ZTCalendar() = default;

ZTCalendar ZTCalendar::currentCalendar() { return ZTCalendar(ZTLocale::current()); }

std::string ZTCalendar::calendarIdentifier() const { return impl_->calendar->getType(); }

void ZTCalendar::setLocale(const ZTLocale& locale) {
  locale_ = locale;
  impl_->calendar = makeCalendar(locale_, std::unique_ptr<icu::TimeZone>(impl_->calendar->getTimeZone().clone()));
}

std::string ZTCalendar::timeZoneIdentifier() const {
  icu::UnicodeString id;
  impl_->calendar->getTimeZone().getID(id);
  return zt::internal::toUTF8(id);
}

void ZTCalendar::setTimeZoneIdentifier(std::string_view identifier) {
  impl_->calendar->adoptTimeZone(makeTimeZone(identifier).release());
}

ZTDateComponents ZTCalendar::components(ZTDate date) const {
  if (!inRange(date)) return {};
  icu::Calendar& calendar = *impl_->calendar;
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(date.timeIntervalSince1970() * kMillisecondsPerSecond, status);
  ZTDateComponents components;
  components.era = calendar.get(UCAL_ERA, status);
  components.year = calendar.get(UCAL_YEAR, status);
  components.month = calendar.get(UCAL_MONTH, status) + 1;
  components.day = calendar.get(UCAL_DATE, status);
  components.hour = calendar.get(UCAL_HOUR_OF_DAY, status);
  components.minute = calendar.get(UCAL_MINUTE, status);
  components.second = calendar.get(UCAL_SECOND, status);
  if (U_FAILURE(status)) return {};
  return components;
}

ZTDate ZTCalendar::startOfDayForDate(ZTDate date) const {
  if (!inRange(date)) return date;
  icu::Calendar& calendar = *impl_->calendar;
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(date.timeIntervalSince1970() * kMillisecondsPerSecond, status);
  calendar.set(UCAL_HOUR_OF_DAY, 0);
  calendar.set(UCAL_MINUTE, 0);
  calendar.set(UCAL_SECOND, 0);
  calendar.set(UCAL_MILLISECOND, 0);
  // A lenient calendar moves a midnight that a daylight-saving jump skips to the first moment after it.
  const UDate start = calendar.getTime(status);
  if (U_FAILURE(status)) return date;
  return ZTDate::dateWithTimeIntervalSince1970(start / kMillisecondsPerSecond);
}

bool ZTCalendar::isDateInSameDayAsDate(ZTDate a, ZTDate b) const {
  if (!inRange(a) || !inRange(b)) return false;
  const ZTDateComponents x = components(a);
  const ZTDateComponents y = components(b);
  return x.era == y.era && x.year == y.year && x.month == y.month && x.day == y.day;
}

namespace zt {

namespace {

bool isPlainLocale(const char* name) {
  return !name || !*name || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0;
}

// The language the application's texts are shown in, as gettext picks it.
std::string applicationLanguage() {
  const char* messages = std::setlocale(LC_MESSAGES, nullptr);
  if (!isPlainLocale(messages)) {
    if (const char* language = std::getenv("LANGUAGE"); language && *language) {
      const std::string_view list(language);
      const std::string first(list.substr(0, list.find(':')));
      const icu::Locale locale = icu::Locale::createCanonical(first.c_str());
      if (*locale.getLanguage()) return locale.getLanguage();
    }
    const icu::Locale locale = icu::Locale::createCanonical(messages);
    // C.UTF-8 names no language.
    if (*locale.getLanguage() && std::strcmp(locale.getLanguage(), "c") != 0) return locale.getLanguage();
  }
  const std::string language = zt::languageCode(ZTLocale::current());
  return language.empty() ? "en" : language;
}

}  // namespace

ZTCalendar currentCalendarWithCurrentAppLocalization() {
  const std::string country = ZTLocale::current().countryCode();
  std::string identifier = applicationLanguage();
  if (!country.empty()) identifier += "_" + country;
  return ZTCalendar(ZTLocale(identifier));
}

}  // namespace zt
