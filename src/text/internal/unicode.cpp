#include "text/internal/unicode.h"

#include <unicode/utf8.h>

namespace zt::internal {

std::size_t utf16Length(std::string_view text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const std::int64_t length = static_cast<std::int64_t>(text.size());
  std::size_t units = 0;
  for (std::int64_t i = 0; i < length;) {
    if (bytes[i] < 0x80) {
      ++i;
      ++units;
      continue;
    }
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    units += (c > 0xFFFF) ? 2 : 1;
  }
  return units;
}

}  // namespace zt::internal
