#pragma once
// ZTRect: an origin and a size, with the conventions layout code relies on.
//
// - A rect may have a negative width or height; it then extends to the left of / above its origin.
//   Every accessor and operation below (min/max/mid, intersection, union, containment, integral
//   rect) first standardises it, so (10, 0, -10, 5) and (0, 0, 10, 5) cover the same area. The
//   raw fields stay as stored.
// - The null rect, ZTRectNull, stands for "no rectangle" (the result of intersecting disjoint
//   rects): its origin is (+inf, +inf). Any rect with an infinite origin coordinate is null.
//   Union with null gives the other rect; intersection with null gives null.
// - The infinite rect, ZTRectInfinite, covers the whole plane: origin (-DBL_MAX/2, -DBL_MAX/2),
//   size (DBL_MAX, DBL_MAX).
// - Point containment is half-open: a point on the min edges is inside, one on the max edges is
//   not, so adjacent rects never both contain a point.
// - Rect intersection is closed: rects that only touch along an edge intersect in a rect of zero
//   width or height, and are reported as intersecting.
//
// Pure functions on trivially copyable values, callable from any thread.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

#include "zentrel/geometry/point.h"
#include "zentrel/platform/export.h"

struct ZTRect {
  ZTPoint origin;
  ZTSize size;
  friend constexpr bool operator==(const ZTRect&, const ZTRect&) = default;
};

