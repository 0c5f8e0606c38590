#include "ranging/BeaconRanger.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace wayloom::ranging {
namespace {

using platform::CLBeacon;
using platform::CLBeaconRegionPtr;
using platform::CLRegionState;
using platform::Duration;
using platform::MonotonicTime;

CLBeacon reportOf(const TrackedBeacon& beacon, MonotonicTime now) {
  CLBeacon reported{
      .proximityUUID = beacon.identity.uuid, .major = beacon.identity.major, .minor = beacon.identity.minor};
  if (beacon.frames > 0) reported.rssi = static_cast<int>(std::lround(1.0 * beacon.rssiSum / beacon.frames));
  reported.accuracy = SignalEstimator::distance(beacon.signal.level(now), beacon.power);
  reported.proximity = SignalEstimator::proximity(reported.accuracy);
  return reported;
}

}  // namespace

BeaconRanger::BeaconRanger(BeaconRangerDelegate& delegate, const BeaconRangerOptions& options)
    : delegate_(delegate), exitSilence_(options.exitSilence), table_(options.capacity) {}

// --- Regions ---

void BeaconRanger::startRanging(CLBeaconRegionPtr region, MonotonicTime now) {
  if (region) start(ranged_, std::move(region), now);
}

void BeaconRanger::startMonitoring(CLBeaconRegionPtr region, MonotonicTime now) {
  if (region) start(monitored_, std::move(region), now);
}

void BeaconRanger::start(RegionWatchList& list, CLBeaconRegionPtr region, MonotonicTime now) {
  const auto at = advance(now);
  if (isIdle()) skipTicks(at);
  const auto [watch, isNew] = list.start(std::move(region));
  if (isNew) watch.quietSince = at;
}

// Without ticks nothing sweeps, and nothing has been heard that is worth keeping.
void BeaconRanger::stop(RegionWatchList& list, const std::string& identifier) {
  if (nextTick_)
    list.stop(identifier);
  else
    list.drop(identifier);
}

void BeaconRanger::requestState(const CLBeaconRegionPtr& region, MonotonicTime now) {
  if (!region) return;
  const auto at = advance(now);
  auto state = CLRegionState::unknown;
  if (const auto* watch = monitored_.findActive(region->identifier())) {
    const bool isSilent = watch->state == CLRegionState::unknown && silence(*watch, at) >= exitSilence_;
    state = isSilent ? CLRegionState::outside : watch->state;
  }
  delegate_.determinedState(state, region);
}

// --- Time ---

MonotonicTime BeaconRanger::advance(MonotonicTime now) {
  latest_ = std::max(latest_, now);
  return latest_;
}

void BeaconRanger::setScanning(bool scanning, MonotonicTime now) {
  if (scanning == scanning_) return;
  const auto at = advance(now);
  if (scanning)
    discount(at - deafSince_, at);
  else
    deafSince_ = at;
  scanning_ = scanning;
}

void BeaconRanger::tick(MonotonicTime now) {
  const auto at = advance(now);
  if (!nextTick_ || at < *nextTick_) return;
  if (const auto late = at - *nextTick_; late > kLateTick && scanning_) discount(late, at);
  skipTicks(at);
  ++ticks_;
  forget(at);
  monitored_.forEach([&](const RegionWatchPtr& watch) { checkSilence(*watch, at); });
  makeReports(at);
  tellCrossings();
}

// To the next whole second.
void BeaconRanger::skipTicks(MonotonicTime now) {
  if (nextTick_ && *nextTick_ <= now) *nextTick_ += kTickInterval * ((now - *nextTick_) / kTickInterval + 1);
}

void BeaconRanger::forget(MonotonicTime now) {
  monitored_.sweep();
  if (ranged_.sweep())
    table_.eraseIf([this](const TrackedBeacon& beacon) { return !ranged_.index().matches(beacon.identity); });
  table_.eraseHeardBefore(now - SignalEstimator::kMemory);
}

// --- Frames ---

void BeaconRanger::receive(const IBeaconFrame& frame, MonotonicTime now) {
  const auto at = advance(now);
  if (!nextTick_) nextTick_ = at + kTickInterval;
  if (!isMeasuredRssi(frame.rssi)) return;
  monitored_.index().forEachMatch(frame.identity, [&](RegionWatch& watch) { hear(watch, at); });
  track(frame, at);
  tellCrossings();
}

