#pragma once
// ZTLine: a start point and an end point, in that order. The same value serves as a finite segment
// and as an infinite line through the two points; each function says which it means.
//
// A line whose four coordinates are +infinity is the "no line" result (ZTLineNone), returned for
// example when a segment misses a rect. A point whose two coordinates are +infinity,
// ZTPointNoIntersection, means "the lines do not meet".
//
// Pure functions, callable from any thread.

#include <limits>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/platform/export.h"

struct ZTLine {
  ZTPoint start;
  ZTPoint end;
  friend constexpr bool operator==(const ZTLine&, const ZTLine&) = default;
};

namespace zt::geometry_detail {
inline std::string textForm(const ZTLine& line) {
  return pairOfPairs(line.start.x, line.start.y, line.end.x, line.end.y);
}
}  // namespace zt::geometry_detail

// The text form ("{{x1, y1}, {x2, y2}}", start point first) on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTLine& line) {
  return stream << zt::geometry_detail::textForm(line);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTLine> : zt::geometry_detail::TextFormFormatter<ZTLine, &zt::geometry_detail::textForm> {};
#endif

inline constexpr ZTPoint ZTPointNoIntersection{std::numeric_limits<double>::infinity(),
                                               std::numeric_limits<double>::infinity()};
inline constexpr ZTLine ZTLineNone{ZTPointNoIntersection, ZTPointNoIntersection};

constexpr ZTLine ZTLineMake(ZTPoint start, ZTPoint end) { return {start, end}; }
// True for a point whose coordinates are both +infinity.
ZT_API bool ZTPointIsNoIntersection(ZTPoint point);
// True for a line whose four coordinates are +infinity.
ZT_API bool ZTLineIsNone(ZTLine line);

// The mean of the two end points.
ZT_API ZTPoint ZTLineGetMiddlePoint(ZTLine line);
// abs(end.x - start.x) and abs(end.y - start.y).
ZT_API double ZTLineGetSizeOfProjectionOnXAxis(ZTLine line);
ZT_API double ZTLineGetSizeOfProjectionOnYAxis(ZTLine line);
// Both end points mapped through the transform.
ZT_API ZTLine ZTLineApplyAffineTransform(ZTAffineTransform t, ZTLine line);
// A unit normal of the line, as a vector: (-k*s, s) with k the slope and s = sqrt(1 / (k*k + 1))
// taken in single precision. A vertical line gives (sign of its y direction, 0); a line whose end
// points coincide gives (0, 1).
ZT_API ZTPoint ZTLineGetNormal(ZTLine line);
// Where the two infinite lines cross, or ZTPointNoIntersection when they are parallel (or one of
// them is degenerate).
ZT_API ZTPoint ZTLineGetIntersection(ZTLine first, ZTLine second);

// The edges of the standardised rect, with y growing downwards (minY is the top):
// left (minX, maxY) -> (minX, minY); right (maxX, maxY) -> (maxX, minY);
// top (minX, minY) -> (maxX, minY); bottom (minX, maxY) -> (maxX, maxY);
// horizontal midline (minX, midY) -> (maxX, midY); vertical midline (midX, minY) -> (midX, maxY).
ZT_API ZTLine ZTRectGetLeftLineSegment(ZTRect rect);
ZT_API ZTLine ZTRectGetRightLineSegment(ZTRect rect);
ZT_API ZTLine ZTRectGetTopLineSegment(ZTRect rect);
ZT_API ZTLine ZTRectGetBottomLineSegment(ZTRect rect);
ZT_API ZTLine ZTRectGetHorizontalMidlineSegment(ZTRect rect);
ZT_API ZTLine ZTRectGetVerticalMidlineSegment(ZTRect rect);

// The part of the segment that lies inside the rect.
// - Both end points inside (half-open containment): the segment unchanged.
// - Otherwise the inside end point (if any) and the crossings found on the edges, taken in the
//   order left, right, top, bottom with ZTGetSegmentIntersection(edge, segment): the first two
//   distinct points give the result, running from the first found to the second.
// - Fewer than two distinct points: ZTLineNone.
// Because an edge's own end point is not counted as a crossing of that edge, a segment that enters
// exactly through a corner is found on the next edge in the order.
ZT_API ZTLine ZTRectGetInnerIntersectedLine(ZTRect rect, ZTLine segment);
