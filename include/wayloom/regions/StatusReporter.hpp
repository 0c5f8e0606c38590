#pragma once

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
};

}  // namespace wayloom
