// The file-change watcher against a bare inotify read loop on the same file:
// - event-to-start-report latency (write a byte, run the main loop until the start report), beside
//   the time from the same write to a bare poll()+read() of its inotify event; median and p99 are
//   reported as counters (µs);
// - a burst of 10,000 writes read as they happen: it must cost exactly one start and one finish
//   report (the benchmark fails otherwise), beside the bare loop reading the same writes' events;
// - the CPU an idle watcher takes (ZT_WATCH_IDLE_SECONDS, 10 s by default), beside a bare inotify
//   descriptor blocked in poll(); run it on its own with --benchmark_filter=Idle.
// Files live in a private folder under $TMPDIR (else /tmp), inside a quiet subfolder so that the
// watcher's parent-folder watch sees nothing but the benchmark's own changes.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "zentrel/filesystem/file_system_updates_watcher.h"
#include "zentrel/platform/run_loop.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string& folder() {
  static const std::string path = [] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/zt-watch-bench-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    std::filesystem::create_directory(pattern + "/quiet");
    return pattern + "/quiet";
  }();
  return path;
}

struct Counter : ZTFileSystemUpdatesWatcherDelegate {
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                            const ZTValue&) override {
    ++starts;
    startedAt = Clock::now();
  }
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                             const ZTValue&) override {
    ++finishes;
  }
  int starts = 0;
  int finishes = 0;
  Clock::time_point startedAt;
};

void runMainLoopUntil(const std::function<bool()>& done, std::chrono::seconds limit = std::chrono::seconds(10)) {
  const auto deadline = Clock::now() + limit;
  while (!done() && Clock::now() < deadline) ZTRunLoop::main()->runOnce(deadline);
}

void reportLatencies(benchmark::State& state, std::vector<double>& micros) {
  if (micros.empty()) return;
  std::sort(micros.begin(), micros.end());
  state.counters["p50_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
}

int openFile(const std::string& path) { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644); }

