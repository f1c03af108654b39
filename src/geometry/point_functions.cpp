#include "zentrel/geometry/point_functions.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "internal/fast_distance.h"
#include "zentrel/geometry/angles.h"

ZTPoint ZTPointIntegral(ZTPoint p) {
  return {std::round(static_cast<float>(p.x)), std::round(static_cast<float>(p.y))};
}
ZTPoint ZTPointCeil(ZTPoint p) { return {std::ceil(p.x), std::ceil(p.y)}; }
ZTPoint ZTPointFloor(ZTPoint p) { return {std::floor(p.x), std::floor(p.y)}; }
ZTPoint ZTPointOffset(ZTPoint p, ZTPoint d) { return {p.x + d.x, p.y + d.y}; }
ZTPoint ZTPointScale(ZTPoint p, ZTPoint f) { return {p.x * f.x, p.y * f.y}; }

ZTPoint ZTEnsurePointInRect(ZTPoint p, ZTRect r) {
  return {ZTEnsureValueInRange(p.x, ZTRectGetMinX(r), std::max(ZTRectGetMaxX(r) - 1, 0.0)),
          ZTEnsureValueInRange(p.y, ZTRectGetMinY(r), std::max(ZTRectGetMaxY(r) - 1, 0.0))};
}

ZTPoint ZTPointFittedToRect(ZTPoint p, ZTRect r) {
  const double minX = ZTRectGetMinX(r), maxX = ZTRectGetMaxX(r);
  const double minY = ZTRectGetMinY(r), maxY = ZTRectGetMaxY(r);
  if (p.x < minX) p.x = minX;
  else if (p.x > maxX) p.x = maxX;
  if (p.y < minY) p.y = minY;
  else if (p.y > maxY) p.y = maxY;
  return p;
}

double ZTDistanceBetweenPoints(ZTPoint p1, ZTPoint p2) { return std::hypot(p2.x - p1.x, p2.y - p1.y); }

double ZTGetFastDistanceBetweenPoints(ZTPoint p1, ZTPoint p2) {
  const double dx = p2.x - p1.x, dy = p2.y - p1.y;
  return zt::geometry::fastDistance(dx * dx + dy * dy);
}

double ZTDistanceBetweenPointAndRect(ZTPoint p, ZTRect r) {
  double ex;
  bool xInside;
  if (p.x > ZTRectGetMidX(r)) {
    ex = ZTRectGetMaxX(r);
    xInside = p.x <= ex;
  } else {
    ex = ZTRectGetMinX(r);
    xInside = p.x >= ex;
  }
  double ey;
  bool yInside;
  if (p.y > ZTRectGetMidY(r)) {
    ey = ZTRectGetMaxY(r);
    yInside = p.y <= ey;
  } else {
    ey = ZTRectGetMinY(r);
    yInside = p.y >= ey;
  }
  double result = xInside ? std::fabs(p.y - ey) : DBL_MAX;
  if (yInside && std::fabs(p.x - ex) <= result) result = std::fabs(p.x - ex);
  if (result == DBL_MAX) {
    const double dx = p.x - ex, dy = p.y - ey;
    return zt::geometry::fastDistance(dx * dx + dy * dy);
  }
  return result;
}
