// Per-call time of width truncation of a 200-character line, beside the time of one shaping of
// the same line (each truncation shapes the line several times, as its procedure measures after
// every cut).
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "zentrel/typesetting/font.h"
#include "zentrel/typesetting/string_drawing.h"

namespace {

std::string line200() {
  std::string line;
  while (line.size() < 200) line += "The quick brown fox jumps over the lazy dog. ";
  line.resize(200);
  return line;
}

const std::shared_ptr<ZTFont>& benchFont() {
  static const auto font = ZTFont::create("sans-serif", 13);
  return font;
}

void BM_BreakToWidth(benchmark::State& state) {
  const auto& font = benchFont();
  if (!font) return state.SkipWithError("no font installed");
  const std::string line = line200();
  const auto mode = static_cast<ZTLineBreakMode>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(zt::stringByBreakToWidth(line, 300, mode, font));
  state.SetLabel(mode == ZTLineBreakMode::ByTruncatingTail ? "tail" : "middle");
}

void BM_MeasureLine(benchmark::State& state) {
  const auto& font = benchFont();
  if (!font) return state.SkipWithError("no font installed");
  const std::string line = line200();
  for (auto _ : state) benchmark::DoNotOptimize(font->advanceWidth(line));
}

}  // namespace

BENCHMARK(BM_BreakToWidth)
    ->Arg(static_cast<int>(ZTLineBreakMode::ByTruncatingTail))
    ->Arg(static_cast<int>(ZTLineBreakMode::ByTruncatingMiddle))
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MeasureLine)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
