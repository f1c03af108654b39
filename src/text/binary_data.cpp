#include "zentrel/text/binary_data.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <string>

#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/utf16.h"

namespace zt {
namespace {

void checkRange(std::size_t size, std::int32_t offset, std::size_t width, const char* what) {
  if (offset < 0 || static_cast<std::size_t>(offset) > size || size - static_cast<std::size_t>(offset) < width) {
    throw ZTRangeException(std::string(what) + ": " + std::to_string(width) + " bytes at offset " +
                           std::to_string(offset) + " reach past the end of data of " + std::to_string(size) +
                           " bytes");
  }
}

void padFrom(Bytes& data, std::int64_t offset, std::int64_t multiple) {
  std::int64_t remainder = (static_cast<std::int64_t>(data.size()) + offset) % multiple;
  if (remainder < 0) remainder += multiple;
  if (remainder != 0) data.insert(data.end(), static_cast<std::size_t>(multiple - remainder), 0);
}

}  // namespace

std::uint8_t byteAt(ByteView data, std::int32_t offset) {
  checkRange(data.size(), offset, 1, "byteAt");
  return data[static_cast<std::size_t>(offset)];
}

std::uint16_t wordLEAt(ByteView data, std::int32_t offset) {
  checkRange(data.size(), offset, 2, "wordLEAt");
  const auto* p = data.data() + offset;
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

std::uint16_t wordBEAt(ByteView data, std::int32_t offset) {
  checkRange(data.size(), offset, 2, "wordBEAt");
  const auto* p = data.data() + offset;
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

std::uint32_t uint32LEAt(ByteView data, std::int32_t offset) {
  checkRange(data.size(), offset, 4, "uint32LEAt");
  const auto* p = data.data() + offset;
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

bool boolValue(ByteView data) { return !data.empty() && data[0] != 0; }

Bytes dataWithBoolValue(bool value) { return Bytes{static_cast<std::uint8_t>(value ? 1 : 0)}; }

std::int32_t pad(std::int32_t value, std::int32_t multiple) {
  if (multiple == 0) throw ZTInternalInconsistencyException("pad: the multiple must not be 0");
  const std::int64_t remainder = static_cast<std::int64_t>(value) % multiple;
  if (remainder == 0) return value;
  const std::int64_t result = static_cast<std::int64_t>(value) + multiple - remainder;
  if (result < INT32_MIN || result > INT32_MAX) {
    throw ZTRangeException("pad: " + std::to_string(value) + " rounded up to a multiple of " +
                           std::to_string(multiple) + " does not fit in 32 bits");
  }
  return static_cast<std::int32_t>(result);
}

void appendByte(Bytes& data, std::uint8_t value) { data.push_back(value); }

void appendWordLE(Bytes& data, std::uint16_t value) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
  data.insert(data.end(), bytes, bytes + 2);
}

void appendWordBE(Bytes& data, std::uint16_t value) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  data.insert(data.end(), bytes, bytes + 2);
}

void appendUInt32LE(Bytes& data, std::uint32_t value) {
  std::uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  data.insert(data.end(), bytes, bytes + 4);
}

void appendUInt32BE(Bytes& data, std::uint32_t value) {
  std::uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * (3 - i)));
  data.insert(data.end(), bytes, bytes + 4);
}

void appendUInt64LE(Bytes& data, std::uint64_t value) {
  std::uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  data.insert(data.end(), bytes, bytes + 8);
}

void appendCString(Bytes& data, std::string_view text) {
  const std::size_t count = utf16Length(text);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  data.insert(data.end(), bytes, bytes + count);
}

void appendCStringNT(Bytes& data, std::string_view text) {
  appendCString(data, text);
  // The byte after the first count bytes of the NUL-terminated text: within the text when it is
  // longer in UTF-8 than in UTF-16, else its terminator.
  const std::size_t count = utf16Length(text);
  data.push_back(count < text.size() ? static_cast<std::uint8_t>(text[count]) : 0);
}

void appendUString(Bytes& data, std::string_view text) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const std::int64_t length = static_cast<std::int64_t>(text.size());
  data.reserve(data.size() + 2 * text.size());
  auto put = [&data](std::uint16_t unit) {
    data.push_back(static_cast<std::uint8_t>(unit));
    data.push_back(static_cast<std::uint8_t>(unit >> 8));
  };
  for (std::int64_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    if (c < 0) c = 0xFFFD;
    if (c > 0xFFFF) {
      put(static_cast<std::uint16_t>(U16_LEAD(c)));
      put(static_cast<std::uint16_t>(U16_TRAIL(c)));
    } else {
      put(static_cast<std::uint16_t>(c));
    }
  }
}

void appendUStringNT(Bytes& data, std::string_view text) {
  appendUString(data, text);
  appendWordLE(data, 0);
}

void padTo2From(Bytes& data, std::int64_t offset) { padFrom(data, offset, 2); }

void padTo4From(Bytes& data, std::int64_t offset) { padFrom(data, offset, 4); }

void setUInt32LE(Bytes& data, std::uint32_t value, std::int32_t offset) {
  checkRange(data.size(), offset, 4, "setUInt32LE");
  for (int i = 0; i < 4; ++i) data[static_cast<std::size_t>(offset) + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void setWordLE(Bytes& data, std::uint16_t value, std::int32_t offset) {
  checkRange(data.size(), offset, 2, "setWordLE");
  data[static_cast<std::size_t>(offset)] = static_cast<std::uint8_t>(value);
  data[static_cast<std::size_t>(offset) + 1] = static_cast<std::uint8_t>(value >> 8);
}

std::string hexString(ByteView data) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string out(data.size() * 2, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) {
    out[2 * i] = digits[data[i] >> 4];
    out[2 * i + 1] = digits[data[i] & 0xF];
  }
  return out;
}

}  // namespace zt
