#include "zentrel/geometry/rect.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

bool ZTRectEqualToRect(ZTRect a, ZTRect b) {
  const bool aNull = ZTRectIsNull(a), bNull = ZTRectIsNull(b);
  if (aNull || bNull) return aNull && bNull;
  return ZTRectStandardize(a) == ZTRectStandardize(b);
}

ZTRect ZTRectIntegral(ZTRect r) {
  if (ZTRectIsNull(r) || ZTRectIsInfinite(r)) return r;
  r = ZTRectStandardize(r);
  const double minX = std::floor(r.origin.x), minY = std::floor(r.origin.y);
  const double maxX = std::ceil(r.origin.x + r.size.width), maxY = std::ceil(r.origin.y + r.size.height);
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}

ZTRect ZTRectOffset(ZTRect r, double dx, double dy) {
  if (ZTRectIsNull(r)) return r;
  r.origin.x += dx;
  r.origin.y += dy;
  return r;
}

ZTRect ZTRectInsetBy(ZTRect r, double dx, double dy) {
  if (ZTRectIsNull(r)) return r;
  r = ZTRectStandardize(r);
  r.origin.x += dx;
  r.origin.y += dy;
  r.size.width -= 2 * dx;
  r.size.height -= 2 * dy;
  if (r.size.width < 0 || r.size.height < 0) return ZTRectNull;
  return r;
}
