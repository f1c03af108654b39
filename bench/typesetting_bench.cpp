// Width truncation of a 200-character line and word wrapping of a 24 KB paragraph, beside the same
// work done by a bare Pango layout (the peer: one layout, the text set, its size asked for).
// Truncation measures the line several times, as its procedure measures after every cut; wrapping
// lays the paragraph out once.
#include <benchmark/benchmark.h>
#include <pango/pangocairo.h>

#include <cfloat>
#include <memory>
#include <string>

#include "zentrel/typesetting/font.h"
#include "zentrel/typesetting/string_drawing.h"

namespace {

constexpr double kFontSize = 13;

std::string sentences(std::size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += "The quick brown fox jumps over the lazy dog. ";
  text.resize(bytes);
  return text;
}

const std::shared_ptr<ZTFont>& benchFont() {
  static const auto font = ZTFont::create("sans-serif", kFontSize);
  return font;
}

// The peer: a Pango layout of the same family and size, unhinted, as a measuring layout is.
class PangoPeer {
 public:
  PangoPeer() {
    context_ = pango_font_map_create_context(pango_cairo_font_map_get_default());
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context_, FALSE);
    layout_ = pango_layout_new(context_);
    PangoFontDescription* description = pango_font_description_from_string("sans-serif");
    pango_font_description_set_absolute_size(description, kFontSize * PANGO_SCALE);
    pango_layout_set_font_description(layout_, description);
    pango_font_description_free(description);
  }
  ~PangoPeer() {
    g_object_unref(layout_);
    g_object_unref(context_);
  }
  PangoPeer(const PangoPeer&) = delete;
  PangoPeer& operator=(const PangoPeer&) = delete;

  // Width and line count of the text laid out within `width` points (0: no limit).
  std::pair<int, int> layOut(const std::string& text, double width) {
    pango_layout_set_width(layout_, width > 0 ? static_cast<int>(width * PANGO_SCALE) : -1);
    pango_layout_set_wrap(layout_, PANGO_WRAP_WORD_CHAR);
    pango_layout_set_text(layout_, text.data(), static_cast<int>(text.size()));
    int w = 0;
    int h = 0;
    pango_layout_get_size(layout_, &w, &h);
    return {w, pango_layout_get_line_count(layout_)};
  }

 private:
  PangoContext* context_;
  PangoLayout* layout_;
};

void BM_BreakToWidth(benchmark::State& state) {
  const auto& font = benchFont();
  if (!font) return state.SkipWithError("no font installed");
  const std::string line = sentences(200);
  const auto mode = static_cast<ZTLineBreakMode>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(zt::stringByBreakToWidth(line, 300, mode, font));
  state.SetLabel(mode == ZTLineBreakMode::ByTruncatingTail ? "tail" : "middle");
}

void BM_MeasureLine(benchmark::State& state) {
  const auto& font = benchFont();
  if (!font) return state.SkipWithError("no font installed");
  const std::string line = sentences(200);
  for (auto _ : state) benchmark::DoNotOptimize(zt::ztSizeWithFont(line, font));
}

void BM_PangoMeasureLine(benchmark::State& state) {
  PangoPeer peer;
  const std::string line = sentences(200);
  for (auto _ : state) benchmark::DoNotOptimize(peer.layOut(line, 0));
}

// range(0): the width limit in points; 0 is the largest double, which a caller may pass for "no
// limit".
double wrapWidth(const benchmark::State& state) { return state.range(0) ? static_cast<double>(state.range(0)) : DBL_MAX; }

void BM_WrapParagraph(benchmark::State& state) {
  const auto& font = benchFont();
  if (!font) return state.SkipWithError("no font installed");
  const std::string paragraph = sentences(24 * 1024);
  const double width = wrapWidth(state);
  for (auto _ : state) benchmark::DoNotOptimize(zt::ztSizeWithFont(paragraph, font, ZTSize{width, 0}));
}

void BM_PangoWrapParagraph(benchmark::State& state) {
  PangoPeer peer;
  const std::string paragraph = sentences(24 * 1024);
  const double width = wrapWidth(state);
  for (auto _ : state) benchmark::DoNotOptimize(peer.layOut(paragraph, width < 1e6 ? width : 0));
}

}  // namespace

BENCHMARK(BM_BreakToWidth)
    ->Arg(static_cast<int>(ZTLineBreakMode::ByTruncatingTail))
    ->Arg(static_cast<int>(ZTLineBreakMode::ByTruncatingMiddle))
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MeasureLine)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PangoMeasureLine)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WrapParagraph)->Arg(400)->Arg(1000000000)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PangoWrapParagraph)->Arg(400)->Arg(1000000000)->Arg(0)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
