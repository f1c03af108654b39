#include "zentrel/networking/internet_dates.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "common/log_and_environment.h"
#include "networking/internal/internet_date_formatters.h"

namespace {

using zt::test::LogCapture;
using zt::test::ScopedEnvironment;

// 1994-11-06 08:49:37 UTC, the instant of RFC 7231's examples.
constexpr double kRFCExample1970 = 784111777.0;

double since1970(const std::optional<ZTDate>& date) { return date ? date->timeIntervalSince1970() : -1.0; }

TEST(InternetDates, TheThreeHTTPFormsReadTheSameInstant) {
  const auto fixdate = zt::parseInternetDate("Sun, 06 Nov 1994 08:49:37 GMT");
  const auto rfc850 = zt::parseInternetDate("Sunday, 06-Nov-94 08:49:37 GMT");
  const auto asctime = zt::parseInternetDate("Sun Nov  6 08:49:37 1994");
  ASSERT_TRUE(fixdate && rfc850 && asctime);
  EXPECT_EQ(fixdate->format, 1);
  EXPECT_EQ(rfc850->format, 3);
  EXPECT_EQ(asctime->format, 7);
  EXPECT_STREQ(asctime->pattern, "EEE MMM d HH':'mm':'ss yyyy");
  for (const auto& match : {fixdate, rfc850, asctime}) EXPECT_DOUBLE_EQ(match->date.timeIntervalSince1970(), kRFCExample1970);
  EXPECT_DOUBLE_EQ(since1970(zt::dateFromRFC1123("Sun Nov 16 08:49:37 1994")), kRFCExample1970 + 10 * 86400);
}

TEST(InternetDates, EachFormatIsTriedInOrderAndMustReadTheWholeText) {
  struct Case {
    const char* text;
    int format;
    double since1970;
  };
  const Case cases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", 1, kRFCExample1970},
      {"Sun, 06 Nov 1994 03:49:37 -0500 (EST)", 2, kRFCExample1970},
      // Formats 1 would read "+0000" alone; the parenthesised name makes it the second format's.
      {"Sun, 06 Nov 1994 08:49:37 +0000 (GMT)", 2, kRFCExample1970},
      {"Sunday, 06-Nov-94 08:49:37 GMT", 3, kRFCExample1970},
      {"2020-01-02T03:04:05Z", 4, 1577934245.0},
      {"2020-01-02T03:04:05.678+0100", 5, 1577930645.678},
      {"2020-01-02T03:04:05+0100", 6, 1577930645.0},
      {"Sun Nov  6 08:49:37 1994", 7, kRFCExample1970},
  };
  for (const auto& c : cases) {
    const auto match = zt::parseInternetDate(c.text);
    ASSERT_TRUE(match) << c.text;
    EXPECT_EQ(match->format, c.format) << c.text;
    EXPECT_NEAR(match->date.timeIntervalSince1970(), c.since1970, 1e-6) << c.text;
  }
}

TEST(InternetDates, WhatNoFormatReadsIsNilWithOneLogLine) {
  const std::string withNul("Sun, 06 Nov 1994 08:49:37 GMT\0garbage", 37);
  const std::string longText(100000, '1');
  const char* bad[] = {
      "",
      "yesterday",
      "Sun, 06 Nov 1994 08:49:37 GMT trailing",
      "Sun, 31 Feb 1994 08:49:37 GMT",          // no such day
      "Sun, 06 Nov 1994 25:49:37 GMT",          // no such hour
      "Sun, 06 Nov 1e300 08:49:37 GMT",
      "Sun, 06 Nov 99999999999999999999999 08:49:37 GMT",
      "2020-01-02T03:04:05.678",
      "Sun, 06 Nov 1994 08:49:37 GMT\xff",
      "\xc3\x28, 06 Nov 1994 08:49:37 GMT",
      "2020-13-02T03:04:05Z",
  };
  for (const char* text : bad) {
    LogCapture log;
    EXPECT_FALSE(zt::dateFromRFC1123(text)) << text;
    ASSERT_EQ(log.lines().size(), 1u) << text;
  }
  LogCapture log;
  EXPECT_FALSE(zt::dateFromRFC1123(withNul));
  EXPECT_FALSE(zt::dateFromRFC1123(longText));
  EXPECT_FALSE(zt::dateFromRFC1123(static_cast<const char*>(nullptr)));
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u) << "a null text is not logged";
  EXPECT_EQ(lines[0], "⚠️ Date parser returned NIL for date = Sun, 06 Nov 1994 08:49:37 GMT\\x00garbage");
  EXPECT_EQ(lines[1], "⚠️ Date parser returned NIL for date = " + std::string(256, '1') + "…");
}

