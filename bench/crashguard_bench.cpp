// One guarded operation (a record written before the block and removed after it: two whole,
// atomic, durable saves of the crash log) against two such saves written directly with POSIX calls
// (temporary file, write, fsync, rename, fsync of the folder) on the same file system, and the signal
// guard against a bare call. The files live in a folder beside the current directory's, not in a
// memory file system, so fsync costs what it costs for a user's caches folder.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/crashguard/signal_guard.h"

namespace {

std::string benchFolder() {
  static const std::string folder = [] {
    std::string pattern = std::filesystem::current_path().string() + "/zt-crashguard-bench-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    return pattern;
  }();
  return folder;
}

// The peer: what any careful program writes to replace a small file durably.
void saveAtomically(const std::string& path, const std::string& bytes) {
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) std::abort();
  if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
  ::fsync(fd);
  ::close(fd);
  if (::rename(temporary.c_str(), path.c_str()) != 0) std::abort();
  const int folder = ::open(benchFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ::fsync(folder);
  ::close(folder);
}

void BM_GuardedOperation(benchmark::State& state) {
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(benchFolder() + "/guarded.plist");
  for (auto _ : state) {
    const bool ran = logger->performOperationWithIdentifier("operation", [] {});
    benchmark::DoNotOptimize(ran);
  }
}
BENCHMARK(BM_GuardedOperation)->UseRealTime();

void BM_PeerTwoAtomicDurableSaves(benchmark::State& state) {
  // The same two texts the logger writes: the record, then the empty log.
  const std::string withRecord =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n\t<key>operation</key>\n"
      "\t<dict/>\n</dict>\n</plist>\n";
  const std::string empty =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict/>\n</plist>\n";
  const std::string path = benchFolder() + "/peer.plist";
  for (auto _ : state) {
    saveAtomically(path, withRecord);
    saveAtomically(path, empty);
  }
}
BENCHMARK(BM_PeerTwoAtomicDurableSaves)->UseRealTime();

void BM_SignalGuardedCall(benchmark::State& state) {
  int counter = 0;
  for (auto _ : state) {
    const bool ok = executeInTryCatchWithSignalHandler([&] { ++counter; });
    benchmark::DoNotOptimize(ok);
  }
  benchmark::DoNotOptimize(counter);
}
BENCHMARK(BM_SignalGuardedCall);

void BM_PeerBareCall(benchmark::State& state) {
  int counter = 0;
  std::function<void()> call = [&] { ++counter; };
  for (auto _ : state) {
    call();
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(counter);
}
BENCHMARK(BM_PeerBareCall);

struct RemoveFolder {
  ~RemoveFolder() {
    std::error_code code;
    std::filesystem::remove_all(benchFolder(), code);
  }
} removeFolderAtExit;

}  // namespace

BENCHMARK_MAIN();
