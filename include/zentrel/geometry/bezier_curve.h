#pragma once
// ZTBezierCurve: the control polygon of a Bezier curve (start point, control points, end point)
// with a cheap length estimate, a suggested number of straight segments for drawing it, and
// enumeration of its points or segments. ZTQuadraticBezierCurve (three points) and
// ZTCubicBezierCurve (four points) evaluate the curve; the base class holds any number of points
// (at least two) but cannot evaluate, and curvePointForParameter throws
// ZTInternalInconsistencyException on it.
//
// Ownership is decided by the function that makes the curve and cannot change afterwards:
// - create(points, count), create(span) and the named constructors copy the points;
// - create(std::vector<ZTPoint>&&) takes the caller's vector over without copying;
// - createWithPointsNoCopy(span) borrows the caller's points, which must then outlive the curve
//   and not change while it is used (the length caches would go stale).
// releasePointsWhenDone() says which: true when the curve owns its points. The curve never
// changes the points.
//
// Threads: a curve may be read from any number of threads at once. The length and segment-count
// caches are atomics: they fill on first use (two threads racing compute the same value), and a
// value stored with a setter is seen by every later read.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "zentrel/geometry/point.h"
#include "zentrel/platform/export.h"

class ZTQuadraticBezierCurve;
class ZTCubicBezierCurve;

// The control polygon of a Bezier curve, with its length estimate and its points or segments.
class ZT_API ZTBezierCurve {
 public:
  // The cached segment count's "not computed yet" value (the largest signed 64-bit integer).
  static constexpr std::size_t kSegmentsNotComputed = static_cast<std::size_t>(INT64_MAX);
  // The segment count suggested for the shortest curves, and the most ever suggested (the count
  // for any length above about 433 million units, infinity included): 2^24, the largest count
  // whose single-precision parameter step still tells every segment apart.
  static constexpr std::size_t kMinimumSuggestedSegments = 15;
  static constexpr std::size_t kMaximumSuggestedSegments = std::size_t{1} << 24;
  // The loop bound of both enumerations: 1 plus 0.0001 in single precision (1.0000999999974738),
  // so that the last step reaches t = 1 despite rounding in the accumulated parameter.
  static constexpr double kParameterLimit = 1.0 + static_cast<double>(0.0001f);

  // A quadratic (respectively cubic) curve over a copy of the points.
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> quadraticBezierCurveWithStartPoint(ZTPoint start,
                                                                                                  ZTPoint control,
                                                                                                  ZTPoint end);
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> cubicBezierCurveWithStartPoint(ZTPoint start,
                                                                                          ZTPoint control1,
                                                                                          ZTPoint control2,
                                                                                          ZTPoint end);

  // A curve over a copy of `count` points. nullptr when `points` is null or count < 2.
  [[nodiscard]] static std::shared_ptr<ZTBezierCurve> create(const ZTPoint* points, std::size_t count);
  // A curve over a copy of the points. nullptr for fewer than 2.
  [[nodiscard]] static std::shared_ptr<ZTBezierCurve> create(std::span<const ZTPoint> points);
  // A curve that takes the vector over, without copying. nullptr for fewer than 2 points.
  [[nodiscard]] static std::shared_ptr<ZTBezierCurve> create(std::vector<ZTPoint>&& points);
  // A curve over the caller's points, not copied: they must outlive the curve. nullptr for fewer
  // than 2.
  [[nodiscard]] static std::shared_ptr<ZTBezierCurve> createWithPointsNoCopy(std::span<const ZTPoint> points);

  virtual ~ZTBezierCurve();
  ZTBezierCurve(const ZTBezierCurve&) = delete;
  ZTBezierCurve& operator=(const ZTBezierCurve&) = delete;

  std::span<const ZTPoint> points() const { return points_; }
  std::size_t pointsCount() const { return points_.size(); }
  // Whether the curve owns its points (and frees them with itself) or borrows the caller's.
  bool releasePointsWhenDone() const { return !ownedPoints_.empty(); }

  ZTPoint startPoint() const { return points_.front(); }
  ZTPoint endPoint() const { return points_.back(); }
  std::span<const ZTPoint> controlPoints() const { return points_.subspan(1, points_.size() - 2); }
  std::size_t controlPointsCount() const { return points_.size() - 2; }

  // The length of the control polygon: an upper bound of the curve's length, exact for straight
  // curves; infinity when it overflows and NaN when a point has a NaN coordinate. Computed once
  // and cached; a value stored with setApproximateLength (any value that is not negative) is
  // returned instead, and a negative one makes it compute again.
  double approximateLength() const;
  void setApproximateLength(double length) { approximateLength_.store(length, std::memory_order_relaxed); }

