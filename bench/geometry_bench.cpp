// Hot geometry functions of layout and hit-testing loops, each beside a peer baseline: the same
// formula written inline on raw fields, as a caller would without the library. The ratio shows
// what the out-of-line call and the standardisation of negative sizes cost.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/bezier_curve.h"
#include "zentrel/geometry/intersection.h"
#include "zentrel/geometry/path.h"
#include "zentrel/geometry/point_functions.h"
#include "zentrel/geometry/rect.h"

namespace {

constexpr std::size_t kCount = 1024;  // power of two: index with a mask

struct Data {
  std::vector<ZTRect> rects;
  std::vector<ZTPoint> points;
  std::vector<ZTAffineTransform> transforms;
  Data() {
    std::mt19937_64 random(42);
    std::uniform_real_distribution<double> coordinate(-500, 500), extent(1, 300), unit(-2, 2);
    for (std::size_t i = 0; i < kCount; ++i) {
      rects.push_back(ZTRectMake(coordinate(random), coordinate(random), extent(random), extent(random)));
      points.push_back({coordinate(random), coordinate(random)});
      transforms.push_back({unit(random), unit(random), unit(random), unit(random), coordinate(random),
                            coordinate(random)});
    }
  }
};

const Data& data() {
  static const Data d;
  return d;
}

// Inline peers on raw, already standardised fields.
inline bool rawContains(const ZTRect& r, const ZTPoint& p) {
  return p.x >= r.origin.x && p.x < r.origin.x + r.size.width && p.y >= r.origin.y &&
         p.y < r.origin.y + r.size.height;
}
inline ZTRect rawIntersection(const ZTRect& a, const ZTRect& b) {
  const double x0 = std::max(a.origin.x, b.origin.x), y0 = std::max(a.origin.y, b.origin.y);
  const double x1 = std::min(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double y1 = std::min(a.origin.y + a.size.height, b.origin.y + b.size.height);
  if (x1 < x0 || y1 < y0) return ZTRectNull;
  return {{x0, y0}, {x1 - x0, y1 - y0}};
}
inline ZTRect rawUnion(const ZTRect& a, const ZTRect& b) {
  const double x0 = std::min(a.origin.x, b.origin.x), y0 = std::min(a.origin.y, b.origin.y);
  const double x1 = std::max(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double y1 = std::max(a.origin.y + a.size.height, b.origin.y + b.size.height);
  return {{x0, y0}, {x1 - x0, y1 - y0}};
}
inline ZTPoint rawApply(const ZTPoint& p, const ZTAffineTransform& t) {
  return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}
inline ZTAffineTransform rawConcat(const ZTAffineTransform& t1, const ZTAffineTransform& t2) {
  return {t1.a * t2.a + t1.b * t2.c, t1.a * t2.b + t1.b * t2.d, t1.c * t2.a + t1.d * t2.c,
          t1.c * t2.b + t1.d * t2.d, t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}
inline ZTRect rawApplyRect(const ZTRect& r, const ZTAffineTransform& t) {
  const ZTPoint c[4] = {rawApply(r.origin, t), rawApply({r.origin.x + r.size.width, r.origin.y}, t),
                        rawApply({r.origin.x, r.origin.y + r.size.height}, t),
                        rawApply({r.origin.x + r.size.width, r.origin.y + r.size.height}, t)};
  double x0 = c[0].x, x1 = c[0].x, y0 = c[0].y, y1 = c[0].y;
  for (const ZTPoint& p : c) {
    x0 = std::min(x0, p.x);
    x1 = std::max(x1, p.x);
    y0 = std::min(y0, p.y);
    y1 = std::max(y1, p.y);
  }
  return {{x0, y0}, {x1 - x0, y1 - y0}};
}
// The textbook segment intersection with divisions.
inline ZTPoint rawSegmentIntersection(ZTPoint p1, ZTPoint p2, ZTPoint p3, ZTPoint p4) {
  const double d1x = p2.x - p1.x, d1y = p2.y - p1.y, d2x = p4.x - p3.x, d2y = p4.y - p3.y;
  const double den = d1x * d2y - d1y * d2x;
  if (den == 0) return {INFINITY, INFINITY};
  const double sx = p1.x - p3.x, sy = p1.y - p3.y;
  const double u = (d1x * sy - d1y * sx) / den, t = (sy * d2x - d2y * sx) / den;
  if (u < 0 || u > 1 || t < 0 || t >= 1) return {INFINITY, INFINITY};
  return {p1.x + d1x * t, p1.y + d1y * t};
}

#define ZT_PAIR_LOOP(...)                          \
  const Data& d = data();                          \
  std::size_t i = 0;                               \
  for (auto _ : state) {                           \
    const std::size_t j = i & (kCount - 1);        \
    const std::size_t k = (i * 7 + 3) & (kCount - 1); \
    __VA_ARGS__;                                   \
    ++i;                                           \
  }

void BM_RectContainsPoint(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTRectContainsPoint(d.rects[j], d.points[k])))
}
void BM_RectContainsPoint_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawContains(d.rects[j], d.points[k])))
}
void BM_RectIntersection(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTRectIntersection(d.rects[j], d.rects[k])))
}
void BM_RectIntersection_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawIntersection(d.rects[j], d.rects[k])))
}
void BM_RectIntersectsRect(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTRectIntersectsRect(d.rects[j], d.rects[k])))
}
void BM_RectIntersectsRect_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(!std::isinf(rawIntersection(d.rects[j], d.rects[k]).origin.x)))
}
void BM_RectUnion(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTRectUnion(d.rects[j], d.rects[k])))
}
void BM_RectUnion_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawUnion(d.rects[j], d.rects[k])))
}
void BM_PointApplyAffineTransform(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTPointApplyAffineTransform(d.points[j], d.transforms[k])))
}
void BM_PointApplyAffineTransform_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawApply(d.points[j], d.transforms[k])))
}
void BM_RectApplyAffineTransform(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTRectApplyAffineTransform(d.rects[j], d.transforms[k])))
}
void BM_RectApplyAffineTransform_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawApplyRect(d.rects[j], d.transforms[k])))
}
void BM_AffineTransformConcat(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTAffineTransformConcat(d.transforms[j], d.transforms[k])))
}
void BM_AffineTransformConcat_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(rawConcat(d.transforms[j], d.transforms[k])))
}
void BM_FastDistance(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTGetFastDistanceBetweenPoints(d.points[j], d.points[k])))
}
void BM_FastDistance_BaselineSqrt(benchmark::State& state) {
  ZT_PAIR_LOOP({
    const double dx = d.points[k].x - d.points[j].x, dy = d.points[k].y - d.points[j].y;
    benchmark::DoNotOptimize(std::sqrt(dx * dx + dy * dy));
  })
}
void BM_ExactDistance(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTDistanceBetweenPoints(d.points[j], d.points[k])))
}
void BM_DistanceBetweenPointAndRect(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(ZTDistanceBetweenPointAndRect(d.points[j], d.rects[k])))
}
void BM_DistanceBetweenPointAndRect_Baseline(benchmark::State& state) {
  // The usual exact clamp-based distance (0 inside), for scale.
  ZT_PAIR_LOOP({
    const ZTRect& r = d.rects[k];
    const ZTPoint& p = d.points[j];
    const double dx = std::max({r.origin.x - p.x, 0.0, p.x - r.origin.x - r.size.width});
    const double dy = std::max({r.origin.y - p.y, 0.0, p.y - r.origin.y - r.size.height});
    benchmark::DoNotOptimize(std::sqrt(dx * dx + dy * dy));
  })
}
void BM_GetSegmentIntersection(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(
      ZTGetSegmentIntersection(d.points[j], d.points[k], d.points[(j + 1) & (kCount - 1)], d.points[(k + 5) & (kCount - 1)])))
}
void BM_GetSegmentIntersection_Baseline(benchmark::State& state) {
  ZT_PAIR_LOOP(benchmark::DoNotOptimize(
      rawSegmentIntersection(d.points[j], d.points[k], d.points[(j + 1) & (kCount - 1)], d.points[(k + 5) & (kCount - 1)])))
}