TEST(InternetDates, WritersAlwaysSpeakGMTWhateverTheProcessLocaleAndZone) {
  ScopedEnvironment zone("TZ", "Pacific/Chatham");
  ScopedEnvironment lang("LANG", "de_DE.UTF-8");
  ScopedEnvironment all("LC_ALL", "de_DE.UTF-8");
  ::tzset();
  // ICU reads the environment once; make its default locale German for this test as well.
  const icu::Locale previous = icu::Locale::getDefault();
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(icu::Locale("de_DE"), status);
  const ZTDate date = ZTDate::dateWithTimeIntervalSince1970(kRFCExample1970 + 0.9);
  EXPECT_EQ(zt::rfc1123String(date), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_EQ(zt::ISO8601String(date), "1994-11-06T08:49:37Z");
  EXPECT_EQ(zt::ISO8601String(ZTDate(0)), "2001-01-01T00:00:00Z");
  EXPECT_EQ(zt::rfc1123String(ZTDate::distantFuture()), "Mon, 01 Jan 4001 00:00:00 GMT");
  // Round trips, and German month and day names are not read.
  EXPECT_DOUBLE_EQ(since1970(zt::dateFromRFC1123(zt::rfc1123String(date))), kRFCExample1970);
  EXPECT_DOUBLE_EQ(since1970(zt::dateFromISO8601String(zt::ISO8601String(date))), kRFCExample1970);
  LogCapture log;
  EXPECT_FALSE(zt::dateFromRFC1123("So, 06 Dez 1994 08:49:37 GMT"));
  icu::Locale::setDefault(previous, status);
  ::unsetenv("TZ");
  ::tzset();
}

TEST(InternetDates, DatesTheCalendarCannotHoldGiveEmptyTexts) {
  EXPECT_EQ(zt::rfc1123String(ZTDate(1e300)), "");
  EXPECT_EQ(zt::ISO8601String(ZTDate(-1e300)), "");
  EXPECT_EQ(zt::ISO8601String(ZTDate(std::numeric_limits<double>::quiet_NaN())), "");
  EXPECT_EQ(zt::rfc1123String(ZTDate(std::numeric_limits<double>::infinity())), "");
}

TEST(InternetDates, TheISOReaderTakesOffsetsButNoOtherFormat) {
  EXPECT_DOUBLE_EQ(since1970(zt::dateFromISO8601String("2020-01-02T03:04:05Z")), 1577934245.0);
  EXPECT_DOUBLE_EQ(since1970(zt::dateFromISO8601String("2020-01-02T04:04:05+01:00")), 1577934245.0);
  LogCapture log;
  EXPECT_FALSE(zt::dateFromISO8601String("Sun, 06 Nov 1994 08:49:37 GMT"));
  EXPECT_FALSE(zt::dateFromISO8601String(static_cast<const char*>(nullptr)));
  EXPECT_EQ(log.lines(), std::vector<std::string>{"failed to parse ISO8601String: Sun, 06 Nov 1994 08:49:37 GMT"});
}

// A fraction of 35 digits or more once stopped the process inside ICU (its 32-bit scale factor
// wraps to zero). Long digit runs, in ASCII or another script, are refused; nine fraction digits
// still read.
TEST(InternetDates, LongRunsOfDigitsAreRefusedWithoutReachingTheParser) {
  const std::string fraction(60, '9');
  LogCapture log;
  EXPECT_FALSE(zt::parseInternetDate("2020-01-02T03:04:05." + fraction + "+01:00"));
  EXPECT_FALSE(zt::dateFromRFC1123("2020-1-02T03:04:\f05." + fraction + "678+01:00"));
  EXPECT_FALSE(zt::dateFromISO8601String("2020-01-02T03:04:05." + fraction + "Z"));
  std::string fullwidth;
  for (int i = 0; i < 40; ++i) fullwidth += "\xEF\xBC\x99";  // U+FF19 FULLWIDTH DIGIT NINE
  EXPECT_FALSE(zt::parseInternetDate("2020-01-02T03:04:05." + fullwidth + "+01:00"));
  EXPECT_FALSE(zt::parseInternetDate("2020-01-02T03:04:05." + std::string(13, '1') + "+01:00"));
  const auto nanoseconds = zt::parseInternetDate("2020-01-02T03:04:05.123456789+01:00");
  EXPECT_EQ(nanoseconds ? nanoseconds->format : 0, 5);
}

// Every way of sharing the formatters gives the same answers from many threads at once (the
// thread sanitizer build checks that no formatter is used by two threads at once).
TEST(InternetDates, ThreadsReadAndWriteAtOnceWithEverySharing) {
  using zt::internal::DateFormatterSharing;
  for (auto sharing : {DateFormatterSharing::Lock, DateFormatterSharing::ClonePerThread, DateFormatterSharing::Pool}) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < 200; ++i) {
          const auto date = ZTDate::dateWithTimeIntervalSince1970(kRFCExample1970 + 86400.0 * (t * 1000 + i));
          const std::string text = zt::internal::rfc1123String(date, sharing);
          const auto back = zt::internal::parseInternetDate(text, sharing);
          const auto asctime = zt::internal::parseInternetDate("Sun Nov  6 08:49:37 1994", sharing);
          if (!back || back->date != date || !asctime || asctime->format != 7) ++wrong;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
  }
  EXPECT_GE(zt::internal::pooledFormatterSetCount(), 1u);
  EXPECT_LE(zt::internal::pooledFormatterSetCount(), 8u);
}

}  // namespace