  // How many straight segments draw the curve smoothly: ceil(sqrt((L / 20)^2 * 0.6 + 225)) with L
  // the approximate length, the ceiling taken in single precision. So at least 15, growing about
  // 0.039 per unit of length, and at most kMaximumSuggestedSegments (a length too large for single
  // precision, or infinite, gives that maximum). A NaN length says nothing about the curve and
  // gives the minimum, 15. Computed once and cached; setSuggestedNumberOfSegments stores a value
  // of the caller's own (kSegmentsNotComputed makes it compute again).
  std::size_t suggestedNumberOfSegments() const;
  void setSuggestedNumberOfSegments(std::size_t count) {
    suggestedNumberOfSegments_.store(count, std::memory_order_relaxed);
  }

  // The point at parameter t (not clamped: values outside 0...1 extrapolate). The base class
  // throws ZTInternalInconsistencyException ("You must override curvePointForParameter in
  // <class> class.").
  virtual ZTPoint curvePointForParameter(double t) const;

  // Walks the curve in exactly `segmentsCount` straight segments, calling
  // enumerator(index, segmentStart, segmentEnd) for index 0 ... segmentsCount - 1; the first
  // segment starts at the start point and each one starts where the previous ended. The parameter
  // grows by 1 / segmentsCount taken in single precision, so the last segment ends at the point
  // for a t within 6e-8 of 1 (never beyond kParameterLimit). A count of 0 calls nothing.
  template <class Enumerator>
  void enumerateSegmentsWithSegmentsCount(std::size_t segmentsCount, Enumerator&& enumerator) const {
    const double step = static_cast<double>(1.0f / static_cast<float>(segmentsCount));
    ZTPoint previous = startPoint();
    double t = step;
    for (std::size_t index = 0; index < segmentsCount && t <= kParameterLimit; ++index, t += step) {
      const ZTPoint p = curvePointForParameter(t);
      enumerator(index, previous, p);
      previous = p;
    }
  }

  // Calls enumerator(point, t) for t = 0, step, 2 * step, ... while t <= kParameterLimit, so a
  // step of 0.25 gives five calls ending at t = 1. Always called at least once. A step that is not
  // positive, or too small to move the parameter near 1 (below about 1.1e-16), would never end
  // and throws ZTInternalInconsistencyException before any call.
  template <class Enumerator>
  void enumerateCurvePointsWithParameterStep(double step, Enumerator&& enumerator) const {
    if (!(step > 0) || kParameterLimit + step == kParameterLimit) throwForBadStep(step);
    double t = 0;
    do {
      enumerator(curvePointForParameter(t), t);
      t += step;
    } while (t <= kParameterLimit);
  }

 protected:
  // Owned points (`owned` not empty) or borrowed ones (`owned` empty).
  ZTBezierCurve(std::vector<ZTPoint>&& owned, std::span<const ZTPoint> borrowed);
  // new Curve(owned, borrowed) in a shared_ptr, for the creation functions of the library's own
  // curve classes (defined in the library).
  template <class Curve>
  static std::shared_ptr<Curve> makeCurve(std::vector<ZTPoint>&& owned, std::span<const ZTPoint> borrowed);

 private:
  [[noreturn]] static void throwForBadStep(double step);

  std::vector<ZTPoint> ownedPoints_;
  std::span<const ZTPoint> points_;  // into ownedPoints_, or the caller's points
  mutable std::atomic<double> approximateLength_{-1.0};
  mutable std::atomic<std::size_t> suggestedNumberOfSegments_{kSegmentsNotComputed};
};

// B(t) = u^2 P0 + 2ut P1 + t^2 P2 with u = 1 - t. Exactly three points; the creation functions
// return nullptr for any other count (and for a null pointer).
class ZT_API ZTQuadraticBezierCurve : public ZTBezierCurve {
 public:
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> create(const ZTPoint* points, std::size_t count);
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> create(std::span<const ZTPoint> points);
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> create(std::vector<ZTPoint>&& points);
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> createWithPointsNoCopy(
      std::span<const ZTPoint> points);
  ZTPoint curvePointForParameter(double t) const override;

 private:
  using ZTBezierCurve::ZTBezierCurve;
};

// B(t) = u^3 P0 + 3u^2 t P1 + 3u t^2 P2 + t^3 P3 with u = 1 - t. Exactly four points; the creation
// functions return nullptr for any other count (and for a null pointer).
class ZT_API ZTCubicBezierCurve : public ZTBezierCurve {
 public:
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> create(const ZTPoint* points, std::size_t count);
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> create(std::span<const ZTPoint> points);
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> create(std::vector<ZTPoint>&& points);
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> createWithPointsNoCopy(std::span<const ZTPoint> points);
  ZTPoint curvePointForParameter(double t) const override;

 private:
  using ZTBezierCurve::ZTBezierCurve;
};
