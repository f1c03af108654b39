#pragma once
// Message digests (MD5, SHA-1, SHA-224, SHA-256, SHA-384, SHA-512) of bytes and of the UTF-8
// encoding of texts, as raw bytes or lower-case hex text.
//
// Computed with OpenSSL's EVP interface; results are those of the published standards. Stateless;
// may be called from any thread at once. MD5 and SHA-1 are here for compatibility with existing
// formats and checksums, not for security.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"

enum class ZTDigestAlgorithm { MD5, SHA1, SHA224, SHA256, SHA384, SHA512 };

namespace zt {

// Size of the algorithm's digest in bytes (16, 20, 28, 32, 48, 64).
ZT_API std::size_t digestLength(ZTDigestAlgorithm algorithm);

ZT_API std::vector<std::uint8_t> digest(ZTDigestAlgorithm algorithm, std::span<const std::uint8_t> data);
// Two lower-case hex digits per digest byte ("%02x").
ZT_API std::string hexDigest(ZTDigestAlgorithm algorithm, std::span<const std::uint8_t> data);

// SHA-1 of bytes as 40 lower-case hex digits.
ZT_API std::string sha1Hash(std::span<const std::uint8_t> data);

// Digests of a text's UTF-8 bytes as lower-case hex: 32, 40, 56, 64, 96 and 128 digits.
ZT_API std::string md5(std::string_view text);
ZT_API std::string sha1(std::string_view text);
ZT_API std::string sha224(std::string_view text);
ZT_API std::string sha256(std::string_view text);
ZT_API std::string sha384(std::string_view text);
ZT_API std::string sha512(std::string_view text);

}  // namespace zt
