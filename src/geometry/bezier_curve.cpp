#include "zentrel/geometry/bezier_curve.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"

namespace {

// The point counts the curve classes accept: at least 2 for the base, exactly 3 and 4 for the
// quadratic and cubic curves.
bool anyCount(std::size_t count) { return count >= 2; }
bool threePoints(std::size_t count) { return count == 3; }
bool fourPoints(std::size_t count) { return count == 4; }

}  // namespace

template <class Curve>
std::shared_ptr<Curve> ZTBezierCurve::makeCurve(std::vector<ZTPoint>&& owned, std::span<const ZTPoint> borrowed) {
  return std::shared_ptr<Curve>(new Curve(std::move(owned), borrowed));
}

ZTBezierCurve::ZTBezierCurve(std::vector<ZTPoint>&& owned, std::span<const ZTPoint> borrowed)
    : ownedPoints_(std::move(owned)),
      points_(ownedPoints_.empty() ? borrowed : std::span<const ZTPoint>(ownedPoints_)) {}

ZTBezierCurve::~ZTBezierCurve() = default;

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || !anyCount(count)) return nullptr;
  return makeCurve<ZTBezierCurve>(std::vector<ZTPoint>(points, points + count), {});
}

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::create(std::span<const ZTPoint> points) {
  if (!anyCount(points.size())) return nullptr;
  return makeCurve<ZTBezierCurve>(std::vector<ZTPoint>(points.begin(), points.end()), {});
}

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::create(std::vector<ZTPoint>&& points) {
  if (!anyCount(points.size())) return nullptr;
  return makeCurve<ZTBezierCurve>(std::move(points), {});
}

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::createWithPointsNoCopy(std::span<const ZTPoint> points) {
  if (!anyCount(points.size())) return nullptr;
  return makeCurve<ZTBezierCurve>({}, points);
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || !threePoints(count)) return nullptr;
  return makeCurve<ZTQuadraticBezierCurve>(std::vector<ZTPoint>(points, points + count), {});
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::create(std::span<const ZTPoint> points) {
  if (!threePoints(points.size())) return nullptr;
  return makeCurve<ZTQuadraticBezierCurve>(std::vector<ZTPoint>(points.begin(), points.end()), {});
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::create(std::vector<ZTPoint>&& points) {
  if (!threePoints(points.size())) return nullptr;
  return makeCurve<ZTQuadraticBezierCurve>(std::move(points), {});
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::createWithPointsNoCopy(std::span<const ZTPoint> points) {
  if (!threePoints(points.size())) return nullptr;
  return makeCurve<ZTQuadraticBezierCurve>({}, points);
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || !fourPoints(count)) return nullptr;
  return makeCurve<ZTCubicBezierCurve>(std::vector<ZTPoint>(points, points + count), {});
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::create(std::span<const ZTPoint> points) {
  if (!fourPoints(points.size())) return nullptr;
  return makeCurve<ZTCubicBezierCurve>(std::vector<ZTPoint>(points.begin(), points.end()), {});
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::create(std::vector<ZTPoint>&& points) {
  if (!fourPoints(points.size())) return nullptr;
  return makeCurve<ZTCubicBezierCurve>(std::move(points), {});
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::createWithPointsNoCopy(std::span<const ZTPoint> points) {
  if (!fourPoints(points.size())) return nullptr;
  return makeCurve<ZTCubicBezierCurve>({}, points);
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTBezierCurve::quadraticBezierCurveWithStartPoint(ZTPoint start,
                                                                                           ZTPoint control,
                                                                                           ZTPoint end) {
  return ZTQuadraticBezierCurve::create(std::vector<ZTPoint>{start, control, end});
}

std::shared_ptr<ZTCubicBezierCurve> ZTBezierCurve::cubicBezierCurveWithStartPoint(ZTPoint start, ZTPoint control1,
                                                                                   ZTPoint control2, ZTPoint end) {
  return ZTCubicBezierCurve::create(std::vector<ZTPoint>{start, control1, control2, end});
}

// Both caches: a computed value is stored only over the "not computed" value it replaces, so a
// value a caller stores meanwhile wins over the computation.
double ZTBezierCurve::approximateLength() const {
  double cached = approximateLength_.load(std::memory_order_relaxed);
  if (!(cached < 0)) return cached;
  double length = 0;
  for (std::size_t i = 0; i + 1 < points_.size(); ++i) {
    length += std::hypot(points_[i + 1].x - points_[i].x, points_[i + 1].y - points_[i].y);
  }
  return approximateLength_.compare_exchange_strong(cached, length, std::memory_order_relaxed) ? length : cached;
}

std::size_t ZTBezierCurve::suggestedNumberOfSegments() const {
  std::size_t cached = suggestedNumberOfSegments_.load(std::memory_order_relaxed);
  if (cached != kSegmentsNotComputed) return cached;
  const double length = approximateLength();
  std::size_t count = kMinimumSuggestedSegments;
  if (!std::isnan(length)) {
    const double scaled = length / 20;
    const double root = std::sqrt(scaled * scaled * 0.6 + 225);  // +inf for huge or infinite lengths
    constexpr auto kMaximum = static_cast<float>(kMaximumSuggestedSegments);
    // Compared in double first: a root beyond single precision would round to infinity.
    count = root >= kMaximum ? kMaximumSuggestedSegments
                             : static_cast<std::size_t>(std::min(std::ceil(static_cast<float>(root)), kMaximum));
  }
  return suggestedNumberOfSegments_.compare_exchange_strong(cached, count, std::memory_order_relaxed) ? count : cached;
}

ZTPoint ZTBezierCurve::curvePointForParameter(double) const {
  throw ZTInternalInconsistencyException(
      ZTAbstractMethodReason("curvePointForParameter", ZTDebugClassNameForObject(this)));
}

void ZTBezierCurve::throwForBadStep(double step) {
  char text[32];
  const auto written = std::to_chars(text, text + sizeof text, step);
  throw ZTInternalInconsistencyException(
      "A curve point enumeration needs a positive parameter step large enough to move the parameter past 1, not " +
      std::string(text, written.ptr) + ".");
}

ZTPoint ZTQuadraticBezierCurve::curvePointForParameter(double t) const {
  const std::span<const ZTPoint> p = points();
  const double u = 1 - t;
  const double k0 = u * u, k1 = 2 * u * t, k2 = t * t;
  return {k0 * p[0].x + k1 * p[1].x + k2 * p[2].x, k0 * p[0].y + k1 * p[1].y + k2 * p[2].y};
}

ZTPoint ZTCubicBezierCurve::curvePointForParameter(double t) const {
  const std::span<const ZTPoint> p = points();
  const double u = 1 - t;
  const double k0 = std::pow(u, 3), k1 = 3 * u * u * t, k2 = 3 * u * t * t, k3 = std::pow(t, 3);
  return {k0 * p[0].x + k1 * p[1].x + k2 * p[2].x + k3 * p[3].x,
          k0 * p[0].y + k1 * p[1].y + k2 * p[2].y + k3 * p[3].y};
}
