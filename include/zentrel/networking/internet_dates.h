#pragma once
// Internet dates: reading the date texts met in HTTP headers, cookies, feeds and web APIs, and
// writing RFC 1123 and ISO 8601 dates.
//
// zt::dateFromRFC1123 offers the text to these patterns, in this order, and answers the first
// date one of them reads from the whole text:
//
//   1  "EEE',' dd MMM yyyy HH':'mm':'ss z"              RFC 1123 (HTTP's IMF-fixdate)
//   2  "EEE',' dd MMM yyyy HH':'mm':'ss Z' ('z')'"      the same with "+0000 (GMT)"
//   3  "EEEE',' dd'-'MMM'-'yy HH':'mm':'ss z"           RFC 850
//   4  "yyyy'-'MM'-'dd'T'HH':'mm':'ss'Z'"               ISO 8601 in UTC
//   5  "yyyy-MM-dd'T'HH:mm:ss.SSSZ"                     ISO 8601 with milliseconds and offset
//   6  "yyyy-MM-dd'T'HH:mm:ssZ"                         ISO 8601 with offset
//   7  "EEE MMM d HH':'mm':'ss yyyy"                    the C library's asctime()
//
// Patterns are ICU's (the Unicode date-pattern syntax), read with the Gregorian calendar, locale
// "en_US" and time zone "GMT" whatever the process's locale, LANG or TZ, and strictly: a text
// with anything left over, a day or month out of range, or a time the calendar cannot hold is not
// read. Two-digit years (pattern 3) fall in the 80 years before and 20 after the first parse.
//
// Bad input never throws: an empty text, invalid UTF-8, NUL bytes, absurd years, a run of more than
// 12 digits (of any script) or a text longer than kZTInternetDateMaximumLength bytes give
// std::nullopt. When no pattern reads the text, the
// line "⚠️ Date parser returned NIL for date = <text>" goes to ZTLog (control characters in the text
// shown as "\xNN", so the line stays one line; an over-long text shown cut).
//
// Threads: every function may be called from any thread, concurrently. The formatters (one per
// pattern above, plus the two writers and the ISO reader) are made once per process, on first use,
// and kept for its life. An ICU formatter changes its own calendar while it works, so two threads
// must never use one at once: a call borrows a private copy of the whole set from a small pool
// (a short lock to take it, one to give it back; at most 8 idle sets are kept) and works on it
// unlocked. Measured against one lock around a single shared set and against a copy per thread
// (docs/architecture/networking-dates.md): all three cost the same per call, but a copy per thread
// makes each new thread copy the whole set (0.4 to 1.5 ms) and keep it for life, and the lock makes
// every parse wait for any other thread's.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"

// Texts longer than this are not dates in any pattern above and are refused without parsing.
inline constexpr std::size_t kZTInternetDateMaximumLength = 256;

// A date read by zt::parseInternetDate and which pattern read it.
struct ZTInternetDateMatch {
  ZTDate date;
  int format = 0;              // 1 to 7, the order above
  const char* pattern = "";    // the pattern text, as listed above
};

namespace zt {

// The first date one of the seven patterns reads from the whole text, std::nullopt when none does.
// A null pointer gives std::nullopt without a log line.
[[nodiscard]] ZT_API std::optional<ZTDate> dateFromRFC1123(std::string_view text);
[[nodiscard]] ZT_API std::optional<ZTDate> dateFromRFC1123(const char* text);

// The same search, telling which pattern matched; logs nothing.
[[nodiscard]] ZT_API std::optional<ZTInternetDateMatch> parseInternetDate(std::string_view text);

// "Sun, 06 Nov 1994 08:49:37 GMT": pattern "EEE',' dd MMM yyyy HH':'mm':'ss 'GMT'", locale "en_US",
// time zone "GMT". Always ends in "GMT". A date the calendar cannot hold (not finite, or some
// 5.8 million years away) gives an empty text.
[[nodiscard]] ZT_API std::string rfc1123String(ZTDate date);

// "1994-11-06T08:49:37Z": pattern "yyyy'-'MM'-'dd'T'HH':'mm':'ss'Z'", locale "en_US_POSIX", UTC.
// Always ends in "Z"; an empty text for a date the calendar cannot hold.
[[nodiscard]] ZT_API std::string ISO8601String(ZTDate date);

// Reads "yyyy'-'MM'-'dd'T'HH':'mm':'ssXXX" (locale "en_US", time zone "GMT"): "2020-01-02T03:04:05Z"
// or "2020-01-02T03:04:05+01:00". Does not fall back to the other patterns. On failure logs
// "failed to parse ISO8601String: <text>" (shown as above) and gives std::nullopt; a null pointer
// gives std::nullopt without a log line.
[[nodiscard]] ZT_API std::optional<ZTDate> dateFromISO8601String(std::string_view text);
[[nodiscard]] ZT_API std::optional<ZTDate> dateFromISO8601String(const char* text);

}  // namespace zt
