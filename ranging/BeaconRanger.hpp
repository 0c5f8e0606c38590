// From single iBeacon frames to what a location service reports: rangings, entered and left regions.
//
//   BeaconRanger ranger(delegate);
//   ranger.startMonitoring(region, clock.now());
//   ranger.startRanging(region, clock.now());
//   radio.onFrame([&](const IBeaconFrame& frame) { ranger.receive(frame, clock.now()); });
//   // once a second from the first frame on, as ranger.nextTick() says:
//   ranger.tick(clock.now());
//   while (ranger.deliverNextRanging()) {}
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"

#include "ranging/BeaconTable.hpp"
#include "ranging/RegionWatchList.hpp"

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
  // A monitored region of which nothing was heard for this long is left.
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
// A region that is stopped and started again unchanged within a second goes on as it was, so registering a kit afresh
// neither forgets a signal nor tells an entry twice.
//
// The silence of a region counts from its last frame, or from its registration, whatever else is heard, and however
// often the radio is restarted meanwhile, for as long as the radio is not known to be deaf. Deaf time does not count,
// and takes back as much of the silence before it, since nobody knows what was sent meanwhile: a hiccup delays an exit
// by twice its length, and after a long one the silence begins anew.
class BeaconRanger {
 public:
  static constexpr platform::Duration kTickInterval = std::chrono::seconds(1);
  // A tick that comes later than this has found the process suspended, or kept from running: it was deaf meanwhile.
  static constexpr platform::Duration kLateTick = std::chrono::seconds(3);

  explicit BeaconRanger(BeaconRangerDelegate& delegate, const BeaconRangerOptions& options = {});
  BeaconRanger(const BeaconRanger&) = delete;
  BeaconRanger& operator=(const BeaconRanger&) = delete;

  void startRanging(platform::CLBeaconRegionPtr region, platform::MonotonicTime now);
  void stopRanging(const std::string& identifier) { stop(ranged_, identifier); }
  void startMonitoring(platform::CLBeaconRegionPtr region, platform::MonotonicTime now);
  void stopMonitoring(const std::string& identifier) { stop(monitored_, identifier); }

  // Tells the state of a monitored region at once: inside once it was heard; outside after exitSilence of listening
  // without hearing it; unknown before, and for a region that is not monitored.
  void requestState(const platform::CLBeaconRegionPtr& region, platform::MonotonicTime now);

  // Takes in one frame and tells what it enters, unless notifyOnEntry is off. The first frame of all, wherever it
  // belongs, starts the ticking. A frame whose RSSI is no measurement (0 or more, or below -127) counts for nothing
  // else.
  void receive(const IBeaconFrame& frame, platform::MonotonicTime now);

  // Whether the radio works, as far as is known (initially true); while it is known not to, it is deaf. A scan that is
  // restarted because little or nothing was heard is no such knowledge.
  void setScanning(bool scanning, platform::MonotonicTime now);

  void setExitSilence(platform::Duration silence) { exitSilence_ = silence; }

  // When tick() is due next: whole seconds after the first frame of all. Nothing before that frame, and while no region
  // is ranged or monitored.
  std::optional<platform::MonotonicTime> nextTick() const { return isIdle() ? std::nullopt : nextTick_; }

  // Once due, tells the regions left (unless notifyOnExit is off) and makes up one ranging for each ranged region.
  // Ticks missed are skipped, as are rangings of the last tick not delivered yet. Before the due time it does nothing.
  void tick(platform::MonotonicTime now);

  // Delivers one ranging of the last tick: the region with the nearest beacon first, regions without beacons last,
  // otherwise in the order of registration, so that what is nearest is never judged against what a later region still
  // has to correct. False when there was none left.
  bool deliverNextRanging();

  // Beacons remembered at present.
  std::size_t beaconCount() const { return table_.size(); }

 private:
  struct Crossing {
    bool entry;
    platform::CLBeaconRegionPtr region;
  };
  struct Ranging {
    RegionWatchPtr watch;
    double nearest;  // accuracy in metres
  };

  bool isIdle() const { return ranged_.empty() && monitored_.empty(); }
  platform::MonotonicTime advance(platform::MonotonicTime now);
  void start(RegionWatchList& list, platform::CLBeaconRegionPtr region, platform::MonotonicTime now);
  void stop(RegionWatchList& list, const std::string& identifier);
  void skipTicks(platform::MonotonicTime now);
  platform::Duration silence(const RegionWatch& watch, platform::MonotonicTime now) const;
  void discount(platform::Duration deaf, platform::MonotonicTime now);
  void hear(RegionWatch& watch, platform::MonotonicTime now);
  void checkSilence(RegionWatch& watch, platform::MonotonicTime now);
  void track(const IBeaconFrame& frame, platform::MonotonicTime now);
  void tellCrossings();
  void forget(platform::MonotonicTime now);
  void makeReports(platform::MonotonicTime now);
  void orderRangings();
  void deliver(RegionWatch& watch);

  BeaconRangerDelegate& delegate_;
  platform::Duration exitSilence_;
  BeaconTable table_;
  RegionWatchList ranged_;
  RegionWatchList monitored_;
  bool scanning_ = true;
  platform::MonotonicTime deafSince_;  // while not scanning
  platform::MonotonicTime latest_ = platform::MonotonicTime::min();
  std::optional<platform::MonotonicTime> nextTick_;  // also while idle, so that whole seconds stay where they are
  std::uint64_t ticks_ = 0;
  std::deque<Crossing> crossings_;
  std::vector<Ranging> rangings_;  // of the last tick, in the order of delivery
  std::size_t nextRanging_ = 0;
};

}  // namespace wayloom::ranging
