// What reporting progress costs the work it reports on: ProgressBar::update() on every block of a
// copy, beside the peer a hand-written reporter would be (a redraw of the count on every call).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <sstream>

#include "progress.h"

namespace {

void BM_ProgressBarUpdateTerminal(benchmark::State& state) {
  std::ostringstream out;
  ztool::ProgressBar bar(out, "copy", 1ULL << 40, ztool::ProgressBar::Style::Terminal, {}, 80);
  std::uint64_t done = 0;
  for (auto _ : state) {
    bar.update(done += 65536);
    if (out.tellp() > (1 << 20)) out.str({});
  }
}
BENCHMARK(BM_ProgressBarUpdateTerminal);

void BM_ProgressBarUpdatePlain(benchmark::State& state) {
  std::ostringstream out;
  ztool::ProgressBar bar(out, "copy", 1ULL << 40, ztool::ProgressBar::Style::Plain);
  std::uint64_t done = 0;
  for (auto _ : state) {
    bar.update(done += 65536);
    if (out.tellp() > (1 << 20)) out.str({});
  }
}
BENCHMARK(BM_ProgressBarUpdatePlain);

// Peer: redraw a percentage on every call, as a reporter without a rate limit does.
void BM_PeerRedrawEveryCall(benchmark::State& state) {
  std::ostringstream out;
  const std::uint64_t total = 1ULL << 40;
  std::uint64_t done = 0;
  char line[64];
  for (auto _ : state) {
    done += 65536;
    const int n = std::snprintf(line, sizeof line, "\rcopy %5.1f%% %llu bytes", 100.0 * static_cast<double>(done) / static_cast<double>(total),
                                static_cast<unsigned long long>(done));
    out.write(line, n);
    if (out.tellp() > (1 << 20)) out.str({});
  }
}
BENCHMARK(BM_PeerRedrawEveryCall);

}  // namespace

BENCHMARK_MAIN();
