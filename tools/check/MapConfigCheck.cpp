#include "tools/check/MapConfigCheck.hpp"

#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <utility>
#include <vector>

#include "wayloom/maps/TWLMapConfig.hpp"
#include "wayloom/maps/TWLMapConfigKeys.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/posix/PlistReader.hpp"

#include "backends/sim/VenueFiles.hpp"
#include "maps/MapFileNames.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;
using platform::member;

const Json::object_t& membersOf(const CheckedDocument& document) {
  static const Json::object_t kNone;
  const Json* json = document.json();
  return json != nullptr && json->is_object() ? json->get_ref<const Json::object_t&>() : kNone;
}

// The way to a member of a map, or to the map where it has none.
JsonPath placeIn(const std::string& mapId, const Json& map, std::string_view key) {
  if (member(map, key) == nullptr) return {mapId};
  return {mapId, std::string(key)};
}

bool isImage(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) > 0 && !error;
}

// One map of a document.
class MapCheck {
 public:
  MapCheck(CheckedDocument& document, const std::string& mapId, const Json& map)
      : document_(document), mapId_(mapId), map_(map), config_(map) {}

  void run(std::string_view documentUrl) {
    checkScale();
    checkSize();
    checkReference();
    const auto file = mapFile(mapId_, config_.filePath(), documentUrl);
    if (!file.file) error(QMBY_MAP_CONFIG_FILE_PATH, "gets no image: " + file.refusal);
  }

 private:
  void error(std::string_view key, const std::string& what) {
    document_.tell(Severity::error, placeIn(mapId_, map_, key), "map " + inQuotes(mapId_) + " " + what);
  }

  void checkScale() {
    if (!(config_.pixelsPerMeter() > 0.0))
      error(QMBY_MAP_CONFIG_PIXELS_PER_METER_KEY, "has no scale: pixels_per_meter must be a number above 0");
  }

  void checkSize() {
    if (config_.mapPixelWidth() <= 0) error(QMBY_MAP_CONFIG_MAP_PIXEL_WIDTH_KEY, "has no width in image pixels");
    if (config_.mapPixelHeight() <= 0) error(QMBY_MAP_CONFIG_MAP_PIXEL_HEIGHT_KEY, "has no height in image pixels");
  }

  void checkReference() {
    checkDegrees(QMBY_MAP_CONFIG_LATITUDE_KEY, config_.latitude(), 90.0);
    checkDegrees(QMBY_MAP_CONFIG_LONGITUDE_KEY, config_.longitude(), 180.0);
  }

  void checkDegrees(std::string_view key, double degrees, double limit) {
    if (member(map_, key) == nullptr)
      error(key, fmt::format("has no {} of its reference point", key));
    else if (!(std::abs(degrees) <= limit))
      error(key, fmt::format("has a {} beyond {} degrees", key, limit));
  }

  CheckedDocument& document_;
  const std::string& mapId_;
  const Json& map_;
  TWLMapConfig config_;
};

void compare(CheckedDocument& document, const CheckedDocument& other, Severity severity, const std::string& what) {
  if (document.json() == nullptr || other.json() == nullptr) return;
  for (const auto& [mapId, map] : membersOf(document))
    if (member(other.json(), mapId) == nullptr) document.tell(severity, {mapId}, "map " + inQuotes(mapId) + " " + what);
}

}  // namespace

std::unique_ptr<MapCatalogue> catalogueOf(const Json& document) {
  std::vector<TWLMapConfig> configs;
  if (document.is_object()) {
    for (const auto& [mapId, map] : document.get_ref<const Json::object_t&>()) {
      if (!map.is_object()) continue;
      configs.emplace_back(map).setMapId(mapId);
    }
  }
  return std::make_unique<MapCatalogue>(std::move(configs));
}

void checkMaps(CheckedDocument& document, std::string_view documentUrl) {
  const Json* json = document.json();
  if (json == nullptr) return;
  if (!json->is_object()) return document.tell(Severity::error, {}, "is not an object of maps by id");
  if (json->empty()) document.tell(Severity::error, {}, "holds no map, and is refused for that");
  for (const auto& [mapId, map] : membersOf(document)) {
    if (map.is_object())
      MapCheck(document, mapId, map).run(documentUrl);
    else
      document.tell(Severity::error, {mapId}, "map " + inQuotes(mapId) + " is not an object, and is left out");
  }
}

void checkServedImages(CheckedDocument& document, std::string_view documentUrl, const std::string& venue) {
  const sim::VenueFiles files(venue, posix::PlistReader());
  for (const auto& [mapId, map] : membersOf(document)) {
    const auto file = mapFile(mapId, TWLMapConfig(map).filePath(), documentUrl).file;
    if (!file) continue;  // told already
    const auto path = files.mapFileFor(file->url);
    if (path.empty() || !isImage(path))
      document.tell(Severity::error, placeIn(mapId, map, QMBY_MAP_CONFIG_FILE_PATH),
                    "map " + inQuotes(mapId) + " has no image: there is no file " + shownInLog(path));
  }
}

void checkBuiltInImages(CheckedDocument& document, const std::string& bundle) {
  for (const auto& [mapId, map] : membersOf(document)) {
    if (refusalOfLocalName(mapId, "svg") || isImage(fmt::format("{}/{}.svg", bundle, mapId))) continue;
    document.tell(Severity::warning, {mapId},
                  fmt::format("map {} has no image before the first update: there is no file {}.svg in the bundle",
                              inQuotes(mapId), shownInLog(mapId)));
  }
}

void compareMaps(CheckedDocument& builtIn, CheckedDocument& served) {
  compare(served, builtIn, Severity::note, "is not built in: it is there after the first update");
  compare(builtIn, served, Severity::note, "is not on the server: it is gone after the first update");
}

}  // namespace wayloom::tools
