#include "zentrel/geometry/size_functions.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

ZTSize ZTGetFittedSize(ZTSize size, ZTSize bounds) {
  if (size.width == 0 || size.height == 0) return ZTSizeZero;
  if (size.width / size.height > bounds.width / bounds.height) {
    return {bounds.width, size.height * bounds.width / size.width};
  }
  return {size.width * bounds.height / size.height, bounds.height};
}

ZTSize ZTFittedSizeForSize(ZTSize size, ZTSize maximum, bool force) {
  const double w = size.width, h = size.height, mw = maximum.width, mh = maximum.height;
  if (mh >= h && mw >= w && !force) return size;
  if (w == 0 || h == 0) return ZTSizeZero;
  if (mw < 0 || mh < 0) return maximum;
  if (mw == 0) return {0, std::min(mh, h)};
  if (mh == 0) return {std::min(mw, w), 0};
  if (mw / mh > w / h) return {w * (mh / h), mh};
  return {mw, h * (mw / w)};
}

ZTSize ZTScaleBetweenSizes(ZTSize from, ZTSize to) {
  return {(from.width == 0 || to.width == 0) ? 1.0 : to.width / from.width,
          (from.height == 0 || to.height == 0) ? 1.0 : to.height / from.height};
}

ZTSize ZTSizeScale(ZTSize s, double factor) { return {s.width * factor, s.height * factor}; }
ZTSize ZTSizeInflate(ZTSize s, ZTSize delta) { return {s.width + delta.width, s.height + delta.height}; }
ZTSize ZTSizeAbs(ZTSize s) { return {std::fabs(s.width), std::fabs(s.height)}; }

ZTSize ZTSizeCeilf(ZTSize s) {
  return {std::ceil(static_cast<float>(s.width)), std::ceil(static_cast<float>(s.height))};
}

ZTSize ZTSizeFloor(ZTSize s) { return {std::floor(s.width), std::floor(s.height)}; }
ZTSize ZTSizeRound(ZTSize s) { return {std::round(s.width), std::round(s.height)}; }

double ZTSizeAspectRatioOrZero(ZTSize s) { return s.height < DBL_EPSILON ? 0 : s.width / s.height; }

double ZTSizeArea(ZTSize s) { return s.width * s.height; }

bool ZTSizeIsEqualToSizeWithEpsilon(ZTSize a, ZTSize b, double epsilon) {
  return std::fabs(a.width - b.width) < epsilon && std::fabs(a.height - b.height) < epsilon;
}
