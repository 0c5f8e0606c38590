#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "wayloom/platform/Json.hpp"

namespace wayloom {

// What the kit says of one region: the part that every kind of region has. Immutable and shared.
struct RegionDetails {
  RegionDetails() = default;
  RegionDetails(std::optional<std::string> regionName, std::optional<std::string> regionIdentifier,
                platform::Json regionAttributes);

  // From a kit entry: "name", "identifier" and "attributes" of whatever type; what isn't text is absent, what isn't an
  // object is an empty one.
  static RegionDetails fromDictionary(const platform::Json& dictionary);

  std::optional<std::string> name;
  std::optional<std::string> identifier;
  platform::Json attributes = platform::Json::object();  // always an object
};

// What the kit says of one beacon identity, all entries that match it merged; with typed copies of the attributes that
// every ranging reads, so that no ranging searches a document. Immutable, shared by all beacons of that identity.
struct BeaconMatch : RegionDetails {
  BeaconMatch() = default;
  explicit BeaconMatch(RegionDetails details);

  std::optional<std::int64_t> measuredPower;  // dBm at one metre; there when the attributes have "measured_power"
  std::shared_ptr<const std::string> mapId;   // null when "map_id" is missing or JSON null
  double latitude = 0.0;                      // degrees; 0 when missing
  double longitude = 0.0;
};

using BeaconMatchPtr = std::shared_ptr<const BeaconMatch>;

}  // namespace wayloom
