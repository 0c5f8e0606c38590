#pragma once

#include <cmath>

#include "wayloom/maps/Geometry.hpp"

namespace wayloom {

// Smooths positions: a Kalman filter for somebody who walks about at random, an axis at a time. Metres and seconds.
class PositionTrack {
 public:
  static constexpr double kWalk = 1.3;         // metres in a second, of the random walk
  static constexpr double kMeasurement = 0.5;  // square metres, beside a position's own variance
  static constexpr double kSpeedTime = 3.0;    // seconds over which the speed is averaged

  void begin(Point mean, Point variance) {
    place_ = mean;
    variance_ = {variance.x + kMeasurement, variance.y + kMeasurement};
    velocity_ = {};
  }

  void follow(Point mean, Point variance, double seconds) {
    const Point before = place_;
    step(place_.x, variance_.x, mean.x, variance.x, seconds);
    step(place_.y, variance_.y, mean.y, variance.y, seconds);
    if (seconds <= 0.0) return;
    const double share = 1.0 - std::exp(-seconds / kSpeedTime);
    velocity_.x += share * ((place_.x - before.x) / seconds - velocity_.x);
    velocity_.y += share * ((place_.y - before.y) / seconds - velocity_.y);
  }

  Point place() const { return place_; }
  Point variance() const { return variance_; }
  double speed() const { return std::hypot(velocity_.x, velocity_.y); }

 private:
  static void step(double& place, double& variance, double measured, double itsVariance, double seconds) {
    variance += kWalk * kWalk * seconds;
    const double gain = variance / (variance + itsVariance + kMeasurement);
    place += gain * (measured - place);
    variance *= 1.0 - gain;
  }

  Point place_;
  Point variance_;  // square metres
  Point velocity_;
};

}  // namespace wayloom
