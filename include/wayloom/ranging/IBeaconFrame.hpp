#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom::ranging {

// What a receiver can hear, dBm: 0 or more, and less than this, are no measurements.
inline constexpr int kWeakestRssi = -127;
constexpr bool isMeasuredRssi(int rssi) { return rssi < 0 && rssi >= kWeakestRssi; }

// One received iBeacon advertisement.
struct IBeaconFrame {
  platform::BeaconIdentity identity;
  int rssi = 0;   // dBm as received, see isMeasuredRssi
  int power = 0;  // dBm at one metre, as the frame claims: -128 to 127

  // Reads the manufacturer data of company 0x004C: 02 15, UUID (16 bytes), major and minor (big-endian), power
  // (signed); exactly 23 bytes. Anything else gives nothing.
  static std::optional<IBeaconFrame> parse(std::uint16_t company, std::span<const std::uint8_t> data, int rssi);
};

}  // namespace wayloom::ranging
