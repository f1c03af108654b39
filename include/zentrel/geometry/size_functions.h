#pragma once
// Size arithmetic for layout: scaling, fitting one size into another, rounding. Pure functions,
// callable from any thread. Division by a zero bounding size is not guarded (it gives infinities
// or NaN as IEEE rules say) unless a function says otherwise.

#include "zentrel/geometry/point.h"
#include "zentrel/platform/export.h"

// The size aspect-fitted into `bounds`: as large as possible with the same proportions. Enlarges
// as well as shrinks. A size with a zero width or height gives ZTSizeZero.
ZT_API ZTSize ZTGetFittedSize(ZTSize size, ZTSize bounds);

// `size` fitted into `maximum`, keeping proportions (argument order: size, maximum, then the flag):
// - a size that already fits (both dimensions <= maximum) comes back unchanged unless `force`
//   is set; with `force` it is scaled up to touch the maximum;
// - a zero width or height gives ZTSizeZero;
// - a negative maximum dimension returns `maximum` unchanged;
// - a zero maximum width gives (0, min(maxHeight, height)); a zero maximum height gives
//   (min(maxWidth, width), 0).
ZT_API ZTSize ZTFittedSizeForSize(ZTSize size, ZTSize maximum, bool force);

// Per axis, to / from; 1 on an axis where either value is 0.
ZT_API ZTSize ZTScaleBetweenSizes(ZTSize from, ZTSize to);
ZT_API ZTSize ZTSizeScale(ZTSize size, double factor);
ZT_API ZTSize ZTSizeInflate(ZTSize size, ZTSize delta);
ZT_API ZTSize ZTSizeAbs(ZTSize size);
// Each dimension converted to single precision, then ceiled (matches pixel sizes computed in
// single precision elsewhere).
ZT_API ZTSize ZTSizeCeilf(ZTSize size);
// Floor / round half away from zero, in double precision.
ZT_API ZTSize ZTSizeFloor(ZTSize size);
ZT_API ZTSize ZTSizeRound(ZTSize size);
// width / height, or 0 when height is below the double epsilon (so also for negative heights).
ZT_API double ZTSizeAspectRatioOrZero(ZTSize size);
// width * height, signed.
ZT_API double ZTSizeArea(ZTSize size);
// Both differences strictly below epsilon.
ZT_API bool ZTSizeIsEqualToSizeWithEpsilon(ZTSize a, ZTSize b, double epsilon);
