#include "zentrel/platform/uuid.h"

#include <sys/random.h>

#include <cstdint>
#include <cstdio>
#include <random>

std::string ZTUUIDString() {
  std::uint8_t bytes[16];
  std::size_t filled = 0;
  while (filled < sizeof bytes) {
    const ssize_t n = getrandom(bytes + filled, sizeof bytes - filled, 0);
    if (n <= 0) break;
    filled += static_cast<std::size_t>(n);
  }
  if (filled < sizeof bytes) {  // no kernel randomness (never expected): fall back to the C++ engine
    std::random_device device;
    for (auto& b : bytes) b = static_cast<std::uint8_t>(device());
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0],
                bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
  return text;
}
