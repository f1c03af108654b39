// Dates shown as "Today", "Yesterday" or the medium date, with "now" given by the test and the
// locale and time zone pinned.

#include "zentrel/text/formatted_date.h"

#include <gtest/gtest.h>

#include <unicode/timezone.h>

#include <atomic>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <vector>

#include <unistd.h>

#include "zentrel/platform/localization.h"
#include "zentrel/platform/notification_center.h"
#include "zentrel/text/calendar.h"
#include "zentrel/text/locale.h"

namespace {

// Pins the current locale and the default time zone for a test, and puts them back afterwards.
class FormattedDates : public ::testing::Test {
 protected:
  void SetUp() override {
    previousZone_.reset(icu::TimeZone::createDefault());
    icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("Europe/Berlin"));
    ZTSetCurrentLocale(ZTLocale("en_US"));
    ZTFormattedDate::update();
  }
  void TearDown() override {
    icu::TimeZone::adoptDefault(previousZone_.release());
    ZTSetCurrentLocale(previousLocale_);
    ZTFormattedDate::update();
  }

  // 2026-03-10 15:00 in Berlin (UTC+1).
  static ZTDate now() { return ZTDate::dateWithTimeIntervalSince1970(1773151200.0); }

  ZTLocale previousLocale_ = ZTLocale::current();
  std::unique_ptr<icu::TimeZone> previousZone_;
};

TEST_F(FormattedDates, TodayAndYesterdayAreCalendarDaysOfNow) {
  const ZTCalendar calendar = ZTCalendar::currentCalendar();
  const ZTDate midnight = calendar.startOfDayForDate(now());
  EXPECT_EQ(calendar.components(midnight), (ZTDateComponents{1, 2026, 3, 10, 0, 0, 0}));
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(1)).formattedStringRepresentation(now()), "Today");
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(86399)).formattedStringRepresentation(now()), "Today");
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(-1)).formattedStringRepresentation(now()), "Yesterday");
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(-86400)).formattedStringRepresentation(now()), "Yesterday");
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(-86401)).formattedStringRepresentation(now()), "Mar 8, 2026");
  EXPECT_EQ(ZTFormattedDate(midnight.dateByAddingTimeInterval(86400)).formattedStringRepresentation(now()), "Mar 11, 2026");
}

TEST_F(FormattedDates, YesterdayIsNowMinusADayOfSecondsAcrossTheDaylightSavingChange) {
  // 2026-03-30 00:30 in Berlin, summer time since the 29th at 02:00: now minus 86,400 s is
  // 2026-03-28 23:30, so the 28th is "Yesterday" and the 29th is neither.
  const ZTDate justAfterMidnight = ZTDate::dateWithTimeIntervalSince1970(1774823400.0);
  const ZTCalendar calendar = ZTCalendar::currentCalendar();
  ASSERT_EQ(calendar.components(justAfterMidnight).day, 30);
  const ZTDate on29th = justAfterMidnight.dateByAddingTimeInterval(-3600 * 12);
  const ZTDate on28th = justAfterMidnight.dateByAddingTimeInterval(-86400);
  ASSERT_EQ(calendar.components(on28th).day, 28);
  EXPECT_EQ(ZTFormattedDate(on28th).formattedStringRepresentation(justAfterMidnight), "Yesterday");
  EXPECT_EQ(ZTFormattedDate(on29th).formattedStringRepresentation(justAfterMidnight), "Mar 29, 2026");
}

TEST_F(FormattedDates, TheMediumDateFollowsALocaleChangeWithoutBeingAskedTo) {
  const ZTFormattedDate twoDaysBack(now().dateByAddingTimeInterval(-2 * 86400));
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "Mar 8, 2026");
  ZTSetCurrentLocale(ZTLocale("de_DE"));
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "08.03.2026");
  ZTSetCurrentLocale(ZTLocale("fr_FR"));
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "8 mars 2026");
}

TEST_F(FormattedDates, AnApplicationFormatterStaysUntilTheNextLocaleChange) {
  auto longDates = ZTDateFormatter::create(ZTDateFormatterStyle::Long, ZTDateFormatterStyle::None);
  longDates->setLocaleIdentifier("en_US");
  ZTFormattedDate::setDateFormatter(longDates);
  longDates->setDateStyle(ZTDateFormatterStyle::Short);  // the shared formatter is a copy
  const ZTFormattedDate twoDaysBack(now().dateByAddingTimeInterval(-2 * 86400));
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "March 8, 2026");
  ZTFormattedDate::setDateFormatter(nullptr);
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "March 8, 2026");
  ZTNotificationCenter::defaultCenter()->postNotificationName(ZTCurrentLocaleDidChangeNotification);
  EXPECT_EQ(twoDaysBack.formattedStringRepresentation(now()), "Mar 8, 2026");
}

