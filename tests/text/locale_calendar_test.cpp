// Locales, the current-locale notification, emoji flags, language codes and calendars.

#include "zentrel/text/locale.h"

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "zentrel/platform/notification_center.h"
#include "zentrel/text/calendar.h"

namespace {

TEST(Locale, IdentifiersAreCanonicalAndSayTheirParts) {
  EXPECT_EQ(ZTLocale("de-ch").localeIdentifier(), "de_CH");
  EXPECT_EQ(ZTLocale("de_CH.UTF-8").localeIdentifier(), "de_CH");
  EXPECT_EQ(ZTLocale("sr_Latn_RS").scriptCode(), "Latn");
  EXPECT_EQ(ZTLocale("de_CH").countryCode(), "CH");
  EXPECT_EQ(zt::languageCode(ZTLocale("de_CH")), "de");
  EXPECT_EQ(zt::languageCode(ZTLocale()), "");
  EXPECT_EQ(ZTLocale("fr").countryCode(), "");
}

TEST(Locale, LanguageComparisonsAreExact) {
  const ZTLocale swiss("de_CH");
  EXPECT_TRUE(zt::isLanguageCodeEqualToLanguageCode(swiss, "de"));
  EXPECT_FALSE(zt::isLanguageCodeEqualToLanguageCode(swiss, "DE"));
  EXPECT_FALSE(zt::isLanguageCodeEqualToLanguageCode(swiss, ""));
  EXPECT_TRUE(zt::languageCodeContainsInSetOfLanguageCodes(swiss, std::unordered_set<std::string>{"fr", "de"}));
  EXPECT_FALSE(zt::languageCodeContainsInSetOfLanguageCodes(swiss, std::unordered_set<std::string>{"fr"}));
  EXPECT_FALSE(zt::languageCodeContainsInSetOfLanguageCodes(ZTLocale(), std::unordered_set<std::string>{}));
  const std::vector<std::string> list{"it", "de"};
  EXPECT_TRUE(zt::languageCodeContainsInSetOfLanguageCodes(swiss, list));
  EXPECT_FALSE(zt::languageCodeContainsInSetOfLanguageCodes(swiss, std::span<const std::string>{}));
}

TEST(Locale, CountryCodesAndFlags) {
  EXPECT_TRUE(zt::isValidISOCountryCode("US"));
  EXPECT_TRUE(zt::isValidISOCountryCode("CH"));
  for (const std::string_view code : std::initializer_list<std::string_view>{"us", "", "U", "USA", "XX", "U\xff", std::string_view("U\0", 2)}) {
    EXPECT_FALSE(zt::isValidISOCountryCode(code)) << code;
    EXPECT_EQ(zt::emojiFlagForISOCountryCode(code), std::nullopt) << code;
  }
  EXPECT_EQ(zt::emojiFlagForISOCountryCode("US"), "\U0001F1FA\U0001F1F8");
  EXPECT_EQ(zt::emojiFlagForISOCountryCode("DE"), "\U0001F1E9\U0001F1EA");
  EXPECT_EQ(zt::emojiFlagForISOCountryCode("AZ"), "\U0001F1E6\U0001F1FF");
}

TEST(Locale, ChangingTheCurrentLocaleTellsObservers) {
  const ZTLocale before = ZTLocale::current();
  std::atomic<int> told{0};
  std::string seen;
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      ZTCurrentLocaleDidChangeNotification, nullptr, nullptr, [&](const ZTNotification&) {
        ++told;
        seen = ZTLocale::current().localeIdentifier();
      });
  ZTSetCurrentLocale(ZTLocale("fr_CA"));
  EXPECT_EQ(told.load(), 1);
  EXPECT_EQ(seen, "fr_CA");
  EXPECT_EQ(ZTLocale::current().localeIdentifier(), "fr_CA");
  ZTNotificationCenter::defaultCenter()->removeObserver(observer);
  ZTSetCurrentLocale(before);
  EXPECT_EQ(told.load(), 1);
}

TEST(Calendar, DaysInTheCalendarAndZoneAsked) {
  const ZTDate instant = ZTDate::dateWithTimeIntervalSince1970(1773099000.0);  // 2026-03-09 23:30 UTC
  ZTCalendar berlin(ZTLocale("de_DE"), "Europe/Berlin");
  EXPECT_EQ(berlin.components(instant), (ZTDateComponents{1, 2026, 3, 10, 0, 30, 0}));
  EXPECT_EQ(berlin.timeZoneIdentifier(), "Europe/Berlin");
  EXPECT_EQ(berlin.calendarIdentifier(), "gregorian");
  ZTCalendar utc = berlin;
  utc.setTimeZoneIdentifier("UTC");
  EXPECT_EQ(utc.components(instant).day, 9);
  EXPECT_EQ(berlin.components(instant).day, 10) << "copies are independent";
  EXPECT_FALSE(utc.isDateInSameDayAsDate(instant, instant.dateByAddingTimeInterval(3600)));
  EXPECT_TRUE(berlin.isDateInSameDayAsDate(instant, instant.dateByAddingTimeInterval(3600)));
  EXPECT_EQ(berlin.startOfDayForDate(instant).timeIntervalSince1970(), 1773097200.0);

  const ZTCalendar thai(ZTLocale("th_TH"), "Asia/Bangkok");
  EXPECT_EQ(thai.calendarIdentifier(), "buddhist");
  EXPECT_EQ(thai.components(instant).year, 2569);
}

TEST(Calendar, BadInputFallsBackQuietly) {
  ZTCalendar calendar(ZTLocale("xx_invalid"), "Not/AZone");
  EXPECT_EQ(calendar.timeZoneIdentifier(), "Etc/Unknown");
  EXPECT_EQ(calendar.components(ZTDate::dateWithTimeIntervalSince1970(0)).year, 1970);
  EXPECT_EQ(calendar.components(ZTDate(std::nan(""))), ZTDateComponents{});
  EXPECT_EQ(calendar.components(ZTDate(1e300)), ZTDateComponents{});
  EXPECT_TRUE(std::isnan(calendar.startOfDayForDate(ZTDate(std::nan(""))).timeIntervalSinceReferenceDate()));
  EXPECT_FALSE(calendar.isDateInSameDayAsDate(ZTDate(INFINITY), ZTDate(INFINITY)));
}

TEST(CalendarDeathTest, TheApplicationsLanguageMeetsTheRegionsCountry) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("LANGUAGE", "de:en", 1);
        std::setlocale(LC_ALL, "C.UTF-8");
        ZTSetCurrentLocale(ZTLocale("fr_CH"));
        const bool swissGerman = zt::currentCalendarWithCurrentAppLocalization().locale().localeIdentifier() == "de_CH";
        ::unsetenv("LANGUAGE");
        std::setlocale(LC_ALL, "C");
        ZTSetCurrentLocale(ZTLocale("it"));
        const bool plain = zt::currentCalendarWithCurrentAppLocalization().locale().localeIdentifier() == "it";
        std::_Exit(swissGerman && plain ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
