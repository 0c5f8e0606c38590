#include "wayloom/positioning/TWLLocationTracker.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "positioning/BeaconElection.hpp"
#include "positioning/FixAge.hpp"

namespace wayloom {
namespace {

constexpr std::int64_t kLongestFixAge = 15;  // seconds; a fix this old is not taken

}  // namespace

TWLLocationTracker& TWLLocationTracker::sharedLocationTracker(platform::Platform& platform) {
  return platform.shared<TWLLocationTracker>([&] { return std::make_unique<TWLLocationTracker>(platform); });
}

TWLLocationTracker::TWLLocationTracker(platform::Platform& platform)
    : platform_(platform),
      beaconTracker_(platform),
      election_(std::make_unique<BeaconElection>()),
      queue_(platform.tasks().makeSerialQueue("location tracker")) {}

TWLLocationTracker::~TWLLocationTracker() = default;

void TWLLocationTracker::didRangeBeaconsInRegionInRegion(const TGFBeaconList& beacons, const TGFBeaconRegionPtr&) {
  queue_->async([this, beacons] { process(beacons); });
}

void TWLLocationTracker::process(const TGFBeaconList& beacons) {
  const auto now = platform_.monotonicClock().now();
  beaconTracker_.updateWithRangedBeacons(beacons, now);
  std::optional<ElectionTrace> trace;
  if (electionObserver_.get() != nullptr) trace.emplace();
  {
    const std::lock_guard lock(mutex_);
    election_->hold(beaconTracker_.tracked(), useCoreLocationRanging_, now, trace ? &*trace : nullptr);
  }
  if (!trace) return;
  const auto dropped = beaconTracker_.dropped();
  trace->dropped.assign(dropped.begin(), dropped.end());
  electionObserver_.tell([&](const ElectionObserver& observer) { observer(*trace); });
}

TGFBeaconPtr TWLLocationTracker::closestBeacon() {
  const auto now = platform_.monotonicClock().now();
  const std::lock_guard lock(mutex_);
  election_->expire(now);
  return election_->winner();
}

void TWLLocationTracker::closestBeaconTimeout() {
  const auto now = platform_.monotonicClock().now();
  const std::lock_guard lock(mutex_);
  election_->expire(now);
}

TGFBeaconPtr TWLLocationTracker::closestBeaconCandidate() const {
  const std::lock_guard lock(mutex_);
  return election_->candidate();
}

std::optional<platform::MonotonicTime> TWLLocationTracker::timestampClosestBeaconFirstSeen() const {
  const std::lock_guard lock(mutex_);
  return election_->winnerFirstSeen();
}

std::optional<platform::MonotonicTime> TWLLocationTracker::timestampClosestBeaconLastSeen() const {
  const std::lock_guard lock(mutex_);
  return election_->winnerLastSeen();
}

std::optional<platform::MonotonicTime> TWLLocationTracker::timestampClosestBeaconCandidateLastSeen() const {
  const std::lock_guard lock(mutex_);
  return election_->candidateLastSeen();
}

void TWLLocationTracker::locationManagerDidUpdateLocations(platform::CLLocationManager*,
                                                           std::span<const platform::CLLocation> locations) {
  if (locations.empty()) return;
  const platform::CLLocation& fix = locations.back();
  const auto age = fixAge(fix.timestamp, platform_.calendarClock().now());
  if (age < kLongestFixAge && fix.horizontalAccuracy > 0.0) setLocationFromCoreLocation(fix);
}

std::optional<platform::CLLocation> TWLLocationTracker::locationFromCoreLocation() const {
  const std::lock_guard lock(mutex_);
  return locationFromCoreLocation_;
}

void TWLLocationTracker::setLocationFromCoreLocation(std::optional<platform::CLLocation> location) {
  const std::lock_guard lock(mutex_);
  locationFromCoreLocation_ = location;
}

void TWLLocationTracker::setElectionObserver(ElectionObserver observer) {
  electionObserver_.set(observer ? std::make_shared<const ElectionObserver>(std::move(observer)) : nullptr);
}

}  // namespace wayloom
