#include "wayloom/ranging/BeaconRanger.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <utility>
#include <vector>

#include "ranging/BeaconTable.hpp"
#include "ranging/RegionWatchList.hpp"

namespace wayloom::ranging {
namespace {

using platform::CLBeacon;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using platform::CLRegionState;
using platform::Duration;
using platform::MonotonicTime;

}  // namespace

class BeaconRanger::Core {
 public:
  Core(BeaconRangerDelegate& delegate, const BeaconRangerOptions& options)
      : delegate_(delegate), exitSilence_(options.exitSilence), table_(options.capacity) {}

  void startRanging(CLBeaconRegionPtr region) {
    if (region) ranged_.start(std::move(region));
  }

  void stopRanging(const CLBeaconRegionPtr& region) {
    if (region) stop(ranged_, *region);
  }

  void startMonitoring(CLBeaconRegionPtr region, MonotonicTime now) {
    if (!region) return;
    const auto [watch, isNew] = monitored_.start(std::move(region));
    if (isNew) watch->quietSince = advance(now);
  }

  void stopMonitoring(const CLBeaconRegionPtr& region) {
    if (region) stop(monitored_, *region);
  }

  void requestState(const CLBeaconRegionPtr& region, MonotonicTime now) {
    if (!region) return;
    const auto at = advance(now);
    const auto* watch = monitored_.findActive(region->identifier());
    auto state = CLRegionState::unknown;
    if (watch != nullptr) {
      const bool silent = watch->state == CLRegionState::unknown && silence(*watch, at) >= exitSilence_;
      state = silent ? CLRegionState::outside : watch->state;
    }
    delegate_.determinedState(state, region);
  }

  void receive(const IBeaconFrame& frame, MonotonicTime now) {
    const auto at = advance(now);
    if (!nextTick_) nextTick_ = at + BeaconRanger::kTickInterval;
    if (!isMeasuredRssi(frame.rssi)) return;
    monitored_.index().forEachMatch(frame.identity, [&](RegionWatch& watch) { hear(watch, at); });
    track(frame, at);
    tellCrossings();
  }

  void setScanning(bool scanning, MonotonicTime now) {
    if (scanning && !scanning_) listeningSince_ = advance(now);
    scanning_ = scanning;
  }

  void setExitSilence(Duration silence) { exitSilence_ = silence; }

  std::optional<MonotonicTime> nextTick() const { return nextTick_; }

  void tick(MonotonicTime now) {
    const auto at = advance(now);
    if (!nextTick_ || at < *nextTick_) return;
    *nextTick_ += BeaconRanger::kTickInterval * ((at - *nextTick_) / BeaconRanger::kTickInterval + 1);
    ++ticks_;
    forget(at);
    for (const auto& watch : monitored_.all()) checkSilence(*watch, at);
    makeReports(at);
    tellCrossings();
  }

  bool deliverNextRanging() {
    while (nextRanging_ < rangings_.size()) {
      auto* watch = rangings_[nextRanging_++].watch;
      if (!watch->active) continue;
      deliver(*watch);
      return true;
    }
    return false;
  }

  std::size_t beaconCount() const { return table_.size(); }

 private:
  struct Crossing {
    bool entry;
    CLBeaconRegionPtr region;
  };
  struct Ranging {
    RegionWatch* watch = nullptr;
    double nearest = std::numeric_limits<double>::infinity();  // accuracy in metres
  };

  MonotonicTime advance(MonotonicTime now) {
    latest_ = std::max(latest_, now);
    return latest_;
  }

  void stop(RegionWatchList& list, const CLBeaconRegion& region) {
    list.stop(region.identifier());
    if (!nextTick_) list.sweep();
  }

  Duration silence(const RegionWatch& watch, MonotonicTime now) const {
    return scanning_ ? now - std::max(watch.quietSince, listeningSince_) : Duration::zero();
  }

  void hear(RegionWatch& watch, MonotonicTime now) {
    watch.quietSince = now;
    if (!watch.active || watch.state == CLRegionState::inside) return;
    watch.state = CLRegionState::inside;
    if (watch.region->notifyOnEntry) crossings_.push_back({true, watch.region});
  }

  void checkSilence(RegionWatch& watch, MonotonicTime now) {
    if (watch.state == CLRegionState::outside || silence(watch, now) < exitSilence_) return;
    const bool left = watch.state == CLRegionState::inside;
    watch.state = CLRegionState::outside;
    if (left && watch.region->notifyOnExit) crossings_.push_back({false, watch.region});
  }

