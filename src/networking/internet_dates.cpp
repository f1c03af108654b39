#include "zentrel/networking/internet_dates.h"

#include <unicode/locid.h>
#include <unicode/parsepos.h>
#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "networking/internal/internet_date_formatters.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"

namespace zt::internal {
namespace {

constexpr std::array<const char*, 7> kParsingPatterns = {
    "EEE',' dd MMM yyyy HH':'mm':'ss z",
    "EEE',' dd MMM yyyy HH':'mm':'ss Z' ('z')'",
    "EEEE',' dd'-'MMM'-'yy HH':'mm':'ss z",
    "yyyy'-'MM'-'dd'T'HH':'mm':'ss'Z'",
    "yyyy-MM-dd'T'HH:mm:ss.SSSZ",
    "yyyy-MM-dd'T'HH:mm:ssZ",
    "EEE MMM d HH':'mm':'ss yyyy",
};
constexpr const char* kRFC1123WritingPattern = "EEE',' dd MMM yyyy HH':'mm':'ss 'GMT'";
constexpr const char* kISO8601WritingPattern = "yyyy'-'MM'-'dd'T'HH':'mm':'ss'Z'";
constexpr const char* kISO8601ReadingPattern = "yyyy'-'MM'-'dd'T'HH':'mm':'ssXXX";

// The instants ICU's Gregorian calendar can hold, in milliseconds from 1970; outside them a
// formatter has no fields to print.
constexpr double kEarliestMillis = -184303902528000000.0;
constexpr double kLatestMillis = 183882168921600000.0;

using Formatter = std::unique_ptr<icu::SimpleDateFormat>;

Formatter makeFormatter(const char* pattern, const icu::Locale& locale, icu::TimeZone* zone) {
  UErrorCode status = U_ZERO_ERROR;
  auto formatter = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString(pattern, -1, US_INV), locale, status);
  if (U_FAILURE(status)) {
    delete zone;
    ZTLogf("ERROR: cannot make the date formatter \"%s\": %s", pattern, u_errorName(status));
    return nullptr;
  }
  formatter->adoptTimeZone(zone);
  formatter->setLenient(false);
  return formatter;
}

// Every formatter the Internet dates use. A set is used by one thread at a time.
struct FormatterSet {
  std::array<Formatter, kParsingPatterns.size()> parsers;
  Formatter rfc1123Writer;
  Formatter iso8601Writer;
  Formatter iso8601Reader;

  std::unique_ptr<FormatterSet> clone() const {
    auto copy = std::make_unique<FormatterSet>();
    const auto cloneOf = [](const Formatter& formatter) {
      return formatter ? Formatter(formatter->clone()) : nullptr;
    };
    for (std::size_t i = 0; i < parsers.size(); ++i) copy->parsers[i] = cloneOf(parsers[i]);
    copy->rfc1123Writer = cloneOf(rfc1123Writer);
    copy->iso8601Writer = cloneOf(iso8601Writer);
    copy->iso8601Reader = cloneOf(iso8601Reader);
    return copy;
  }
};

std::unique_ptr<FormatterSet> makeFormatterSet() {
  auto set = std::make_unique<FormatterSet>();
  const icu::Locale enUS("en_US");
  set->parsers[0] = makeFormatter(kParsingPatterns[0], enUS, icu::TimeZone::createTimeZone("GMT"));
  set->parsers[1] = makeFormatter(kParsingPatterns[1], enUS, icu::TimeZone::createTimeZone("GMT"));
  // The others read with the locale and time zone of the first.
  const icu::Locale firstLocale = set->parsers[0] ? set->parsers[0]->getSmpFmtLocale() : enUS;
  for (std::size_t i = 2; i < kParsingPatterns.size(); ++i) {
    icu::TimeZone* zone = set->parsers[0] ? set->parsers[0]->getTimeZone().clone() : icu::TimeZone::createTimeZone("GMT");
    set->parsers[i] = makeFormatter(kParsingPatterns[i], firstLocale, zone);
  }
  set->rfc1123Writer = makeFormatter(kRFC1123WritingPattern, enUS, icu::TimeZone::createTimeZone("GMT"));
  set->iso8601Writer =
      makeFormatter(kISO8601WritingPattern, icu::Locale("en_US_POSIX"), new icu::SimpleTimeZone(0, "GMT"));
  set->iso8601Reader = makeFormatter(kISO8601ReadingPattern, enUS, icu::TimeZone::createTimeZone("GMT"));
  return set;
}

// The formatters made once per process. They are only ever cloned, never used to parse, so any
// number of threads may clone them at once (cloning reads its source only).
const FormatterSet& prototypes() {
  static const FormatterSet* const set = makeFormatterSet().release();
  return *set;
}

// One shared set behind one lock.
struct LockedSet {
  ZTMutex mutex;
  std::unique_ptr<FormatterSet> set ZT_GUARDED_BY(mutex);
};
LockedSet& lockedSet() {
  static LockedSet* const shared = [] {
    auto* made = new LockedSet;
    ZTLockGuard lock(made->mutex);
    made->set = prototypes().clone();
    return made;
  }();
  return *shared;
}

// Sets lent to threads. At most kKeptSets idle sets are kept: that many threads reading dates at
// once is already more than the cores here.
class FormatterPool {
 public:
  static constexpr std::size_t kKeptSets = 8;

