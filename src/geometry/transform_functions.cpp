#include "zentrel/geometry/transform_functions.h"

#include <cmath>

#include "zentrel/geometry/angles.h"
#include "zentrel/geometry/rect_functions.h"

double ZTRotationAngleRadiansFromAffineTransform(ZTAffineTransform t) {
  const ZTPoint origin = ZTPointApplyAffineTransform({0, 0}, t);
  const ZTPoint unit = ZTPointApplyAffineTransform({1, 0}, t);
  return std::atan2(unit.y - origin.y, unit.x - origin.x);
}

bool ZTAffineTransformIsSingular(ZTAffineTransform t) { return t.a * t.d - t.c * t.b == 0; }

ZTAffineTransform ZTAffineTransformNormalize(ZTAffineTransform t) {
  auto sign = [](double v) { return std::fabs(v) < 0.00001 ? 0.0 : (v < 0 ? -1.0 : 1.0); };
  return {sign(t.a), sign(t.b), sign(t.c), sign(t.d), 0, 0};
}

ZTAffineTransform ZTAffineTransformMakeFromToRect(ZTRect from, ZTRect to) {
  const double sx = to.size.width / from.size.width;
  const double sy = to.size.height / from.size.height;
  return {sx, 0, 0, sy, ZTRectGetMinX(to) - sx * ZTRectGetMinX(from), ZTRectGetMinY(to) - sy * ZTRectGetMinY(from)};
}

ZTAffineTransform ZTDrawingTransformForAngle(std::int64_t quarterTurnDegrees, ZTRect rect) {
  const double w = rect.size.width, h = rect.size.height;
  switch (quarterTurnDegrees) {
    case 90: return {0, -1, 1, 0, 0, w};
    case 180: return {-1, 0, 0, -1, w, h};
    case 270: return {0, 1, -1, 0, h, 0};
    default: return ZTAffineTransformIdentity;
  }
}

ZTAffineTransform ZTTransformToFitRect(std::int64_t quarterTurnDegrees, ZTRect content, ZTPoint center,
                                       ZTRect bounds) {
  if (quarterTurnDegrees < 0) quarterTurnDegrees += 360;
  const ZTAffineTransform rotation = ZTDrawingTransformForAngle(quarterTurnDegrees, content);
  const ZTAffineTransform inverse = ZTAffineTransformInvert(rotation);
  const ZTRect mapped = ZTRectApplyAffineTransform(content, inverse);
  double scale = 1;
  if (mapped.size.width > bounds.size.width) scale = bounds.size.width / mapped.size.width;
  if (mapped.size.height > bounds.size.height) scale = std::fmin(scale, bounds.size.height / mapped.size.height);
  ZTRect target = ZTRectMakeWithCenterAndSize(center, {mapped.size.width * scale, mapped.size.height * scale});
  if (!ZTRectContainsRect(bounds, target)) target = ZTOffsetRectToFitInRect(target, bounds);
  return ZTAffineTransformConcat(inverse, ZTAffineTransformMakeFromToRect(mapped, target));
}

ZTAffineTransform ZTAffineTransformToRotateRectByDegrees(std::int64_t degrees, ZTRect rect) {
  const double radians = ZTDegreesToRadians(static_cast<double>(ZTAngleIn0to360RangeFromAngle(degrees)));
  const double cx = ZTRectGetMidX(rect), cy = ZTRectGetMidY(rect);
  ZTAffineTransform t = ZTAffineTransformTranslate(ZTAffineTransformIdentity, cx, cy);
  t = ZTAffineTransformRotate(t, radians);
  return ZTAffineTransformTranslate(t, -cx, -cy);
}

ZTRect ZTRotateRectAroundOrigin(ZTRect rect, double degrees) {
  const double ox = rect.origin.x, oy = rect.origin.y;
  ZTAffineTransform t = ZTAffineTransformTranslate(ZTAffineTransformIdentity, ox, oy);
  t = ZTAffineTransformRotate(t, ZTDegreesToRadians(degrees));
  t = ZTAffineTransformTranslate(t, -ox, -oy);
  return ZTRectApplyAffineTransform(rect, t);
}

ZTAffineTransform ZTUnintRectToQuadTransfrom(ZTPoint p0, ZTPoint p1, ZTPoint p2, ZTPoint p3) {
  const double x0 = p0.x, y0 = p0.y, x1 = p1.x, y1 = p1.y, x2 = p2.x, y2 = p2.y, x3 = p3.x, y3 = p3.y;
  const double sx = x0 - x1 + x2 - x3;
  const double sy = y0 - y1 + y2 - y3;
  if (sx == 0 && sy == 0) return {x1 - x0, y1 - y0, x2 - x1, y2 - y1, x0, y0};
  const double den = (x1 - x2) * (y3 - y2) - (y1 - y2) * (x3 - x2);
  const double g = (sx * (y3 - y2) - sy * (x3 - x2)) / den;
  const double h = ((x1 - x2) * sy - (y1 - y2) * sx) / den;
  return {x1 - x0 + g * x1, y1 - y0 + g * y1, x3 - x0 + h * x3, y3 - y0 + h * y3, x0, y0};
}

ZTAffineTransform ZTRectToQuadTransform(ZTRect rect, ZTPoint p0, ZTPoint p1, ZTPoint p2, ZTPoint p3) {
  const double minX = ZTRectGetMinX(rect), maxX = ZTRectGetMaxX(rect);
  const double minY = ZTRectGetMinY(rect), maxY = ZTRectGetMaxY(rect);
  const ZTAffineTransform unitToRect = ZTUnintRectToQuadTransfrom({minX, minY}, {maxX, minY}, {maxX, maxY}, {minX, maxY});
  const ZTAffineTransform unitToQuad = ZTUnintRectToQuadTransfrom(p0, p1, p2, p3);
  return ZTAffineTransformConcat(ZTAffineTransformInvert(unitToRect), unitToQuad);
}
