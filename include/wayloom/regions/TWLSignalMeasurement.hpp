#pragma once

#include "wayloom/platform/Time.hpp"

namespace wayloom {

// One signal strength sample of a beacon.
struct TWLSignalMeasurement {
  double rssi = 0.0;  // dBm, negative
  platform::MonotonicTime timestamp;

  bool operator==(const TWLSignalMeasurement&) const = default;
};

}  // namespace wayloom
