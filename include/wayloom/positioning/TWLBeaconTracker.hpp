#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/regions/TGFBeacon.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

struct AveragingPeriod;

// The beacons that are heard at present. It carries each beacon's samples from one ranging to the next and forgets a
// beacon 5 seconds after it was last detected, with a line in the log, of which there are few enough in a second.
//
// It works on copies of the beacons it is given. One thread at a time may update it; any thread may ask for the
// tracked beacons meanwhile.
class TWLBeaconTracker {
 public:
  explicit TWLBeaconTracker(platform::Platform& platform);
  ~TWLBeaconTracker();
  TWLBeaconTracker(const TWLBeaconTracker&) = delete;
  TWLBeaconTracker& operator=(const TWLBeaconTracker&) = delete;

  // Merges one ranging, detected now or at the given time. Of two objects with one identity the later one counts.
  // Objects that no ranging made are ignored.
  void updateWithRangedBeacons(const TGFBeaconList& beacons);
  void updateWithRangedBeacons(const TGFBeaconList& beacons, platform::MonotonicTime now);

  // Copies of what is tracked: first the beacons of the last ranging in its order, then those that it lacked, in their
  // earlier order.
  TGFBeaconList trackedBeacons() const;
  // The same by their keys.
  std::map<std::string, TGFBeaconPtr> trackedBeaconDictionary() const;

  // For the thread that updates, until the next update: the same without copying, and what the last update forgot.
  std::span<const TGFBeacon> tracked() const { return tracked_; }
  std::span<const platform::BeaconIdentity> dropped() const { return dropped_; }

  // "<UUID> <major> <minor>".
  static std::string identifierStringForBeacon(const TGFBeacon& beacon);

 private:
  struct Indices;

  void takeRanged(const TGFBeaconList& beacons, platform::MonotonicTime now);
  void takeUnseen(platform::MonotonicTime now);
  void logDropped(platform::MonotonicTime now);

  platform::Platform& platform_;
  const AveragingPeriod& averagingPeriod_;
  mutable std::mutex mutex_;
  std::vector<TGFBeacon> tracked_;  // changed under the lock only
  // The updating thread's own; they keep their memory from one ranging to the next.
  std::vector<TGFBeacon> next_;
  std::vector<platform::BeaconIdentity> dropped_;
  std::unique_ptr<Indices> indices_;
  platform::MonotonicTime logSecond_;  // when the second began in which the next two count
  std::size_t loggedDrops_ = 0;
  std::size_t unloggedDrops_ = 0;
};

}  // namespace wayloom
