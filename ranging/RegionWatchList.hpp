// The regions that a ranger has been asked to range, or to monitor.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ranging/RegionIndex.hpp"

namespace wayloom::ranging {

// A region registered for ranging or for monitoring. Stopped ones stay until the next tick, in case they come back.
struct RegionWatch {
  platform::CLBeaconRegionPtr region;
  std::uint64_t sequence = 0;  // order of registration
  bool active = true;

  platform::CLRegionState state = platform::CLRegionState::unknown;  // monitoring only, as is the next
  platform::MonotonicTime quietSince;                                // last heard, or registered

  std::vector<platform::CLBeacon> report;  // ranging only: the last tick's beacons, nearest first
};

// The registrations of one kind.
class RegionWatchList {
 public:
  // The watch now registered, and whether it is a new one rather than one resumed.
  std::pair<RegionWatch*, bool> start(platform::CLBeaconRegionPtr region) {
    auto* watch = find(region->identifier());
    if (watch != nullptr && !sameBeacons(*watch->region, *region)) {
      watch->active = false;
      watch = nullptr;
    }
    const bool isNew = watch == nullptr;
    if (isNew) {
      watch = watches_.emplace_back(std::make_unique<RegionWatch>()).get();
      index_.add(*region, watch);
    }
    watch->region = std::move(region);
    watch->sequence = ++sequence_;
    watch->active = true;
    return {watch, isNew};
  }

  void stop(const std::string& identifier) {
    if (auto* watch = findActive(identifier)) watch->active = false;
  }

  RegionWatch* findActive(const std::string& identifier) {
    auto* watch = find(identifier);
    return watch != nullptr && watch->active ? watch : nullptr;
  }

  // Whether anything was stopped.
  bool sweep() {
    return std::erase_if(watches_, [this](const auto& watch) {
             if (watch->active) return false;
             index_.remove(*watch->region, watch.get());
             return true;
           }) > 0;
  }

  const RegionIndex<RegionWatch>& index() const { return index_; }
  const std::vector<std::unique_ptr<RegionWatch>>& all() const { return watches_; }

 private:
  static bool sameBeacons(const platform::CLBeaconRegion& a, const platform::CLBeaconRegion& b) {
    return a.proximityUUID() == b.proximityUUID() && a.major() == b.major() && a.minor() == b.minor();
  }

  // The newest of this identifier: after a change of its beacons the old one is still there, stopped.
  RegionWatch* find(const std::string& identifier) {
    const auto found = std::find_if(watches_.rbegin(), watches_.rend(),
                                    [&](const auto& watch) { return watch->region->identifier() == identifier; });
    return found == watches_.rend() ? nullptr : found->get();
  }

  std::vector<std::unique_ptr<RegionWatch>> watches_;
  RegionIndex<RegionWatch> index_;
  std::uint64_t sequence_ = 0;
};

}  // namespace wayloom::ranging
