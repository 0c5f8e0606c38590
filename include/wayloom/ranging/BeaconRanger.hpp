// From single iBeacon frames to what a location service reports: rangings, entered and left regions.
//
//   BeaconRanger ranger(delegate);
//   ranger.startMonitoring(region, clock.now());
//   ranger.startRanging(region);
//   radio.onFrame([&](const IBeaconFrame& frame) { ranger.receive(frame, clock.now()); });
//   // once a second from the first frame on, as ranger.nextTick() says:
//   ranger.tick(clock.now());
//   while (ranger.deliverNextRanging()) {}
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"

namespace wayloom::ranging {

// What the ranger tells. Callbacks may start and stop regions, hand in frames and tick; they must not destroy the
// ranger. Spans are valid during the call.
class BeaconRangerDelegate {
 public:
  virtual ~BeaconRangerDelegate() = default;

  // The beacons of the region heard within SignalEstimator::kMemory, nearest first; none is told as well. A beacon that
  // stayed silent since the last tick has RSSI 0 and an accuracy that has grown accordingly.
  virtual void ranged(std::span<const platform::CLBeacon> beacons, const platform::CLBeaconRegionPtr& region) = 0;
  virtual void entered(const platform::CLBeaconRegionPtr& region) = 0;
  virtual void exited(const platform::CLBeaconRegionPtr& region) = 0;
  virtual void determinedState(platform::CLRegionState state, const platform::CLBeaconRegionPtr& region) = 0;
};

struct BeaconRangerOptions {
  // A monitored region that stayed silent this long is left.
  platform::Duration exitSilence = std::chrono::seconds(30);
  // Beacons remembered at most. A newcomer to a full table takes the place of the beacon that was heard only once and
  // that longest ago; if each was heard twice, of the one silent for longest. So a flood of made-up identities in a
  // ranged region pushes out its own kind before any beacon that keeps sending.
  std::size_t capacity = 1024;
};

// Ranges and monitors beacon regions. It owns neither thread nor clock: every operation belongs to one queue, and `now`
// is the monotonic time there (a time before an earlier one counts as the earlier one).
//
// Only frames of ranged regions take memory, at most BeaconRangerOptions::capacity times about 150 bytes. A frame of a
// known or of a foreign beacon allocates nothing and costs the same whatever the number of regions.
//
// Regions with one identifier are one region, once for ranging and once for monitoring: the later replaces the earlier.
// A region that is stopped and started again unchanged before the next tick goes on as it was, so registering a kit
// afresh neither forgets a signal nor tells an entry twice.
class BeaconRanger {
 public:
  static constexpr platform::Duration kTickInterval = std::chrono::seconds(1);

  explicit BeaconRanger(BeaconRangerDelegate& delegate, BeaconRangerOptions options = {});
  ~BeaconRanger();

  void startRanging(platform::CLBeaconRegionPtr region);
  void stopRanging(const platform::CLBeaconRegionPtr& region);
  void startMonitoring(platform::CLBeaconRegionPtr region, platform::MonotonicTime now);
  void stopMonitoring(const platform::CLBeaconRegionPtr& region);

  // Tells the state of a monitored region at once: inside once it was heard; outside after exitSilence of listening
  // without hearing it; unknown before, and for a region that is not monitored.
  void requestState(const platform::CLBeaconRegionPtr& region, platform::MonotonicTime now);

  // Takes in one frame and tells what it enters, unless notifyOnEntry is off. The first frame of all, wherever it
  // belongs, starts the ticking. A frame whose RSSI is no measurement (0 or more, or below -127) counts for nothing
  // else.
  void receive(const IBeaconFrame& frame, platform::MonotonicTime now);

  // Whether the radio listens (initially true). Silence counts only from the moment it began to: call with false and
  // true around a restart of the scanner.
  void setScanning(bool scanning, platform::MonotonicTime now);

  void setExitSilence(platform::Duration silence);

  // When tick() is due next: whole seconds after the first frame. Nothing before that frame.
  std::optional<platform::MonotonicTime> nextTick() const;

  // Once due, tells the regions left (unless notifyOnExit is off) and makes up one ranging for each ranged region.
  // Ticks missed are skipped, as are rangings of the last tick not delivered yet. Before the due time it does nothing.
  void tick(platform::MonotonicTime now);

  // Delivers one ranging of the last tick: the region with the nearest beacon first, regions without beacons last,
  // otherwise in the order of registration, so that what is nearest is never judged against what a later region still
  // has to correct. False when there was none left.
  bool deliverNextRanging();

  // Beacons remembered at present.
  std::size_t beaconCount() const;

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

}  // namespace wayloom::ranging
