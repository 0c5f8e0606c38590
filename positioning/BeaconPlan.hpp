#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "wayloom/maps/MapCatalogue.hpp"
#include "wayloom/positioning/RefinedPosition.hpp"
#include "wayloom/regions/TGFKit.hpp"

#include "platform/FlatTable.hpp"

namespace wayloom {

// Where the kit's beacons stand, in metres on their maps: flat arrays, made once for a kit and a catalogue. Immutable.
class BeaconPlan {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;
  static constexpr double kPixelsPerMetre = 5.0;  // standard pixels

  struct Beacon {
    double x;      // metres from the map's top left corner, to the right
    double y;      // and downwards
    double power;  // dBm at one metre; NaN: the kit gives none that a beacon can have
    std::uint32_t map;
  };

  // The beacons of one map stand together, from left to right.
  struct Map {
    MapCatalogue::Map map;
    std::uint32_t first;
    std::uint32_t end;
    Point topLeft;  // of the beacons' box, metres
    Point bottomRight;
  };

  BeaconPlan(const TGFKit* kit, std::shared_ptr<const MapCatalogue> catalogue);

  std::uint32_t find(const platform::BeaconIdentity& identity) const { return index_.find(identity); }
  const Beacon& beacon(std::uint32_t number) const { return beacons_[number]; }
  const RefinedBeacon& name(std::uint32_t number) const { return names_[number]; }
  std::size_t size() const { return beacons_.size(); }
  const std::vector<Map>& maps() const { return maps_; }

  // Numbers of the map's beacons whose x is within the limits, as first and end.
  struct Range {
    std::uint32_t first;
    std::uint32_t end;
  };
  Range between(const Map& map, double left, double right) const;

 private:
  struct Entry;
  void take(std::vector<Entry> entries);

  std::shared_ptr<const MapCatalogue> catalogue_;
  std::vector<Beacon> beacons_;
  std::vector<RefinedBeacon> names_;
  std::vector<Map> maps_;
  platform::FlatTable<platform::BeaconIdentity> index_;
};

}  // namespace wayloom
