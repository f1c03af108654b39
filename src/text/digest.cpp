#include "zentrel/text/digest.h"

#include <openssl/evp.h>

#include "zentrel/platform/exceptions.h"

namespace zt {
namespace {

// Fetched once per process: an EVP_MD is immutable and shared by every thread.
const EVP_MD* digestFor(ZTDigestAlgorithm algorithm) {
  static const EVP_MD* const table[] = {
      EVP_MD_fetch(nullptr, "MD5", nullptr),    EVP_MD_fetch(nullptr, "SHA1", nullptr),
      EVP_MD_fetch(nullptr, "SHA224", nullptr), EVP_MD_fetch(nullptr, "SHA256", nullptr),
      EVP_MD_fetch(nullptr, "SHA384", nullptr), EVP_MD_fetch(nullptr, "SHA512", nullptr),
  };
  const EVP_MD* md = table[static_cast<int>(algorithm)];
  if (!md) {
    throw ZTInternalInconsistencyException(
        "The digest algorithm is not available from the OpenSSL providers this process loaded");
  }
  return md;
}

std::string toLowerHex(const std::vector<std::uint8_t>& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out(bytes.size() * 2, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out[2 * i] = digits[bytes[i] >> 4];
    out[2 * i + 1] = digits[bytes[i] & 0xF];
  }
  return out;
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

std::size_t digestLength(ZTDigestAlgorithm algorithm) {
  static constexpr std::size_t lengths[] = {16, 20, 28, 32, 48, 64};
  return lengths[static_cast<int>(algorithm)];
}

std::vector<std::uint8_t> digest(ZTDigestAlgorithm algorithm, std::span<const std::uint8_t> data) {
  std::vector<std::uint8_t> out(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), out.data(), &length, digestFor(algorithm), nullptr) != 1) {
    throw ZTInternalInconsistencyException("OpenSSL failed to compute a digest");
  }
  out.resize(length);
  return out;
}

std::string hexDigest(ZTDigestAlgorithm algorithm, std::span<const std::uint8_t> data) {
  return toLowerHex(digest(algorithm, data));
}

std::string sha1Hash(std::span<const std::uint8_t> data) { return hexDigest(ZTDigestAlgorithm::SHA1, data); }

std::string md5(std::string_view text) { return hexDigest(ZTDigestAlgorithm::MD5, bytesOf(text)); }
std::string sha1(std::string_view text) { return hexDigest(ZTDigestAlgorithm::SHA1, bytesOf(text)); }
std::string sha224(std::string_view text) { return hexDigest(ZTDigestAlgorithm::SHA224, bytesOf(text)); }
std::string sha256(std::string_view text) { return hexDigest(ZTDigestAlgorithm::SHA256, bytesOf(text)); }
std::string sha384(std::string_view text) { return hexDigest(ZTDigestAlgorithm::SHA384, bytesOf(text)); }
std::string sha512(std::string_view text) { return hexDigest(ZTDigestAlgorithm::SHA512, bytesOf(text)); }

}  // namespace zt
