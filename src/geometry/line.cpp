#include "zentrel/geometry/line.h"

#include <cmath>
#include <limits>

#include "zentrel/geometry/intersection.h"

namespace {
constexpr double kInf = std::numeric_limits<double>::infinity();
}

bool ZTPointIsNoIntersection(ZTPoint p) { return p.x == kInf && p.y == kInf; }
bool ZTLineIsNone(ZTLine l) { return ZTPointIsNoIntersection(l.start) && ZTPointIsNoIntersection(l.end); }

ZTPoint ZTLineGetMiddlePoint(ZTLine l) { return {(l.start.x + l.end.x) / 2, (l.start.y + l.end.y) / 2}; }
double ZTLineGetSizeOfProjectionOnXAxis(ZTLine l) { return std::fabs(l.end.x - l.start.x); }
double ZTLineGetSizeOfProjectionOnYAxis(ZTLine l) { return std::fabs(l.end.y - l.start.y); }

ZTLine ZTLineApplyAffineTransform(ZTAffineTransform t, ZTLine l) {
  return {ZTPointApplyAffineTransform(l.start, t), ZTPointApplyAffineTransform(l.end, t)};
}

ZTPoint ZTLineGetNormal(ZTLine l) {
  const double dx = l.end.x - l.start.x, dy = l.end.y - l.start.y;
  if (dx != 0) {
    const double k = dy / dx;
    const double s = std::sqrt(static_cast<float>(1 / (k * k + 1)));
    return {-k * s, s};
  }
  if (dy == 0) return {0, 1};
  return {dy > 0 ? 1.0 : -1.0, 0};
}

ZTPoint ZTLineGetIntersection(ZTLine first, ZTLine second) {
  const double x1 = first.start.x, y1 = first.start.y, x2 = first.end.x, y2 = first.end.y;
  const double x3 = second.start.x, y3 = second.start.y, x4 = second.end.x, y4 = second.end.y;
  const double den = (x2 - x1) * (y3 - y4) - (y1 - y2) * (x4 - x3);
  if (den == 0) return ZTPointNoIntersection;
  const double c1 = x1 * y2 - x2 * y1;
  const double c2 = x3 * y4 - x4 * y3;
  return {((x4 - x3) * c1 - (x2 - x1) * c2) / den, ((y3 - y4) * c1 - (y1 - y2) * c2) / -den};
}

ZTLine ZTRectGetLeftLineSegment(ZTRect r) {
  return {{ZTRectGetMinX(r), ZTRectGetMaxY(r)}, {ZTRectGetMinX(r), ZTRectGetMinY(r)}};
}
ZTLine ZTRectGetRightLineSegment(ZTRect r) {
  return {{ZTRectGetMaxX(r), ZTRectGetMaxY(r)}, {ZTRectGetMaxX(r), ZTRectGetMinY(r)}};
}
ZTLine ZTRectGetTopLineSegment(ZTRect r) {
  return {{ZTRectGetMinX(r), ZTRectGetMinY(r)}, {ZTRectGetMaxX(r), ZTRectGetMinY(r)}};
}
ZTLine ZTRectGetBottomLineSegment(ZTRect r) {
  return {{ZTRectGetMinX(r), ZTRectGetMaxY(r)}, {ZTRectGetMaxX(r), ZTRectGetMaxY(r)}};
}
ZTLine ZTRectGetHorizontalMidlineSegment(ZTRect r) {
  return {{ZTRectGetMinX(r), ZTRectGetMidY(r)}, {ZTRectGetMaxX(r), ZTRectGetMidY(r)}};
}
ZTLine ZTRectGetVerticalMidlineSegment(ZTRect r) {
  return {{ZTRectGetMidX(r), ZTRectGetMinY(r)}, {ZTRectGetMidX(r), ZTRectGetMaxY(r)}};
}

ZTLine ZTRectGetInnerIntersectedLine(ZTRect rect, ZTLine segment) {
  bool haveFirst = false;
  ZTPoint first{};
  if (ZTRectContainsPoint(rect, segment.start)) {
    first = segment.start;
    haveFirst = true;
  }
  if (ZTRectContainsPoint(rect, segment.end)) {
    if (haveFirst) return segment;
    first = segment.end;
    haveFirst = true;
  }
  const ZTLine edges[4] = {ZTRectGetLeftLineSegment(rect), ZTRectGetRightLineSegment(rect),
                           ZTRectGetTopLineSegment(rect), ZTRectGetBottomLineSegment(rect)};
  for (const ZTLine& edge : edges) {
    const ZTPoint q = ZTGetSegmentIntersection(edge.start, edge.end, segment.start, segment.end);
    if (ZTPointIsNoIntersection(q)) continue;
    if (!haveFirst) {
      first = q;
      haveFirst = true;
    } else if (!(q == first)) {
      return {first, q};
    }
  }
  return ZTLineNone;
}
