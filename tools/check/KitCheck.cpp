#include "tools/check/KitCheck.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/UUID.hpp"
#include "wayloom/regions/BeaconConstraint.hpp"
#include "wayloom/regions/TGFKit.hpp"

#include "positioning/BeaconPlace.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;
using platform::member;

constexpr std::size_t kMostSpecificRegions = 20;
constexpr std::int64_t kLargestWord = 0xFFFF;

// Whether the value is a number, or a text that is one to its end.
bool isWholeNumber(const Json& value) {
  if (value.is_number()) return true;
  const auto text = platform::stringValue(&value);
  return text && !text->empty() && std::all_of(text->begin(), text->end(), [](char c) { return c >= '0' && c <= '9'; });
}

class KitCheck {
 public:
  KitCheck(CheckedDocument& document, const MapCatalogue* maps) : document_(document), maps_(maps) {}

  void run() {
    const Json* kit = member(document_.json(), "kit");
    if (kit == nullptr || !kit->is_object()) return tell(Severity::error, {}, "there is no object under \"kit\"");
    if (const Json* entries = member(kit, "ibeacons"); entries != nullptr && entries->is_array())
      checkEntries(*entries);
    else
      tell(Severity::error, {"kit"}, "there is no array \"ibeacons\"");
    checkOverlays(member(member(kit, "map"), "overlays"));
    checkPlaces(*kit);
  }

 private:
  // What the matching tells apart: an entry with any major stands for all of its UUID, whatever its minor.
  using Identity = std::tuple<platform::UUID, std::int64_t, std::int64_t>;
  static constexpr std::int64_t kAny = -1;

  void tell(Severity severity, JsonPath path, std::string message) {
    document_.tell(severity, std::move(path), std::move(message));
  }

  // The way to a member of an entry, or to the entry where it has none.
  static JsonPath placeIn(JsonPath path, const Json& entry, const char* key) {
    if (member(entry, key) != nullptr) path.emplace_back(key);
    return path;
  }

  static JsonPath entryPath(std::size_t index) { return {"kit", "ibeacons", std::to_string(index)}; }

