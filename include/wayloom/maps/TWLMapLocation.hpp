#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/maps/TWLMapConfig.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// A position on a map, with a circle of uncertainty around it.
//
// It finds its map in the Platform's shared TWLMapConfigRepo, and so must not outlive the Platform. Whoever makes one
// may change it until it is shared; positions that are handed out are const, and their readers may be on any thread.
class TWLMapLocation {
 public:
  explicit TWLMapLocation(platform::Platform& platform) : platform_(platform) {}
  TWLMapLocation(platform::Platform& platform, Point pixelCoords, std::string mapId)
      : platform_(platform), pixelCoords_(pixelCoords), mapId_(std::move(mapId)) {}

  // Standard pixels.
  Point pixelCoords() const { return pixelCoords_; }
  void setPixelCoords(Point pixels) { pixelCoords_ = pixels; }

  const std::string& mapId() const { return mapId_; }
  void setMapId(std::string mapId) { mapId_ = std::move(mapId); }

  // The map's configuration: asked for on the first call, then kept, even when the repository has a newer one. Null
  // when the repository has none, and then the next call asks again.
  TWLMapConfigPtr map() const;
  void setMap(TWLMapConfigPtr map);

  double uncertaintyRadiusMeters() const { return uncertaintyRadiusMeters_; }
  void setUncertaintyRadiusMeters(double metres) { uncertaintyRadiusMeters_ = metres; }

  // The same in standard pixels, at most 50 metres' worth, truncated. Computed on every call from what the repository
  // then says of mapId, whatever map() is; 0 for an unknown map.
  std::int64_t uncertaintyRadiusPixels() const;
  // Kept, but never read back: the radius in pixels always follows the radius in metres.
  void setUncertaintyRadiusPixels(std::int64_t pixels) { uncertaintyRadiusPixels_ = pixels; }

 private:
  platform::Platform& platform_;
  Point pixelCoords_;
  std::string mapId_;
  double uncertaintyRadiusMeters_ = 0.0;
  [[maybe_unused]] std::int64_t uncertaintyRadiusPixels_ = 0;
  mutable std::mutex mapMutex_;
  mutable TWLMapConfigPtr map_;
};

using TWLMapLocationPtr = std::shared_ptr<const TWLMapLocation>;

}  // namespace wayloom