// Drawing a curve: enumeration of its suggested segments against a plain loop over the formula.
void BM_BezierSegments(benchmark::State& state) {
  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 100}, {100, 100}, {100, 0});
  const std::size_t n = curve->suggestedNumberOfSegments();
  for (auto _ : state) {
    double sum = 0;
    curve->enumerateSegmentsWithSegmentsCount(n, [&](std::size_t, ZTPoint, ZTPoint b) { sum += b.x; });
    benchmark::DoNotOptimize(sum);
  }
  state.counters["segments"] = static_cast<double>(n);
}
void BM_BezierSegments_Baseline(benchmark::State& state) {
  const ZTPoint p[4] = {{0, 0}, {0, 100}, {100, 100}, {100, 0}};
  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint(p[0], p[1], p[2], p[3]);
  const std::size_t n = curve->suggestedNumberOfSegments();
  for (auto _ : state) {
    double sum = 0;
    for (std::size_t s = 1; s <= n; ++s) {
      const double t = static_cast<double>(s) / static_cast<double>(n), u = 1 - t;
      sum += u * u * u * p[0].x + 3 * u * u * t * p[1].x + 3 * u * t * t * p[2].x + t * t * t * p[3].x;
    }
    benchmark::DoNotOptimize(sum);
  }
}

