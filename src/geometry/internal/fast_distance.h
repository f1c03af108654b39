#pragma once
// The square root of a squared distance by the inverse-square-root bit trick: the value is
// narrowed to single precision, its bits give a first guess through the magic constant
// 0x5F375A86, one Newton step refines it, and the reciprocal is the distance.

#include <bit>
#include <cstdint>

namespace zt::geometry {

inline double fastDistance(double squared) {
  const float s = static_cast<float>(squared);
  const std::int32_t i = 0x5F375A86 - (std::bit_cast<std::int32_t>(s) >> 1);
  float y = std::bit_cast<float>(i);
  y = y * (1.5f - 0.5f * s * y * y);
  return static_cast<double>(1.0f / y);
}

}  // namespace zt::geometry
