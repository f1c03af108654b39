#include "zentrel/text/gzip.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <string>

namespace zt {
namespace {

constexpr std::size_t kChunk = 16384;

ZTError zlibError(int status, const char* message) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = std::string("gzip compression failed: ") + (message ? message : zError(status)) +
                                    " (zlib status " + std::to_string(status) + ").";
  return ZTError(ZTCocoaErrorDomain, 256, std::move(info));
}

}  // namespace

std::optional<std::vector<std::uint8_t>> gzipDeflate(std::span<const std::uint8_t> data, ZTError* error) {
  if (data.empty()) return std::vector<std::uint8_t>{};

  z_stream stream{};
  int status = deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  if (status != Z_OK) {
    ZTSetError(error, zlibError(status, stream.msg));
    return std::nullopt;
  }

  std::vector<std::uint8_t> out(kChunk);
  std::size_t produced = 0;
  std::size_t consumed = 0;
  // zlib counts input in 32-bit units: larger input is handed over in pieces, the last with
  // Z_FINISH.
  for (;;) {
    if (stream.avail_in == 0 && consumed < data.size()) {
      const std::size_t piece = std::min<std::size_t>(data.size() - consumed, UINT_MAX);
      stream.next_in = const_cast<Bytef*>(data.data() + consumed);
      stream.avail_in = static_cast<uInt>(piece);
      consumed += piece;
    }
    if (produced >= out.size()) out.resize(out.size() + kChunk);
    const std::size_t space = std::min<std::size_t>(out.size() - produced, UINT_MAX);
    stream.next_out = out.data() + produced;
    stream.avail_out = static_cast<uInt>(space);
    const int flush = consumed == data.size() ? Z_FINISH : Z_NO_FLUSH;
    status = deflate(&stream, flush);
    if (status == Z_STREAM_ERROR) {
      ZTSetError(error, zlibError(status, stream.msg));
      deflateEnd(&stream);
      return std::nullopt;
    }
    produced += space - stream.avail_out;
    if (status == Z_STREAM_END) break;
  }
  deflateEnd(&stream);
  out.resize(produced);
  out.shrink_to_fit();
  return out;
}

}  // namespace zt
