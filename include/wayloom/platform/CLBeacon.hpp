#pragma once

#include <cstdint>

#include "wayloom/platform/UUID.hpp"

namespace wayloom::platform {

// How near a beacon is, in coarse classes.
enum class CLProximity : std::uint8_t { unknown = 0, immediate = 1, near = 2, far = 3 };

// Which beacon: the identity that an iBeacon frame carries.
struct BeaconIdentity {
  UUID uuid;
  std::uint16_t major = 0;
  std::uint16_t minor = 0;

  auto operator<=>(const BeaconIdentity&) const = default;
  std::size_t hash() const {
    const auto numbers = (static_cast<std::uint64_t>(major) << 16U) | minor;
    return uuid.hash() ^ static_cast<std::size_t>((numbers + 1) * 0xA24BAED4963EE407ULL);
  }
};

// One beacon as the platform reports it in a ranging. A plain value.
struct CLBeacon {
  UUID proximityUUID;
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  int rssi = 0;            // dBm, negative; 0: not measured
  double accuracy = -1.0;  // estimated distance in metres; -1: unknown
  CLProximity proximity = CLProximity::unknown;

  BeaconIdentity identity() const { return {proximityUUID, major, minor}; }
};

}  // namespace wayloom::platform

template <>
struct std::hash<wayloom::platform::BeaconIdentity> {
  std::size_t operator()(const wayloom::platform::BeaconIdentity& identity) const noexcept { return identity.hash(); }
};
