#pragma once

#include <memory>
#include <string>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/regions/TGFKit.hpp"
#include "wayloom/sim/SimPlatform.hpp"

namespace wayloom::tools {

// What a venue's kit calls its beacons.
class KitNames {
 public:
  // Without a venue nothing has a name. Throws std::runtime_error when its kit or a property list is missing
  // or broken.
  explicit KitNames(const std::string& venue);

  std::string nameOf(const platform::BeaconIdentity& identity) const;  // empty: not in the kit
  // The venue's world, to look maps up in; null without a venue.
  platform::Platform* platform() const { return world_ ? &world_->platform() : nullptr; }
  const TGFKitPtr& kit() const { return kit_; }

 private:
  std::unique_ptr<sim::SimPlatform> world_;
  TGFKitPtr kit_;
};

}  // namespace wayloom::tools