  void checkEntries(const Json& entries) {
    if (entries.empty()) tell(Severity::warning, {"kit", "ibeacons"}, "there is no beacon");
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].is_object())
        checkEntry(entries[i], i);
      else
        tell(Severity::error, entryPath(i), "a beacon entry that is not an object, and is left out");
    }
    if (entries.size() > kMostSpecificRegions)
      tell(Severity::note, entryPath(kMostSpecificRegions),
           fmt::format("with this entry there are more than {}: only one region for each UUID is watched, and "
                       "applications learn of entering and leaving the whole of it alone",
                       kMostSpecificRegions));
  }

  void checkEntry(const Json& entry, std::size_t index) {
    checkIdentifier(entry, entryPath(index));
    const BeaconConstraint constraint(entry);
    if (!constraint.uuid)
      tell(Severity::error, placeIn(entryPath(index), entry, "uuid"), "there is no readable uuid: no beacon matches");
    const bool majorIsGood = checkNumber(entry, index, "major");
    const bool minorIsGood = checkNumber(entry, index, "minor");
    if (!constraint.uuid || !majorIsGood || !minorIsGood) return;
    if (!constraint.hasMajor && constraint.hasMinor)
      tell(Severity::error, placeIn(entryPath(index), entry, "minor"),
           "a minor without a major: it is not looked at, and the entry is no region that could be watched");
    checkIdentity({*constraint.uuid, constraint.hasMajor ? *constraint.major : kAny,
                   constraint.hasMajor && constraint.hasMinor ? *constraint.minor : kAny},
                  index);
    if (!constraint.hasMajor || !constraint.hasMinor) checkGeneralEntry(entry, index);
  }

  void checkIdentifier(const Json& entry, const JsonPath& path) {
    const auto identifier = platform::stringValue(member(entry, "identifier"));
    const auto place = placeIn(path, entry, "identifier");
    if (!identifier || identifier->empty()) return tell(Severity::error, place, "there is no identifier");
    const auto [used, isNew] = identifiers_.emplace(*identifier, jsonPointer(path));
    if (!isNew)
      tell(Severity::error, place, "the identifier " + inQuotes(*identifier) + " is used twice: " + used->second);
  }

  bool checkNumber(const Json& entry, std::size_t index, const char* key) {
    const Json* value = member(entry, key);
    const auto place = placeIn(entryPath(index), entry, key);
    if (value == nullptr) {
      tell(Severity::error, place, fmt::format("there is no {0}: write \"{0}\": null for any", key));
      return false;
    }
    if (value->is_null()) return true;
    const auto number = platform::integerValue(value);
    const bool isGood = isWholeNumber(*value) && number >= 0 && number <= kLargestWord;
    if (!isGood) tell(Severity::error, place, fmt::format("the {} is not a number from 0 to {}", key, kLargestWord));
    return isGood;
  }

  void checkIdentity(const Identity& identity, std::size_t index) {
    const auto [last, isNew] = identities_.try_emplace(identity, index);
    if (isNew) return;
    const auto& [uuid, major, minor] = identity;
    const auto number = [](std::int64_t value) { return value == kAny ? "any" : std::to_string(value); };
    tell(Severity::error, entryPath(index),
         fmt::format("a second entry for {}, major {}, minor {}: {} no longer counts", uuid.string(), number(major),
                     number(minor), jsonPointer(entryPath(last->second))));
    last->second = index;
  }

  void checkGeneralEntry(const Json& entry, std::size_t index) {
    const Json* mapId = member(member(entry, "attributes"), "map_id");
    if (mapId == nullptr || mapId->is_null()) return;
    auto path = entryPath(index);
    path.insert(path.end(), {"attributes", "map_id"});
    tell(Severity::warning, path, "a map for many beacons: one that has no entry of its own is shown there, too");
  }

  void checkOverlays(const Json* overlays) {
    if (overlays == nullptr || !overlays->is_array()) return;
    for (std::size_t i = 0; i < overlays->size(); ++i) {
      const Json& overlay = (*overlays)[i];
      const JsonPath path = {"kit", "map", "overlays", std::to_string(i)};
      const auto type = platform::stringValue(member(overlay, "type"));
      if (type != "circle" && type != "polygon") tell(Severity::note, path, "neither circle nor polygon, and left out");
      if (type != "circle") continue;
      checkIdentifier(overlay, path);
      if (!(platform::doubleValue(member(overlay, "radius")) > 0.0))
        tell(Severity::error, placeIn(path, overlay, "radius"), "a geofence without a radius");
      if (const Json* center = member(overlay, "center");
          center == nullptr || !center->is_array() || center->size() < 2)
        tell(Severity::error, placeIn(path, overlay, "center"), "a geofence without a center [latitude, longitude]");
    }
  }

  // Of every beacon with an entry of its own, by what all entries for it say together.
  void checkPlaces(const Json& kit) {
    const TGFKit model(std::shared_ptr<const Json>(std::shared_ptr<const Json>(), &kit));
    std::map<std::size_t, platform::CLBeacon> beacons;  // by the entry that counts
    for (const auto& [identity, index] : identities_) {
      const auto& [uuid, major, minor] = identity;
      if (major == kAny || minor == kAny) continue;
      beacons[index] = {.proximityUUID = uuid,
                        .major = static_cast<std::uint16_t>(major),
                        .minor = static_cast<std::uint16_t>(minor)};
    }
    for (const auto& [index, beacon] : beacons) checkPlace(model.getIBeaconForCLBeacon(beacon), kit, index);
  }

  void checkPlace(const TGFBeacon& beacon, const Json& kit, std::size_t index) {
    const Json& entry = kit["ibeacons"][index];
    const auto& attributes = BeaconPlace::of(beacon);
    const auto name = "beacon " + inQuotes(beacon.identifier().value_or(""));
    if (!attributes.mapId)
      return tell(Severity::warning, entryPath(index), name + " has no map: it is never taken for a position");
    auto place = entryPath(index);
    if (const Json* own = member(member(entry, "attributes"), "map_id")) {
      if (!own->is_null()) place.insert(place.end(), {"attributes", "map_id"});
    }
    if (maps_ == nullptr) return;
    const auto* map = maps_->find(*attributes.mapId);
    if (map == nullptr)
      return tell(Severity::error, place, name + " is on map " + inQuotes(*attributes.mapId) + ", which is not there");
    for (const char* key : {"latitude", "longitude"})
      if (!beacon.attributes().contains(key))
        return tell(Severity::error, entryPath(index), fmt::format("{} has a map, but no {}", name, key));
    checkEdges(*map, attributes.coordinate, name, place);
  }

  void checkEdges(const MapCatalogue::Map& map, const platform::CLLocationCoordinate2D& coordinate,
                  const std::string& name, const JsonPath& place) {
    const auto& config = *map.config;
    if (!(config.pixelsPerMeter() > 0.0) || config.mapPixelWidth() <= 0 || config.mapPixelHeight() <= 0) return;
    const Point pixels = map.projection.pixelsOf(coordinate);
    if (map.projection.contains(pixels)) return;
    const auto beyond = [](double pixel, std::int64_t size) {
      return std::max({-pixel, pixel - static_cast<double>(size), 0.0});
    };
    const double distance =
        std::hypot(beyond(pixels.x, config.scaledMapPixelWidth()), beyond(pixels.y, config.scaledMapPixelHeight())) /
        config.standardPixelsPerMeter();
    tell(Severity::error, place,
         fmt::format("{} lies off map {}, {:.1f} m beyond its edge", name, inQuotes(config.mapId()), distance));
  }

  CheckedDocument& document_;
  const MapCatalogue* maps_;
  std::map<std::string, std::string> identifiers_;  // and where they were used first
  std::map<Identity, std::size_t> identities_;      // and the last entry for each
};

}  // namespace

void checkKit(CheckedDocument& kit, const MapCatalogue* maps) {
  if (kit.json() != nullptr) KitCheck(kit, maps).run();
}

}  // namespace wayloom::tools
