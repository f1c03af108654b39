#pragma once
// ZTPoint and ZTSize: plain two-dimensional values in double precision, the building blocks of the
// geometry area. Trivially copyable aggregates; every function here is pure and may be called from
// any thread. Nothing validates its input: infinities and NaNs pass through the arithmetic as IEEE
// rules say.

#include <cmath>

struct ZTPoint {
  double x = 0;
  double y = 0;
  friend constexpr bool operator==(const ZTPoint&, const ZTPoint&) = default;
};

struct ZTSize {
  double width = 0;
  double height = 0;
  friend constexpr bool operator==(const ZTSize&, const ZTSize&) = default;
};

inline constexpr ZTPoint ZTPointZero{0, 0};
inline constexpr ZTSize ZTSizeZero{0, 0};

constexpr ZTPoint ZTPointMake(double x, double y) { return {x, y}; }
constexpr ZTSize ZTSizeMake(double width, double height) { return {width, height}; }

// Exact comparisons (NaN is equal to nothing, as in IEEE arithmetic).
constexpr bool ZTPointEqualToPoint(ZTPoint a, ZTPoint b) { return a.x == b.x && a.y == b.y; }
constexpr bool ZTSizeEqualToSize(ZTSize a, ZTSize b) { return a.width == b.width && a.height == b.height; }
