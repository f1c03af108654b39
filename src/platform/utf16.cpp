#include "zentrel/platform/utf16.h"

#include <cstdint>

namespace zt {

namespace {

bool isTrail(std::uint8_t byte) { return (byte & 0xC0) == 0x80; }

// The bytes a well-formed sequence starting with `lead` has, and the range its second byte must
// fall in (the first trail byte is narrower after E0, ED, F0 and F4). 0 for bytes that cannot
// start a sequence.
struct Lead {
  int length;
  std::uint8_t secondMin;
  std::uint8_t secondMax;
};

Lead leadOf(std::uint8_t lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead < 0xC2) return {0, 0, 0};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead < 0xF0) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead < 0xF4) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

}  // namespace

std::size_t utf16Length(std::string_view utf8) noexcept {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(utf8.data());
  const std::size_t size = utf8.size();
  std::size_t units = 0;
  std::size_t i = 0;
  while (i < size) {
    const std::uint8_t lead = bytes[i];
    if (lead < 0x80) {
      ++units;
      ++i;
      continue;
    }
    const Lead shape = leadOf(lead);
    ++i;
    ++units;  // one unit whatever follows: the character, or U+FFFD for an ill-formed start
    if (shape.length == 0) continue;
    // Consume the trail bytes that still extend a well-formed prefix; the first that does not is
    // where the next character (or replacement) begins.
    if (i >= size || bytes[i] < shape.secondMin || bytes[i] > shape.secondMax) continue;
    int consumed = 2;
    ++i;
    while (consumed < shape.length && i < size && isTrail(bytes[i])) {
      ++consumed;
      ++i;
    }
    if (consumed == 4) ++units;  // a complete four-byte sequence is a surrogate pair
  }
  return units;
}

}  // namespace zt
