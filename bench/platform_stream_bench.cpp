// Streams against the system calls under them, in the same binary:
//  - reading a 256 MiB file through an input stream scheduled on a run loop (one 32 KiB read per
//    has-bytes-available event) against a plain loop of 32 KiB read() calls;
//  - moving 64 MiB through a socket pair, output and input streams scheduled on one run loop with
//    16 KiB writes, against one thread doing the same 16 KiB writes and draining reads on the raw
//    non-blocking sockets.
// The file lives in $TMPDIR (else /tmp) and is read once before measuring, so both read from the
// page cache.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"

namespace {

constexpr std::size_t kFileSize = 256u << 20;
constexpr std::size_t kReadSize = 32u << 10;
constexpr std::size_t kSocketBytes = 64u << 20;
constexpr std::size_t kWriteSize = 16u << 10;

struct Fixture {
  std::string folder;
  std::string source;
  Fixture() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zt-stream-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) std::abort();
    folder = buffer.data();
    source = folder + "/source";
    const int out = open(source.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    std::vector<char> chunk(1 << 20);
    for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 31 + 7);
    for (std::size_t written = 0; written < kFileSize; written += chunk.size()) {
      if (write(out, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) std::abort();
    }
    close(out);
  }
  ~Fixture() { ZTFileManager::defaultManager()->removeItemAtPath(folder); }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

std::size_t plainRead(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<char> buffer(kReadSize);
  std::size_t total = 0;
  for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) total += static_cast<std::size_t>(n);
  close(fd);
  return total;
}

struct Reader : ZTStreamDelegate {
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(kReadSize);
  std::size_t total = 0;
  bool done = false;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    if (event == ZTStreamEvent::HasBytesAvailable) {
      const auto n = static_cast<ZTInputStream&>(stream).read(buffer.data(), buffer.size());
      if (n > 0) total += static_cast<std::size_t>(n);
    } else if (event == ZTStreamEvent::EndEncountered || event == ZTStreamEvent::ErrorOccurred) {
      done = true;
    }
  }
};

void BM_InputStreamFileOnRunLoop(benchmark::State& state) {
  const std::string path = fixture().source;
  plainRead(path);
  auto loop = ZTRunLoop::current();
  for (auto _ : state) {
    auto reader = std::make_shared<Reader>();
    auto input = ZTInputStream::inputStreamWithFileAtPath(path);
    input->setDelegate(reader);
    input->scheduleInRunLoop(*loop);
    input->open();
    loop->runWithCondition([&] { return !reader->done; }, std::chrono::seconds(60));
    if (reader->total != kFileSize) state.SkipWithError("short read");
    input->close();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_InputStreamFileOnRunLoop)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

void BM_Baseline_Read32KiBLoop(benchmark::State& state) {
  const std::string path = fixture().source;
  plainRead(path);
  for (auto _ : state) {
    if (plainRead(path) != kFileSize) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_Baseline_Read32KiBLoop)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

struct Writer : ZTStreamDelegate {
  std::vector<std::uint8_t> block = std::vector<std::uint8_t>(kWriteSize, 0x5a);
  std::size_t sent = 0;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    if (event != ZTStreamEvent::HasSpaceAvailable) return;
    if (sent >= kSocketBytes) return stream.close();
    const auto n = static_cast<ZTOutputStream&>(stream).write(block.data(), block.size());
    if (n > 0) sent += static_cast<std::size_t>(n);
  }
};

void BM_StreamPairSocketThroughput(benchmark::State& state) {
  auto loop = ZTRunLoop::current();
  for (auto _ : state) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    auto sending = ZTStream::streamPairWithSocket(ends[0]);
    auto receiving = ZTStream::streamPairWithSocket(ends[1]);
    auto writer = std::make_shared<Writer>();
    auto reader = std::make_shared<Reader>();
    sending->outputStream->setDelegate(writer);
    receiving->inputStream->setDelegate(reader);
    for (ZTStream* s : {static_cast<ZTStream*>(sending->outputStream.get()),
                        static_cast<ZTStream*>(receiving->inputStream.get())}) {
      s->scheduleInRunLoop(*loop);
      s->open();
    }
    sending->inputStream.reset();  // only one direction is used: the sender's input goes
    loop->runWithCondition([&] { return !reader->done; }, std::chrono::seconds(60));
    if (reader->total != kSocketBytes) state.SkipWithError("short transfer");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSocketBytes));
}
BENCHMARK(BM_StreamPairSocketThroughput)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

void BM_Baseline_RawSocketPair16KiBWrites(benchmark::State& state) {
  for (auto _ : state) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    std::vector<char> block(kWriteSize, 0x5a);
    std::vector<char> buffer(kReadSize);
    std::size_t sent = 0;
    std::size_t received = 0;
    while (received < kSocketBytes) {
      if (sent < kSocketBytes) {
        const ssize_t n = send(ends[0], block.data(), block.size(), MSG_NOSIGNAL);
        if (n > 0) sent += static_cast<std::size_t>(n);
        if (sent >= kSocketBytes) shutdown(ends[0], SHUT_WR);
      }
      for (ssize_t n; (n = recv(ends[1], buffer.data(), buffer.size(), 0)) > 0;) received += static_cast<std::size_t>(n);
    }
    close(ends[0]);
    close(ends[1]);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSocketBytes));
}
BENCHMARK(BM_Baseline_RawSocketPair16KiBWrites)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace

BENCHMARK_MAIN();
