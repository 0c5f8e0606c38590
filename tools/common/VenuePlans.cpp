#include "tools/common/VenuePlans.hpp"

#include <cmath>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include "positioning/BeaconPlace.hpp"

namespace wayloom::tools {
namespace {

// Mean radius of the earth (IUGG), metres.
constexpr double kEarthRadius = 6371008.8;

// Great-circle distance by the haversine formula (Sinnott: Virtues of the Haversine, 1984).
double metresBetween(const platform::CLLocationCoordinate2D& a, const platform::CLLocationCoordinate2D& b) {
  const double dLatitude = (b.latitude - a.latitude) * kRadiansPerDegree;
  const double dLongitude = (b.longitude - a.longitude) * kRadiansPerDegree;
  const double h = std::pow(std::sin(dLatitude / 2), 2) + std::cos(a.latitude * kRadiansPerDegree) *
                                                              std::cos(b.latitude * kRadiansPerDegree) *
                                                              std::pow(std::sin(dLongitude / 2), 2);
  return 2.0 * kEarthRadius * std::asin(std::sqrt(h));
}

platform::CLLocationCoordinate2D coordinateOf(platform::Platform& platform, const std::string& mapId, double x,
                                              double y) {
  return TWLLocationUtils::locationOnMapPixelCoords(platform, mapId, {x, y})
      .value_or(platform::CLLocationCoordinate2D{});
}

std::optional<PlacedBeacon> placed(platform::Platform& platform, const TGFKit& kit, const TGFBeacon& entry) {
  const auto number = [](std::optional<std::int64_t> value) { return value && *value >= 0 && *value <= UINT16_MAX; };
  if (!entry.uuid() || !number(entry.major()) || !number(entry.minor())) return std::nullopt;
  PlacedBeacon beacon;
  beacon.identity = {*entry.uuid(), static_cast<std::uint16_t>(*entry.major()),
                     static_cast<std::uint16_t>(*entry.minor())};
  const TGFBeacon merged = kit.getIBeaconForCLBeacon(
      {.proximityUUID = beacon.identity.uuid, .major = beacon.identity.major, .minor = beacon.identity.minor});
  const auto& place = BeaconPlace::of(merged);
  if (!place.mapId || TWLMapConfigRepo::sharedRepo(platform).forMapId(*place.mapId) == nullptr) return std::nullopt;
  const auto location = TWLLocationUtils::mapLocationForGeolocationForMapId(platform, place.coordinate, *place.mapId);
  beacon.label = merged.name().value_or(merged.identifier().value_or(""));
  beacon.place = {*place.mapId, location->pixelCoords().x, location->pixelCoords().y};
  beacon.measuredPower = place.measuredPower;
  return beacon;
}

}  // namespace

TGFKitPtr readKit(platform::Platform& platform, const std::string& venue, std::string& error) {
  const std::string path = venue + "/server/kit.json";
  const auto text = platform.files().readFile(path);
  if (!text) {
    error = path + ": can't be read";
    return nullptr;
  }
  const auto document = platform::parseJson(*text);
  if (!document.value) {
    error = path + ": " + document.error;
    return nullptr;
  }
  const platform::Json* kit = platform::member(*document.value, "kit");
  if (kit == nullptr || !kit->is_object()) {
    error = path + ": there is no object under \"kit\"";
    return nullptr;
  }
  return TGFAPIDeserializer::buildKit(platform, std::make_shared<const platform::Json>(*kit));
}

std::vector<PlacedBeacon> placedBeacons(platform::Platform& platform, const TGFKit& kit) {
  std::vector<PlacedBeacon> beacons;
  kit.enumerateIBeaconsUsingBlock([&](const TGFBeacon& entry, std::size_t, bool&) {
    if (auto beacon = placed(platform, kit, entry)) beacons.push_back(std::move(*beacon));
  });
  return beacons;
}

PlanDistance planDistance(platform::Platform& platform) {
  return [&platform](const PlanPoint& a, const PlanPoint& b) {
    if (a.mapId == b.mapId) return std::hypot(a.x - b.x, a.y - b.y) / 5.0;
    return metresBetween(coordinateOf(platform, a.mapId, a.x, a.y), coordinateOf(platform, b.mapId, b.x, b.y));
  };
}

sim::VenueFrame venueFrame(platform::Platform& platform) {
  const auto maps = TWLMapConfigRepo::sharedRepo(platform).maps();
  const platform::CLLocationCoordinate2D origin =
      maps.empty() ? platform::CLLocationCoordinate2D{}
                   : platform::CLLocationCoordinate2D{maps.front()->latitude(), maps.front()->longitude()};
  return sim::VenueFrame(
      {.coordinateOf =
           [&platform](const sim::MapPoint& point) { return coordinateOf(platform, point.mapId, point.x, point.y); },
       .pointOn =
           [&platform](const platform::CLLocationCoordinate2D& coordinate, const std::string& mapId) {
             const auto location = TWLLocationUtils::mapLocationForGeolocationForMapId(platform, coordinate, mapId);
             return sim::MapPoint{mapId, location->pixelCoords().x, location->pixelCoords().y};
           }},
      origin);
}

}  // namespace wayloom::tools
