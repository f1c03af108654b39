#include "zentrel/geometry/angles.h"

#include <cmath>
#include <numbers>

double ZTEnsureValueInRange(double value, double minimum, double maximum) {
  if (minimum > value) return minimum;
  if (value > maximum) return maximum;
  return value;
}

double ZTDegreesToRadians(double degrees) { return degrees * std::numbers::pi / 180; }
double ZTRadiansToDegrees(double radians) { return radians * 180 / std::numbers::pi; }

std::int64_t ZTAngleIn0to360RangeFromAngle(std::int64_t degrees) {
  if (degrees >= 0) return degrees % 360;
  // 360 + angle + 360 * (-angle / 360) is 360 minus the remainder of -angle by 360; computed in
  // unsigned arithmetic so that the most negative angle does not overflow.
  const std::uint64_t magnitude = 0 - static_cast<std::uint64_t>(degrees);
  return 360 - static_cast<std::int64_t>(magnitude % 360);
}

double ZTXAxisAngleForVectorWithPoints(ZTPoint p1, ZTPoint p2) {
  return std::atan2(std::fabs(p1.y - p2.y), std::fabs(p1.x - p2.x));
}

double ZTRotationAngleRadiansFromPoints(ZTPoint from, ZTPoint to) {
  return std::atan2(to.y - from.y, to.x - from.x);
}

double ZTSnapAngleTo90MultipleWithThreshold(double degrees, double threshold) {
  const double t = std::fabs(threshold);
  double a = degrees + t;
  a -= 360 * std::trunc(a / 360);
  if (a < 0) a += 360;
  const double m = 90 * std::trunc(a / 90);
  return (a - m <= 2 * t) ? m : ZTNoAngleSnap;
}

ZTLineSnapping ZTSnappingForLineWithXAxisAngleAndLenght(double xAxisRadians, double length) {
  const double tolerance = 10 / length;
  const double a = std::fabs(xAxisRadians);
  if (std::fabs(0 - a) <= tolerance) return ZTLineSnappingHorizontal;
  if (std::fabs(std::numbers::pi / 2 - a) <= tolerance) return ZTLineSnappingVertical;
  if (std::fabs(std::numbers::pi / 4 - a) <= tolerance) return ZTLineSnappingDiagonal;
  return ZTLineSnappingNone;
}
