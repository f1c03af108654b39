// Text and data throughput beside the plain calls of the libraries underneath: digests and AES
// against OpenSSL one-shot EVP calls, gzipDeflate against a single zlib deflate call with the same
// settings, the format engine against snprintf on the conversions both have, and the
// case-insensitive search against folding and searching with ICU directly. Measuring and
// truncating with fonts is in typesetting_bench.cpp.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <unicode/unistr.h>
#include <zlib.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "zentrel/text/aes.h"
#include "zentrel/text/digest.h"
#include "zentrel/text/gzip.h"
#include "zentrel/text/string_format.h"
#include "zentrel/text/string_utilities.h"

namespace {

const std::vector<std::uint8_t>& randomData(std::size_t size) {
  static std::vector<std::uint8_t> data = [] {
    std::vector<std::uint8_t> out(64u << 20);
    std::mt19937_64 generator(7);
    for (std::size_t i = 0; i < out.size(); i += 8) {
      const std::uint64_t v = generator();
      for (int k = 0; k < 8; ++k) out[i + k] = static_cast<std::uint8_t>(v >> (8 * k));
    }
    return out;
  }();
  (void)size;
  return data;
}

// Text-like input for compression: words drawn from a small vocabulary.
const std::vector<std::uint8_t>& wordsData() {
  static std::vector<std::uint8_t> data = [] {
    static const char* words[] = {"the ",     "library ", "compresses ", "data ", "with ",   "zlib ",   "and ",
                                  "reports ", "numbers ", "42 ",         "\n",    "format ", "engine ", "text "};
    std::mt19937 generator(3);
    std::vector<std::uint8_t> out;
    out.reserve(8u << 20);
    while (out.size() < (8u << 20)) {
      const char* w = words[generator() % (sizeof words / sizeof *words)];
      out.insert(out.end(), w, w + std::char_traits<char>::length(w));
    }
    out.resize(8u << 20);
    return out;
  }();
  return data;
}

void setBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

const EVP_MD* evpFor(ZTDigestAlgorithm algorithm) {
  switch (algorithm) {
    case ZTDigestAlgorithm::MD5:
      return EVP_md5();
    case ZTDigestAlgorithm::SHA1:
      return EVP_sha1();
    case ZTDigestAlgorithm::SHA256:
      return EVP_sha256();
    case ZTDigestAlgorithm::SHA512:
      return EVP_sha512();
    default:
      return EVP_sha256();
  }
}

template <ZTDigestAlgorithm A>
void BM_Digest_Zentrel(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::span<const std::uint8_t> data(randomData(size).data(), size);
  for (auto _ : state) benchmark::DoNotOptimize(zt::hexDigest(A, data));
  setBytes(state, size);
}

template <ZTDigestAlgorithm A>
void BM_Digest_OpenSSLOneShot(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::uint8_t* data = randomData(size).data();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  for (auto _ : state) {
    EVP_Digest(data, size, out, &length, evpFor(A), nullptr);
    benchmark::DoNotOptimize(out);
  }
  setBytes(state, size);
}

void BM_AES256Encrypt_Zentrel(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::span<const std::uint8_t> data(randomData(size).data(), size);
  for (auto _ : state) benchmark::DoNotOptimize(zt::ztAES256EncryptWithKey(data, "benchmark key"));
  setBytes(state, size);
}

void BM_AES256Encrypt_OpenSSLOneShot(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::uint8_t* data = randomData(size).data();
  unsigned char key[32] = "benchmark key";
  unsigned char iv[16] = {};
  for (auto _ : state) {
    std::vector<std::uint8_t> out(size + 16);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
    int written = 0;
    int final = 0;
    EVP_EncryptUpdate(context, out.data(), &written, data, static_cast<int>(size));
    EVP_EncryptFinal_ex(context, out.data() + written, &final);
    EVP_CIPHER_CTX_free(context);
    out.resize(static_cast<std::size_t>(written + final));
    benchmark::DoNotOptimize(out);
  }
  setBytes(state, size);
}

void BM_AES256Decrypt_Zentrel(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::span<const std::uint8_t> data(randomData(size).data(), size);
  const auto sealed = zt::ztAES256EncryptWithKey(data, "benchmark key");
  for (auto _ : state) benchmark::DoNotOptimize(zt::ztAES256DecryptWithKey(*sealed, "benchmark key"));
  setBytes(state, size);
}

void BM_AES256Decrypt_OpenSSLOneShot(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::span<const std::uint8_t> data(randomData(size).data(), size);
  const auto sealed = zt::ztAES256EncryptWithKey(data, "benchmark key");
  unsigned char key[32] = "benchmark key";
  unsigned char iv[16] = {};
  for (auto _ : state) {
    std::vector<std::uint8_t> out(sealed->size() + 16);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_DecryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
    int written = 0;
    int final = 0;
    EVP_DecryptUpdate(context, out.data(), &written, sealed->data(), static_cast<int>(sealed->size()));
    EVP_DecryptFinal_ex(context, out.data() + written, &final);
    EVP_CIPHER_CTX_free(context);
    out.resize(static_cast<std::size_t>(written + final));
    benchmark::DoNotOptimize(out);
  }
  setBytes(state, size);
}

void BM_Gzip_Zentrel(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::span<const std::uint8_t> data(wordsData().data(), size);
  for (auto _ : state) benchmark::DoNotOptimize(zt::gzipDeflate(data));
  setBytes(state, size);
}

// What compress2 does, with the gzip window bits: one deflate call into a buffer of deflateBound.
void BM_Gzip_ZlibSingleCall(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::uint8_t* data = wordsData().data();
  for (auto _ : state) {
    z_stream stream{};
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    std::vector<std::uint8_t> out(deflateBound(&stream, static_cast<uLong>(size)));
    stream.next_in = const_cast<Bytef*>(data);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    benchmark::DoNotOptimize(out);
  }
  setBytes(state, size);
}

struct Point {
  double x, y;
};

void BM_Format_Zentrel(benchmark::State& state) {
  int value = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(zt::copyZentrelStringWithFormat("item %d of %u: %s at %f (%c) %lld %p", -42, 1000u, "name",
                                                             3.14159, 'x', 1234567890123LL, &value));
  }
}

