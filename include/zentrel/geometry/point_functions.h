#pragma once
// Point arithmetic and distances for hit testing. Pure functions, callable from any thread.

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"

// Each coordinate converted to single precision and rounded half away from zero.
ZT_API ZTPoint ZTPointIntegral(ZTPoint point);
ZT_API ZTPoint ZTPointCeil(ZTPoint point);
ZT_API ZTPoint ZTPointFloor(ZTPoint point);
ZT_API ZTPoint ZTPointOffset(ZTPoint point, ZTPoint delta);
// Product per axis.
ZT_API ZTPoint ZTPointScale(ZTPoint point, ZTPoint factor);

// The point clamped to the last whole pixel inside the rect: x to [minX, max(maxX - 1, 0)], y to
// [minY, max(maxY - 1, 0)] (by ZTEnsureValueInRange, so minX wins if the range is inverted).
ZT_API ZTPoint ZTEnsurePointInRect(ZTPoint point, ZTRect rect);
// The point pulled onto the rect when outside it; the max edges are inclusive here, so the result
// may lie on maxX or maxY.
ZT_API ZTPoint ZTPointFittedToRect(ZTPoint point, ZTRect rect);

// The exact Euclidean distance.
ZT_API double ZTDistanceBetweenPoints(ZTPoint p1, ZTPoint p2);
// A fast approximation of the distance: the squared distance in single precision, an inverse
// square root by the bit trick (magic 0x5F375A86) and one Newton step. Relative error below
// 0.2 % (distance 10 gives about 10.0155). Coincident points give a tiny positive value (about
// 5.05e-20), not 0. Squared distances beyond the single-precision range give 0 (the inverse
// square root underflows); use ZTDistanceBetweenPoints there.
ZT_API double ZTGetFastDistanceBetweenPoints(ZTPoint p1, ZTPoint p2);
// The distance from a point to the nearest edge of the rect, measured to the edge nearer on each
// axis (a tie on the midline goes to the min edge). A point inside gets the distance to the
// nearest edge, not 0. A point diagonally beyond a corner gets the fast distance (above) to that
// corner.
ZT_API double ZTDistanceBetweenPointAndRect(ZTPoint point, ZTRect rect);
