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

#include "zentrel/geometry/point.h"

struct ZTRect {
  ZTPoint origin;
  ZTSize size;
  friend constexpr bool operator==(const ZTRect&, const ZTRect&) = default;
};

inline constexpr ZTRect ZTRectZero{{0, 0}, {0, 0}};
extern const ZTRect ZTRectNull;
extern const ZTRect ZTRectInfinite;

constexpr ZTRect ZTRectMake(double x, double y, double width, double height) {
  return {{x, y}, {width, height}};
}

// The same area with a non-negative width and height. The null rect stays null.
ZTRect ZTRectStandardize(ZTRect rect);

double ZTRectGetMinX(ZTRect rect);
double ZTRectGetMidX(ZTRect rect);
double ZTRectGetMaxX(ZTRect rect);
double ZTRectGetMinY(ZTRect rect);
double ZTRectGetMidY(ZTRect rect);
double ZTRectGetMaxY(ZTRect rect);
// The absolute width and height.
double ZTRectGetWidth(ZTRect rect);
double ZTRectGetHeight(ZTRect rect);

bool ZTRectIsNull(ZTRect rect);
bool ZTRectIsInfinite(ZTRect rect);
// Null, or zero width or height.
bool ZTRectIsEmpty(ZTRect rect);
// Same area after standardising; two null rects are equal.
bool ZTRectEqualToRect(ZTRect a, ZTRect b);

// The overlap of two rects, or ZTRectNull when they are disjoint or either is null.
ZTRect ZTRectIntersection(ZTRect a, ZTRect b);
// True when ZTRectIntersection(a, b) is not null (touching edges included).
bool ZTRectIntersectsRect(ZTRect a, ZTRect b);
// The smallest rect covering both; a null operand is ignored.
ZTRect ZTRectUnion(ZTRect a, ZTRect b);
// True when b lies within a (edges may coincide). False when either is null.
bool ZTRectContainsRect(ZTRect a, ZTRect b);
// Half-open: minX <= x < maxX and minY <= y < maxY. False for the null rect.
bool ZTRectContainsPoint(ZTRect rect, ZTPoint point);
// The smallest rect with whole-number edges that covers the rect (min edges floored, max edges
// ceiled). Null and infinite rects come back unchanged; an empty non-null rect still gets whole
// edges.
ZTRect ZTRectIntegral(ZTRect rect);
// The rect moved by (dx, dy). Null stays null.
ZTRect ZTRectOffset(ZTRect rect, double dx, double dy);
// The standardised rect shrunk by dx on the left and right and dy on the top and bottom (negative
// values grow it). A rect shrunk past zero width or height becomes null; null stays null.
ZTRect ZTRectInsetBy(ZTRect rect, double dx, double dy);
