#pragma once
// Rect construction, rounding, fitting and subtraction for page and view layout. Pure functions,
// callable from any thread. Unless a function says it standardises, it works on the raw fields.

#include <optional>
#include <vector>

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"

// The rect with its raw fields moved in by four amounts: (x + left, y + top, width - left -
// right, height - top - bottom). Amounts are in that order: left, top, right, bottom.
ZT_API ZTRect ZTRectInset(ZTRect rect, double left, double top, double right, double bottom);

// (midX, midY).
ZT_API ZTPoint ZTRectGetCenterPoint(ZTRect rect);
// Origin at the smaller coordinates, size the absolute differences.
ZT_API ZTRect ZTRectMakeWithPoints(ZTPoint p1, ZTPoint p2);
// Origin = centre - size / 2.
ZT_API ZTRect ZTRectMakeWithCenterAndSize(ZTPoint center, ZTSize size);
// Origin = centre - size / 2; when `fitToPixels` is set each origin coordinate is snapped to the
// device pixel grid of `scale` (pixels per unit): multiplied by the scale, converted to single
// precision, rounded half away from zero and divided by the scale. The size is never changed.
// Argument order: centre, size, the flag, then the scale.
ZT_API ZTRect ZTRectMakeWithCenterAndSizeFittedToPixelsWithScale(ZTPoint center, ZTSize size, bool fitToPixels,
                                                                 double scale);
// The origin snapped as above; the size unchanged.
ZT_API ZTRect ZTRectFittedToPixels(ZTRect rect, double scale);
// Same centre, width and height exchanged.
ZT_API ZTRect ZTRectMakeWithPerpendicularRect(ZTRect rect);

ZT_API ZTRect ZTRectBySettingRectWidth(ZTRect rect, double width);
ZT_API ZTRect ZTRectBySettingRectHeight(ZTRect rect, double height);
ZT_API ZTRect ZTRectBySettingRectOriginX(ZTRect rect, double x);
ZT_API ZTRect ZTRectBySettingRectOriginY(ZTRect rect, double y);
ZT_API ZTRect ZTRectBySettingNewOrigin(ZTRect rect, ZTPoint origin);
ZT_API ZTRect ZTRectBySettingNewSize(ZTRect rect, ZTSize size);

// The smallest whole-number rect covering the rect (ZTRectIntegral).
ZT_API ZTRect ZTRectIntegralMake(ZTRect rect);
// Each of the four fields converted to single precision and ceiled.
ZT_API ZTRect ZTRectCeilf(ZTRect rect);
// Each of the four fields rounded half away from zero.
ZT_API ZTRect ZTRectRound(ZTRect rect);
// Area of the standardised rect (never negative).
ZT_API double ZTRectArea(ZTRect rect);
// All four field differences strictly below epsilon.
ZT_API bool ZTRectIsEqualToRectWithEpsilon(ZTRect a, ZTRect b, double epsilon);
// The union of the rect with a zero-size rect at the point.
ZT_API ZTRect ZTRectByExtendingRectToPoint(ZTRect rect, ZTPoint point);
// b when a contains b, a when b contains a (the input itself, so no rounding creeps in),
// otherwise ZTRectIntersection(a, b).
ZT_API ZTRect ZTPreciseRectIntersection(ZTRect a, ZTRect b);
// True when an edge of a lies exactly on the opposite edge of b (a.minX == b.maxX, a.maxX ==
// b.minX, a.minY == b.maxY or a.maxY == b.minY). The other axis is not checked: rects that share
// only the line through an edge count as adjacent.
ZT_API bool ZTRectAdjacentToRect(ZTRect a, ZTRect b);

// The rect clamped into `bounds`: standardised, shrunk to at most the bounds' size, then moved
// inside.
ZT_API ZTRect ZTEnsureRectInRect(ZTRect rect, ZTRect bounds);
// The rect moved (never resized) into `bounds`, by four moves in order: right if it sticks out
// left, down if it sticks out at the top, left if it sticks out right, up if it sticks out at the
// bottom. A rect larger than the bounds ends aligned to the bounds' max edges.
ZT_API ZTRect ZTOffsetRectToFitInRect(ZTRect rect, ZTRect bounds);
// The rect scaled down (keeping proportions and origin) to fit the bounds' width, then its height
// (a non-positive bounds dimension is not a limit), then moved inside by ZTOffsetRectToFitInRect.
ZT_API ZTRect ZTRectFittedToRect(ZTRect rect, ZTRect bounds);

// `rect` minus `subtracted` when that difference is a single rect; `rect` itself whenever it would
// not be (a cut through the middle or a corner), and ZTRectZero when nothing is left. Edges are
// compared exactly.
ZT_API ZTRect ZTRectSubstractIfUnambigous(ZTRect rect, ZTRect subtracted);
// As above, with edges within `epsilon` (strictly) of each other counting as equal. An epsilon
// of +infinity means exact comparison.
ZT_API ZTRect ZTRectSubstractIfUnambigousWithEpsilon(ZTRect rect, ZTRect subtracted, double epsilon);

// The parts of `rect` left after cutting out `cut`: the cells of the 3 x 3 grid whose columns are
// bounded by rect.minX, cut.minX, cut.maxX, rect.maxX and rows by rect.minY, cut.minY, cut.maxY,
// rect.maxY, without the centre cell, in reading order (top-left, top-middle, top-right,
// middle-left, middle-right, bottom-left, bottom-middle, bottom-right; the top row is the minY
// row). Cells thinner than 0.0001 in either direction are left out.
// - std::nullopt when either rect is null or `rect` is thinner than 0.0001 (or negative);
// - { rect } when `cut` is thinner than 0.0001;
// - an empty vector when the two are equal.
// `cut` need not lie inside `rect`: a cut outside gives whatever grid cells have positive size,
// which may lie outside `rect`. Clip `cut` with ZTRectIntersection first when that matters.
ZT_API std::optional<std::vector<ZTRect>> ZTRectsByCuttingOutRectFromRect(ZTRect rect, ZTRect cut);
