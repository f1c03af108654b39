#include "zentrel/geometry/bezier_curve.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"

ZTBezierCurve::ZTBezierCurve(ZTPoint* points, std::size_t count, bool releaseWhenDone)
    : releasePointsWhenDone_(releaseWhenDone), points_(points), pointsCount_(count) {}

ZTBezierCurve::~ZTBezierCurve() {
  if (releasePointsWhenDone_) delete[] points_;
  points_ = nullptr;
}

std::unique_ptr<ZTPoint[]> ZTBezierCurve::copyPoints(const ZTPoint* points, std::size_t count) {
  std::unique_ptr<ZTPoint[]> buffer(new ZTPoint[count]());
  std::copy(points, points + count, buffer.get());
  return buffer;
}

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || count < 2) return nullptr;
  auto buffer = copyPoints(points, count);
  std::shared_ptr<ZTBezierCurve> curve(new ZTBezierCurve(buffer.get(), count, true));
  buffer.release();
  return curve;
}

std::shared_ptr<ZTBezierCurve> ZTBezierCurve::createWithPointsNoCopy(ZTPoint* points, std::size_t count,
                                                                     bool releaseWhenDone) {
  if (!points || count < 2) return nullptr;
  return std::shared_ptr<ZTBezierCurve>(new ZTBezierCurve(points, count, releaseWhenDone));
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTBezierCurve::quadraticBezierCurveWithStartPoint(ZTPoint start,
                                                                                           ZTPoint control,
                                                                                           ZTPoint end) {
  const ZTPoint points[3] = {start, control, end};
  return ZTQuadraticBezierCurve::create(points, 3);
}

std::shared_ptr<ZTCubicBezierCurve> ZTBezierCurve::cubicBezierCurveWithStartPoint(ZTPoint start, ZTPoint control1,
                                                                                   ZTPoint control2, ZTPoint end) {
  const ZTPoint points[4] = {start, control1, control2, end};
  return ZTCubicBezierCurve::create(points, 4);
}

double ZTBezierCurve::approximateLength() {
  if (approximateLength_ < 0) {
    double length = 0;
    for (std::size_t i = 0; i + 1 < pointsCount_; ++i) {
      length += std::hypot(points_[i + 1].x - points_[i].x, points_[i + 1].y - points_[i].y);
    }
    approximateLength_ = length;
  }
  return approximateLength_;
}

std::size_t ZTBezierCurve::suggestedNumberOfSegments() {
  if (suggestedNumberOfSegments_ == kSegmentsNotComputed) {
    const double scaled = approximateLength() / 20;
    const float n = std::ceil(static_cast<float>(std::sqrt(scaled * scaled * 0.6 + 225)));
    suggestedNumberOfSegments_ = static_cast<std::size_t>(n);
  }
  return suggestedNumberOfSegments_;
}

ZTPoint ZTBezierCurve::curvePointForParameter(double) const {
  throw ZTInternalInconsistencyException(
      ZTAbstractMethodReason("curvePointForParameter", ZTDebugClassNameForObject(this)));
}

void ZTBezierCurve::throwForBadStep(double step) {
  throw ZTInternalInconsistencyException("A curve point enumeration needs a positive parameter step, not " +
                                         std::to_string(step) + ".");
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || count != 3) return nullptr;
  auto buffer = copyPoints(points, count);
  std::shared_ptr<ZTQuadraticBezierCurve> curve(new ZTQuadraticBezierCurve(buffer.get(), count, true));
  buffer.release();
  return curve;
}

std::shared_ptr<ZTQuadraticBezierCurve> ZTQuadraticBezierCurve::createWithPointsNoCopy(ZTPoint* points,
                                                                                      std::size_t count,
                                                                                      bool releaseWhenDone) {
  if (!points || count != 3) return nullptr;
  return std::shared_ptr<ZTQuadraticBezierCurve>(new ZTQuadraticBezierCurve(points, count, releaseWhenDone));
}

ZTPoint ZTQuadraticBezierCurve::curvePointForParameter(double t) const {
  const ZTPoint* p = points();
  const double u = 1 - t;
  const double k0 = u * u, k1 = 2 * u * t, k2 = t * t;
  return {k0 * p[0].x + k1 * p[1].x + k2 * p[2].x, k0 * p[0].y + k1 * p[1].y + k2 * p[2].y};
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::create(const ZTPoint* points, std::size_t count) {
  if (!points || count != 4) return nullptr;
  auto buffer = copyPoints(points, count);
  std::shared_ptr<ZTCubicBezierCurve> curve(new ZTCubicBezierCurve(buffer.get(), count, true));
  buffer.release();
  return curve;
}

std::shared_ptr<ZTCubicBezierCurve> ZTCubicBezierCurve::createWithPointsNoCopy(ZTPoint* points, std::size_t count,
                                                                              bool releaseWhenDone) {
  if (!points || count != 4) return nullptr;
  return std::shared_ptr<ZTCubicBezierCurve>(new ZTCubicBezierCurve(points, count, releaseWhenDone));
}

ZTPoint ZTCubicBezierCurve::curvePointForParameter(double t) const {
  const ZTPoint* p = points();
  const double u = 1 - t;
  const double k0 = std::pow(u, 3), k1 = 3 * u * u * t, k2 = 3 * u * t * t, k3 = std::pow(t, 3);
  return {k0 * p[0].x + k1 * p[1].x + k2 * p[2].x + k3 * p[3].x,
          k0 * p[0].y + k1 * p[1].y + k2 * p[2].y + k3 * p[3].y};
}
