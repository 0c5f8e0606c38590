#pragma once

#include <string>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom {

// The text identity of a beacon: "<UUID> <major> <minor>".
inline std::string beaconKey(const platform::BeaconIdentity& identity) {
  return identity.uuid.string() + " " + std::to_string(identity.major) + " " + std::to_string(identity.minor);
}

}  // namespace wayloom
