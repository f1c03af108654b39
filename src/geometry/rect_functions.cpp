#include "zentrel/geometry/rect_functions.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "zentrel/geometry/angles.h"

namespace {

double snapToPixels(double value, double scale) {
  return static_cast<double>(std::round(static_cast<float>(value * scale))) / scale;
}

// Comparisons with an optional tolerance: +infinity means exact.
struct Tolerant {
  double epsilon;
  bool eq(double a, double b) const {
    if (epsilon == std::numeric_limits<double>::infinity()) return a == b;
    return std::fabs(a - b) < epsilon;
  }
  bool le(double a, double b) const { return a < b || eq(a, b); }
  bool ge(double a, double b) const { return a > b || eq(a, b); }
  bool gt(double a, double b) const { return a > b && !eq(a, b); }
  bool lt(double a, double b) const { return a < b && !eq(a, b); }
};

constexpr double kCutTolerance = 0.0001;

}  // namespace

ZTRect ZTRectInset(ZTRect r, double left, double top, double right, double bottom) {
  return {{r.origin.x + left, r.origin.y + top}, {r.size.width - left - right, r.size.height - top - bottom}};
}

ZTPoint ZTRectGetCenterPoint(ZTRect r) { return {ZTRectGetMidX(r), ZTRectGetMidY(r)}; }

ZTRect ZTRectMakeWithPoints(ZTPoint p1, ZTPoint p2) {
  return {{std::min(p1.x, p2.x), std::min(p1.y, p2.y)}, {std::fabs(p2.x - p1.x), std::fabs(p2.y - p1.y)}};
}

ZTRect ZTRectMakeWithCenterAndSize(ZTPoint c, ZTSize s) {
  return {{c.x - s.width / 2, c.y - s.height / 2}, s};
}

ZTRect ZTRectMakeWithCenterAndSizeFittedToPixelsWithScale(ZTPoint center, ZTSize size, bool fitToPixels,
                                                          double scale) {
  ZTRect r = ZTRectMakeWithCenterAndSize(center, size);
  if (fitToPixels) r = ZTRectFittedToPixels(r, scale);
  return r;
}

ZTRect ZTRectFittedToPixels(ZTRect r, double scale) {
  r.origin.x = snapToPixels(r.origin.x, scale);
  r.origin.y = snapToPixels(r.origin.y, scale);
  return r;
}

ZTRect ZTRectMakeWithPerpendicularRect(ZTRect r) {
  return ZTRectMakeWithCenterAndSize(ZTRectGetCenterPoint(r), {r.size.height, r.size.width});
}

ZTRect ZTRectBySettingRectWidth(ZTRect r, double width) { r.size.width = width; return r; }
ZTRect ZTRectBySettingRectHeight(ZTRect r, double height) { r.size.height = height; return r; }
ZTRect ZTRectBySettingRectOriginX(ZTRect r, double x) { r.origin.x = x; return r; }
ZTRect ZTRectBySettingRectOriginY(ZTRect r, double y) { r.origin.y = y; return r; }
ZTRect ZTRectBySettingNewOrigin(ZTRect r, ZTPoint origin) { r.origin = origin; return r; }
ZTRect ZTRectBySettingNewSize(ZTRect r, ZTSize size) { r.size = size; return r; }

ZTRect ZTRectIntegralMake(ZTRect r) { return ZTRectIntegral(r); }

ZTRect ZTRectCeilf(ZTRect r) {
  return {{std::ceil(static_cast<float>(r.origin.x)), std::ceil(static_cast<float>(r.origin.y))},
          {std::ceil(static_cast<float>(r.size.width)), std::ceil(static_cast<float>(r.size.height))}};
}

ZTRect ZTRectRound(ZTRect r) {
  return {{std::round(r.origin.x), std::round(r.origin.y)}, {std::round(r.size.width), std::round(r.size.height)}};
}

double ZTRectArea(ZTRect r) { return std::fabs(r.size.width) * std::fabs(r.size.height); }

bool ZTRectIsEqualToRectWithEpsilon(ZTRect a, ZTRect b, double epsilon) {
  return std::fabs(a.origin.x - b.origin.x) < epsilon && std::fabs(a.origin.y - b.origin.y) < epsilon &&
         std::fabs(a.size.width - b.size.width) < epsilon && std::fabs(a.size.height - b.size.height) < epsilon;
}

ZTRect ZTRectByExtendingRectToPoint(ZTRect r, ZTPoint p) { return ZTRectUnion(r, {p, {0, 0}}); }

ZTRect ZTPreciseRectIntersection(ZTRect a, ZTRect b) {
  if (ZTRectContainsRect(a, b)) return b;
  if (ZTRectContainsRect(b, a)) return a;
  return ZTRectIntersection(a, b);
}

bool ZTRectAdjacentToRect(ZTRect a, ZTRect b) {
  return ZTRectGetMinX(a) == ZTRectGetMaxX(b) || ZTRectGetMaxX(a) == ZTRectGetMinX(b) ||
         ZTRectGetMinY(a) == ZTRectGetMaxY(b) || ZTRectGetMaxY(a) == ZTRectGetMinY(b);
}

