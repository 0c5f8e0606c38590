#include "ranging/FixFilter.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace wayloom::ranging {
namespace {

constexpr double kEarthRadius = 6371008.8;  // mean radius (IUGG), metres
constexpr double kRadians = std::numbers::pi / 180.0;

}  // namespace

bool FixFilter::pass(const platform::CLLocation& fix, double distance, platform::MonotonicTime now) {
  if (told_ && now - toldAt_ < kLongestSilence && metresBetween(told_->coordinate, fix.coordinate) < distance) {
    const double newer = platform::secondsSince1970(fix.timestamp) - platform::secondsSince1970(told_->timestamp);
    if (newer - platform::secondsOf(now - toldAt_) <= kFresher) return false;
  }
  told_ = fix;
  toldAt_ = now;
  return true;
}

bool isPlausible(const platform::CLLocation& fix) {
  return std::abs(fix.coordinate.latitude) <= 90.0 && std::abs(fix.coordinate.longitude) <= 180.0 &&
         std::isfinite(fix.horizontalAccuracy) && fix.horizontalAccuracy > 0.0;
}

// The haversine formula (Sinnott: Virtues of the Haversine, 1984).
double metresBetween(const platform::CLLocationCoordinate2D& a, const platform::CLLocationCoordinate2D& b) {
  const double north = std::sin((b.latitude - a.latitude) * kRadians / 2);
  const double east = std::sin((b.longitude - a.longitude) * kRadians / 2);
  const double h = north * north + std::cos(a.latitude * kRadians) * std::cos(b.latitude * kRadians) * east * east;
  return 2.0 * kEarthRadius * std::asin(std::sqrt(std::min(h, 1.0)));
}

}  // namespace wayloom::ranging
