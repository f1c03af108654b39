// Copying a 64 MiB file with ZTFileManager against a bare copy_file_range loop between the same
// two paths, and against the same loop doing what the manager adds for a whole, durable result
// (temporary name, mode and times, fsync, rename). Files live in $TMPDIR (else /tmp).

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "zentrel/platform/file_manager.h"

namespace {

constexpr std::size_t kFileSize = 64u << 20;

struct Fixture {
  std::string folder;
  std::string source;
  Fixture() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zt-copy-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) std::abort();
    folder = buffer.data();
    source = folder + "/source";
    const int out = open(source.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char> chunk(1 << 20);
    for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 31 + 7);
    for (std::size_t written = 0; written < kFileSize; written += chunk.size()) {
      if (write(out, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) std::abort();
    }
    fsync(out);
    close(out);
  }
  ~Fixture() {
    ZTFileManager::defaultManager()->removeItemAtPath(folder);
  }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

bool copyRange(int in, int out) {
  for (;;) {
    const ssize_t copied = copy_file_range(in, nullptr, out, nullptr, 1u << 30, 0);
    if (copied == 0) return true;
    if (copied < 0) return false;
  }
}

void BM_ZTFileManagerCopy(benchmark::State& state) {
  auto& f = fixture();
  auto manager = ZTFileManager::defaultManager();
  const std::string destination = f.folder + "/copy";
  for (auto _ : state) {
    if (!manager->copyItemAtPath(f.source, destination)) state.SkipWithError("copy failed");
    state.PauseTiming();
    unlink(destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_ZTFileManagerCopy)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

void BM_Baseline_CopyFileRange(benchmark::State& state) {
  auto& f = fixture();
  const std::string destination = f.folder + "/copy";
  for (auto _ : state) {
    const int in = open(f.source.c_str(), O_RDONLY);
    const int out = open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (!copyRange(in, out)) state.SkipWithError("copy_file_range failed");
    close(in);
    close(out);
    state.PauseTiming();
    unlink(destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_Baseline_CopyFileRange)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

void BM_Baseline_CopyFileRangeDurable(benchmark::State& state) {
  auto& f = fixture();
  const std::string destination = f.folder + "/copy";
  const std::string temporary = f.folder + "/.copy.tmp";
  for (auto _ : state) {
    const int in = open(f.source.c_str(), O_RDONLY);
    struct stat info;
    fstat(in, &info);
    const int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!copyRange(in, out)) state.SkipWithError("copy_file_range failed");
    fchmod(out, info.st_mode & 07777);
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    futimens(out, times);
    fsync(out);
    close(in);
    close(out);
    rename(temporary.c_str(), destination.c_str());
    state.PauseTiming();
    unlink(destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_Baseline_CopyFileRangeDurable)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace

BENCHMARK_MAIN();
