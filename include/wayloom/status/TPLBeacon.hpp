#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom {

// Which beacon: a plain value.
struct TPLBeacon {
  static TPLBeacon beaconWithUUIDMajorMinor(std::string uuid, std::int64_t major, std::int64_t minor) {
    return {std::move(uuid), major, minor};
  }
  static TPLBeacon beaconWithCLBeacon(const platform::CLBeacon& beacon) {
    return {beacon.proximityUUID.string(), beacon.major, beacon.minor};
  }

  std::string uuid;  // upper-case with hyphens
  std::int64_t major = 0;
  std::int64_t minor = 0;
};

}  // namespace wayloom
