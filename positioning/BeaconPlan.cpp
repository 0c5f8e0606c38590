#include "positioning/BeaconPlan.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::BeaconIdentity;
using platform::Json;

namespace {

// A beacon may stand beside the plan's image, in a garden or on a façade; farther off its place is wrong.
constexpr double kBesideImage = 50.0;      // metres
constexpr double kLargestMap = 1.0e5;      // metres: where a map says nothing of its size
constexpr double kWeakestPower = -100.0;   // dBm at one metre: no beacon has less,
constexpr double kStrongestPower = -20.0;  // or more

std::optional<BeaconIdentity> identityOf(const TGFBeacon& entry) {
  const auto fits = [](std::optional<std::int64_t> number) { return number && *number >= 0 && *number <= UINT16_MAX; };
  if (!entry.uuid() || !fits(entry.major()) || !fits(entry.minor())) return std::nullopt;
  return BeaconIdentity{*entry.uuid(), static_cast<std::uint16_t>(*entry.major()),
                        static_cast<std::uint16_t>(*entry.minor())};
}

double powerOf(const Json& attributes) {
  const double power = platform::doubleValue(platform::member(attributes, "measured_power"));
  return power >= kWeakestPower && power <= kStrongestPower ? power : std::numeric_limits<double>::quiet_NaN();
}

// Texts only and numbers, which name a map by their digits.
const MapCatalogue::Map* mapOf(const Json& attributes, const MapCatalogue& catalogue) {
  const auto* id = platform::member(attributes, "map_id");
  if (id == nullptr || !(id->is_string() || id->is_number())) return nullptr;
  return catalogue.find(id->is_string() ? id->get<std::string>() : id->dump());
}

bool isOnMap(const Point& metres, const TWLMapConfig& map) {
  const auto fits = [](double at, double pixels) {
    const double size = pixels > 0.0 ? pixels / BeaconPlan::kPixelsPerMetre : kLargestMap;
    return at >= -kBesideImage && at <= size + kBesideImage;  // false for NaN
  };
  return fits(metres.x, static_cast<double>(map.scaledMapPixelWidth())) &&
         fits(metres.y, static_cast<double>(map.scaledMapPixelHeight()));
}

// Where the beacon stands on its map, in metres; nothing when it has no place or one that can't be.
std::optional<Point> placeOf(const Json& attributes, const MapCatalogue::Map& map) {
  const auto* latitude = platform::member(attributes, "latitude");
  const auto* longitude = platform::member(attributes, "longitude");
  if (platform::isNull(latitude) || platform::isNull(longitude) || !latitude || !longitude) return std::nullopt;
  const Point pixels = map.projection.pixelsOf({platform::doubleValue(latitude), platform::doubleValue(longitude)});
  const Point metres{pixels.x / BeaconPlan::kPixelsPerMetre, pixels.y / BeaconPlan::kPixelsPerMetre};
  return isOnMap(metres, *map.config) ? std::optional(metres) : std::nullopt;
}

}  // namespace

struct BeaconPlan::Entry {
  const MapCatalogue::Map* map;
  Beacon beacon;
  RefinedBeacon name;
};

BeaconPlan::BeaconPlan(const TGFKit* kit, std::shared_ptr<const MapCatalogue> catalogue)
    : catalogue_(std::move(catalogue)) {
  std::vector<Entry> entries;
  if (kit != nullptr)
    kit->enumerateIBeaconsUsingBlock([&](const TGFBeacon& entry, std::size_t, bool&) {
      const auto identity = identityOf(entry);
      if (!identity) return;
      // With what less specific entries say of it, too.
      const TGFBeacon beacon = kit->getIBeaconForCLBeacon(
          {.proximityUUID = identity->uuid, .major = identity->major, .minor = identity->minor});
      const auto* map = mapOf(beacon.attributes(), *catalogue_);
      const auto place = map != nullptr ? placeOf(beacon.attributes(), *map) : std::nullopt;
      if (!place) return;
      entries.push_back({map,
                         {place->x, place->y, powerOf(beacon.attributes()), 0},
                         {*identity, beacon.identifier(), beacon.name()}});
    });
  take(std::move(entries));
}

void BeaconPlan::take(std::vector<Entry> entries) {
  // Maps in the catalogue's order; an identity that the kit has twice is there once.
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.map, a.beacon.x, a.beacon.y, a.name.identity) <
           std::tie(b.map, b.beacon.x, b.beacon.y, b.name.identity);
  });
  index_.reset(entries.size());
  beacons_.reserve(entries.size());
  names_.reserve(entries.size());
  const MapCatalogue::Map* current = nullptr;
  for (auto& entry : entries) {
    const auto number = static_cast<std::uint32_t>(beacons_.size());
    if (index_.findOrInsert(entry.name.identity, number) != number) continue;
    const Point place{entry.beacon.x, entry.beacon.y};
    if (std::exchange(current, entry.map) != entry.map) maps_.push_back({*entry.map, number, number, place, place});
    auto& map = maps_.back();
    map.end = number + 1;
    map.topLeft = {std::min(map.topLeft.x, place.x), std::min(map.topLeft.y, place.y)};
    map.bottomRight = {std::max(map.bottomRight.x, place.x), std::max(map.bottomRight.y, place.y)};
    entry.beacon.map = static_cast<std::uint32_t>(maps_.size() - 1);
    beacons_.push_back(entry.beacon);
    names_.push_back(std::move(entry.name));
  }
}

BeaconPlan::Range BeaconPlan::between(const Map& map, double left, double right) const {
  const auto isLeftOf = [](const Beacon& beacon, double x) { return beacon.x < x; };
  const auto begin = beacons_.begin();
  const auto first = std::lower_bound(begin + map.first, begin + map.end, left, isLeftOf);
  const auto end = std::lower_bound(first, begin + map.end, right, isLeftOf);
  return {static_cast<std::uint32_t>(first - begin), static_cast<std::uint32_t>(end - begin)};
}

}  // namespace wayloom
