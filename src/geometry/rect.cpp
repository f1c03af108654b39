#include "zentrel/geometry/rect.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

namespace {
constexpr double kInf = std::numeric_limits<double>::infinity();
}

const ZTRect ZTRectNull{{kInf, kInf}, {0, 0}};
const ZTRect ZTRectInfinite{{-DBL_MAX / 2, -DBL_MAX / 2}, {DBL_MAX, DBL_MAX}};

ZTRect ZTRectStandardize(ZTRect r) {
  if (ZTRectIsNull(r)) return ZTRectNull;
  if (r.size.width < 0) {
    r.origin.x += r.size.width;
    r.size.width = -r.size.width;
  }
  if (r.size.height < 0) {
    r.origin.y += r.size.height;
    r.size.height = -r.size.height;
  }
  return r;
}

double ZTRectGetMinX(ZTRect r) { return r.size.width < 0 ? r.origin.x + r.size.width : r.origin.x; }
double ZTRectGetMaxX(ZTRect r) { return r.size.width < 0 ? r.origin.x : r.origin.x + r.size.width; }
double ZTRectGetMidX(ZTRect r) { return r.origin.x + r.size.width / 2; }
double ZTRectGetMinY(ZTRect r) { return r.size.height < 0 ? r.origin.y + r.size.height : r.origin.y; }
double ZTRectGetMaxY(ZTRect r) { return r.size.height < 0 ? r.origin.y : r.origin.y + r.size.height; }
double ZTRectGetMidY(ZTRect r) { return r.origin.y + r.size.height / 2; }
double ZTRectGetWidth(ZTRect r) { return std::fabs(r.size.width); }
double ZTRectGetHeight(ZTRect r) { return std::fabs(r.size.height); }

bool ZTRectIsNull(ZTRect r) { return std::isinf(r.origin.x) || std::isinf(r.origin.y); }

bool ZTRectIsInfinite(ZTRect r) { return r == ZTRectInfinite; }

bool ZTRectIsEmpty(ZTRect r) { return ZTRectIsNull(r) || r.size.width == 0 || r.size.height == 0; }

bool ZTRectEqualToRect(ZTRect a, ZTRect b) {
  const bool aNull = ZTRectIsNull(a), bNull = ZTRectIsNull(b);
  if (aNull || bNull) return aNull && bNull;
  return ZTRectStandardize(a) == ZTRectStandardize(b);
}

ZTRect ZTRectIntersection(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a) || ZTRectIsNull(b)) return ZTRectNull;
  a = ZTRectStandardize(a);
  b = ZTRectStandardize(b);
  const double minX = std::max(a.origin.x, b.origin.x);
  const double minY = std::max(a.origin.y, b.origin.y);
  const double maxX = std::min(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double maxY = std::min(a.origin.y + a.size.height, b.origin.y + b.size.height);
  // Written so that a NaN edge also gives null.
  if (!(maxX >= minX) || !(maxY >= minY)) return ZTRectNull;
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}

bool ZTRectIntersectsRect(ZTRect a, ZTRect b) { return !ZTRectIsNull(ZTRectIntersection(a, b)); }

ZTRect ZTRectUnion(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a)) return ZTRectStandardize(b);
  if (ZTRectIsNull(b)) return ZTRectStandardize(a);
  a = ZTRectStandardize(a);
  b = ZTRectStandardize(b);
  const double minX = std::min(a.origin.x, b.origin.x);
  const double minY = std::min(a.origin.y, b.origin.y);
  const double maxX = std::max(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double maxY = std::max(a.origin.y + a.size.height, b.origin.y + b.size.height);
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}

bool ZTRectContainsRect(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a) || ZTRectIsNull(b)) return false;
  return ZTRectGetMinX(b) >= ZTRectGetMinX(a) && ZTRectGetMaxX(b) <= ZTRectGetMaxX(a) &&
         ZTRectGetMinY(b) >= ZTRectGetMinY(a) && ZTRectGetMaxY(b) <= ZTRectGetMaxY(a);
}

bool ZTRectContainsPoint(ZTRect r, ZTPoint p) {
  if (ZTRectIsNull(r)) return false;
  return p.x >= ZTRectGetMinX(r) && p.x < ZTRectGetMaxX(r) && p.y >= ZTRectGetMinY(r) && p.y < ZTRectGetMaxY(r);
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
