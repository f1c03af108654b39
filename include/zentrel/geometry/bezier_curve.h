#pragma once
// ZTBezierCurve: the control polygon of a Bezier curve (start point, control points, end point)
// with a cheap length estimate, a suggested number of straight segments for drawing it, and
// enumeration of its points or segments. ZTQuadraticBezierCurve (three points) and
// ZTCubicBezierCurve (four points) evaluate the curve; the base class holds any number of points
// (at least two) but cannot evaluate, and curvePointForParameter throws
// ZTInternalInconsistencyException on it.
//
// Ownership: a curve either owns its point buffer (create, the named constructors, or
// createWithPointsNoCopy with releaseWhenDone set) and frees it with delete[] when destroyed, or
// borrows the caller's buffer (createWithPointsNoCopy with releaseWhenDone unset), which must then
// outlive the curve. The points are not changed by the curve.
//
// Threads: the length and segment-count caches fill on first use without locking. Use a curve
// from one thread at a time, or read approximateLength() and suggestedNumberOfSegments() once
// before sharing it.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zentrel/geometry/point.h"
#include "zentrel/platform/export.h"

class ZTQuadraticBezierCurve;
class ZTCubicBezierCurve;

class ZT_API ZTBezierCurve {
 public:
  // The cached segment count's "not computed yet" value (the largest signed 64-bit integer).
  static constexpr std::size_t kSegmentsNotComputed = static_cast<std::size_t>(INT64_MAX);
  // The loop bound of both enumerations: 1.0001 rounded to single precision, so that the last
  // step reaches t = 1 despite rounding in the accumulated parameter.
  static constexpr double kParameterLimit = static_cast<double>(1.0001f);

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
  // A curve over the caller's buffer, not copied. With releaseWhenDone the curve takes the buffer
  // over and frees it with delete[] (so it must come from new ZTPoint[n]); without, the buffer is
  // borrowed and must outlive the curve. nullptr when `points` is null or count < 2 (the buffer is
  // then left to the caller in either case).
  [[nodiscard]] static std::shared_ptr<ZTBezierCurve> createWithPointsNoCopy(ZTPoint* points, std::size_t count,
                                                                             bool releaseWhenDone);

  virtual ~ZTBezierCurve();
  ZTBezierCurve(const ZTBezierCurve&) = delete;
  ZTBezierCurve& operator=(const ZTBezierCurve&) = delete;

  const ZTPoint* points() const { return points_; }
  std::size_t pointsCount() const { return pointsCount_; }
  // Whether the destructor frees the buffer. Changing it hands ownership over or back; a borrowed
  // buffer must then have come from new ZTPoint[n].
  bool releasePointsWhenDone() const { return releasePointsWhenDone_; }
  void setReleasePointsWhenDone(bool release) { releasePointsWhenDone_ = release; }

  ZTPoint startPoint() const { return points_[0]; }
  ZTPoint endPoint() const { return points_[pointsCount_ - 1]; }
  const ZTPoint* controlPoints() const { return points_ + 1; }
  std::size_t controlPointsCount() const { return pointsCount_ - 2; }

  // The length of the control polygon: an upper bound of the curve's length, exact for straight
  // curves. Computed once and cached; a value stored with setApproximateLength (any non-negative
  // value) is returned instead, and a negative one makes it compute again.
  double approximateLength();
  void setApproximateLength(double length) { approximateLength_ = length; }

  // How many straight segments draw the curve smoothly: ceil(sqrt((L / 20)^2 * 0.6 + 225)) with L
  // the approximate length, so at least 15, growing about 0.039 per unit of length. Computed once
  // and cached; setSuggestedNumberOfSegments stores a value of the caller's own
  // (kSegmentsNotComputed makes it compute again).
  std::size_t suggestedNumberOfSegments();
  void setSuggestedNumberOfSegments(std::size_t count) { suggestedNumberOfSegments_ = count; }

  // The point at parameter t (not clamped: values outside 0...1 extrapolate). The base class
  // throws ZTInternalInconsistencyException ("You must override curvePointForParameter in
  // <class> class.").
  virtual ZTPoint curvePointForParameter(double t) const;

  // Walks the curve in `segmentsCount` straight segments, calling
  // enumerator(index, segmentStart, segmentEnd) for index 0, 1, ...; the first segment starts at
  // the start point and each one starts where the previous ended. The parameter step is
  // 1 / segmentsCount in single precision, so for large counts the number of calls may differ by
  // one from segmentsCount; the last segment ends at (or within rounding of) the end point. A
  // count of 0 calls nothing.
  template <class Enumerator>
  void enumerateSegmentsWithSegmentsCount(std::size_t segmentsCount, Enumerator&& enumerator) const {
    const double step = static_cast<double>(1.0f / static_cast<float>(segmentsCount));
    ZTPoint previous = startPoint();
    std::size_t index = 0;
    for (double t = step; t <= kParameterLimit; t += step, ++index) {
      const ZTPoint p = curvePointForParameter(t);
      enumerator(index, previous, p);
      previous = p;
    }
  }

  // Calls enumerator(point, t) for t = 0, step, 2 * step, ... while t <= 1.0001 (in single
  // precision), so a step of 0.25 gives five calls ending at t = 1. Always called at least once.
  // A step that is not positive would never end and throws ZTInternalInconsistencyException
  // before any call.
  template <class Enumerator>
  void enumerateCurvePointsWithParameterStep(double step, Enumerator&& enumerator) const {
    if (!(step > 0)) throwForBadStep(step);
    double t = 0;
    do {
      enumerator(curvePointForParameter(t), t);
      t += step;
    } while (t <= kParameterLimit);
  }

 protected:
  ZTBezierCurve(ZTPoint* points, std::size_t count, bool releaseWhenDone);
  // The buffer for the copying constructors; owned, to be freed with delete[].
  static std::unique_ptr<ZTPoint[]> copyPoints(const ZTPoint* points, std::size_t count);

 private:
  [[noreturn]] static void throwForBadStep(double step);

  bool releasePointsWhenDone_;
  ZTPoint* points_;
  std::size_t pointsCount_;
  double approximateLength_ = -1.0;
  std::size_t suggestedNumberOfSegments_ = kSegmentsNotComputed;
};

// B(t) = u^2 P0 + 2ut P1 + t^2 P2 with u = 1 - t. Exactly three points.
class ZT_API ZTQuadraticBezierCurve : public ZTBezierCurve {
 public:
  // nullptr unless `points` is non-null and count is 3.
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> create(const ZTPoint* points, std::size_t count);
  [[nodiscard]] static std::shared_ptr<ZTQuadraticBezierCurve> createWithPointsNoCopy(ZTPoint* points,
                                                                                      std::size_t count,
                                                                                      bool releaseWhenDone);
  ZTPoint curvePointForParameter(double t) const override;

 private:
  using ZTBezierCurve::ZTBezierCurve;
};

// B(t) = u^3 P0 + 3u^2 t P1 + 3u t^2 P2 + t^3 P3 with u = 1 - t. Exactly four points.
class ZT_API ZTCubicBezierCurve : public ZTBezierCurve {
 public:
  // nullptr unless `points` is non-null and count is 4.
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> create(const ZTPoint* points, std::size_t count);
  [[nodiscard]] static std::shared_ptr<ZTCubicBezierCurve> createWithPointsNoCopy(ZTPoint* points, std::size_t count,
                                                                                  bool releaseWhenDone);
  ZTPoint curvePointForParameter(double t) const override;

 private:
  using ZTBezierCurve::ZTBezierCurve;
};
