#pragma once
// ZTAffineTransform: a 2-D affine map (a, b, c, d, tx, ty) that sends (x, y) to
//   (a*x + c*y + tx, b*x + d*y + ty).
//
// Composition follows one rule throughout: ZTAffineTransformConcat(t1, t2) applies t1 first, then
// t2. The "modify" forms (Translate, Scale, Rotate) prepend their step: ZTAffineTransformRotate(t,
// angle) rotates points first and then applies t, so building "translate to c, rotate, translate
// back" with three successive calls rotates about c. Angles are in radians, counter-clockwise in
// a y-up frame (clockwise on a y-down screen).
//
// Pure functions, callable from any thread.

#include "zentrel/geometry/rect.h"
#include "zentrel/platform/export.h"

struct ZTAffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  friend constexpr bool operator==(const ZTAffineTransform&, const ZTAffineTransform&) = default;
};

namespace zt::geometry_detail {
inline std::string textForm(const ZTAffineTransform& t) {
  std::string out;
  zt::geometry_detail::appendList(out, '[', {t.a, t.b, t.c, t.d, t.tx, t.ty}, ']');
  return out;
}
}  // namespace zt::geometry_detail

// The text form ("[a, b, c, d, tx, ty]") on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTAffineTransform& t) {
  return stream << zt::geometry_detail::textForm(t);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTAffineTransform> : zt::geometry_detail::TextFormFormatter<ZTAffineTransform, &zt::geometry_detail::textForm> {};
#endif

inline constexpr ZTAffineTransform ZTAffineTransformIdentity{1, 0, 0, 1, 0, 0};

constexpr ZTAffineTransform ZTAffineTransformMake(double a, double b, double c, double d, double tx,
                                                  double ty) {
  return {a, b, c, d, tx, ty};
}
constexpr ZTAffineTransform ZTAffineTransformMakeTranslation(double tx, double ty) { return {1, 0, 0, 1, tx, ty}; }
constexpr ZTAffineTransform ZTAffineTransformMakeScale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
ZT_API ZTAffineTransform ZTAffineTransformMakeRotation(double radians);

ZT_API bool ZTAffineTransformIsIdentity(ZTAffineTransform t);
ZT_API bool ZTAffineTransformEqualToTransform(ZTAffineTransform t1, ZTAffineTransform t2);

// t1 first, then t2.
constexpr ZTAffineTransform ZTAffineTransformConcat(ZTAffineTransform t1, ZTAffineTransform t2) {
  return {t1.a * t2.a + t1.b * t2.c,
          t1.a * t2.b + t1.b * t2.d,
          t1.c * t2.a + t1.d * t2.c,
          t1.c * t2.b + t1.d * t2.d,
          t1.tx * t2.a + t1.ty * t2.c + t2.tx,
          t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}
// The step first, then t.
ZT_API ZTAffineTransform ZTAffineTransformTranslate(ZTAffineTransform t, double tx, double ty);
ZT_API ZTAffineTransform ZTAffineTransformScale(ZTAffineTransform t, double sx, double sy);
ZT_API ZTAffineTransform ZTAffineTransformRotate(ZTAffineTransform t, double radians);
// The inverse map. A singular transform (a*d - b*c == 0) has none and is returned unchanged;
// test with ZTAffineTransformIsSingular first when that matters.
ZT_API ZTAffineTransform ZTAffineTransformInvert(ZTAffineTransform t);

constexpr ZTPoint ZTPointApplyAffineTransform(ZTPoint p, ZTAffineTransform t) {
  return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}
// Applies only the linear part (a vector has no position).
ZT_API ZTSize ZTSizeApplyAffineTransform(ZTSize size, ZTAffineTransform t);
// The bounding box of the four transformed corners. Null and infinite rects come back unchanged.
ZT_API ZTRect ZTRectApplyAffineTransform(ZTRect rect, ZTAffineTransform t);
