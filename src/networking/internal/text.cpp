#include "networking/internal/text.h"

#include <exception>

namespace zt::networking_internal {

bool isValidUTF8(std::span<const std::uint8_t> bytes) {
  std::size_t i = 0;
  const std::size_t n = bytes.size();
  while (i < n) {
    const std::uint8_t c = bytes[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    std::uint32_t min = 0;
    std::uint32_t value = 0;
    if ((c & 0xE0) == 0xC0) {
      length = 2, min = 0x80, value = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3, min = 0x800, value = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4, min = 0x10000, value = c & 0x07;
    } else {
      return false;
    }
    if (i + length > n) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return false;
      value = (value << 6) | (bytes[i + k] & 0x3F);
    }
    if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

std::string describeCurrentException() {
  try {
    throw;
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace zt::networking_internal
