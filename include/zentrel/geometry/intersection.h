#pragma once
// Hit testing: segments against segments, rects and ellipses. Pure functions, callable from any
// thread. Segments are given by their end points; P1 -> P2 is the first segment and P3 -> P4 the
// second.

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"

// True when the two closed segments share a point; touching end points count. Parallel and
// collinear segments (even overlapping ones) give false.
ZT_API bool ZTSegmentIntersectionCheck(ZTPoint p1, ZTPoint p2, ZTPoint p3, ZTPoint p4);
// The crossing point of the two segments, or ZTPointNoIntersection (see line.h). The ends are
// treated differently: the crossing may lie anywhere on P3 -> P4 including both ends, and on
// P1 -> P2 including P1 but excluding P2. So segments meeting exactly at P2 give no point and
// segments meeting exactly at P4 give P4; chains of segments are counted once per joint.
// Parallel and collinear segments give ZTPointNoIntersection.
ZT_API ZTPoint ZTGetSegmentIntersection(ZTPoint p1, ZTPoint p2, ZTPoint p3, ZTPoint p4);
// True when either end point is inside the rect (half-open containment).
ZT_API bool ZTRectContainsSegment(ZTRect rect, ZTPoint p1, ZTPoint p2);
// True when the segment crosses or touches one of the rect's edges (top, right, bottom, left in
// that order). A segment wholly inside the rect crosses no edge and gives false.
ZT_API bool ZTRectIntersectedBySegment(ZTRect rect, ZTPoint p1, ZTPoint p2);
// True when the rect's outline crosses the ellipse inscribed in `ellipseRect`: one, two or three
// of the rect's corners are inside the ellipse. A rect wholly inside (four corners) or with no
// corner inside gives false, even when an edge of the rect cuts through the ellipse. The test runs
// in single precision; a corner beyond the ellipse's horizontal extent is judged against the
// mirrored curve (so it may count as inside).
ZT_API bool ZTEllipseIntersectedByRect(ZTRect ellipseRect, ZTRect rect);