namespace zt::geometry_detail {
inline std::string textForm(const ZTRect& rect) {
  return pairOfPairs(rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
}
}  // namespace zt::geometry_detail

// The text form ("{{x, y}, {width, height}}") on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTRect& rect) {
  return stream << zt::geometry_detail::textForm(rect);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTRect> : zt::geometry_detail::TextFormFormatter<ZTRect, &zt::geometry_detail::textForm> {};
#endif

inline constexpr ZTRect ZTRectZero{{0, 0}, {0, 0}};
inline constexpr ZTRect ZTRectNull{{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()},
                                   {0, 0}};
inline constexpr ZTRect ZTRectInfinite{{-DBL_MAX / 2, -DBL_MAX / 2}, {DBL_MAX, DBL_MAX}};

constexpr ZTRect ZTRectMake(double x, double y, double width, double height) {
  return {{x, y}, {width, height}};
}

// The small accessors and tests below are defined inline: they sit in hit-testing and layout loops.

inline bool ZTRectIsNull(ZTRect rect) { return std::isinf(rect.origin.x) || std::isinf(rect.origin.y); }
inline bool ZTRectIsInfinite(ZTRect rect) { return rect == ZTRectInfinite; }
// Null, or zero width or height.
inline bool ZTRectIsEmpty(ZTRect rect) {
  return ZTRectIsNull(rect) || rect.size.width == 0 || rect.size.height == 0;
}

// The same area with a non-negative width and height. The null rect stays null.
inline ZTRect ZTRectStandardize(ZTRect rect) {
  if (ZTRectIsNull(rect)) return ZTRectNull;
  if (rect.size.width < 0) {
    rect.origin.x += rect.size.width;
    rect.size.width = -rect.size.width;
  }
  if (rect.size.height < 0) {
    rect.origin.y += rect.size.height;
    rect.size.height = -rect.size.height;
  }
  return rect;
}

inline double ZTRectGetMinX(ZTRect r) { return r.size.width < 0 ? r.origin.x + r.size.width : r.origin.x; }
inline double ZTRectGetMidX(ZTRect r) { return r.origin.x + r.size.width / 2; }
inline double ZTRectGetMaxX(ZTRect r) { return r.size.width < 0 ? r.origin.x : r.origin.x + r.size.width; }
inline double ZTRectGetMinY(ZTRect r) { return r.size.height < 0 ? r.origin.y + r.size.height : r.origin.y; }
inline double ZTRectGetMidY(ZTRect r) { return r.origin.y + r.size.height / 2; }
inline double ZTRectGetMaxY(ZTRect r) { return r.size.height < 0 ? r.origin.y : r.origin.y + r.size.height; }
// The absolute width and height.
inline double ZTRectGetWidth(ZTRect r) { return std::fabs(r.size.width); }
inline double ZTRectGetHeight(ZTRect r) { return std::fabs(r.size.height); }

// Same area after standardising; two null rects are equal.
ZT_API bool ZTRectEqualToRect(ZTRect a, ZTRect b);

// The overlap of two rects, or ZTRectNull when they are disjoint or either is null.
inline ZTRect ZTRectIntersection(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a) || ZTRectIsNull(b)) return ZTRectNull;
  const double minX = std::max(ZTRectGetMinX(a), ZTRectGetMinX(b));
  const double minY = std::max(ZTRectGetMinY(a), ZTRectGetMinY(b));
  const double maxX = std::min(ZTRectGetMaxX(a), ZTRectGetMaxX(b));
  const double maxY = std::min(ZTRectGetMaxY(a), ZTRectGetMaxY(b));
  // Written so that a NaN edge also gives null.
  if (!(maxX >= minX) || !(maxY >= minY)) return ZTRectNull;
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}
// True when ZTRectIntersection(a, b) is not null (touching edges included).
inline bool ZTRectIntersectsRect(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a) || ZTRectIsNull(b)) return false;
  return std::min(ZTRectGetMaxX(a), ZTRectGetMaxX(b)) >= std::max(ZTRectGetMinX(a), ZTRectGetMinX(b)) &&
         std::min(ZTRectGetMaxY(a), ZTRectGetMaxY(b)) >= std::max(ZTRectGetMinY(a), ZTRectGetMinY(b));
}
// The smallest rect covering both; a null operand is ignored.
inline ZTRect ZTRectUnion(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a)) return ZTRectStandardize(b);
  if (ZTRectIsNull(b)) return ZTRectStandardize(a);
  const double minX = std::min(ZTRectGetMinX(a), ZTRectGetMinX(b));
  const double minY = std::min(ZTRectGetMinY(a), ZTRectGetMinY(b));
  const double maxX = std::max(ZTRectGetMaxX(a), ZTRectGetMaxX(b));
  const double maxY = std::max(ZTRectGetMaxY(a), ZTRectGetMaxY(b));
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}
// True when b lies within a (edges may coincide). False when either is null.
inline bool ZTRectContainsRect(ZTRect a, ZTRect b) {
  if (ZTRectIsNull(a) || ZTRectIsNull(b)) return false;
  return ZTRectGetMinX(b) >= ZTRectGetMinX(a) && ZTRectGetMaxX(b) <= ZTRectGetMaxX(a) &&
         ZTRectGetMinY(b) >= ZTRectGetMinY(a) && ZTRectGetMaxY(b) <= ZTRectGetMaxY(a);
}
// Half-open: minX <= x < maxX and minY <= y < maxY. False for the null rect (whose infinite
// origin fails the comparisons by itself).
inline bool ZTRectContainsPoint(ZTRect rect, ZTPoint point) {
  return point.x >= ZTRectGetMinX(rect) && point.x < ZTRectGetMaxX(rect) && point.y >= ZTRectGetMinY(rect) &&
         point.y < ZTRectGetMaxY(rect);
}
// The smallest rect with whole-number edges that covers the rect (min edges floored, max edges
// ceiled). Null and infinite rects come back unchanged; an empty non-null rect still gets whole
// edges.
ZT_API ZTRect ZTRectIntegral(ZTRect rect);
// The rect moved by (dx, dy). Null stays null.
ZT_API ZTRect ZTRectOffset(ZTRect rect, double dx, double dy);
// The standardised rect shrunk by dx on the left and right and dy on the top and bottom (negative
// values grow it). A rect shrunk past zero width or height becomes null; null stays null.
ZT_API ZTRect ZTRectInsetBy(ZTRect rect, double dx, double dy);
