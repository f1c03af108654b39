#pragma once
// ZTPoint and ZTSize: plain two-dimensional values in double precision, the building blocks of the
// geometry area. Trivially copyable aggregates; every function here is pure and may be called from
// any thread. Nothing validates its input: infinities and NaNs pass through the arithmetic as IEEE
// rules say.

#include <cmath>
#include <iosfwd>
#include <string>

#include "zentrel/geometry/internal/text_form.h"

struct ZTPoint {
  double x = 0;
  double y = 0;
  friend constexpr bool operator==(const ZTPoint&, const ZTPoint&) = default;
};

// A width and a height.
struct ZTSize {
  double width = 0;
  double height = 0;
  friend constexpr bool operator==(const ZTSize&, const ZTSize&) = default;
};

namespace zt::geometry_detail {
inline std::string textForm(const ZTPoint& point) {
  std::string out;
  zt::geometry_detail::appendList(out, '{', {point.x, point.y}, '}');
  return out;
}
}  // namespace zt::geometry_detail

// The text form ("{x, y}") on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTPoint& point) {
  return stream << zt::geometry_detail::textForm(point);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTPoint> : zt::geometry_detail::TextFormFormatter<ZTPoint, &zt::geometry_detail::textForm> {};
#endif

namespace zt::geometry_detail {
inline std::string textForm(const ZTSize& size) {
  std::string out;
  zt::geometry_detail::appendList(out, '{', {size.width, size.height}, '}');
  return out;
}
}  // namespace zt::geometry_detail

// The text form ("{width, height}") on a stream, and through std::format where the library has it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZTSize& size) {
  return stream << zt::geometry_detail::textForm(size);
}
#if defined(__cpp_lib_format)
template <>
struct std::formatter<ZTSize> : zt::geometry_detail::TextFormFormatter<ZTSize, &zt::geometry_detail::textForm> {};
#endif

inline constexpr ZTPoint ZTPointZero{0, 0};
inline constexpr ZTSize ZTSizeZero{0, 0};

constexpr ZTPoint ZTPointMake(double x, double y) { return {x, y}; }
constexpr ZTSize ZTSizeMake(double width, double height) { return {width, height}; }

// Exact comparisons (NaN is equal to nothing, as in IEEE arithmetic).
constexpr bool ZTPointEqualToPoint(ZTPoint a, ZTPoint b) { return a.x == b.x && a.y == b.y; }
constexpr bool ZTSizeEqualToSize(ZTSize a, ZTSize b) { return a.width == b.width && a.height == b.height; }
