#include "ranging/GeofenceMonitor.hpp"

#include <algorithm>
#include <utility>

#include "ranging/FixFilter.hpp"

namespace wayloom::ranging {
namespace {

using platform::CLCircularRegion;
using platform::CLLocation;
using platform::CLRegionState;
using platform::MonotonicTime;

constexpr double kDoubtInside = 2.0;   // accuracies
constexpr double kDoubtOutside = 3.0;  // the same

bool isSameCircle(const CLCircularRegion& a, const CLCircularRegion& b) {
  return a.center() == b.center() && a.radius() == b.radius();
}

}  // namespace

void GeofenceMonitor::start(CLCircularRegionPtr region) {
  auto* known = watches_.find(region->identifier());
  if (known == nullptr) {
    const auto identifier = region->identifier();
    watches_.put(identifier, {std::move(region)});
  } else if (isSameCircle(*known->region, *region)) {
    known->region = std::move(region);
    known->isActive = true;
    known->isForgotten = false;
  } else {
    *known = {std::move(region)};
  }
}

void GeofenceMonitor::stop(const std::string& identifier) {
  auto* watch = watches_.find(identifier);
  if (watch == nullptr) return;
  if (watch->state == CLRegionState::unknown) {
    watches_.remove(identifier);
    return;
  }
  watch->isActive = false;
  watch->isAsked = false;
}

std::optional<GeofenceNews> GeofenceMonitor::requestState(const std::string& identifier) {
  auto* watch = watches_.find(identifier);
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
  watches_.eraseIf([](Watch& watch) { return !watch.isActive && std::exchange(watch.isForgotten, true); });
  watches_.forEach([&](Watch& watch) {
    if (!watch.isActive) return;
    const auto before = std::exchange(watch.state, decide(watch, fix, now));
    if (watch.state == before) return;
    watch.changingSince.reset();
    if (watch.state == CLRegionState::inside && watch.region->notifyOnEntry)
      news.push_back({Kind::entered, watch.region});
    if (before == CLRegionState::inside && watch.region->notifyOnExit) news.push_back({Kind::exited, watch.region});
    if (std::exchange(watch.isAsked, false)) news.push_back({Kind::state, watch.region, watch.state});
  });
  return news;
}

}  // namespace wayloom::ranging
