#pragma once

#include <cstdint>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Json.hpp"

namespace wayloom::benchmarks {

// The identity of entry `index` of a sample kit: 1000 beacons a major, 50 majors a UUID.
inline platform::BeaconIdentity sampleIdentity(std::uint32_t index) {
  platform::UUID::Bytes bytes = {0x5A, 0x0E, 0x1C, 0x9E};
  bytes[15] = static_cast<std::uint8_t>(index / 50000);
  return {platform::UUID(bytes), static_cast<std::uint16_t>(index / 1000 % 50),
          static_cast<std::uint16_t>(index % 1000)};
}

// A kit document of `count` beacons as venues write them, each with a place on a map.
inline platform::Json sampleKit(std::uint32_t count) {
  platform::Json entries = platform::Json::array();
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto identity = sampleIdentity(i);
    entries.push_back({{"identifier", "beacon-" + std::to_string(i)},
                       {"name", "Beacon " + std::to_string(i)},
                       {"uuid", identity.uuid.string()},
                       {"major", identity.major},
                       {"minor", identity.minor},
                       {"attributes",
                        {{"map_id", "floor-" + std::to_string(i / 1000)},
                         {"latitude", 50.1 + i * 1e-6},
                         {"longitude", 8.6 + i * 1e-6},
                         {"measured_power", -59}}}});
  }
  return {{"id", 42}, {"name", "Sample"}, {"ibeacons", std::move(entries)}};
}

// `heard` identities spread evenly over such a kit: what one place hears, whatever the size of the kit.
inline std::vector<platform::CLBeacon> heardBeacons(std::uint32_t count, std::uint32_t heard) {
  std::vector<platform::CLBeacon> beacons;
  for (std::uint32_t i = 0; i < heard; ++i) {
    const auto identity = sampleIdentity(static_cast<std::uint32_t>(std::uint64_t{i} * count / heard));
    beacons.push_back({identity.uuid, identity.major, identity.minor, -70, 2.5, platform::CLProximity::near});
  }
  return beacons;
}

}  // namespace wayloom::benchmarks
