#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "wayloom/maps/MapProjection.hpp"
#include "wayloom/maps/TWLMapConfig.hpp"

namespace wayloom {

// The maps of one map configuration document, in its order. Immutable; any thread.
class MapCatalogue {
 public:
  struct Map {
    TWLMapConfigPtr config;
    MapProjection projection;
  };

  MapCatalogue() = default;
  // The map ids must differ from one another.
  explicit MapCatalogue(std::vector<TWLMapConfig> configs);
  MapCatalogue(const MapCatalogue&) = delete;
  MapCatalogue& operator=(const MapCatalogue&) = delete;

  const std::vector<Map>& maps() const { return maps_; }
  const Map* find(std::string_view mapId) const;  // null when unknown; valid as long as the catalogue

 private:
  std::vector<Map> maps_;
  std::unordered_map<std::string_view, std::size_t> places_;  // the keys lie in the configurations
};

}  // namespace wayloom
