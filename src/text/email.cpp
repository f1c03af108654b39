#include "zentrel/text/email.h"

#include <unicode/regex.h>

#include <memory>

#include "text/internal/unicode.h"

namespace zt {
namespace {

// Compiled once; a RegexPattern is immutable and may be shared, each use gets its own matcher.
const icu::RegexPattern& pattern(int which) {
  static const std::unique_ptr<icu::RegexPattern> patterns[2] = {
      [] {
        UErrorCode status = U_ZERO_ERROR;
        UParseError parseError;
        return std::unique_ptr<icu::RegexPattern>(icu::RegexPattern::compile(u"<.+>", 0, parseError, status));
      }(),
      [] {
        UErrorCode status = U_ZERO_ERROR;
        UParseError parseError;
        return std::unique_ptr<icu::RegexPattern>(
            icu::RegexPattern::compile(u"^[A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\\.[A-Za-z]{2,10}$", 0, parseError, status));
      }(),
  };
  return *patterns[which];
}

}  // namespace

std::string filterStringFromFirstLastName(std::string_view text) {
  const icu::UnicodeString input = internal::toUnicode(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern(0).matcher(input, status));
  if (U_SUCCESS(status) && matcher->find(status) && U_SUCCESS(status)) {
    const int32_t start = matcher->start(status);
    const int32_t end = matcher->end(status);
    return internal::toUTF8(icu::UnicodeString(input, start + 1, end - start - 2));
  }
  return std::string(text);
}

bool isStringMail(std::string_view text) {
  const std::string address = filterStringFromFirstLastName(text);
  if (address.empty()) return false;
  const icu::UnicodeString input = internal::toUnicode(address);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern(1).matcher(input, status));
  return U_SUCCESS(status) && matcher->matches(status) && U_SUCCESS(status);
}

}  // namespace zt
