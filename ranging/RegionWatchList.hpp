// The regions that a ranger has been asked to range, or to monitor.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ranging/IdentifiedList.hpp"
#include "ranging/RegionIndex.hpp"

namespace wayloom::ranging {

// A region registered for ranging or for monitoring.
struct RegionWatch {
  platform::CLBeaconRegionPtr region;
  std::uint64_t sequence = 0;  // order of registration
  bool active = true;
  bool isForgotten = false;  // at the next sweep
  RegionIndex<RegionWatch>::Place place{};

  platform::CLRegionState state = platform::CLRegionState::unknown;  // monitoring only, as is the next
  platform::MonotonicTime quietSince;  // last heard, or registered; later by what the scanner missed meanwhile

  std::vector<platform::CLBeacon> report;  // ranging only: the last tick's beacons, nearest first
};

using RegionWatchPtr = std::shared_ptr<RegionWatch>;

// The registrations of one kind. One that is stopped stays for a whole tick, inactive, in case it comes back.
class RegionWatchList {
 public:
  // The watch now registered, and whether it is a new one rather than one resumed.
  std::pair<RegionWatch&, bool> start(platform::CLBeaconRegionPtr region) {
    const auto* known = watches_.find(region->identifier());
    const bool isNew = known == nullptr || !sameBeacons(*(*known)->region, *region);
    const auto watch = isNew ? std::make_shared<RegionWatch>() : *known;
    if (isNew) {
      watch->place = index_.add(*region, watch.get());
      if (const auto replaced = watches_.put(region->identifier(), watch)) forget(*replaced);
    } else if (!watch->active) {
      --stopped_;
    }
    watch->region = std::move(region);
    watch->sequence = ++sequence_;
    watch->active = true;
    watch->isForgotten = false;
    return {*watch, isNew};
  }

  void stop(const std::string& identifier) {
    auto* watch = findActive(identifier);
    if (watch == nullptr) return;
    watch->active = false;
    ++stopped_;
  }

  void drop(const std::string& identifier) {
    if (const auto watch = watches_.remove(identifier)) forget(*watch);
  }

  RegionWatch* findActive(const std::string& identifier) {
    auto* watch = watches_.find(identifier);
    return watch != nullptr && (*watch)->active ? watch->get() : nullptr;
  }

  // Forgets those that were stopped before the last sweep. Whether any region went since then.
  bool sweep() {
    if (stopped_ > 0) {
      watches_.eraseIf([this](const RegionWatchPtr& watch) {
        if (watch->active || !std::exchange(watch->isForgotten, true)) return false;
        forget(*watch);
        return true;
      });
    }
    return std::exchange(hasShrunk_, false);
  }

  bool empty() const { return watches_.empty(); }
  const RegionIndex<RegionWatch>& index() const { return index_; }

  template <class Visit>
  void forEach(Visit visit) {
    watches_.forEach(visit);
  }

 private:
  static bool sameBeacons(const platform::CLBeaconRegion& a, const platform::CLBeaconRegion& b) {
    return a.proximityUUID() == b.proximityUUID() && a.major() == b.major() && a.minor() == b.minor();
  }

  // It is out of the list already, or about to be.
  void forget(RegionWatch& watch) {
    index_.remove(*watch.region, watch.place);
    if (!watch.active) --stopped_;
    watch.active = false;
    hasShrunk_ = true;
  }

  IdentifiedList<RegionWatchPtr> watches_;
  RegionIndex<RegionWatch> index_;
  std::size_t stopped_ = 0;
  bool hasShrunk_ = false;
  std::uint64_t sequence_ = 0;
};

}  // namespace wayloom::ranging
