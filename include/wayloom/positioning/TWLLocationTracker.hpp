#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/DelegateSlot.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/positioning/ElectionTrace.hpp"
#include "wayloom/positioning/TWLBeaconTracker.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"

namespace wayloom::platform {
class CLLocationManager;
class Platform;
}  // namespace wayloom::platform

namespace wayloom {

class BeaconElection;

// Follows the beacons that are heard, elects the closest one, and keeps the last good geographic fix beside it.
//
// The nearest beacon that has a map becomes the candidate; the candidate becomes the winner, `closestBeacon`, when
// there is none or when the winner's election is more than 5 seconds old. Candidate and winner are the beacon objects
// of the ranging in which they were chosen, with its accuracy and distance. All ages are monotonic time: setting the
// system clock changes nothing in the election.
//
// Any thread may call. Rangings are merged one after another on a serial queue of the tracker's own.
class TWLLocationTracker {
 public:
  // The Platform's own instance.
  static TWLLocationTracker& sharedLocationTracker(platform::Platform& platform);

  explicit TWLLocationTracker(platform::Platform& platform);
  ~TWLLocationTracker();
  TWLLocationTracker(const TWLLocationTracker&) = delete;
  TWLLocationTracker& operator=(const TWLLocationTracker&) = delete;

  // Schedules the merge of one ranging, and the election after it, and returns. The region does not matter.
  void didRangeBeaconsInRegionInRegion(const TGFBeaconList& beacons, const TGFBeaconRegionPtr& region);

  // The elected beacon or null. What has expired meanwhile is forgotten first.
  TGFBeaconPtr closestBeacon();
  void closestBeaconTimeout();

  // The election's state as the last ranging or expiry left it.
  TGFBeaconPtr closestBeaconCandidate() const;
  std::optional<platform::MonotonicTime> timestampClosestBeaconFirstSeen() const;
  std::optional<platform::MonotonicTime> timestampClosestBeaconLastSeen() const;
  std::optional<platform::MonotonicTime> timestampClosestBeaconCandidateLastSeen() const;
  const TWLBeaconTracker& beaconTracker() const { return beaconTracker_; }

  // Offers fixes of the platform; the last one is kept when it is less than 15 s away from now on the calendar clock,
  // in whole seconds, and its accuracy is above 0.
  void locationManagerDidUpdateLocations(platform::CLLocationManager* manager,
                                         std::span<const platform::CLLocation> locations);
  std::optional<platform::CLLocation> locationFromCoreLocation() const;
  void setLocationFromCoreLocation(std::optional<platform::CLLocation> location);

  // Whether the platform's accuracies are compared (true, the default), or the beacons' own distances where known.
  bool useCoreLocationRanging() const { return useCoreLocationRanging_; }
  void setUseCoreLocationRanging(bool use) { useCoreLocationRanging_ = use; }

  // Tells why: called on the tracker's queue after each merged ranging, under no lock. An empty function ends that.
  // When this returns, the earlier observer is not called any more, and no call of it is under way on another thread.
  // Nothing is computed while there is no observer.
  using ElectionObserver = std::function<void(const ElectionTrace&)>;
  void setElectionObserver(ElectionObserver observer);

 private:
  void process(const TGFBeaconList& beacons);

  platform::Platform& platform_;
  TWLBeaconTracker beaconTracker_;  // updated on queue_ alone
  std::atomic<bool> useCoreLocationRanging_ = true;
  platform::DelegateSlot<const ElectionObserver> electionObserver_;
  mutable std::mutex mutex_;  // guards the two below
  std::unique_ptr<BeaconElection> election_;
  std::optional<platform::CLLocation> locationFromCoreLocation_;
  std::unique_ptr<platform::TaskQueue> queue_;  // last: its destruction ends the work on all above
};

}  // namespace wayloom
