#pragma once
// Angles and clamping: conversions between degrees and radians, normalising whole-degree angles,
// and the snapping rules used while the user drags or rotates (snap to quarter turns, classify a
// drawn line as horizontal, vertical or diagonal). Pure functions, callable from any thread.

#include <cstdint>

#include "zentrel/geometry/point.h"
#include "zentrel/platform/export.h"

// lo when lo > value, otherwise hi when value > hi, otherwise value. When lo > hi, lo wins.
ZT_API double ZTEnsureValueInRange(double value, double minimum, double maximum);

ZT_API double ZTDegreesToRadians(double degrees);
ZT_API double ZTRadiansToDegrees(double radians);

// A whole-degree angle brought into 0...360. Non-negative angles give their remainder by 360
// (360 -> 0); negative ones give 360 + angle + 360 * (-angle / 360), so a negative multiple of 360
// gives 360, not 0 (-360 -> 360, -90 -> 270). Callers that compare against 0 rely on this.
ZT_API std::int64_t ZTAngleIn0to360RangeFromAngle(std::int64_t degrees);

// The angle, in [0, pi/2], between the x-axis and the line through the two points, ignoring
// direction: atan2(|y1 - y2|, |x1 - x2|).
ZT_API double ZTXAxisAngleForVectorWithPoints(ZTPoint p1, ZTPoint p2);
// The direction from `from` to `to`: atan2(to.y - from.y, to.x - from.x), in (-pi, pi].
ZT_API double ZTRotationAngleRadiansFromPoints(ZTPoint from, ZTPoint to);

// No snap: the largest finite double, returned by ZTSnapAngleTo90MultipleWithThreshold.
inline constexpr double ZTNoAngleSnap = 1.7976931348623157e308;

// The multiple of 90 degrees (0, 90, 180 or 270) that `degrees` lies within `threshold` of, or
// ZTNoAngleSnap. The threshold's sign is ignored. An angle just below a multiple snaps up to it
// (359 with threshold 2 gives 0).
ZT_API double ZTSnapAngleTo90MultipleWithThreshold(double degrees, double threshold);

// How a drawn line should snap, from its angle with the x-axis (radians, sign ignored) and its
// length. The angular tolerance is 10 / length, so longer lines need a more precise angle.
// Checked in the order horizontal, vertical, diagonal; the first within tolerance wins.
enum ZTLineSnapping : int {
  ZTLineSnappingNone = 0,
  ZTLineSnappingVertical = 1,
  ZTLineSnappingHorizontal = 2,
  ZTLineSnappingDiagonal = 3,
};
ZT_API ZTLineSnapping ZTSnappingForLineWithXAxisAngleAndLenght(double xAxisRadians, double length);