void BM_Format_Snprintf(benchmark::State& state) {
  int value = 0;
  for (auto _ : state) {
    char buffer[256];
    const int n = std::snprintf(buffer, sizeof buffer, "item %d of %u: %s at %f (%c) %lld %p", -42, 1000u, "name",
                                3.14159, 'x', 1234567890123LL, static_cast<void*>(&value));
    benchmark::DoNotOptimize(std::string(buffer, static_cast<std::size_t>(n)));
  }
}

// The conversions that carry flags, widths and precisions.
void BM_Format_ZentrelDirectives(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        zt::copyZentrelStringWithFormat("[%5.2f|%-8s|%08x|%e|%g|%+d]", 3.14159, "name", 48879u, 0.000123, 1e10, 7));
  }
}

void BM_Format_SnprintfDirectives(benchmark::State& state) {
  for (auto _ : state) {
    char buffer[256];
    const int n =
        std::snprintf(buffer, sizeof buffer, "[%5.2f|%-8s|%08x|%e|%g|%+d]", 3.14159, "name", 48879u, 0.000123, 1e10, 7);
    benchmark::DoNotOptimize(std::string(buffer, static_cast<std::size_t>(n)));
  }
}

void BM_Format_ZentrelPoint(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(zt::copyZentrelStringWithFormat("at %point", Point{1.5, -2.25}));
}

void BM_Format_SnprintfPoint(benchmark::State& state) {
  for (auto _ : state) {
    char buffer[128];
    const int n = std::snprintf(buffer, sizeof buffer, "at (%f, %f)", 1.5, -2.25);
    benchmark::DoNotOptimize(std::string(buffer, static_cast<std::size_t>(n)));
  }
}

// 8 MiB of mixed-case words with some non-ASCII ones; the needle is absent, so the whole text is
// searched.
const std::string& searchText() {
  static const std::string text = [] {
    static const char* words[] = {"The ", "Straße ", "library ", "SEARCHES ", "Text ", "ΣΊΣΥΦΟΣ ", "for ",
                                  "Needles ", "café ", "\n", "and ", "Haystacks "};
    std::mt19937 generator(5);
    std::string out;
    out.reserve((8u << 20) + 16);
    while (out.size() < (8u << 20)) out += words[generator() % (sizeof words / sizeof *words)];
    while ((static_cast<unsigned char>(out.back()) & 0xC0) == 0x80 || out.size() > (8u << 20)) out.pop_back();
    return out;
  }();
  return text;
}

constexpr const char* kAbsentNeedle = "NEEDLES IN HAYSTACKS";

void BM_HasStringInsensitive_Zentrel(benchmark::State& state) {
  const std::string& text = searchText();
  for (auto _ : state) benchmark::DoNotOptimize(zt::hasStringInsensitive(text, kAbsentNeedle));
  setBytes(state, text.size());
}

// The peer: fold the whole text and the needle with ICU and search once.
void BM_HasStringInsensitive_ICUFoldAndSearch(benchmark::State& state) {
  const std::string& text = searchText();
  for (auto _ : state) {
    icu::UnicodeString folded = icu::UnicodeString::fromUTF8(text);
    folded.foldCase();
    icu::UnicodeString needle = icu::UnicodeString::fromUTF8(kAbsentNeedle);
    needle.foldCase();
    benchmark::DoNotOptimize(folded.indexOf(needle) >= 0);
  }
  setBytes(state, text.size());
}

}  // namespace

#define ZT_DIGEST_BENCH(A)                                                                              \
  BENCHMARK_TEMPLATE(BM_Digest_Zentrel, A)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond); \
  BENCHMARK_TEMPLATE(BM_Digest_OpenSSLOneShot, A)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond)

ZT_DIGEST_BENCH(ZTDigestAlgorithm::MD5);
ZT_DIGEST_BENCH(ZTDigestAlgorithm::SHA1);
ZT_DIGEST_BENCH(ZTDigestAlgorithm::SHA256);
ZT_DIGEST_BENCH(ZTDigestAlgorithm::SHA512);
BENCHMARK(BM_AES256Encrypt_Zentrel)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AES256Encrypt_OpenSSLOneShot)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AES256Decrypt_Zentrel)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AES256Decrypt_OpenSSLOneShot)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Gzip_Zentrel)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Gzip_ZlibSingleCall)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Format_Zentrel);
BENCHMARK(BM_Format_Snprintf);
BENCHMARK(BM_Format_ZentrelDirectives);
BENCHMARK(BM_Format_SnprintfDirectives);
BENCHMARK(BM_Format_ZentrelPoint);
BENCHMARK(BM_Format_SnprintfPoint);
BENCHMARK(BM_HasStringInsensitive_Zentrel)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HasStringInsensitive_ICUFoldAndSearch)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
