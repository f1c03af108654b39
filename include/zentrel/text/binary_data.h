#pragma once
// Reading and writing the integers, strings and padding of hand-written binary file formats:
// little- and big-endian integers at byte offsets, UTF-16LE strings, zero padding to 2 or 4 bytes,
// and patching sizes and offsets in place after the data that follows them was written.
//
// Data is a std::vector<std::uint8_t> when it grows and a std::span<const std::uint8_t> when it is
// only read. Stateless; a buffer may be used by one thread at a time (readers of an unchanging
// buffer may share it).
//
// Bad input: a read or patch that would reach past the end of the data throws ZTRangeException
// (it is a programming error, like an index out of range) and changes nothing.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"

namespace zt {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

ZT_API std::uint8_t byteAt(ByteView data, std::int32_t offset);
ZT_API std::uint16_t wordLEAt(ByteView data, std::int32_t offset);
ZT_API std::uint16_t wordBEAt(ByteView data, std::int32_t offset);
ZT_API std::uint32_t uint32LEAt(ByteView data, std::int32_t offset);

// The first byte as a boolean (any non-zero byte is true); false for empty data.
ZT_API bool boolValue(ByteView data);
// One byte, 1 or 0.
ZT_API Bytes dataWithBoolValue(bool value);

// `value` rounded up to the next multiple of `multiple`: the value itself when the remainder is 0,
// else value + multiple - remainder, the remainder taking the sign of the value as C++ division
// gives it (pad(-5, 4) is 0). A multiple of 0 throws ZTInternalInconsistencyException; a result
// that does not fit in 32 bits throws ZTRangeException.
ZT_API std::int32_t pad(std::int32_t value, std::int32_t multiple);

ZT_API void appendByte(Bytes& data, std::uint8_t value);
ZT_API void appendWordLE(Bytes& data, std::uint16_t value);
ZT_API void appendWordBE(Bytes& data, std::uint16_t value);
ZT_API void appendUInt32LE(Bytes& data, std::uint32_t value);
ZT_API void appendUInt32BE(Bytes& data, std::uint32_t value);
ZT_API void appendUInt64LE(Bytes& data, std::uint64_t value);

// The text's UTF-8 bytes, but only as many bytes as the text has UTF-16 code units. Meant for
// ASCII text, where the two counts agree; a text with other characters is cut short ("hé" appends
// 'h' and the first byte of 'é'), and that is the intended behaviour of this writer.
ZT_API void appendCString(Bytes& data, std::string_view text);
// The same plus one more byte of the NUL-terminated UTF-8 text: the terminating zero for ASCII.
ZT_API void appendCStringNT(Bytes& data, std::string_view text);
// The text in UTF-16 little-endian, without a byte-order mark (invalid UTF-8 becomes U+FFFD).
ZT_API void appendUString(Bytes& data, std::string_view text);
// The same followed by a 16-bit zero.
ZT_API void appendUStringNT(Bytes& data, std::string_view text);

// Zero bytes until (size + offset) is a multiple of 2, or of 4.
ZT_API void padTo2From(Bytes& data, std::int64_t offset);
ZT_API void padTo4From(Bytes& data, std::int64_t offset);

// Overwrite 4 or 2 bytes at a byte offset, little-endian, without growing the data.
ZT_API void setUInt32LE(Bytes& data, std::uint32_t value, std::int32_t offset);
ZT_API void setWordLE(Bytes& data, std::uint16_t value, std::int32_t offset);

// Two upper-case hex digits per byte, no separators ("%02X"); empty data gives "".
ZT_API std::string hexString(ByteView data);

}  // namespace zt
