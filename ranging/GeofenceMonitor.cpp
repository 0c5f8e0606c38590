#include "ranging/GeofenceMonitor.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace wayloom::ranging {
namespace {

using platform::CLCircularRegion;
using platform::CLLocation;
using platform::CLLocationCoordinate2D;
using platform::CLRegionState;
using platform::MonotonicTime;

constexpr double kEarthRadius = 6371008.8;  // mean radius (IUGG), metres
constexpr double kRadians = std::numbers::pi / 180.0;
constexpr double kDoubtInside = 2.0;   // accuracies
constexpr double kDoubtOutside = 3.0;  // the same

bool isSameCircle(const CLCircularRegion& a, const CLCircularRegion& b) {
  return a.center() == b.center() && a.radius() == b.radius();
}

}  // namespace

// The haversine formula (Sinnott: Virtues of the Haversine, 1984).
double metresBetween(const CLLocationCoordinate2D& a, const CLLocationCoordinate2D& b) {
  const double north = std::sin((b.latitude - a.latitude) * kRadians / 2);
  const double east = std::sin((b.longitude - a.longitude) * kRadians / 2);
  const double h = north * north + std::cos(a.latitude * kRadians) * std::cos(b.latitude * kRadians) * east * east;
  return 2.0 * kEarthRadius * std::asin(std::sqrt(std::min(h, 1.0)));
}

GeofenceMonitor::Watch* GeofenceMonitor::find(const std::string& identifier) {
  const auto found = std::find_if(watches_.begin(), watches_.end(),
                                  [&](const Watch& watch) { return watch.region->identifier() == identifier; });
  return found == watches_.end() ? nullptr : &*found;
}

void GeofenceMonitor::start(CLCircularRegionPtr region) {
  auto* known = find(region->identifier());
  if (known == nullptr) {
    watches_.push_back({std::move(region)});
  } else if (isSameCircle(*known->region, *region)) {
    known->region = std::move(region);
    known->isActive = true;
  } else {
    *known = {std::move(region)};
  }
}

void GeofenceMonitor::stop(const std::string& identifier) {
  auto* watch = find(identifier);
  if (watch == nullptr) return;
  watch->isActive = false;
  watch->isAsked = false;
}

std::optional<GeofenceNews> GeofenceMonitor::requestState(const std::string& identifier) {
  auto* watch = find(identifier);
  if (watch == nullptr || !watch->isActive) return std::nullopt;
  watch->isAsked = watch->state == CLRegionState::unknown;
  if (watch->isAsked) return std::nullopt;
  return GeofenceNews{GeofenceNews::Kind::state, watch->region, watch->state};
}

// The state that the fix leads to.
CLRegionState GeofenceMonitor::decide(Watch& watch, const CLLocation& fix, MonotonicTime now) {
  const double radius = watch.region->radius();
  const double accuracy = fix.horizontalAccuracy;
  const double depth = radius - metresBetween(watch.region->center(), fix.coordinate);  // negative: outside
  // In a circle little larger than the accuracy, half the radius is deep enough.
  const bool saysInside = accuracy <= radius && depth >= std::min(accuracy, radius / 2);
  const bool saysOutside = -depth >= accuracy;
  if (watch.state == CLRegionState::unknown)
    return saysInside ? CLRegionState::inside : saysOutside ? CLRegionState::outside : CLRegionState::unknown;
  const bool isInside = watch.state == CLRegionState::inside;
  const auto other = isInside ? CLRegionState::outside : CLRegionState::inside;
  if (isInside ? -depth >= kDoubtOutside * accuracy : depth >= kDoubtInside * accuracy) return other;
  if (isInside ? !saysOutside : !saysInside) {
    watch.changingSince.reset();
    return watch.state;
  }
  if (!watch.changingSince) watch.changingSince = now;
  return now - *watch.changingSince >= kDwell ? other : watch.state;
}

std::vector<GeofenceNews> GeofenceMonitor::receive(const CLLocation& fix, MonotonicTime now) {
  using Kind = GeofenceNews::Kind;
  std::vector<GeofenceNews> news;
  std::erase_if(watches_, [](const Watch& watch) { return !watch.isActive; });
  for (auto& watch : watches_) {
    const auto before = std::exchange(watch.state, decide(watch, fix, now));
    if (watch.state == before) continue;
    watch.changingSince.reset();
    if (watch.state == CLRegionState::inside && watch.region->notifyOnEntry)
      news.push_back({Kind::entered, watch.region});
    if (before == CLRegionState::inside && watch.region->notifyOnExit) news.push_back({Kind::exited, watch.region});
    if (std::exchange(watch.isAsked, false)) news.push_back({Kind::state, watch.region, watch.state});
  }
  return news;
}

}  // namespace wayloom::ranging