  std::unique_ptr<FormatterSet> take() {
    {
      ZTLockGuard lock(mutex_);
      if (!idle_.empty()) {
        auto set = std::move(idle_.back());
        idle_.pop_back();
        return set;
      }
    }
    return prototypes().clone();
  }

  void give(std::unique_ptr<FormatterSet> set) {
    ZTLockGuard lock(mutex_);
    if (idle_.size() < kKeptSets) idle_.push_back(std::move(set));
    else set.reset();
  }

  std::size_t idleCount() {
    ZTLockGuard lock(mutex_);
    return idle_.size();
  }

 private:
  ZTMutex mutex_;
  std::vector<std::unique_ptr<FormatterSet>> idle_ ZT_GUARDED_BY(mutex_);
};
FormatterPool& pool() {
  static FormatterPool* const shared = new FormatterPool;
  return *shared;
}

// Runs work(set) with a formatter set that no other thread uses meanwhile.
template <class Work>
auto withFormatters(DateFormatterSharing sharing, Work&& work) {
  switch (sharing) {
    case DateFormatterSharing::Lock: {
      LockedSet& shared = lockedSet();
      ZTLockGuard lock(shared.mutex);
      return work(*shared.set);
    }
    case DateFormatterSharing::ClonePerThread: {
      thread_local std::unique_ptr<FormatterSet> own = prototypes().clone();
      return work(*own);
    }
    case DateFormatterSharing::Pool:
      break;
  }
  struct Loan {
    std::unique_ptr<FormatterSet> set = pool().take();
    ~Loan() { pool().give(std::move(set)); }
  } loan;
  return work(*loan.set);
}

bool isHoldable(UDate millis) { return std::isfinite(millis) && millis >= kEarliestMillis && millis <= kLatestMillis; }

// Reads the whole text with one formatter, or nothing.
std::optional<ZTDate> readWhole(icu::SimpleDateFormat* formatter, const icu::UnicodeString& text) {
  if (formatter == nullptr || text.isEmpty()) return std::nullopt;
  icu::ParsePosition position(0);
  const UDate millis = formatter->parse(text, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != text.length() || !isHoldable(millis)) {
    return std::nullopt;
  }
  return ZTDate::dateWithTimeIntervalSince1970(millis / 1000.0);
}

std::string write(icu::SimpleDateFormat* formatter, ZTDate date) {
  const UDate millis = date.timeIntervalSince1970() * 1000.0;
  if (formatter == nullptr || !isHoldable(millis)) return {};
  icu::UnicodeString text;
  formatter->format(millis, text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

// No field of the patterns needs more digits in a row than this (nine fraction digits at most,
// with room to spare). ICU scales a fraction of n digits by 10^(n-3) in 32-bit arithmetic, which
// wraps to zero from 35 digits on and stops the process with a division by zero.
constexpr int kLongestDigitRun = 12;

bool hasOverlongDigitRun(const icu::UnicodeString& text) {
  int run = 0;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    run = u_isdigit(text.char32At(i)) ? run + 1 : 0;
    if (run > kLongestDigitRun) return true;
  }
  return false;
}

// Texts longer than any date, or with a run of digits no date has (in any script ICU reads as
// digits), are refused before ICU parses them.
std::optional<icu::UnicodeString> candidate(std::string_view text) {
  if (text.empty() || text.size() > kZTInternetDateMaximumLength) return std::nullopt;
  icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  if (hasOverlongDigitRun(unicode)) return std::nullopt;
  return unicode;
}

}  // namespace

std::optional<ZTInternetDateMatch> parseInternetDate(std::string_view text, DateFormatterSharing sharing) {
  const auto unicode = candidate(text);
  if (!unicode) return std::nullopt;
  return withFormatters(sharing, [&](FormatterSet& set) -> std::optional<ZTInternetDateMatch> {
    for (std::size_t i = 0; i < set.parsers.size(); ++i) {
      if (auto date = readWhole(set.parsers[i].get(), *unicode)) {
        return ZTInternetDateMatch{*date, static_cast<int>(i + 1), kParsingPatterns[i]};
      }
    }
    return std::nullopt;
  });
}

std::string rfc1123String(ZTDate date, DateFormatterSharing sharing) {
  return withFormatters(sharing, [&](FormatterSet& set) { return write(set.rfc1123Writer.get(), date); });
}

std::size_t pooledFormatterSetCount() { return pool().idleCount(); }

std::string printableText(std::string_view text) {
  const bool cut = text.size() > kZTInternetDateMaximumLength;
  if (cut) text = text.substr(0, kZTInternetDateMaximumLength);
  std::string out;
  out.reserve(text.size());
  const auto escape = [&out](unsigned char byte) {
    char hex[5];
    std::snprintf(hex, sizeof hex, "\\x%02X", byte);
    out += hex;
  };
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  for (int32_t i = 0; i < length;) {
    const int32_t start = i;
    UChar32 c = 0;
    U8_NEXT(bytes, i, length, c);
    if (c < 0) {
      for (int32_t j = start; j < i; ++j) escape(bytes[j]);
    } else if (c < 0x20 || c == 0x7F) {
      escape(static_cast<unsigned char>(c));
    } else {
      out.append(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(i - start)));
    }
  }
  if (cut) out += "…";
  return out;
}

}  // namespace zt::internal

