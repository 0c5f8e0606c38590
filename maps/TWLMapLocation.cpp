#include "wayloom/maps/TWLMapLocation.hpp"

#include "wayloom/maps/TWLMapConfigRepo.hpp"

namespace wayloom {
namespace {

constexpr double kLargestRadiusShown = 50.0;  // metres

}  // namespace

TWLMapConfigPtr TWLMapLocation::map() const {
  {
    const std::lock_guard lock(mapMutex_);
    if (map_) return map_;
  }
  auto found = TWLMapConfigRepo::sharedRepo(platform_).forMapId(mapId_);
  const std::lock_guard lock(mapMutex_);
  if (!map_) map_ = std::move(found);
  return map_;
}

void TWLMapLocation::setMap(TWLMapConfigPtr map) {
  const std::lock_guard lock(mapMutex_);
  map_ = std::move(map);
}

std::int64_t TWLMapLocation::uncertaintyRadiusPixels() const {
  const auto map = TWLMapConfigRepo::sharedRepo(platform_).forMapId(mapId_);
  if (!map) return 0;
  const double scale = map->standardPixelsPerMeter();
  if (uncertaintyRadiusMeters_ > kLargestRadiusShown)
    return truncated(static_cast<double>(truncated(scale)) * kLargestRadiusShown);
  return truncated(uncertaintyRadiusMeters_ * scale);
}

}  // namespace wayloom