TEST_F(FormattedDates, SameDayFollowsTheTimeZoneOfTheSharedCalendar) {
  // 23:30 UTC on the 9th is 00:30 on the 10th in Berlin.
  const ZTFormattedDate lateUTC(ZTDate::dateWithTimeIntervalSince1970(1773099000.0));
  EXPECT_TRUE(lateUTC.isSameDay(now()));
  icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("UTC"));
  ZTFormattedDate::update();
  EXPECT_FALSE(lateUTC.isSameDay(now())) << "the cached day must not outlive the calendar it came from";
  EXPECT_EQ(lateUTC.formattedStringRepresentation(now()), "Yesterday");
}

TEST_F(FormattedDates, DatesOutsideTheCalendarAreNeverTodayAndShowEmpty) {
  const ZTFormattedDate nan(std::nan(""));
  EXPECT_FALSE(nan.isSameDay(now()));
  EXPECT_FALSE(ZTFormattedDate(now()).isSameDay(ZTDate(INFINITY)));
  EXPECT_EQ(nan.formattedStringRepresentation(now()), "");
  EXPECT_EQ(ZTFormattedDate(1e300).formattedStringRepresentation(now()), "");
  EXPECT_EQ(ZTFormattedDate::create(std::nullopt), std::nullopt);
  EXPECT_EQ(ZTFormattedDate::create(now())->timeIntervalSinceReferenceDate(), now().timeIntervalSinceReferenceDate());
}

TEST_F(FormattedDates, ManyThreadsShowDatesWhileTheLocaleChanges) {
  std::atomic<bool> done{false};
  std::atomic<int> unexpected{0};
  std::vector<std::thread> readers;
  const ZTFormattedDate today(now());
  const ZTFormattedDate older(now().dateByAddingTimeInterval(-5 * 86400));
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      for (int n = 0; n < 2000 && !done; ++n) {
        const ZTFormattedDate copy = older;
        const std::string text = copy.formattedStringRepresentation(now());
        if (today.formattedStringRepresentation(now()) != "Today" ||
            (text != "Mar 5, 2026" && text != "05.03.2026")) {
          ++unexpected;
        }
      }
    });
  }
  for (int n = 0; n < 50; ++n) ZTSetCurrentLocale(ZTLocale(n % 2 ? "en_US" : "de_DE"));
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(unexpected.load(), 0);
}

// Writes a gettext catalogue (.mo) with the given translations.
void writeCatalogue(const std::filesystem::path& file, std::map<std::string, std::string> entries) {
  entries[""] = "Content-Type: text/plain; charset=UTF-8\n";
  auto put = [](std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  };
  const auto count = static_cast<std::uint32_t>(entries.size());
  const std::uint32_t data = 28 + 16 * count;
  std::string header, originals, translations, strings;
  for (const std::uint32_t field : {0x950412deu, 0u, count, 28u, 28 + 8 * count, 0u, data}) put(header, field);
  for (int pass = 0; pass < 2; ++pass) {
    for (const auto& [id, text] : entries) {
      const std::string& s = pass == 0 ? id : text;
      put(pass == 0 ? originals : translations, static_cast<std::uint32_t>(s.size()));
      put(pass == 0 ? originals : translations, data + static_cast<std::uint32_t>(strings.size()));
      strings += s;
      strings.push_back('\0');
    }
  }
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << header << originals << translations << strings;
}

TEST(FormattedDateTranslationDeathTest, TodayAndYesterdayComeFromTheApplicationsCatalogue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto folder = std::filesystem::temp_directory_path() / ("zt-formatted-date-" + std::to_string(::getpid()));
  writeCatalogue(folder / "de/LC_MESSAGES/zt-dates-test.mo", {{"Today", "Heute"}, {"Yesterday", "Gestern"}});
  EXPECT_EXIT(
      {
        ::setenv("LANGUAGE", "de", 1);
        std::setlocale(LC_ALL, "C.UTF-8");
        ZTSetLocalizationDomain("zt-dates-test", folder.string());
        const ZTDate now = ZTDate::now();
        const bool ok = ZTFormattedDate(now).formattedStringRepresentation(now) == "Heute" &&
                        ZTFormattedDate(now.dateByAddingTimeInterval(-86400)).formattedStringRepresentation(now) ==
                            "Gestern";
        std::fflush(nullptr);
        std::_Exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  std::filesystem::remove_all(folder);
}

}  // namespace
