#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/CLCircularRegion.hpp"

#include "ranging/IdentifiedList.hpp"

namespace wayloom::ranging {

using CLCircularRegionPtr = std::shared_ptr<const platform::CLCircularRegion>;

// The regions that an application monitors and ranges, as its location managers see them: in the order of registration,
// the later of one identifier in the earlier's place. Not thread-safe.
class ApplicationRegions {
 public:
  void startMonitoring(const platform::CLRegionPtr& region) {
    count(*region, 1);
    if (const auto replaced = monitored_.put(region->identifier(), region)) count(*replaced, -1);
  }
  void stopMonitoring(const std::string& identifier) {
    if (const auto stopped = monitored_.remove(identifier)) count(*stopped, -1);
  }
  void startRanging(const platform::CLBeaconRegionPtr& region) { ranged_.put(region->identifier(), region); }
  void stopRanging(const std::string& identifier) { ranged_.remove(identifier); }

  std::vector<platform::CLRegionPtr> monitored() const { return valuesOf(monitored_); }
  std::vector<platform::CLBeaconRegionPtr> ranged() const { return valuesOf(ranged_); }

  // What has to be listened for.
  bool wantFixes() const { return circles_ > 0; }
  bool wantBeacons() const { return beacons_ > 0 || !ranged_.empty(); }

 private:
  void count(const platform::CLRegion& region, int change) {
    if (dynamic_cast<const platform::CLCircularRegion*>(&region) != nullptr) circles_ += change;
    if (dynamic_cast<const platform::CLBeaconRegion*>(&region) != nullptr) beacons_ += change;
  }
  template <class Region>
  static std::vector<Region> valuesOf(const IdentifiedList<Region>& regions) {
    std::vector<Region> values;
    values.reserve(regions.size());
    for (const auto& [identifier, region] : regions) values.push_back(region);
    return values;
  }

  IdentifiedList<platform::CLRegionPtr> monitored_;
  IdentifiedList<platform::CLBeaconRegionPtr> ranged_;
  std::ptrdiff_t circles_ = 0;  // of those monitored, as are the next
  std::ptrdiff_t beacons_ = 0;
};

}  // namespace wayloom::ranging
