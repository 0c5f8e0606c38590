#include "ranging/LocationHub.hpp"

namespace wayloom::ranging {
namespace {

using platform::CLAuthorizationStatus;
using platform::CLBeacon;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using platform::CLLocation;
using platform::CLRegionPtr;
using platform::CLRegionState;

CLBeaconRegionPtr beaconRegion(const CLRegionPtr& region) {
  return std::dynamic_pointer_cast<const CLBeaconRegion>(region);
}

CLCircularRegionPtr circularRegion(const CLRegionPtr& region) {
  return std::dynamic_pointer_cast<const platform::CLCircularRegion>(region);
}

}  // namespace

std::shared_ptr<LocationHub> LocationHub::make(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock) {
  std::shared_ptr<LocationHub> hub(new LocationHub(tasks, clock));
  hub->self_ = hub;
  hub->driver_.setOwner(hub);
  return hub;
}

void LocationHub::close() {
  {
    const std::lock_guard lock(mutex_);
    isOpen_ = false;
  }
  driver_.end();
  deliveryObserver_.reset();
  fixRequestObserver_.reset();
  beaconRequestObserver_.reset();
}

// --- Changes, on any thread ---

template <class Change, class Then>
void LocationHub::changeRegions(Change change, Then then) {
  const std::lock_guard lock(mutex_);
  if (!isOpen_) return;
  change(regions_);
  changes_.emplace_back(std::move(then));
  if (openSteps_ == 0)
    takeInLater(1);
  else
    ++heldBack_;
}

void LocationHub::takeInLater(std::size_t count) {
  if (count == 0 || !isOpen_) return;
  tasks_.mainQueue().async([weak = self_, count] {
    if (const auto hub = weak.lock()) hub->takeIn(count);
  });
}

// What is wanted of radio and receiver is looked at when all of a step is there: what was withdrawn and renewed in it
// has not changed.
void LocationHub::takeIn(std::size_t count) {
  std::vector<std::function<void(LocationHub&)>> step;
  {
    const std::lock_guard lock(mutex_);
    for (; count > 0; --count, changes_.pop_front()) step.push_back(std::move(changes_.front()));
  }
  for (const auto& change : step) change(*this);
  updateBeaconRequest();
  updateFixRequest();
}

void LocationHub::beginStep() {
  const std::lock_guard lock(mutex_);
  ++openSteps_;
}

// What other threads changed meanwhile is taken in with it, so that the order is one for all.
void LocationHub::endStep() {
  const std::lock_guard lock(mutex_);
  if (--openSteps_ == 0) takeInLater(std::exchange(heldBack_, 0));
}

template <class Then>
void LocationHub::follow(Then then) {
  changeRegions([](ApplicationRegions&) {}, std::move(then));
}

void LocationHub::followFixRequest() {
  follow([](LocationHub&) {});
}

// A beacon region and a circle of one identifier are one region to the application, and so the later ends the earlier.
void LocationHub::startMonitoring(const CLRegionPtr& region) {
  changeRegions([&](ApplicationRegions& regions) { regions.startMonitoring(region); },
                [region](LocationHub& hub) {
                  const auto beacons = beaconRegion(region);
                  const auto circle = circularRegion(region);
                  if (!beacons) hub.driver_.stopMonitoring(region->identifier());
                  if (!circle) hub.geofences_.stop(region->identifier());
                  if (beacons) hub.driver_.startMonitoring(beacons);
                  if (circle) hub.geofences_.start(circle);
                  hub.clients_.tell([&](auto& delegate, auto* manager) {
                    delegate.locationManagerDidStartMonitoringForRegion(manager, region);
                  });
                });
}

void LocationHub::stopMonitoring(const CLRegionPtr& region) {
  changeRegions([&](ApplicationRegions& regions) { regions.stopMonitoring(region->identifier()); },
                [identifier = region->identifier()](LocationHub& hub) {
                  hub.driver_.stopMonitoring(identifier);
                  hub.geofences_.stop(identifier);
                });
}

// Of a circle nothing is told until a received fix has decided where the device is.
void LocationHub::requestState(const CLRegionPtr& region) {
  follow([region](LocationHub& hub) {
    if (const auto beacons = beaconRegion(region)) return hub.driver_.requestState(beacons);
    if (const auto news = hub.geofences_.requestState(region->identifier())) hub.tell(*news);
  });
}

void LocationHub::startRanging(const CLBeaconRegionPtr& region) {
  changeRegions([&](ApplicationRegions& regions) { regions.startRanging(region); },
                [region](LocationHub& hub) { hub.driver_.startRanging(region); });
}

void LocationHub::stopRanging(const CLBeaconRegionPtr& region) {
  changeRegions([&](ApplicationRegions& regions) { regions.stopRanging(region->identifier()); },
                [identifier = region->identifier()](LocationHub& hub) { hub.driver_.stopRanging(identifier); });
}

std::vector<CLRegionPtr> LocationHub::monitoredRegions() const {
  const std::lock_guard lock(mutex_);
  return regions_.monitored();
}

std::vector<CLBeaconRegionPtr> LocationHub::rangedRegions() const {
  const std::lock_guard lock(mutex_);
  return regions_.ranged();
}

std::optional<CLLocation> LocationHub::lastFix() const {
  const std::lock_guard lock(mutex_);
  return lastFix_;
}

void LocationHub::removeClient(const LocationClientPtr& client) {
  clients_.remove(client);
  followFixRequest();
}

CLAuthorizationStatus LocationHub::authorization() const {
  const std::lock_guard lock(mutex_);
  return authorization_;
}

bool LocationHub::isMonitoringAvailable() const {
  const std::lock_guard lock(mutex_);
  return isMonitoringAvailable_;
}

void LocationHub::setMonitoringAvailable(bool available) {
  const std::lock_guard lock(mutex_);
  isMonitoringAvailable_ = available;
}

// --- What comes in, on the main thread ---

void LocationHub::receive(const IBeaconFrame& frame, std::optional<platform::MonotonicTime> receivedAt) {
  driver_.receive(frame, receivedAt.value_or(clock_.now()));
}

void LocationHub::receiveFix(const CLLocation& fix) {
  if (!isPlausible(fix) || !isAllowed_) return;
  {
    const std::lock_guard lock(mutex_);
    lastFix_ = fix;
  }
  const auto now = clock_.now();
  for (const auto& news : geofences_.receive(fix, now)) tell(news);
  if (clients_.tellFix(fix, now)) observeDelivery();
}

void LocationHub::setAuthorization(CLAuthorizationStatus status) {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(authorization_, status) == status) return;
  }
  isAllowed_ = status != CLAuthorizationStatus::denied && status != CLAuthorizationStatus::restricted;
  driver_.setAllowed(isAllowed_);
  clients_.tell(
      [&](auto& delegate, auto* manager) { delegate.locationManagerDidChangeAuthorizationStatus(manager, status); });
}