  void track(const IBeaconFrame& frame, MonotonicTime now) {
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

  // Delegates are called from here alone, one crossing at a time, since a callback may add to the queue.
  void tellCrossings() {
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

  void forget(MonotonicTime now) {
    monitored_.sweep();
    if (ranged_.sweep())
      table_.eraseIf([this](const TrackedBeacon& beacon) { return !ranged_.index().matches(beacon.identity); });
    table_.eraseHeardBefore(now - SignalEstimator::kMemory);
  }

  void makeReports(MonotonicTime now) {
    for (const auto& watch : ranged_.all()) watch->report.clear();
    table_.forEach([&](TrackedBeacon& beacon) {
      const auto reported = reportOf(beacon, now);
      ranged_.index().forEachMatch(beacon.identity, [&](RegionWatch& watch) { watch.report.push_back(reported); });
      beacon.frames = 0;
      beacon.rssiSum = 0;
    });
    orderRangings();
  }

  static CLBeacon reportOf(const TrackedBeacon& beacon, MonotonicTime now) {
    CLBeacon reported{
        .proximityUUID = beacon.identity.uuid, .major = beacon.identity.major, .minor = beacon.identity.minor};
    if (beacon.frames > 0) reported.rssi = static_cast<int>(std::lround(1.0 * beacon.rssiSum / beacon.frames));
    reported.accuracy = SignalEstimator::distance(beacon.signal.level(now), beacon.power);
    reported.proximity = SignalEstimator::proximity(reported.accuracy);
    return reported;
  }

  void orderRangings() {
    rangings_.clear();
    nextRanging_ = 0;
    for (const auto& watch : ranged_.all()) {
      auto& report = watch->report;
      std::sort(report.begin(), report.end(), [](const CLBeacon& a, const CLBeacon& b) {
        return a.accuracy != b.accuracy ? a.accuracy < b.accuracy : a.identity() < b.identity();
      });
      auto& ranging = rangings_.emplace_back(Ranging{.watch = watch.get()});
      if (!report.empty()) ranging.nearest = report.front().accuracy;
    }
    std::sort(rangings_.begin(), rangings_.end(), [](const Ranging& a, const Ranging& b) {
      return a.nearest != b.nearest ? a.nearest < b.nearest : a.watch->sequence < b.watch->sequence;
    });
  }

  // The report is held here during the call, because a tick in it fills the watch's own afresh, or drops the watch.
  void deliver(RegionWatch& watch) {
    const auto ticks = ticks_;
    const auto region = watch.region;
    auto report = std::move(watch.report);
    delegate_.ranged(report, region);
    if (ticks == ticks_) watch.report = std::move(report);
  }

  BeaconRangerDelegate& delegate_;
  Duration exitSilence_;
  BeaconTable table_;
  RegionWatchList ranged_;
  RegionWatchList monitored_;
  bool scanning_ = true;
  MonotonicTime latest_ = MonotonicTime::min();
  MonotonicTime listeningSince_ = MonotonicTime::min();
  std::optional<MonotonicTime> nextTick_;
  std::uint64_t ticks_ = 0;
  std::deque<Crossing> crossings_;
  std::vector<Ranging> rangings_;  // of the last tick, in the order of delivery
  std::size_t nextRanging_ = 0;
};

BeaconRanger::BeaconRanger(BeaconRangerDelegate& delegate, BeaconRangerOptions options)
    : core_(std::make_unique<Core>(delegate, options)) {}

BeaconRanger::~BeaconRanger() = default;

void BeaconRanger::startRanging(CLBeaconRegionPtr region) { core_->startRanging(std::move(region)); }

void BeaconRanger::stopRanging(const CLBeaconRegionPtr& region) { core_->stopRanging(region); }

void BeaconRanger::startMonitoring(CLBeaconRegionPtr region, MonotonicTime now) {
  core_->startMonitoring(std::move(region), now);
}

void BeaconRanger::stopMonitoring(const CLBeaconRegionPtr& region) { core_->stopMonitoring(region); }

void BeaconRanger::requestState(const CLBeaconRegionPtr& region, MonotonicTime now) {
  core_->requestState(region, now);
}

void BeaconRanger::receive(const IBeaconFrame& frame, MonotonicTime now) { core_->receive(frame, now); }

void BeaconRanger::setScanning(bool scanning, MonotonicTime now) { core_->setScanning(scanning, now); }

void BeaconRanger::setExitSilence(Duration silence) { core_->setExitSilence(silence); }

std::optional<MonotonicTime> BeaconRanger::nextTick() const { return core_->nextTick(); }

void BeaconRanger::tick(MonotonicTime now) { core_->tick(now); }

bool BeaconRanger::deliverNextRanging() { return core_->deliverNextRanging(); }

std::size_t BeaconRanger::beaconCount() const { return core_->beaconCount(); }

}  // namespace wayloom::ranging
