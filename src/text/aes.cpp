#include "zentrel/text/aes.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>

namespace zt {
namespace {

struct ContextDeleter {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

const EVP_CIPHER* aes256cbc() {
  static const EVP_CIPHER* const cipher = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
  return cipher;
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

std::optional<std::vector<std::uint8_t>> ztAES256CryptWithKeyData(std::span<const std::uint8_t> data,
                                                                  std::span<const std::uint8_t> key,
                                                                  ZTCryptOperation operation) {
  const EVP_CIPHER* cipher = aes256cbc();
  if (!cipher) return std::nullopt;
  std::array<unsigned char, 32> keyBytes{};
  std::copy_n(key.begin(), std::min<std::size_t>(key.size(), keyBytes.size()), keyBytes.begin());
  const std::array<unsigned char, 16> iv{};

  std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter> context(EVP_CIPHER_CTX_new());
  const int encrypt = operation == ZTCryptOperation::Encrypt ? 1 : 0;
  const bool ready =
      context && EVP_CipherInit_ex2(context.get(), cipher, keyBytes.data(), iv.data(), encrypt, nullptr) == 1;
  OPENSSL_cleanse(keyBytes.data(), keyBytes.size());
  if (!ready) return std::nullopt;

  std::vector<std::uint8_t> out(data.size() + 16);
  std::size_t produced = 0;
  // EVP counts lengths in int: larger data goes through in pieces that keep block alignment.
  constexpr std::size_t kMaxPiece = (static_cast<std::size_t>(INT_MAX) - 32) & ~static_cast<std::size_t>(15);
  for (std::size_t offset = 0; offset < data.size();) {
    const std::size_t piece = std::min(data.size() - offset, kMaxPiece);
    int written = 0;
    if (EVP_CipherUpdate(context.get(), out.data() + produced, &written, data.data() + offset,
                         static_cast<int>(piece)) != 1) {
      return std::nullopt;
    }
    produced += static_cast<std::size_t>(written);
    offset += piece;
  }
  int written = 0;
  if (EVP_CipherFinal_ex(context.get(), out.data() + produced, &written) != 1) return std::nullopt;
  produced += static_cast<std::size_t>(written);
  out.resize(produced);
  return out;
}

std::optional<std::vector<std::uint8_t>> ztAES256EncryptWithKeyData(std::span<const std::uint8_t> data,
                                                                    std::span<const std::uint8_t> key) {
  return ztAES256CryptWithKeyData(data, key, ZTCryptOperation::Encrypt);
}

std::optional<std::vector<std::uint8_t>> ztAES256DecryptWithKeyData(std::span<const std::uint8_t> data,
                                                                    std::span<const std::uint8_t> key) {
  return ztAES256CryptWithKeyData(data, key, ZTCryptOperation::Decrypt);
}

std::optional<std::vector<std::uint8_t>> ztAES256EncryptWithKey(std::span<const std::uint8_t> data,
                                                                std::string_view key) {
  return ztAES256CryptWithKeyData(data, bytesOf(key), ZTCryptOperation::Encrypt);
}

std::optional<std::vector<std::uint8_t>> ztAES256DecryptWithKey(std::span<const std::uint8_t> data,
                                                                std::string_view key) {
  return ztAES256CryptWithKeyData(data, bytesOf(key), ZTCryptOperation::Decrypt);
}

}  // namespace zt