namespace zt {

using internal::kDefaultSharing;

std::optional<ZTInternetDateMatch> parseInternetDate(std::string_view text) {
  return internal::parseInternetDate(text, kDefaultSharing);
}

std::optional<ZTDate> dateFromRFC1123(std::string_view text) {
  if (auto match = internal::parseInternetDate(text, kDefaultSharing)) return match->date;
  ZTLog("⚠️ Date parser returned NIL for date = " + internal::printableText(text));
  return std::nullopt;
}

std::optional<ZTDate> dateFromRFC1123(const char* text) {
  if (text == nullptr) return std::nullopt;
  return dateFromRFC1123(std::string_view(text));
}

std::string rfc1123String(ZTDate date) { return internal::rfc1123String(date, kDefaultSharing); }

std::string ISO8601String(ZTDate date) {
  return internal::withFormatters(kDefaultSharing,
                                  [&](internal::FormatterSet& set) { return internal::write(set.iso8601Writer.get(), date); });
}

std::optional<ZTDate> dateFromISO8601String(std::string_view text) {
  std::optional<ZTDate> date;
  if (const auto unicode = internal::candidate(text)) {
    date = internal::withFormatters(
        kDefaultSharing, [&](internal::FormatterSet& set) { return internal::readWhole(set.iso8601Reader.get(), *unicode); });
  }
  if (!date) ZTLog("failed to parse ISO8601String: " + internal::printableText(text));
  return date;
}

std::optional<ZTDate> dateFromISO8601String(const char* text) {
  if (text == nullptr) return std::nullopt;
  return dateFromISO8601String(std::string_view(text));
}

}  // namespace zt
