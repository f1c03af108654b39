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

namespace zt::geometry_detail {
inline std::string textForm(const ZTEdgeInsets& insets) {
  std::string out;
  zt::geometry_detail::appendList(out, '{', {insets.top, insets.left, insets.bottom, insets.right}, '}');
  return out;
}
}  // namespace zt::geometry_detail

// The text form ("{top, left, bottom, right}") on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTEdgeInsets& insets) {
  return stream << zt::geometry_detail::textForm(insets);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTEdgeInsets> : zt::geometry_detail::TextFormFormatter<ZTEdgeInsets, &zt::geometry_detail::textForm> {};
#endif

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