void LocationHub::updateFixRequest() {
  std::unique_lock lock(mutex_);
  const auto base = regions_.wantFixes() ? std::optional(FixRequest{}) : std::nullopt;
  lock.unlock();
  const auto wanted = clients_.fixRequest(base);
  if (wanted == fixRequest_) return;
  fixRequest_ = wanted;
  if (const auto observer = fixRequestObserver_) (*observer)(wanted);
}

void LocationHub::updateBeaconRequest() {
  std::unique_lock lock(mutex_);
  const bool areWanted = regions_.wantBeacons();
  lock.unlock();
  if (std::exchange(areBeaconsWanted_, areWanted) == areWanted) return;
  if (const auto observer = beaconRequestObserver_) (*observer)(areWanted);
}

// --- What is told, on the main thread ---

void LocationHub::tellRanging(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) {
  clients_.tell([&](auto& delegate, auto* manager) {
    delegate.locationManagerDidRangeBeaconsInRegion(manager, beacons, region);
  });
  observeDelivery();
}

void LocationHub::tellFix(const CLLocation& fix) {
  {
    const std::lock_guard lock(mutex_);
    lastFix_ = fix;
  }
  clients_.tell([&](auto& delegate, auto* manager) { delegate.locationManagerDidUpdateLocations(manager, {&fix, 1}); });
  observeDelivery();
}

void LocationHub::tellEntry(const CLRegionPtr& region) {
  clients_.tell([&](auto& delegate, auto* manager) { delegate.locationManagerDidEnterRegion(manager, region); });
}

void LocationHub::tellExit(const CLRegionPtr& region) {
  clients_.tell([&](auto& delegate, auto* manager) { delegate.locationManagerDidExitRegion(manager, region); });
}

void LocationHub::tellState(CLRegionState state, const CLRegionPtr& region) {
  clients_.tell([&](auto& delegate, auto* manager) {
    delegate.locationManagerDidDetermineStateForRegion(manager, state, region);
  });
}

void LocationHub::tellFailure(const platform::Error& error) {
  clients_.tell([&](auto& delegate, auto* manager) { delegate.locationManagerDidFailWithError(manager, error); });
}

void LocationHub::tell(const GeofenceNews& news) {
  switch (news.kind) {
    case GeofenceNews::Kind::entered:
      return tellEntry(news.region);
    case GeofenceNews::Kind::exited:
      return tellExit(news.region);
    case GeofenceNews::Kind::state:
      return tellState(news.state, news.region);
  }
}

void LocationHub::observeDelivery() const {
  if (const auto observer = deliveryObserver_) (*observer)();
}

}  // namespace wayloom::ranging
