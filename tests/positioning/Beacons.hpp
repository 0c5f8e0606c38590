#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "wayloom/regions/TGFBeacon.hpp"

namespace wayloom::test {

inline const platform::UUID kVenue = *platform::UUID::parse("5A0E5A0E-0001-4000-8000-00000000BEAC");

// A ranged beacon of the test venue, as the region manager would hand it out.
inline TGFBeaconPtr ranged(std::uint16_t minor, int rssi, double accuracy, platform::Json attributes) {
  const RegionDetails details("Beacon " + std::to_string(minor), "b" + std::to_string(minor), std::move(attributes));
  return std::make_shared<const TGFBeacon>(
      platform::CLBeacon{.proximityUUID = kVenue, .major = 1, .minor = minor, .rssi = rssi, .accuracy = accuracy},
      std::make_shared<const BeaconMatch>(details));
}

// One on the map "lobby" with a measured power of -59 dBm, unless its RSSI is all that matters.
inline TGFBeaconPtr ranged(std::uint16_t minor, int rssi, double accuracy) {
  return ranged(minor, rssi, accuracy, {{"map_id", "lobby"}, {"measured_power", -59}});
}
inline TGFBeaconPtr at(std::uint16_t minor, double accuracy) { return ranged(minor, -70, accuracy); }

inline int minorOf(const TGFBeaconPtr& beacon) { return beacon ? beacon->beacon()->minor : 0; }

}  // namespace wayloom::test
