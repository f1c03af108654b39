// Formatters beside ICU called directly: numbers and lengths shown with
// icu::number::LocalizedNumberFormatter and read with icu::NumberFormat::parse, dates with
// icu::DateFormat. Every pair does the same work from UTF-8 in to UTF-8 out (the library's interface
// is UTF-8), so the ratio is the cost of the formatter layer: settings, suffix handling, unit
// matching, the shared date state's lock. Locales are pinned to en_US.
#include <benchmark/benchmark.h>
#include <unicode/datefmt.h>
#include <unicode/decimfmt.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/parsepos.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>

#include "zentrel/text/formatted_date.h"
#include "zentrel/text/length_formatter.h"
#include "zentrel/text/locale.h"
#include "zentrel/text/number_formatters.h"

namespace {

const icu::Locale kUS("en_US");

// Points: 1234.5 shown with one fraction digit and " pt".
void LibraryNumberFormat(benchmark::State& state) {
  ZTPointsNumberFormatter points;
  points.setLocaleIdentifier("en_US");
  double value = 1234.5;
  for (auto _ : state) {
    benchmark::DoNotOptimize(points.stringForObjectValue(value));
    value += 0.25;
  }
}
void ICUNumberFormat(benchmark::State& state) {
  const auto formatter = icu::number::NumberFormatter::withLocale(kUS)
                             .precision(icu::number::Precision::minMaxFraction(0, 1))
                             .grouping(UNUM_GROUPING_OFF);
  double value = 1234.5;
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    std::string out;
    formatter.formatDouble(value, status).toString(status).toUTF8String(out);
    out += " pt";
    benchmark::DoNotOptimize(out);
    value += 0.25;
  }
}

// Points: "1234.5 pt" read back.
void LibraryNumberParse(benchmark::State& state) {
  ZTPointsNumberFormatter points;
  points.setLocaleIdentifier("en_US");
  const std::string text = "1234.5 pt";
  ZTValue value;
  for (auto _ : state) {
    benchmark::DoNotOptimize(points.getObjectValue(&value, text));
  }
  if (value.doubleValue() != 1234.5) state.SkipWithError("wrong value");
}
void ICUNumberParse(benchmark::State& state) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::NumberFormat> format(icu::NumberFormat::createInstance(kUS, status));
  static_cast<icu::DecimalFormat*>(format.get())->setPositiveSuffix(u" pt");
  const std::string text = "1234.5 pt";
  icu::Formattable result;
  for (auto _ : state) {
    icu::ParsePosition position(0);
    format->parse(icu::UnicodeString::fromUTF8(text), result, position);
    benchmark::DoNotOptimize(result);
  }
}

// Lengths: 0.5 m shown in centimetres, "50 cm".
void LibraryLengthFormat(benchmark::State& state) {
  ZTLengthFormatter length;
  length.numberFormatter().setLocaleIdentifier("en_US");
  length.setUsesLocaleUnit(false);
  length.setUnit(ZTLengthFormatterUnit::Centimeter);
  double value = 0.5;
  for (auto _ : state) {
    benchmark::DoNotOptimize(length.stringForObjectValue(value));
    value += 0.001;
  }
}
void ICULengthFormat(benchmark::State& state) {
  const auto formatter = icu::number::NumberFormatter::withLocale(kUS)
                             .unit(icu::MeasureUnit::getCentimeter())
                             .unitWidth(UNUM_UNIT_WIDTH_SHORT)
                             .precision(icu::number::Precision::minMaxFraction(0, 3));
  double value = 0.5;
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    std::string out;
    formatter.formatDouble(value * 100, status).toString(status).toUTF8String(out);
    benchmark::DoNotOptimize(out);
    value += 0.001;
  }
}

// Lengths: "12 in" read back (the fifth unit tried); the peer reads the number alone.
void LibraryLengthParse(benchmark::State& state) {
  ZTLengthFormatter length;
  length.numberFormatter().setLocaleIdentifier("en_US");
  const std::string text = "12 in";
  ZTValue value;
  for (auto _ : state) {
    benchmark::DoNotOptimize(length.getObjectValue(&value, text));
  }
  if (value.doubleValue() < 0.3 || value.doubleValue() > 0.31) state.SkipWithError("wrong value");
}
void ICULengthParse(benchmark::State& state) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::NumberFormat> format(icu::NumberFormat::createInstance(kUS, status));
  const std::string text = "12 in";
  icu::Formattable result;
  for (auto _ : state) {
    icu::ParsePosition position(0);
    format->parse(icu::UnicodeString::fromUTF8(text), result, position);
    benchmark::DoNotOptimize(result);
  }
}

// Dates: a date five days back shown as the medium date.
const ZTDate kNow = ZTDate::dateWithTimeIntervalSince1970(1773151200.0);
void LibraryFormattedDate(benchmark::State& state) {
  ZTSetCurrentLocale(ZTLocale("en_US"));
  ZTFormattedDate::update();
  for (auto _ : state) {
    const ZTFormattedDate date(kNow.dateByAddingTimeInterval(-5 * 86400));
    benchmark::DoNotOptimize(date.formattedStringRepresentation(kNow));
  }
}
void ICUDateFormat(benchmark::State& state) {
  std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateInstance(icu::DateFormat::kMedium, kUS));
  const double milliseconds = (kNow.timeIntervalSince1970() - 5 * 86400) * 1000.0;
  for (auto _ : state) {
    icu::UnicodeString text;
    format->format(milliseconds, text);
    std::string out;
    text.toUTF8String(out);
    benchmark::DoNotOptimize(out);
  }
}

// The other fields, reported without a peer of their own (their ICU work is the number pair's).
void LibraryPixelsFormatAndParse(benchmark::State& state) {
  ZTPixelsNumberFormatter pixels;
  pixels.setLocaleIdentifier("en_US");
  ZTValue value;
  for (auto _ : state) {
    benchmark::DoNotOptimize(pixels.stringForObjectValue(640));
    benchmark::DoNotOptimize(pixels.getObjectValue(&value, "640"));
  }
}
void LibraryDigitsOnlyPartial(benchmark::State& state) {
  const ZTDigitsOnlyNumberFormatter digits;
  for (auto _ : state) benchmark::DoNotOptimize(digits.isPartialStringValid("0123456789"));
}

}  // namespace

BENCHMARK(LibraryNumberFormat);
BENCHMARK(ICUNumberFormat);
BENCHMARK(LibraryNumberParse);
BENCHMARK(ICUNumberParse);
BENCHMARK(LibraryLengthFormat);
BENCHMARK(ICULengthFormat);
BENCHMARK(LibraryLengthParse);
BENCHMARK(ICULengthParse);
BENCHMARK(LibraryFormattedDate);
BENCHMARK(ICUDateFormat);
BENCHMARK(LibraryPixelsFormatAndParse);
BENCHMARK(LibraryDigitsOnlyPartial);

BENCHMARK_MAIN();
