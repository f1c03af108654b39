#pragma once
// Conversions between the UTF-8 text of the interface and ICU's UTF-16 strings, for the areas
// that hand text to ICU (text and typesetting). Counting UTF-16 units without ICU is
// zt::utf16Length (zentrel/platform/utf16.h).

#include <unicode/unistr.h>
#include <unicode/utf16.h>

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>

#include "zentrel/platform/exceptions.h"

namespace zt::internal {

// Invalid UTF-8 sequences become U+FFFD. ICU strings hold at most 2^31 - 1 units: a longer text
// throws ZTRangeException rather than being cut silently.
inline icu::UnicodeString toUnicode(std::string_view text) {
  if (text.size() > static_cast<std::size_t>(INT32_MAX)) {
    throw ZTRangeException("A text of " + std::to_string(text.size()) +
                           " bytes is longer than the 2 GiB that Unicode processing handles");
  }
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

inline std::string toUTF8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

// Moves a UTF-16 cut position so that it does not fall between the two halves of a surrogate
// pair: towards the start when `towardsStart`, else towards the end.
inline int32_t adjustCutToCodePoint(const icu::UnicodeString& text, int32_t index, bool towardsStart) {
  if (index <= 0 || index >= text.length()) return index;
  if (U16_IS_LEAD(text.charAt(index - 1)) && U16_IS_TRAIL(text.charAt(index))) {
    return towardsStart ? index - 1 : index + 1;
  }
  return index;
}

}  // namespace zt::internal
