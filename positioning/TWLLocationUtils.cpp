#include "wayloom/positioning/TWLLocationUtils.hpp"

#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"

#include "maps/Geodesy.hpp"
#include "positioning/BeaconPlace.hpp"
#include "positioning/FixAge.hpp"

namespace wayloom {
namespace {

constexpr double kBeaconUncertaintyFactor = 2.0;
constexpr std::int64_t kFallbackFixAge = 180;  // seconds; a fix this old is not used

std::shared_ptr<TWLMapLocation> locationOfBeacon(platform::Platform& platform, const TGFBeacon& beacon) {
  const auto& place = BeaconPlace::of(beacon);
  auto location =
      TWLLocationUtils::mapLocationForGeolocationForMapId(platform, place.coordinate, place.mapId.value_or(""));
  location->setUncertaintyRadiusMeters(beacon.accuracy() * kBeaconUncertaintyFactor);
  return location;
}

std::shared_ptr<TWLMapLocation> locationOfFix(platform::Platform& platform, const platform::CLLocation& fix) {
  if (fixAge(fix.timestamp, platform.calendarClock().now()) >= kFallbackFixAge) return nullptr;
  auto location = TWLLocationUtils::mapLocationForGeoLocation(platform, fix.coordinate);
  if (location) location->setUncertaintyRadiusMeters(fix.horizontalAccuracy);
  return location;
}

}  // namespace

std::shared_ptr<TWLMapLocation> TWLLocationUtils::currentMapLocation(platform::Platform& platform) {
  return currentMapLocation(platform, TWLLocationTracker::sharedLocationTracker(platform));
}

std::shared_ptr<TWLMapLocation> TWLLocationUtils::currentMapLocation(platform::Platform& platform,
                                                                     TWLLocationTracker& tracker) {
  if (const auto beacon = tracker.closestBeacon()) return locationOfBeacon(platform, *beacon);
  const auto fix = tracker.locationFromCoreLocation();
  return fix ? locationOfFix(platform, *fix) : nullptr;
}

double TWLLocationUtils::longitudinalLengthForLatitude(double latitude) { return metresPerDegreeOfLongitude(latitude); }

double TWLLocationUtils::latitudinalLengthForLatitude(double latitude) { return metresPerDegreeOfLatitude(latitude); }

Point TWLLocationUtils::rotateCoordinateWithRotation(Point point, double degrees) {
  return AxisRotation(degrees).apply(point);
}

std::shared_ptr<TWLMapLocation> TWLLocationUtils::mapLocationForGeolocationForMapId(
    platform::Platform& platform, const platform::CLLocationCoordinate2D& coordinate, std::string mapId) {
  const auto catalogue = TWLMapConfigRepo::sharedRepo(platform).configRepo();
  const auto* map = catalogue->find(mapId);
  const Point pixels = map ? map->projection.pixelsOf(coordinate) : Point();
  return std::make_shared<TWLMapLocation>(platform, pixels, std::move(mapId));
}

std::shared_ptr<TWLMapLocation> TWLLocationUtils::mapLocationForGeoLocation(
    platform::Platform& platform, const platform::CLLocationCoordinate2D& coordinate) {
  const auto catalogue = TWLMapConfigRepo::sharedRepo(platform).configRepo();
  for (const auto& map : catalogue->maps()) {
    if (!map.config->geolocationEnabled()) continue;
    const Point pixels = map.projection.pixelsOf(coordinate);
    if (map.projection.contains(pixels)) return std::make_shared<TWLMapLocation>(platform, pixels, map.config->mapId());
  }
  return nullptr;
}

std::optional<platform::CLLocationCoordinate2D> TWLLocationUtils::locationOnMapPixelCoords(platform::Platform& platform,
                                                                                           std::string_view mapId,
                                                                                           Point pixels) {
  const auto catalogue = TWLMapConfigRepo::sharedRepo(platform).configRepo();
  const auto* map = catalogue->find(mapId);
  if (!map) return std::nullopt;
  return map->projection.coordinateOf(pixels);
}

}  // namespace wayloom