void BeaconRanger::track(const IBeaconFrame& frame, MonotonicTime now) {
  auto* beacon = table_.find(frame.identity);
  if (beacon == nullptr) {
    if (!ranged_.index().matches(frame.identity)) return;
    beacon = &table_.insert(frame.identity);
  }
  table_.touch(*beacon, now);
  beacon->signal.add(frame.rssi, now);
  beacon->power = frame.power;
  if (beacon->frames == std::numeric_limits<int>::max() / -kWeakestRssi) return;
  beacon->rssiSum += frame.rssi;
  ++beacon->frames;
}

// --- Entry and exit ---

Duration BeaconRanger::silence(const RegionWatch& watch, MonotonicTime now) const {
  return scanning_ ? now - watch.quietSince : Duration::zero();
}

// Deaf time that has just ended: not counted, and taken back once more from the silence before it.
void BeaconRanger::discount(Duration deaf, MonotonicTime now) {
  monitored_.forEach(
      [&](const RegionWatchPtr& watch) { watch->quietSince = std::min(watch->quietSince + 2 * deaf, now); });
}

void BeaconRanger::hear(RegionWatch& watch, MonotonicTime now) {
  watch.quietSince = now;
  if (!watch.active || watch.state == CLRegionState::inside) return;
  watch.state = CLRegionState::inside;
  if (watch.region->notifyOnEntry) crossings_.push_back({true, watch.region});
}

void BeaconRanger::checkSilence(RegionWatch& watch, MonotonicTime now) {
  if (watch.state == CLRegionState::outside || silence(watch, now) < exitSilence_) return;
  const bool left = watch.state == CLRegionState::inside;
  watch.state = CLRegionState::outside;
  if (left && watch.region->notifyOnExit) crossings_.push_back({false, watch.region});
}

// Delegates are called from here alone, one crossing at a time, since a callback may add to the queue.
void BeaconRanger::tellCrossings() {
  while (!crossings_.empty()) {
    const auto crossing = std::move(crossings_.front());
    crossings_.pop_front();
    if (monitored_.findActive(crossing.region->identifier()) == nullptr) continue;
    if (crossing.entry)
      delegate_.entered(crossing.region);
    else
      delegate_.exited(crossing.region);
  }
}

// --- Rangings ---

void BeaconRanger::makeReports(MonotonicTime now) {
  ranged_.forEach([](const RegionWatchPtr& watch) { watch->report.clear(); });
  table_.forEach([&](TrackedBeacon& beacon) {
    const auto reported = reportOf(beacon, now);
    ranged_.index().forEachMatch(beacon.identity, [&](RegionWatch& watch) { watch.report.push_back(reported); });
    beacon.frames = 0;
    beacon.rssiSum = 0;
  });
  orderRangings();
}

void BeaconRanger::orderRangings() {
  rangings_.clear();
  nextRanging_ = 0;
  ranged_.forEach([this](const RegionWatchPtr& watch) {
    auto& report = watch->report;
    std::sort(report.begin(), report.end(), [](const CLBeacon& a, const CLBeacon& b) {
      return a.accuracy != b.accuracy ? a.accuracy < b.accuracy : a.identity() < b.identity();
    });
    rangings_.push_back({watch, report.empty() ? std::numeric_limits<double>::infinity() : report.front().accuracy});
  });
  std::sort(rangings_.begin(), rangings_.end(), [](const Ranging& a, const Ranging& b) {
    return a.nearest != b.nearest ? a.nearest < b.nearest : a.watch->sequence < b.watch->sequence;
  });
}

bool BeaconRanger::deliverNextRanging() {
  while (nextRanging_ < rangings_.size()) {
    const auto watch = std::move(rangings_[nextRanging_++].watch);
    if (!watch->active) continue;
    deliver(*watch);
    return true;
  }
  return false;
}

// The report is held here during the call, because a tick in it fills the watch's own afresh.
void BeaconRanger::deliver(RegionWatch& watch) {
  const auto ticks = ticks_;
  const auto region = watch.region;
  auto report = std::move(watch.report);
  delegate_.ranged(report, region);
  if (ticks == ticks_) watch.report = std::move(report);
}

}  // namespace wayloom::ranging
