// The cost of file coordination.
//
// Copy of a 256 MiB file: the coordinated copy (claims, then the file manager's copy, which builds
// the copy under a hidden name with copy_file_range, fsyncs it and renames it into place) against
// the same steps done by hand with copy_file_range (the peer), and against the file manager's copy
// without claims (which separates the claims' cost from the file manager's).
//
// One claim, uncontended: a read claim and a write claim on a file three folders deep (so four
// lock files: "/", two folders and the file) against one bare open + F_OFD_SETLK + close of a lock
// file (the peer).

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "zentrel/filesystem/coordinated_file_operations.h"
#include "zentrel/platform/file_coordinator.h"
#include "zentrel/platform/file_manager.h"

namespace {

constexpr std::size_t kCopySize = 256u << 20;

struct Fixture {
  std::string folder;
  std::string source;
  std::string destination;

  Fixture() {
    char pattern[] = "/tmp/zt-coordination-bench-XXXXXX";
    folder = ::mkdtemp(pattern);
    // The lock folder of this run, beside the files.
    ::setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
    source = folder + "/source.bin";
    destination = folder + "/copy.bin";
    std::vector<char> chunk(1u << 20);
    for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 131 + 7);
    FILE* file = std::fopen(source.c_str(), "wb");
    for (std::size_t written = 0; file && written < kCopySize; written += chunk.size()) {
      std::fwrite(chunk.data(), 1, chunk.size(), file);
    }
    if (file) std::fclose(file);
  }
  ~Fixture() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

// The peer: copy_file_range into a hidden file beside the destination, fsync, rename.
bool copyByHand(const std::string& source, const std::string& destination) {
  const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  struct stat info {};
  ::fstat(in, &info);
  const std::string temporary = destination + ".partial";
  const int out = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (out < 0) {
    ::close(in);
    return false;
  }
  off_t left = info.st_size;
  while (left > 0) {
    const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, static_cast<std::size_t>(left), 0);
    if (n <= 0) break;
    left -= n;
  }
  const bool ok = left == 0 && ::fsync(out) == 0;
  ::close(out);
  ::close(in);
  return ok && ::rename(temporary.c_str(), destination.c_str()) == 0;
}

void BM_Copy256MiB_Coordinated(benchmark::State& state) {
  Fixture& f = fixture();
  auto manager = ZTFileManager::create();
  for (auto _ : state) {
    if (!zt::copyItemWithCoordinationFromPath(*manager, f.source, f.destination)) state.SkipWithError("copy failed");
    state.PauseTiming();
    ::unlink(f.destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kCopySize));
}
BENCHMARK(BM_Copy256MiB_Coordinated)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_Copy256MiB_FileManagerWithoutClaims(benchmark::State& state) {
  Fixture& f = fixture();
  auto manager = ZTFileManager::create();
  for (auto _ : state) {
    if (!manager->copyItemAtPath(f.source, f.destination)) state.SkipWithError("copy failed");
    state.PauseTiming();
    ::unlink(f.destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kCopySize));
}
BENCHMARK(BM_Copy256MiB_FileManagerWithoutClaims)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_Copy256MiB_Peer_CopyFileRange(benchmark::State& state) {
  Fixture& f = fixture();
  for (auto _ : state) {
    if (!copyByHand(f.source, f.destination)) state.SkipWithError("copy failed");
    state.PauseTiming();
    ::unlink(f.destination.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kCopySize));
}
BENCHMARK(BM_Copy256MiB_Peer_CopyFileRange)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

std::string claimedItem() {
  Fixture& f = fixture();
  const std::string inner = f.folder + "/inner";
  ::mkdir(inner.c_str(), 0700);
  return inner + "/document.txt";  // /tmp/<folder>/inner/document.txt
}

void BM_Claim_Read(benchmark::State& state) {
  const std::string path = claimedItem();
  auto coordinator = ZTFileCoordinator::create();
  for (auto _ : state) {
    coordinator->coordinateReadingItemAtURL(path, 0, nullptr, [](const std::string& p) { benchmark::DoNotOptimize(p); });
  }
}
BENCHMARK(BM_Claim_Read)->Unit(benchmark::kMicrosecond);

void BM_Claim_Write(benchmark::State& state) {
  const std::string path = claimedItem();
  auto coordinator = ZTFileCoordinator::create();
  for (auto _ : state) {
    coordinator->coordinateWritingItemAtURL(path, 0, nullptr, [](const std::string& p) { benchmark::DoNotOptimize(p); });
  }
}
BENCHMARK(BM_Claim_Write)->Unit(benchmark::kMicrosecond);

void BM_Claim_Peer_OpenSetLkClose(benchmark::State& state) {
  const std::string lockFile = fixture().folder + "/peer.lock";
  for (auto _ : state) {
    const int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    benchmark::DoNotOptimize(::fcntl(fd, F_OFD_SETLK, &range));
    ::close(fd);
  }
}
BENCHMARK(BM_Claim_Peer_OpenSetLkClose)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
