// Plain geometry of maps. The unit is the caller's: pixels of an image, standard pixels, metres or degrees.
#pragma once

#include <cmath>
#include <cstdint>

namespace wayloom {

// On maps x grows to the right and y downwards.
struct Point {
  double x = 0.0;
  double y = 0.0;

  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0.0;
  double height = 0.0;

  bool operator==(const Size&) const = default;
};

inline constexpr double kRadiansPerDegree = 0.017453292519943295;

// Turns the axes of a frame clockwise, where y points north: by 90 degrees (1, 0) becomes (0, -1).
class AxisRotation {
 public:
  explicit AxisRotation(double degrees)
      : cosine_(std::cos(degrees * kRadiansPerDegree)), sine_(std::sin(degrees * kRadiansPerDegree)) {}

  Point apply(Point point) const { return {point.x * cosine_ + point.y * sine_, -point.x * sine_ + point.y * cosine_}; }

 private:
  double cosine_;
  double sine_;
};

// The whole number next to the value towards zero; the nearest end of the range beyond it, and 0 for NaN.
constexpr std::int64_t truncated(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (value >= kLimit) return INT64_MAX;
  if (value < -kLimit) return INT64_MIN;
  return value == value ? static_cast<std::int64_t>(value) : 0;
}

}  // namespace wayloom
