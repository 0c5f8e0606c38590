#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/TGFBeacon.hpp"

namespace wayloom {

// The attributes of a beacon that every ranging needs: where it hangs, and how strong it sends.
struct BeaconPlace {
  explicit BeaconPlace(const platform::Json& attributes);
  static const BeaconPlace& of(const TGFBeacon& beacon) { return beacon.match().reading<BeaconPlace>(); }

  std::optional<std::string> mapId;             // of "map_id", unless that is missing or JSON null
  platform::CLLocationCoordinate2D coordinate;  // "latitude" and "longitude"; 0 when missing
  std::optional<std::int64_t> measuredPower;    // dBm at one metre: "measured_power", if that is a number
};

}  // namespace wayloom
