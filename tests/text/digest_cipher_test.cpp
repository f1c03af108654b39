#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>

#include "zentrel/text/aes.h"
#include "zentrel/text/binary_data.h"
#include "zentrel/text/digest.h"
#include "zentrel/text/gzip.h"

namespace {

using namespace zt;

Bytes fromHex(std::string_view hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  return out;
}

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes randomBytes(std::size_t count, unsigned randomSeed) {
  std::mt19937 generator(randomSeed);
  Bytes out(count);
  for (auto& b : out) b = static_cast<std::uint8_t>(generator());
  return out;
}

TEST(Digests, PublishedTestVectors) {
  EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5("The quick brown fox jumps over the lazy dog"), "9e107d9d372bb6826bd81d3542a419d6");
  EXPECT_EQ(sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(sha224("abc"), "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7");
  EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha384("abc"),
            "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7");
  EXPECT_EQ(sha512("abc"),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feeb"
            "bd454d4423643ce80e2a9ac94fa54ca49f");
  const std::string million(1000000, 'a');
  EXPECT_EQ(sha1(million), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
  EXPECT_EQ(sha256(million), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  // Texts are digested as UTF-8, bytes as they are.
  EXPECT_EQ(sha1Hash(bytes("abc")), sha1("abc"));
  EXPECT_EQ(md5("\u00E9"), hexDigest(ZTDigestAlgorithm::MD5, Bytes{0xC3, 0xA9}));
  for (auto algorithm : {ZTDigestAlgorithm::MD5, ZTDigestAlgorithm::SHA1, ZTDigestAlgorithm::SHA224,
                         ZTDigestAlgorithm::SHA256, ZTDigestAlgorithm::SHA384, ZTDigestAlgorithm::SHA512}) {
    EXPECT_EQ(digest(algorithm, Bytes{}).size(), digestLength(algorithm));
  }
  // Digests are lower case, hex text of data is upper case.
  EXPECT_EQ(hexString(fromHex("a9993e")), "A9993E");
}

TEST(AES256, FirstBlockMatchesPublishedVectorsWithZeroIV) {
  // With an all-zero vector the first CBC block is the plain AES block of the standards.
  const Bytes fipsKey = fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
  auto fips = ztAES256EncryptWithKeyData(fromHex("00112233445566778899aabbccddeeff"), fipsKey);
  ASSERT_TRUE(fips);
  ASSERT_EQ(fips->size(), 32u);  // one block of PKCS#7 padding follows a whole block
  EXPECT_EQ(Bytes(fips->begin(), fips->begin() + 16), fromHex("8ea2b7ca516745bfeafc49904b496089"));

  const Bytes nistKey = fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  auto nist = ztAES256EncryptWithKeyData(fromHex("6bc1bee22e409f96e93d7e117393172a"), nistKey);
  ASSERT_TRUE(nist);
  EXPECT_EQ(Bytes(nist->begin(), nist->begin() + 16), fromHex("f3eed1bdb5d2a03c064b5a7e3db181f8"));
  auto back = ztAES256DecryptWithKeyData(*nist, nistKey);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, fromHex("6bc1bee22e409f96e93d7e117393172a"));
}

TEST(AES256, RoundTripsAndPadsToWholeBlocks) {
  for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 1000u, 65536u}) {
    const Bytes plain = randomBytes(length, static_cast<unsigned>(length));
    auto sealed = ztAES256EncryptWithKey(plain, "secret");
    ASSERT_TRUE(sealed);
    EXPECT_EQ(sealed->size(), (length / 16 + 1) * 16) << length;
    auto opened = ztAES256DecryptWithKey(*sealed, "secret");
    ASSERT_TRUE(opened);
    EXPECT_EQ(*opened, plain);
  }
}

TEST(AES256, KeysArePaddedWithZerosOrCutAt32Bytes) {
  const Bytes plain = bytes("attack at dawn");
  Bytes padded = bytes("short");
  padded.resize(32, 0);
  EXPECT_EQ(ztAES256EncryptWithKey(plain, "short"), ztAES256EncryptWithKeyData(plain, padded));
  const std::string longKey = "0123456789abcdef0123456789abcdef-and-more";
  EXPECT_EQ(ztAES256EncryptWithKey(plain, longKey), ztAES256EncryptWithKey(plain, longKey.substr(0, 32)));
  EXPECT_NE(ztAES256EncryptWithKey(plain, "short"), ztAES256EncryptWithKey(plain, "shorT"));
}

TEST(AES256, GarbageAndWrongKeysNeverCrash) {
  EXPECT_FALSE(ztAES256DecryptWithKey(Bytes{}, "k"));
  EXPECT_FALSE(ztAES256DecryptWithKey(randomBytes(17, 1), "k"));
  auto sealed = ztAES256EncryptWithKey(bytes("a message of some length"), "right");
  ASSERT_TRUE(sealed);
  int rejected = 0;
  for (int i = 0; i < 50; ++i) {
    auto opened = ztAES256DecryptWithKey(*sealed, "wrong" + std::to_string(i));
    if (!opened)
      ++rejected;
    else
      EXPECT_NE(*opened, bytes("a message of some length"));
  }
  EXPECT_GT(rejected, 40);  // a wrong key passes the padding check only by chance
}

Bytes inflateGzip(const Bytes& compressed) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  Bytes out;
  stream.next_in = const_cast<Bytef*>(compressed.data());
  stream.avail_in = static_cast<uInt>(compressed.size());
  std::uint8_t buffer[65536];
  int status = Z_OK;
  while (status == Z_OK) {
    stream.next_out = buffer;
    stream.avail_out = sizeof buffer;
    status = inflate(&stream, Z_NO_FLUSH);
    out.insert(out.end(), buffer, buffer + (sizeof buffer - stream.avail_out));
  }
  EXPECT_EQ(status, Z_STREAM_END);
  EXPECT_EQ(stream.avail_in, 0u);  // nothing after the gzip member
  inflateEnd(&stream);
  return out;
}

TEST(Gzip, OutputIsAGzipFileThatZlibReadsBack) {
  const Bytes text = bytes("hello hello hello hello gzip");
  auto compressed = gzipDeflate(text);
  ASSERT_TRUE(compressed);
  ASSERT_GE(compressed->size(), 18u);
  EXPECT_EQ((*compressed)[0], 0x1F);
  EXPECT_EQ((*compressed)[1], 0x8B);
  EXPECT_EQ((*compressed)[2], 8);  // deflate
  EXPECT_EQ(inflateGzip(*compressed), text);
  // The trailer holds the input size, little-endian.
  EXPECT_EQ(uint32LEAt(*compressed, static_cast<std::int32_t>(compressed->size() - 4)), text.size());
}

TEST(Gzip, LargeAndIncompressibleInputGrowsTheOutput) {
  const Bytes noise = randomBytes(3 * 1024 * 1024 + 7, 42);  // output larger than many 16 KiB steps
  auto compressed = gzipDeflate(noise);
  ASSERT_TRUE(compressed);
  EXPECT_GT(compressed->size(), noise.size());
  EXPECT_EQ(inflateGzip(*compressed), noise);

  const Bytes zeros(8 * 1024 * 1024, 0);
  auto small = gzipDeflate(zeros);
  ASSERT_TRUE(small);
  EXPECT_LT(small->size(), 64u * 1024);
  EXPECT_EQ(inflateGzip(*small), zeros);
}

TEST(Gzip, EmptyInputIsReturnedUnchanged) {
  auto compressed = gzipDeflate(Bytes{});
  ASSERT_TRUE(compressed);
  EXPECT_TRUE(compressed->empty());
}

}  // namespace
