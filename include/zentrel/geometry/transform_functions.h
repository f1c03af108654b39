#pragma once
// Affine transforms for page layout: quarter turns, fitting content into a bounds rect, rotating
// about a centre, mapping a rect onto a quadrilateral. Pure functions, callable from any thread.
// Degenerate input (zero-size rects, collinear quad corners) is not guarded and gives infinities
// or NaN.

#include <cstdint>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/platform/export.h"

// The direction of the transformed x-axis: atan2(b, a).
ZT_API double ZTRotationAngleRadiansFromAffineTransform(ZTAffineTransform t);
// a*d - c*b is exactly 0.
ZT_API bool ZTAffineTransformIsSingular(ZTAffineTransform t);
// a, b, c, d each replaced by its sign (-1 or +1), or 0 when its magnitude is below 0.00001;
// translation dropped.
ZT_API ZTAffineTransform ZTAffineTransformNormalize(ZTAffineTransform t);
// The scale-and-translate transform that maps `from` onto `to` (no rotation, no flip unless the
// sizes have opposite signs).
ZT_API ZTAffineTransform ZTAffineTransformMakeFromToRect(ZTRect from, ZTRect to);

// The transform that draws a W x H page turned by a quarter-turn angle (whole degrees: exactly
// 90, 180 or 270; anything else, including -90 or 450, gives the identity).
//   90 -> (0, -1, 1, 0, 0, W); 180 -> (-1, 0, 0, -1, W, H); 270 -> (0, 1, -1, 0, H, 0).
ZT_API ZTAffineTransform ZTDrawingTransformForAngle(std::int64_t quarterTurnDegrees, ZTRect rect);

// The transform that turns `content` by a quarter-turn angle (negative angles get 360 added once),
// shrinks it if needed (never enlarges) to fit `bounds`, centres it on `center`, and moves it
// inside `bounds` if it still sticks out. Argument order: the angle first, as in
// ZTDrawingTransformForAngle, then the content rect, the centre point and the bounds rect.
ZT_API ZTAffineTransform ZTTransformToFitRect(std::int64_t quarterTurnDegrees, ZTRect content, ZTPoint center,
                                              ZTRect bounds);

// Rotation by whole degrees (normalised with ZTAngleIn0to360RangeFromAngle) about the rect's centre.
ZT_API ZTAffineTransform ZTAffineTransformToRotateRectByDegrees(std::int64_t degrees, ZTRect rect);
// The bounding rect of the rect rotated by `degrees` about its origin point.
ZT_API ZTRect ZTRotateRectAroundOrigin(ZTRect rect, double degrees);

// The affine transform that maps the unit square corners (0,0), (1,0), (1,1), (0,1) onto p0..p3
// (given in order around the quadrilateral). Exact for parallelograms; for other quadrilaterals
// the projective terms only bend the linear part, and the result is an affine approximation.
ZT_API ZTAffineTransform ZTUnintRectToQuadTransfrom(ZTPoint p0, ZTPoint p1, ZTPoint p2, ZTPoint p3);
// The transform that maps the rect's corners (minX, minY), (maxX, minY), (maxX, maxY), (minX,
// maxY) onto p0..p3, with the same approximation for non-parallelograms.
ZT_API ZTAffineTransform ZTRectToQuadTransform(ZTRect rect, ZTPoint p0, ZTPoint p1, ZTPoint p2, ZTPoint p3);
