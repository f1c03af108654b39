#pragma once
// Small text helpers shared by the networking sources.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zt::networking_internal {

// Whether the bytes are well-formed UTF-8 (no overlong forms, surrogates or values above U+10FFFF).
bool isValidUTF8(std::span<const std::uint8_t> bytes);
inline bool isValidUTF8(std::string_view text) {
  return isValidUTF8(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}
bool equalsIgnoringCase(std::string_view a, std::string_view b);
// What a caught exception says, for log lines.
std::string describeCurrentException();

}  // namespace zt::networking_internal
