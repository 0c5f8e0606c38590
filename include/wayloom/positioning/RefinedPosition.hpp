#pragma once

#include <memory>
#include <optional>
#include <string>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/maps/TWLMapConfig.hpp"
#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom {

// A beacon of the kit that stands on a map.
struct RefinedBeacon {
  platform::BeaconIdentity identity;
  std::optional<std::string> identifier;  // of the kit
  std::optional<std::string> name;        // of the kit

  // The kit's identifier, else its name, else "<UUID> <major> <minor>".
  std::string text() const;
};
using RefinedBeaconPtr = std::shared_ptr<const RefinedBeacon>;

// Where the device is between the beacons; docs/positions.md says how that is found and how good it is. A plain value;
// copying it allocates nothing.
struct RefinedPosition {
  platform::MonotonicTime time;  // of the rangings that it rests on
  // Null: no beacon that stands on a map was heard for 10 s, and nothing below means anything.
  TWLMapConfigPtr map;
  Point pixels;  // standard pixels of the map
  Point metres;  // the same from the map's top left corner, x to the right, y downwards
  platform::CLLocationCoordinate2D coordinate;
  double radius = 0.0;             // metres: the circle that holds the truth in about 68 of 100 cases
  double mapProbability = 0.0;     // that it is this map, 0 to 1
  RefinedBeaconPtr beacon;         // the one that is most likely the nearest; never null where there is a map
  double beaconProbability = 0.0;  // that it is this beacon, 0 to 1
  double speed = 0.0;              // metres a second, of the position over the last seconds
};

}  // namespace wayloom
