// Which of many beacon regions does a beacon lie in? At most four hash look-ups, whatever the number of regions.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <unordered_map>

#include "wayloom/platform/CLBeaconRegion.hpp"

#include "platform/SeededHash.hpp"

namespace wayloom::ranging {

// Holds an Entry* for each region; the entries belong to the caller.
template <class Entry>
class RegionIndex {
 public:
  using Place = typename std::list<Entry*>::iterator;

  // Where it is now, for remove().
  Place add(const platform::CLBeaconRegion& region, Entry* entry) {
    const auto group = groups_.try_emplace(region.proximityUUID(), 0, groups_.hash_function()).first;
    auto& entries = group->second[keyOf(region.major(), region.minor())];
    return entries.insert(entries.end(), entry);
  }

  void remove(const platform::CLBeaconRegion& region, Place place) {
    const auto group = groups_.find(region.proximityUUID());
    const auto entries = group->second.find(keyOf(region.major(), region.minor()));
    entries->second.erase(place);
    if (entries->second.empty()) group->second.erase(entries);
    if (group->second.empty()) groups_.erase(group);
  }

  // Calls `visit` for the regions of the UUID alone, then those with a major, those with a minor, and those with both,
  // each in the order of addition. `visit` must not change the index. True when there was any.
  template <class Visit>
  bool forEachMatch(const platform::BeaconIdentity& beacon, Visit visit) const {
    const auto group = groups_.find(beacon.uuid);
    if (group == groups_.end()) return false;
    bool any = false;
    for (const auto key :
         {keyOf({}, {}), keyOf(beacon.major, {}), keyOf({}, beacon.minor), keyOf(beacon.major, beacon.minor)}) {
      const auto found = group->second.find(key);
      if (found == group->second.end()) continue;
      any = true;
      for (auto* entry : found->second) visit(*entry);
    }
    return any;
  }

  bool matches(const platform::BeaconIdentity& beacon) const {
    return forEachMatch(beacon, [](const Entry&) {});
  }

 private:
  using Key = std::uint64_t;  // presence of major and minor, then both numbers
  using Number = std::optional<std::uint16_t>;

  static Key keyOf(Number major, Number minor) {
    return (static_cast<Key>(major.has_value()) << 33U) | (static_cast<Key>(minor.has_value()) << 32U) |
           (static_cast<Key>(major.value_or(0)) << 16U) | minor.value_or(0);
  }

  using Group = std::unordered_map<Key, std::list<Entry*>, platform::SeededHash>;
  std::unordered_map<platform::UUID, Group, platform::SeededHash> groups_;
};

}  // namespace wayloom::ranging
