// Logarithm and exponential for loops over cells: branch-free, so that the compiler turns them into vector code.
#pragma once

#include <bit>
#include <cstdint>

namespace wayloom {

// Binary logarithm of a positive normal number, off by at most 1.5e-4 (a least-squares cubic over the mantissa).
inline float fastLog2(float x) {
  const auto bits = std::bit_cast<std::int32_t>(x);
  const auto exponent = static_cast<float>((bits >> 23) - 127);
  const float m = std::bit_cast<float>((bits & 0x007FFFFF) | 0x3F800000) - 1.0F;
  return exponent + m * (1.43863803F + m * (-0.67774327F + m * (0.32187971F - 0.08277447F * m)));
}

// 2^x for x within -126 to 126, off by less than 1e-4 of the value.
inline float fastExp2(float x) {
  const auto whole = static_cast<std::int32_t>(x + 127.0F) - 127;  // floor: the sum is positive
  const float f = x - static_cast<float>(whole);
  const float mantissa = 0.99992783F + f * (0.69577710F + f * (0.22623319F + f * 0.07790716F));
  return mantissa * std::bit_cast<float>((whole + 127) << 23);
}

}  // namespace wayloom