// Path building allocates; measured against filling a plain vector of points.
void BM_PathRectAndTransform(benchmark::State& state) {
  const Data& d = data();
  std::size_t i = 0;
  for (auto _ : state) {
    ZTPath path;
    path.addRect(d.rects[i & (kCount - 1)]);
    benchmark::DoNotOptimize(path.copyTransformed(d.transforms[i & (kCount - 1)]).boundingBox());
    ++i;
  }
}
void BM_PathRectAndTransform_Baseline(benchmark::State& state) {
  const Data& d = data();
  std::size_t i = 0;
  for (auto _ : state) {
    const ZTRect& r = d.rects[i & (kCount - 1)];
    std::vector<ZTPoint> corners = {r.origin, {r.origin.x + r.size.width, r.origin.y},
                                    {r.origin.x + r.size.width, r.origin.y + r.size.height},
                                    {r.origin.x, r.origin.y + r.size.height}};
    std::vector<ZTPoint> moved;
    for (const ZTPoint& p : corners) moved.push_back(rawApply(p, d.transforms[i & (kCount - 1)]));
    benchmark::DoNotOptimize(moved.data());
    ++i;
  }
}

}  // namespace

BENCHMARK(BM_RectContainsPoint);
BENCHMARK(BM_RectContainsPoint_Baseline);
BENCHMARK(BM_RectIntersection);
BENCHMARK(BM_RectIntersection_Baseline);
BENCHMARK(BM_RectIntersectsRect);
BENCHMARK(BM_RectIntersectsRect_Baseline);
BENCHMARK(BM_RectUnion);
BENCHMARK(BM_RectUnion_Baseline);
BENCHMARK(BM_PointApplyAffineTransform);
BENCHMARK(BM_PointApplyAffineTransform_Baseline);
BENCHMARK(BM_RectApplyAffineTransform);
BENCHMARK(BM_RectApplyAffineTransform_Baseline);
BENCHMARK(BM_AffineTransformConcat);
BENCHMARK(BM_AffineTransformConcat_Baseline);
BENCHMARK(BM_FastDistance);
BENCHMARK(BM_FastDistance_BaselineSqrt);
BENCHMARK(BM_ExactDistance);
BENCHMARK(BM_DistanceBetweenPointAndRect);
BENCHMARK(BM_DistanceBetweenPointAndRect_Baseline);
BENCHMARK(BM_GetSegmentIntersection);
BENCHMARK(BM_GetSegmentIntersection_Baseline);
BENCHMARK(BM_BezierSegments);
BENCHMARK(BM_BezierSegments_Baseline);
BENCHMARK(BM_PathRectAndTransform);
BENCHMARK(BM_PathRectAndTransform_Baseline);

BENCHMARK_MAIN();
