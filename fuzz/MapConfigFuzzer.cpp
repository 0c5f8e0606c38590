// A map configuration document on its way into the repository, and what is computed from each of its maps; the same
// bytes as an HTTP date.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"

#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;

void require(bool condition) {
  if (!condition) std::abort();
}

// Maps as venues have them must give back the coordinate that was put in; the others need only not crash.
bool isUsual(const TWLMapConfig& map) {
  return std::abs(map.latitude()) < 80.0 && std::abs(map.longitude()) < 180.0 &&
         std::abs(map.rotationDegrees()) < 1e6 && std::abs(map.scaledMapCornerOffset().x) < 1e6 &&
         std::abs(map.scaledMapCornerOffset().y) < 1e6;
}

void convert(platform::Platform& platform, const TWLMapConfig& map) {
  const platform::CLLocationCoordinate2D there = {map.latitude() + 1e-4, map.longitude() - 1e-4};
  const auto location = TWLLocationUtils::mapLocationForGeolocationForMapId(platform, there, map.mapId());
  require(location->mapId() == map.mapId() && location->map().get() == &map);
  location->setUncertaintyRadiusMeters(std::abs(map.cropWidth()));
  require(location->uncertaintyRadiusPixels() <= 250);
  const auto back = TWLLocationUtils::locationOnMapPixelCoords(platform, map.mapId(), location->pixelCoords());
  require(back.has_value());
  if (isUsual(map)) require(std::abs(back->latitude - there.latitude) < 1e-9);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static test::TestPlatform world;
  auto& repo = TWLMapConfigRepo::sharedRepo(world);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  TWLMapConfigRepo::dateFrom(std::string(text));
  if (repo.loadFromJSON(text)) {
    require(!repo.maps().empty());
    for (const auto& map : repo.maps()) {
      require(repo.forMapId(map->mapId()) == map);
      convert(world, *map);
      TWLLocationUtils::mapLocationForGeoLocation(world, {map->latitude(), map->longitude()});
    }
  }
  world.systemLog->take();
  return 0;
}
