// Moving file content with the transfer operations against the kernel's and a plain loop's way of
// doing the same, between files on one file system ($TMPDIR, else /tmp; the library's staging
// folder is put there too, so the final move is a rename):
//
//   SaveStream              ZTSaveStreamToLocalFileOperation draining a file input stream into a
//                           new file (staging file, fsync, coordinated move into place)
//   CopyFileAsync           ZTCopyFileAsyncOperation copying the file to a new path
//   Peer_CopyFileRange      copy_file_range into a new file
//   Peer_CopyFileRangeSync  the same, then fsync (what the operations add for a durable result)
//   Peer_ReadWrite32K       a plain loop of 32 KiB read()s and write()s
//   Peer_ReadWrite32KSync   the same, then fsync
//
// The argument is the size in MiB (256 and 1024). Each benchmark reports peak_rss_MiB: the
// process's peak resident memory while it ran (VmHWM, reset through /proc/self/clear_refs before
// it starts), which shows what one read of the stream holds.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/copy_file_async_operation.h"
#include "zentrel/transfer/save_stream_to_local_file_operation.h"

namespace {
using namespace std::chrono_literals;

struct Fixture {
  std::string folder;
  std::map<std::int64_t, std::string> sources;  // by size in MiB

  Fixture() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp == '/' ? tmp : "/tmp") + "/zt-transfer-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) std::abort();
    folder = buffer.data();
    // The staging files of the library land beside the destinations: one file system, renames only.
    setenv("TMPDIR", folder.c_str(), 1);
  }
  ~Fixture() { ZTFileManager::defaultManager()->removeItemAtPath(folder); }

  const std::string& source(std::int64_t mebibytes) {
    auto found = sources.find(mebibytes);
    if (found != sources.end()) return found->second;
    const std::string path = folder + "/source-" + std::to_string(mebibytes);
    const int out = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    std::vector<char> chunk(1 << 20);
    for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 31 + 7);
    for (std::int64_t written = 0; written < mebibytes; ++written) {
      chunk[0] = static_cast<char>(written);
      if (write(out, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) std::abort();
    }
    fsync(out);
    close(out);
    return sources.emplace(mebibytes, path).first->second;
  }
  std::string destination() const { return folder + "/destination"; }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

// Peak resident memory: reset before a benchmark, read after it.
void resetPeakResidentMemory() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
}
double peakResidentMebibytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) / 1024.0;
  }
  return 0;
}

void finish(benchmark::State& state, std::int64_t mebibytes) {
  state.SetBytesProcessed(state.iterations() * (mebibytes << 20));
  state.counters["peak_rss_MiB"] = peakResidentMebibytes();
}

void removeDestination(benchmark::State& state, const std::string& path) {
  state.PauseTiming();
  unlink(path.c_str());
  state.ResumeTiming();
}

void BM_SaveStream(benchmark::State& state) {
  auto& f = fixture();
  const std::string& source = f.source(state.range(0));
  const std::string destination = f.destination();
  ZTScopedThreadWithRunLoop<> worker("bench worker");
  resetPeakResidentMemory();
  for (auto _ : state) {
    bool succeeded = false;
    auto operation = ZTSaveStreamToLocalFileOperation::create(
        ZTInputStream::inputStreamWithFileAtPath(source), destination, nullptr, worker.thread(), nullptr, nullptr,
        [&](ZTSaveStreamToLocalFileOperation&) { succeeded = true; }, nullptr);
    operation->start();
    if (!operation->waitUntilFinished(600s) || !succeeded) state.SkipWithError("saving failed");
    removeDestination(state, destination);
  }
  finish(state, state.range(0));
}

void BM_CopyFileAsync(benchmark::State& state) {
  auto& f = fixture();
  const std::string& source = f.source(state.range(0));
  const std::string destination = f.destination();
  ZTScopedThreadWithRunLoop<> worker("bench worker");
  resetPeakResidentMemory();
  for (auto _ : state) {
    bool succeeded = false;
    auto operation = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(worker.thread());
    operation->setSourceFilePath(source);
    operation->setDestinationFilePath(destination);
    operation->setSuccessHandler([&](ZTCopyFileAsyncOperation&) { succeeded = true; });
    operation->start();
    if (!operation->waitUntilFinished(600s) || !succeeded) state.SkipWithError("copy failed");
    removeDestination(state, destination);
  }
  finish(state, state.range(0));
}

void copyFileRange(benchmark::State& state, bool sync) {
  auto& f = fixture();
  const std::string& source = f.source(state.range(0));
  const std::string destination = f.destination();
  resetPeakResidentMemory();
  for (auto _ : state) {
    const int in = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    for (;;) {
      const ssize_t copied = copy_file_range(in, nullptr, out, nullptr, 1u << 30, 0);
      if (copied == 0) break;
      if (copied < 0) {
        state.SkipWithError("copy_file_range failed");
        break;
      }
    }
    if (sync) fsync(out);
    close(out);
    close(in);
    removeDestination(state, destination);
  }
  finish(state, state.range(0));
}

void readWrite32K(benchmark::State& state, bool sync) {
  auto& f = fixture();
  const std::string& source = f.source(state.range(0));
  const std::string destination = f.destination();
  std::vector<char> buffer(32 * 1024);
  resetPeakResidentMemory();
  for (auto _ : state) {
    const int in = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    for (;;) {
      const ssize_t got = read(in, buffer.data(), buffer.size());
      if (got <= 0) break;
      if (write(out, buffer.data(), static_cast<std::size_t>(got)) != got) {
        state.SkipWithError("write failed");
        break;
      }
    }
    if (sync) fsync(out);
    close(out);
    close(in);
    removeDestination(state, destination);
  }
  finish(state, state.range(0));
}

void BM_Peer_CopyFileRange(benchmark::State& state) { copyFileRange(state, false); }
void BM_Peer_CopyFileRangeSync(benchmark::State& state) { copyFileRange(state, true); }
void BM_Peer_ReadWrite32K(benchmark::State& state) { readWrite32K(state, false); }
void BM_Peer_ReadWrite32KSync(benchmark::State& state) { readWrite32K(state, true); }

#define ZT_TRANSFER_BENCHMARK(name) \
  BENCHMARK(name)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)

ZT_TRANSFER_BENCHMARK(BM_SaveStream);
ZT_TRANSFER_BENCHMARK(BM_CopyFileAsync);
ZT_TRANSFER_BENCHMARK(BM_Peer_CopyFileRange);
ZT_TRANSFER_BENCHMARK(BM_Peer_CopyFileRangeSync);
ZT_TRANSFER_BENCHMARK(BM_Peer_ReadWrite32K);
ZT_TRANSFER_BENCHMARK(BM_Peer_ReadWrite32KSync);

}  // namespace

BENCHMARK_MAIN();
