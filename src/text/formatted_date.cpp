#include "zentrel/text/formatted_date.h"

#include "zentrel/platform/localization.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/notification_center.h"
#include "zentrel/text/calendar.h"
#include "zentrel/text/locale.h"

namespace {

constexpr double kSecondsPerDay = 86400.0;

// The formatter and calendar every ZTFormattedDate uses. Made on first use, refreshed on locale
// changes, never destroyed (dates may be shown on other threads while the process exits).
struct SharedDateState {
  ZTMutex mutex;
  std::unique_ptr<ZTDateFormatter> formatter ZT_GUARDED_BY(mutex);
  std::unique_ptr<ZTCalendar> calendar ZT_GUARDED_BY(mutex);
  // Goes up each time the calendar is made again, so that dates know their cached day is stale.
  std::uint64_t generation ZT_GUARDED_BY(mutex) = 1;

  void remake() ZT_REQUIRES(mutex) {
    formatter = std::make_unique<ZTDateFormatter>(ZTDateFormatterStyle::Medium, ZTDateFormatterStyle::None);
    formatter->setLocaleIdentifier(ZTLocale::current().localeIdentifier());
    calendar = std::make_unique<ZTCalendar>(ZTCalendar::currentCalendar());
    ++generation;
  }
};

SharedDateState& sharedState() {
  static SharedDateState* const state = [] {
    auto* created = new SharedDateState;
    {
      ZTLockGuard<ZTMutex> guard(created->mutex);
      created->remake();
    }
    ZTNotificationCenter::defaultCenter()->addObserver(created, ZTCurrentLocaleDidChangeNotification, nullptr,
                                                       [](const ZTNotification&) {
                                                         try {
                                                           ZTFormattedDate::update();
                                                         } catch (const std::exception& e) {
                                                           ZTLog(std::string("ERROR: dates were not updated for the new locale: ") + e.what());
                                                         }
                                                       });
    return created;
  }();
  return *state;
}

}  // namespace

std::optional<ZTFormattedDate> ZTFormattedDate::create(const std::optional<ZTDate>& date) {
  if (!date) return std::nullopt;
  return ZTFormattedDate(ZTDate::dateWithTimeIntervalSince1970(date->timeIntervalSince1970()));
}

void ZTFormattedDate::update() {
  SharedDateState& state = sharedState();
  ZTLockGuard<ZTMutex> guard(state.mutex);
  state.remake();
}

void ZTFormattedDate::setDateFormatter(const std::shared_ptr<const ZTDateFormatter>& formatter) {
  if (!formatter) return;
  auto copy = std::make_unique<ZTDateFormatter>(*formatter);
  SharedDateState& state = sharedState();
  ZTLockGuard<ZTMutex> guard(state.mutex);
  state.formatter = std::move(copy);
}

bool ZTFormattedDate::isSameDay(ZTDate other) const {
  SharedDateState& state = sharedState();
  ZTLockGuard<ZTMutex> guard(state.mutex);
  if (cachedGeneration_ != state.generation) {
    const ZTDateComponents own = state.calendar->components(date());
    cachedEra_ = own.era;
    cachedYear_ = own.year;
    cachedMonth_ = own.month;
    cachedDay_ = own.day;
    cachedGeneration_ = state.generation;
  }
  if (cachedDay_ == 0) return false;  // beyond the calendar's range
  const ZTDateComponents theirs = state.calendar->components(other);
  return theirs.day != 0 && theirs.era == cachedEra_ && theirs.year == cachedYear_ && theirs.month == cachedMonth_ &&
         theirs.day == cachedDay_;
}

std::string ZTFormattedDate::formattedStringRepresentation() const { return formattedStringRepresentation(ZTDate::now()); }

std::string ZTFormattedDate::formattedStringRepresentation(ZTDate now) const {
  if (isSameDay(now)) return ZTLocalizedString("Today");
  if (isSameDay(now.dateByAddingTimeInterval(-kSecondsPerDay))) return ZTLocalizedString("Yesterday");
  SharedDateState& state = sharedState();
  ZTLockGuard<ZTMutex> guard(state.mutex);
  return state.formatter->stringFromDate(date());
}