ZTRect ZTEnsureRectInRect(ZTRect r, ZTRect bounds) {
  r = ZTRectStandardize(r);
  r.size.width = std::min(r.size.width, bounds.size.width);
  r.size.height = std::min(r.size.height, bounds.size.height);
  r.origin.x = ZTEnsureValueInRange(r.origin.x, ZTRectGetMinX(bounds), ZTRectGetMaxX(bounds) - r.size.width);
  r.origin.y = ZTEnsureValueInRange(r.origin.y, ZTRectGetMinY(bounds), ZTRectGetMaxY(bounds) - r.size.height);
  return r;
}

ZTRect ZTOffsetRectToFitInRect(ZTRect r, ZTRect bounds) {
  if (ZTRectGetMinX(r) < ZTRectGetMinX(bounds)) r.origin.x += ZTRectGetMinX(bounds) - ZTRectGetMinX(r);
  if (ZTRectGetMinY(r) < ZTRectGetMinY(bounds)) r.origin.y += ZTRectGetMinY(bounds) - ZTRectGetMinY(r);
  if (ZTRectGetMaxX(r) > ZTRectGetMaxX(bounds)) r.origin.x -= ZTRectGetMaxX(r) - ZTRectGetMaxX(bounds);
  if (ZTRectGetMaxY(r) > ZTRectGetMaxY(bounds)) r.origin.y -= ZTRectGetMaxY(r) - ZTRectGetMaxY(bounds);
  return r;
}

ZTRect ZTRectFittedToRect(ZTRect r, ZTRect bounds) {
  if (bounds.size.width > 0 && r.size.width > bounds.size.width) {
    const double factor = r.size.width / bounds.size.width;
    r.size.width /= factor;
    r.size.height /= factor;
  }
  if (bounds.size.height > 0 && r.size.height > bounds.size.height) {
    const double factor = r.size.height / bounds.size.height;
    r.size.width /= factor;
    r.size.height /= factor;
  }
  return ZTOffsetRectToFitInRect(r, bounds);
}

ZTRect ZTRectSubstractIfUnambigous(ZTRect rect, ZTRect subtracted) {
  return ZTRectSubstractIfUnambigousWithEpsilon(rect, subtracted, std::numeric_limits<double>::infinity());
}

ZTRect ZTRectSubstractIfUnambigousWithEpsilon(ZTRect r, ZTRect s, double epsilon) {
  if (!ZTRectIntersectsRect(r, s)) return r;
  const Tolerant cmp{epsilon};
  const double rMinX = ZTRectGetMinX(r), rMaxX = ZTRectGetMaxX(r), rMinY = ZTRectGetMinY(r), rMaxY = ZTRectGetMaxY(r);
  const double sMinX = ZTRectGetMinX(s), sMaxX = ZTRectGetMaxX(s), sMinY = ZTRectGetMinY(s), sMaxY = ZTRectGetMaxY(s);
  const bool coversTop = cmp.le(sMinY, rMinY);
  const bool coversBottom = cmp.ge(sMaxY, rMaxY);
  if (cmp.le(sMinX, rMinX) && cmp.ge(sMaxX, rMaxX)) {
    if (coversTop && coversBottom) return ZTRectZero;
    if (coversTop) return {{rMinX, sMaxY}, {ZTRectGetWidth(r), rMaxY - sMaxY}};
    if (coversBottom) return {{rMinX, rMinY}, {ZTRectGetWidth(r), sMinY - rMinY}};
    return r;
  }
  if (!(coversTop && coversBottom)) return r;
  if (cmp.gt(sMinX, rMinX)) {
    if (cmp.ge(sMaxX, rMaxX)) return {{rMinX, rMinY}, {sMinX - rMinX, ZTRectGetHeight(r)}};
    return r;
  }
  if (cmp.lt(sMaxX, rMaxX)) return {{sMaxX, rMinY}, {rMaxX - sMaxX, ZTRectGetHeight(r)}};
  return ZTRectZero;
}

std::optional<std::vector<ZTRect>> ZTRectsByCuttingOutRectFromRect(ZTRect rect, ZTRect cut) {
  if (ZTRectIsNull(rect) || ZTRectIsNull(cut)) return std::nullopt;
  if (rect.size.width < kCutTolerance || rect.size.height < kCutTolerance) return std::nullopt;
  if (cut.size.width < kCutTolerance || cut.size.height < kCutTolerance) return std::vector<ZTRect>{rect};
  if (rect == cut) return std::vector<ZTRect>{};
  const double xs[4] = {ZTRectGetMinX(rect), ZTRectGetMinX(cut), ZTRectGetMaxX(cut), ZTRectGetMaxX(rect)};
  const double ys[4] = {ZTRectGetMinY(rect), ZTRectGetMinY(cut), ZTRectGetMaxY(cut), ZTRectGetMaxY(rect)};
  std::vector<ZTRect> cells;
  cells.reserve(8);
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      if (row == 1 && column == 1) continue;
      const ZTRect cell{{xs[column], ys[row]}, {xs[column + 1] - xs[column], ys[row + 1] - ys[row]}};
      if (cell.size.width >= kCutTolerance && cell.size.height >= kCutTolerance) cells.push_back(cell);
    }
  }
  return cells;
}
