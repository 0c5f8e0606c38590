#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLRegion.hpp"

namespace wayloom::platform {

// All beacons of one UUID, of one major in it, or one beacon.
class CLBeaconRegion : public CLRegion {
 public:
  CLBeaconRegion(const UUID& proximityUUID, std::optional<std::uint16_t> major, std::optional<std::uint16_t> minor,
                 std::string identifier)
      : CLRegion(std::move(identifier)), proximityUUID_(proximityUUID), major_(major), minor_(minor) {}

  const UUID& proximityUUID() const { return proximityUUID_; }
  std::optional<std::uint16_t> major() const { return major_; }
  std::optional<std::uint16_t> minor() const { return minor_; }

  bool contains(const BeaconIdentity& beacon) const {
    return beacon.uuid == proximityUUID_ && (!major_ || *major_ == beacon.major) &&
           (!minor_ || *minor_ == beacon.minor);
  }

  bool notifyEntryStateOnDisplay = false;

 private:
  UUID proximityUUID_;
  std::optional<std::uint16_t> major_;
  std::optional<std::uint16_t> minor_;
};

using CLBeaconRegionPtr = std::shared_ptr<const CLBeaconRegion>;

}  // namespace wayloom::platform
