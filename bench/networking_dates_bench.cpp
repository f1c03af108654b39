// Internet dates beside ICU called directly.
//
// - RFC 1123 text read by zt::dateFromRFC1123 against one icu::SimpleDateFormat::parse of the same
//   UTF-8 text with the same pattern, locale and zone (the peer converts to UTF-16 too, and owns its
//   formatter, so it pays no sharing at all). The ratio is the cost of the library's layer.
// - The asctime() form, which the library reaches only after six patterns failed, against one
//   direct parse with the asctime pattern: the worst case of the search order.
// - Throughput from one and two threads of each way to share the formatters between threads
//   (one lock, a clone per thread, a pool), and of the peer with a formatter per thread.
//
// Run: build/release/bench/zt_networking_dates_bench --benchmark_repetitions=5
//        --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <unicode/parsepos.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>
#include <thread>

#include "networking/internal/internet_date_formatters.h"
#include "zentrel/networking/internet_dates.h"

namespace {

const std::string kRFC1123Text = "Sun, 06 Nov 1994 08:49:37 GMT";
const std::string kAsctimeText = "Sun Nov  6 08:49:37 1994";

std::unique_ptr<icu::SimpleDateFormat> directFormatter(const char* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  auto formatter = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString(pattern, -1, US_INV),
                                                           icu::Locale("en_US"), status);
  formatter->adoptTimeZone(icu::TimeZone::createTimeZone("GMT"));
  formatter->setLenient(false);
  return formatter;
}

double directParse(icu::SimpleDateFormat& formatter, const std::string& text) {
  const auto unicode = icu::UnicodeString::fromUTF8(text);
  icu::ParsePosition position(0);
  const UDate millis = formatter.parse(unicode, position);
  return position.getIndex() == unicode.length() ? millis : -1.0;
}

void LibraryRFC1123(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(zt::dateFromRFC1123(kRFC1123Text));
  if (!zt::dateFromRFC1123(kRFC1123Text)) state.SkipWithError("not read");
}
void ICURFC1123(benchmark::State& state) {
  auto formatter = directFormatter("EEE',' dd MMM yyyy HH':'mm':'ss z");
  for (auto _ : state) benchmark::DoNotOptimize(directParse(*formatter, kRFC1123Text));
  if (directParse(*formatter, kRFC1123Text) < 0) state.SkipWithError("not read");
}

void LibraryAsctimeWorstCase(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(zt::dateFromRFC1123(kAsctimeText));
  if (!zt::dateFromRFC1123(kAsctimeText)) state.SkipWithError("not read");
}
void ICUAsctime(benchmark::State& state) {
  auto formatter = directFormatter("EEE MMM d HH':'mm':'ss yyyy");
  for (auto _ : state) benchmark::DoNotOptimize(directParse(*formatter, kAsctimeText));
  if (directParse(*formatter, kAsctimeText) < 0) state.SkipWithError("not read");
}

// A parse and a write per iteration, the mix of an HTTP cache checking and stamping dates.
template <zt::internal::DateFormatterSharing sharing>
void SharedFormatters(benchmark::State& state) {
  ZTDate date = ZTDate::dateWithTimeIntervalSince1970(784111777.0);
  for (auto _ : state) {
    const std::string text = zt::internal::rfc1123String(date, sharing);
    benchmark::DoNotOptimize(zt::internal::parseInternetDate(text, sharing));
    date = date.dateByAddingTimeInterval(1.0);
  }
  state.SetItemsProcessed(state.iterations());
}
void ICUFormatterPerThread(benchmark::State& state) {
  auto parser = directFormatter("EEE',' dd MMM yyyy HH':'mm':'ss z");
  auto writer = directFormatter("EEE',' dd MMM yyyy HH':'mm':'ss 'GMT'");
  UDate millis = 784111777000.0;
  for (auto _ : state) {
    icu::UnicodeString unicode;
    writer->format(millis, unicode);
    std::string text;
    unicode.toUTF8String(text);
    benchmark::DoNotOptimize(directParse(*parser, text));
    millis += 1000.0;
  }
  state.SetItemsProcessed(state.iterations());
}

// A short-lived thread that reads one date: what a thread pays on first use of each sharing
// (a clone per thread clones the whole set for every new thread; the pool lends a set it keeps).
template <zt::internal::DateFormatterSharing sharing>
void NewThreadReadsOneDate(benchmark::State& state) {
  for (auto _ : state) {
    std::thread([] { benchmark::DoNotOptimize(zt::internal::parseInternetDate(kRFC1123Text, sharing)); }).join();
  }
}
void NewThreadICUFormatter(benchmark::State& state) {
  for (auto _ : state) {
    std::thread([] {
      auto formatter = directFormatter("EEE',' dd MMM yyyy HH':'mm':'ss z");
      benchmark::DoNotOptimize(directParse(*formatter, kRFC1123Text));
    }).join();
  }
}

using zt::internal::DateFormatterSharing;
BENCHMARK(LibraryRFC1123);
BENCHMARK(ICURFC1123);
BENCHMARK(LibraryAsctimeWorstCase);
BENCHMARK(ICUAsctime);
BENCHMARK(SharedFormatters<DateFormatterSharing::Pool>)->Name("Sharing/Pool")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(SharedFormatters<DateFormatterSharing::Lock>)->Name("Sharing/Lock")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(SharedFormatters<DateFormatterSharing::ClonePerThread>)
    ->Name("Sharing/ClonePerThread")
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(ICUFormatterPerThread)->Name("Sharing/ICUFormatterPerThread")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(NewThreadReadsOneDate<DateFormatterSharing::Pool>)->Name("NewThread/Pool")->UseRealTime();
BENCHMARK(NewThreadReadsOneDate<DateFormatterSharing::Lock>)->Name("NewThread/Lock")->UseRealTime();
BENCHMARK(NewThreadReadsOneDate<DateFormatterSharing::ClonePerThread>)->Name("NewThread/ClonePerThread")->UseRealTime();
BENCHMARK(NewThreadICUFormatter)->Name("NewThread/ICUFormatterMadeInThread")->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
