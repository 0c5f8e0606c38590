#pragma once

#include <functional>
#include <span>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom {

// The beacon status reporter as the region manager sees it. It is made and dropped on the queue of the kit downloads
// or with the manager, and fed on the main thread; there is never more than one of a manager at a time.
class StatusReporter {
 public:
  virtual ~StatusReporter() = default;

  virtual void rangedBeacon(const platform::CLBeacon& beacon) = 0;
  // Every beacon of every ranging.
  virtual void rangedBeacons(std::span<const platform::CLBeacon> beacons) {
    for (const auto& beacon : beacons) rangedBeacon(beacon);
  }

  // Whether the kit names a beacon's UUID, major and minor; may be called on any thread.
  using IsListed = std::function<bool(const platform::BeaconIdentity&)>;
  // Told once, before anything else: which beacons are the venue's, among all that anybody may make up.
  virtual void setListedBeacons(IsListed) {}
};

}  // namespace wayloom
