#pragma once
// AES-256 in CBC mode with PKCS#7 padding and an all-zero initialisation vector, for data that a
// program encrypts and decrypts with the same key (OpenSSL EVP underneath; results are those of
// the standard).
//
// The key is the caller's: the library keeps no key. A key shorter than 32 bytes is padded with
// zero bytes, a longer one is cut to its first 32 bytes; a text key is used as its UTF-8 bytes.
// Because the vector is fixed, equal plaintexts give equal ciphertexts: use it where that is
// acceptable.
//
// Stateless; may be called from any thread at once. Bad input never crashes: decrypting data that
// was not produced with the same key (a length that is not a multiple of 16, or padding that does
// not check out) gives nullopt. A wrong key can also pass the padding check by chance (about 1 in
// 256) and then gives wrong bytes, as with any unauthenticated cipher.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"

enum class ZTCryptOperation { Encrypt, Decrypt };

namespace zt {

[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> ztAES256CryptWithKeyData(
    std::span<const std::uint8_t> data, std::span<const std::uint8_t> key, ZTCryptOperation operation);

[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> ztAES256EncryptWithKeyData(
    std::span<const std::uint8_t> data, std::span<const std::uint8_t> key);
[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> ztAES256DecryptWithKeyData(
    std::span<const std::uint8_t> data, std::span<const std::uint8_t> key);
[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> ztAES256EncryptWithKey(std::span<const std::uint8_t> data,
                                                                                     std::string_view key);
[[nodiscard]] ZT_API std::optional<std::vector<std::uint8_t>> ztAES256DecryptWithKey(std::span<const std::uint8_t> data,
                                                                                     std::string_view key);

}  // namespace zt