void BM_Watcher_EventToStartReport(benchmark::State& state) {
  const std::string path = folder() + "/latency.txt";
  const int fd = openFile(path);
  auto counter = std::make_shared<Counter>();
  auto watcher = ZTFileSystemUpdatesWatcher::create(path, counter);
  std::vector<double> micros;
  for (auto _ : state) {
    const int before = counter->starts;
    const auto written = Clock::now();
    if (::pwrite(fd, "x", 1, 0) != 1) state.SkipWithError("write failed");
    runMainLoopUntil([&] { return counter->starts != before; });
    if (counter->starts == before) {
      state.SkipWithError("no start report");
      break;
    }
    const double seconds = std::chrono::duration<double>(counter->startedAt - written).count();
    state.SetIterationTime(seconds);
    micros.push_back(seconds * 1e6);
    // End the burst silently so that the next write starts a new one.
    watcher->beginIgnoringFileSystemUpdatesForFileAtIndex(0);
    watcher->endIgnoringFileSystemUpdatesForFileAtIndex(0);
  }
  reportLatencies(state, micros);
  ::close(fd);
}
BENCHMARK(BM_Watcher_EventToStartReport)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_Baseline_BareInotifyEventToRead(benchmark::State& state) {
  const std::string path = folder() + "/latency-bare.txt";
  const int fd = openFile(path);
  const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ::inotify_add_watch(inotify, path.c_str(), IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF);
  alignas(struct inotify_event) char buffer[4096];
  std::vector<double> micros;
  for (auto _ : state) {
    const auto written = Clock::now();
    if (::pwrite(fd, "x", 1, 0) != 1) state.SkipWithError("write failed");
    struct pollfd ready {inotify, POLLIN, 0};
    if (::poll(&ready, 1, 10'000) != 1 || ::read(inotify, buffer, sizeof buffer) <= 0) {
      state.SkipWithError("no event");
      break;
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - written).count();
    state.SetIterationTime(seconds);
    micros.push_back(seconds * 1e6);
  }
  reportLatencies(state, micros);
  ::close(inotify);
  ::close(fd);
}
BENCHMARK(BM_Baseline_BareInotifyEventToRead)->UseManualTime()->Unit(benchmark::kMicrosecond);

constexpr int kBurstWrites = 10'000;

// Time for 10,000 one-byte appends with their events read as they come (the loop turns every 100
// writes); the settle wait afterwards is not timed.
void BM_Watcher_BurstOf10000Writes(benchmark::State& state) {
  for (auto _ : state) {
    const std::string path = folder() + "/burst.txt";
    const int fd = openFile(path);
    auto counter = std::make_shared<Counter>();
    auto watcher = ZTFileSystemUpdatesWatcher::create(path, counter);
    watcher->setSettleInterval(std::chrono::milliseconds(200));
    const auto began = Clock::now();
    for (int i = 0; i < kBurstWrites; ++i) {
      if (::write(fd, "x", 1) != 1) state.SkipWithError("write failed");
      if (i % 100 == 99) ZTRunLoop::main()->runOnce(Clock::now());
    }
    runMainLoopUntil([&] { return counter->starts > 0; });
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - began).count());
    runMainLoopUntil([&] { return counter->finishes > 0; });
    ZTRunLoop::main()->runUntil(Clock::now() + std::chrono::milliseconds(500));  // nothing more may come
    state.counters["starts"] = counter->starts;
    state.counters["finishes"] = counter->finishes;
    if (counter->starts != 1 || counter->finishes != 1) state.SkipWithError("a burst must cost one start and one finish");
    ::close(fd);
    ::unlink(path.c_str());
  }
}
BENCHMARK(BM_Watcher_BurstOf10000Writes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_Baseline_BareInotifyBurstOf10000Writes(benchmark::State& state) {
  for (auto _ : state) {
    const std::string path = folder() + "/burst-bare.txt";
    const int fd = openFile(path);
    const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ::inotify_add_watch(inotify, path.c_str(), IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF);
    alignas(struct inotify_event) char buffer[64 * 1024];
    long events = 0;
    const auto drain = [&] {
      for (ssize_t got; (got = ::read(inotify, buffer, sizeof buffer)) > 0;) {
        for (ssize_t offset = 0; offset < got;) {
          const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
          ++events;
          offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
        }
      }
    };
    const auto began = Clock::now();
    for (int i = 0; i < kBurstWrites; ++i) {
      if (::write(fd, "x", 1) != 1) state.SkipWithError("write failed");
      if (i % 100 == 99) drain();
    }
    drain();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - began).count());
    state.counters["events"] = static_cast<double>(events);
    ::close(inotify);
    ::close(fd);
    ::unlink(path.c_str());
  }
}
BENCHMARK(BM_Baseline_BareInotifyBurstOf10000Writes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

long threadCpuMicros() {
  struct rusage usage {};
  ::getrusage(RUSAGE_THREAD, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1'000'000L + usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
}

std::chrono::seconds idleWindow() {
  const char* text = std::getenv("ZT_WATCH_IDLE_SECONDS");
  const long seconds = text ? std::strtol(text, nullptr, 10) : 10;
  return std::chrono::seconds(std::clamp(seconds, 1L, 600L));
}

// CPU of the main thread (µs) while a watcher of a file and its folder waits for 10 s.
void BM_Watcher_Idle(benchmark::State& state) {
  const std::string path = folder() + "/idle.txt";
  ::close(openFile(path));
  auto counter = std::make_shared<Counter>();
  auto watcher = ZTFileSystemUpdatesWatcher::create(std::vector<std::string>{path, folder()}, counter);
  for (auto _ : state) {
    const long before = threadCpuMicros();
    ZTRunLoop::main()->runUntil(Clock::now() + idleWindow());
    state.counters["cpu_us"] = static_cast<double>(threadCpuMicros() - before);
    state.counters["reports"] = counter->starts + counter->finishes;
  }
}
BENCHMARK(BM_Watcher_Idle)->Unit(benchmark::kSecond)->Iterations(1);

void BM_Baseline_BareInotifyIdle(benchmark::State& state) {
  const std::string path = folder() + "/idle-bare.txt";
  ::close(openFile(path));
  const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ::inotify_add_watch(inotify, path.c_str(), IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF);
  for (auto _ : state) {
    const long before = threadCpuMicros();
    struct pollfd ready {inotify, POLLIN, 0};
    ::poll(&ready, 1, static_cast<int>(std::chrono::milliseconds(idleWindow()).count()));
    state.counters["cpu_us"] = static_cast<double>(threadCpuMicros() - before);
  }
  ::close(inotify);
}
BENCHMARK(BM_Baseline_BareInotifyIdle)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(folder()).parent_path(), ignored);
  return 0;
}
