#include "zentrel/geometry/intersection.h"

#include <cmath>

#include "zentrel/geometry/line.h"

bool ZTSegmentIntersectionCheck(ZTPoint p1, ZTPoint p2, ZTPoint p3, ZTPoint p4) {
  const double den = (p2.x - p1.x) * (p4.y - p3.y) - (p2.y - p1.y) * (p4.x - p3.x);
  if (den == 0) return false;
  const double t = ((p2.x - p1.x) * (p1.y - p3.y) - (p2.y - p1.y) * (p1.x - p3.x)) / den;
  const double u = ((p1.y - p3.y) * (p4.x - p3.x) - (p1.x - p3.x) * (p4.y - p3.y)) / den;
  return t >= 0 && t <= 1 && u >= 0 && u <= 1;
}

ZTPoint ZTGetSegmentIntersection(ZTPoint p1, ZTPoint p2, ZTPoint p3, ZTPoint p4) {
  const double d1x = p2.x - p1.x, d1y = p2.y - p1.y;
  const double d2x = p4.x - p3.x, d2y = p4.y - p3.y;
  const double den = d1x * d2y - d1y * d2x;
  if (den == 0) return ZTPointNoIntersection;
  const double sx = p1.x - p3.x, sy = p1.y - p3.y;
  const double secondNumerator = d1x * sy - d1y * sx;  // parameter along P3 -> P4, times den
  const double firstNumerator = sy * d2x - d2y * sx;   // parameter along P1 -> P2, times den
  const bool positive = den > 0;
  // Along the second segment both ends count; along the first, P2 (parameter 1) does not.
  if (positive ? (secondNumerator < 0 || secondNumerator > den) : (secondNumerator > 0 || secondNumerator < den)) {
    return ZTPointNoIntersection;
  }
  if (positive ? (firstNumerator < 0 || firstNumerator >= den) : (firstNumerator > 0 || firstNumerator <= den)) {
    return ZTPointNoIntersection;
  }
  const double t = firstNumerator / den;
  return {p1.x + d1x * t, p1.y + d1y * t};
}

bool ZTRectContainsSegment(ZTRect rect, ZTPoint p1, ZTPoint p2) {
  return ZTRectContainsPoint(rect, p1) || ZTRectContainsPoint(rect, p2);
}

bool ZTRectIntersectedBySegment(ZTRect rect, ZTPoint p1, ZTPoint p2) {
  const double minX = ZTRectGetMinX(rect), maxX = ZTRectGetMaxX(rect);
  const double minY = ZTRectGetMinY(rect), maxY = ZTRectGetMaxY(rect);
  return ZTSegmentIntersectionCheck({minX, minY}, {maxX, minY}, p1, p2) ||
         ZTSegmentIntersectionCheck({maxX, minY}, {maxX, maxY}, p1, p2) ||
         ZTSegmentIntersectionCheck({minX, maxY}, {maxX, maxY}, p1, p2) ||
         ZTSegmentIntersectionCheck({minX, minY}, {minX, maxY}, p1, p2);
}

bool ZTEllipseIntersectedByRect(ZTRect ellipseRect, ZTRect rect) {
  const float a = static_cast<float>(ZTRectGetWidth(ellipseRect) / 2);
  const float b = static_cast<float>(ZTRectGetHeight(ellipseRect) / 2);
  const float cx = static_cast<float>(ZTRectGetMidX(ellipseRect));
  const float cy = static_cast<float>(ZTRectGetMidY(ellipseRect));
  const double minX = ZTRectGetMinX(rect), maxX = ZTRectGetMaxX(rect);
  const double minY = ZTRectGetMinY(rect), maxY = ZTRectGetMaxY(rect);
  const ZTPoint corners[4] = {{minX, minY}, {minX, maxY}, {maxX, minY}, {maxX, maxY}};
  int inside = 0;
  for (const ZTPoint& corner : corners) {
    const float dy = std::fabs(static_cast<float>(corner.y) - cy);
    const float dx = std::fabs(static_cast<float>(corner.x) - cx);
    if (std::sqrt(std::fabs(b * b * (1.0f - dx * dx / (a * a)))) >= dy) ++inside;
  }
  return inside > 0 && inside < 4;
}
