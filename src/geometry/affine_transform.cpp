#include "zentrel/geometry/affine_transform.h"

#include <algorithm>
#include <cmath>

ZTAffineTransform ZTAffineTransformMakeRotation(double radians) {
  const double s = std::sin(radians), c = std::cos(radians);
  return {c, s, -s, c, 0, 0};
}

bool ZTAffineTransformIsIdentity(ZTAffineTransform t) { return t == ZTAffineTransformIdentity; }
bool ZTAffineTransformEqualToTransform(ZTAffineTransform t1, ZTAffineTransform t2) { return t1 == t2; }

ZTAffineTransform ZTAffineTransformTranslate(ZTAffineTransform t, double tx, double ty) {
  return ZTAffineTransformConcat(ZTAffineTransformMakeTranslation(tx, ty), t);
}
ZTAffineTransform ZTAffineTransformScale(ZTAffineTransform t, double sx, double sy) {
  return ZTAffineTransformConcat(ZTAffineTransformMakeScale(sx, sy), t);
}
ZTAffineTransform ZTAffineTransformRotate(ZTAffineTransform t, double radians) {
  return ZTAffineTransformConcat(ZTAffineTransformMakeRotation(radians), t);
}

ZTAffineTransform ZTAffineTransformInvert(ZTAffineTransform t) {
  const double det = t.a * t.d - t.b * t.c;
  if (det == 0) return t;
  return {t.d / det,
          -t.b / det,
          -t.c / det,
          t.a / det,
          (t.c * t.ty - t.d * t.tx) / det,
          (t.b * t.tx - t.a * t.ty) / det};
}

ZTSize ZTSizeApplyAffineTransform(ZTSize s, ZTAffineTransform t) {
  return {t.a * s.width + t.c * s.height, t.b * s.width + t.d * s.height};
}

ZTRect ZTRectApplyAffineTransform(ZTRect rect, ZTAffineTransform t) {
  if (ZTRectIsNull(rect) || ZTRectIsInfinite(rect)) return rect;
  const double minX = ZTRectGetMinX(rect), maxX = ZTRectGetMaxX(rect);
  const double minY = ZTRectGetMinY(rect), maxY = ZTRectGetMaxY(rect);
  const ZTPoint corners[4] = {
      ZTPointApplyAffineTransform({minX, minY}, t), ZTPointApplyAffineTransform({maxX, minY}, t),
      ZTPointApplyAffineTransform({maxX, maxY}, t), ZTPointApplyAffineTransform({minX, maxY}, t)};
  double loX = corners[0].x, hiX = corners[0].x, loY = corners[0].y, hiY = corners[0].y;
  for (const ZTPoint& p : corners) {
    loX = std::min(loX, p.x);
    hiX = std::max(hiX, p.x);
    loY = std::min(loY, p.y);
    hiY = std::max(hiY, p.y);
  }
  return {{loX, loY}, {hiX - loX, hiY - loY}};
}
