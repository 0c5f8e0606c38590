#include "wayloom/maps/MapCatalogue.hpp"

#include <utility>

namespace wayloom {

MapCatalogue::MapCatalogue(std::vector<TWLMapConfig> configs) {
  maps_.reserve(configs.size());
  places_.reserve(configs.size());
  for (auto& config : configs) {
    auto shared = std::make_shared<const TWLMapConfig>(std::move(config));
    places_.emplace(shared->mapId(), maps_.size());
    maps_.push_back({shared, MapProjection(*shared)});
  }
}

const MapCatalogue::Map* MapCatalogue::find(std::string_view mapId) const {
  const auto place = places_.find(mapId);
  return place == places_.end() ? nullptr : &maps_[place->second];
}

}  // namespace wayloom
