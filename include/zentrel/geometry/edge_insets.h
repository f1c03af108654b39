#pragma once
// ZTEdgeInsets: distances from the four edges of a rect, in the order top, left, bottom, right.
// Insets whose four fields are all +infinity are the null insets, ZTEdgeInsetsNull, meaning "no
// insets known". Pure functions, callable from any thread.

#include <cmath>

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"

struct ZTEdgeInsets {
  double top = 0;
  double left = 0;
  double bottom = 0;
  double right = 0;
  friend constexpr bool operator==(const ZTEdgeInsets&, const ZTEdgeInsets&) = default;
};

inline constexpr ZTEdgeInsets ZTEdgeInsetsZero{0, 0, 0, 0};
inline constexpr ZTEdgeInsets ZTEdgeInsetsNull{HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL};  // +infinity

constexpr ZTEdgeInsets ZTEdgeInsetsMake(double top, double left, double bottom, double right) {
  return {top, left, bottom, right};
}

// True when all four fields are +infinity.
ZT_API bool ZTEdgeInsetsIsNull(ZTEdgeInsets insets);
// (x + left, y + top, width - left - right, height - top - bottom), on the raw fields.
ZT_API ZTRect ZTRectByRemovingEdgeInsetsFromRect(ZTEdgeInsets insets, ZTRect rect);
// (x - left, y - top, width + left + right, height + top + bottom), on the raw fields.
ZT_API ZTRect ZTRectByAddingEdgeInsetsToRect(ZTEdgeInsets insets, ZTRect rect);
// The insets that turn `original` into `inseted`: the inverse of ZTRectByRemovingEdgeInsetsFromRect.
ZT_API ZTEdgeInsets ZTEdgeInsetsForInsetedRectAndOriginalRect(ZTRect inseted, ZTRect original);
