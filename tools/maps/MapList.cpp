#include "tools/maps/MapList.hpp"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <system_error>
#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/posix/PosixFileManager.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "maps/MapFileNames.hpp"
#include "platform/HttpDate.hpp"
#include "tools/check/MapConfigCheck.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

std::optional<platform::CalendarTime> dateOf(const std::string& path) {
  std::error_code failure;
  return std::filesystem::is_regular_file(path, failure) ? posix::PosixFileManager("/").modificationDate(path)
                                                         : std::nullopt;
}

// As the catalogue reads it: without a map it counts for nothing.
std::unique_ptr<MapCatalogue> readMaps(const std::string& path) {
  const auto text = posix::readRegularFile(path, platform::kMaximumHttpBody);
  const auto document = text ? platform::parseJson(*text).value : std::nullopt;
  auto maps = document ? catalogueOf(*document) : nullptr;
  return maps && !maps->maps().empty() ? std::move(maps) : nullptr;
}

ListedMap listed(const TWLMapConfig& map, const std::string& directory) {
  ListedMap line{.mapId = map.mapId(),
                 .name = map.name().value_or(""),
                 .pixelWidth = map.mapPixelWidth(),
                 .pixelHeight = map.mapPixelHeight(),
                 .imageFile = {}};
  if (map.pixelsPerMeter() > 0.0) {
    line.widthMeters = static_cast<double>(map.mapPixelWidth()) / map.pixelsPerMeter();
    line.heightMeters = static_cast<double>(map.mapPixelHeight()) / map.pixelsPerMeter();
  }
  const auto file = mapFile(map.mapId(), map.filePath(), "").file;
  if (!file) return line;
  line.imageFile = directory + "/" + file->localName;
  line.imageDate = dateOf(line.imageFile);
  return line;
}

std::string imageText(const ListedMap& map) {
  if (map.imageFile.empty()) return "refused";
  const auto name = shownInLog(lastPathComponent(map.imageFile));
  return map.imageDate ? fmt::format("{}, {}", name, platform::isoDate(*map.imageDate)) : name + ", missing";
}

}  // namespace

std::optional<MapList> listMaps(const std::string& bundle, const std::string& documents, std::string& error) {
  MapList list;
  const auto updated = documents + "/" + std::string(SAVED_JSON_FILENAME);
  const auto builtIn = bundle + "/" + std::string(BUILT_IN_JSON_FILENAME) + ".json";
  auto maps = readMaps(updated);
  list.isUpdated = maps != nullptr;
  list.document = list.isUpdated ? updated : builtIn;
  if (!maps) maps = readMaps(builtIn);
  if (!maps) {
    error = fmt::format("there are no maps in {} nor in {}", updated, builtIn);
    return std::nullopt;
  }
  for (const auto& map : maps->maps()) list.maps.push_back(listed(*map.config, documents + "/maps"));
  list.updateWasStopped = dateOf(documents + "/map_update_to_complete").has_value();
  return list;
}

std::string textOf(const MapList& list) {
  std::size_t width = 2;
  for (const auto& map : list.maps) width = std::max(width, shownInLog(map.mapId).size());
  std::string text = fmt::format("{:<{}}  {:>13}  {:>15}  {:<8}  {}\n", "id", width, "pixels", "metres", "source",
                                 "image and its date; name");
  for (const auto& map : list.maps)
    text += fmt::format("{:<{}}  {:>13}  {:>15}  {:<8}  {}; {}\n", shownInLog(map.mapId), width,
                        fmt::format("{} x {}", map.pixelWidth, map.pixelHeight),
                        map.widthMeters > 0.0 ? fmt::format("{:.1f} x {:.1f}", map.widthMeters, map.heightMeters) : "-",
                        list.isUpdated ? "updated" : "built-in", imageText(map), shownInLog(map.name));
  return text;
}

Json jsonOf(const MapList& list) {
  Json maps = Json::array();
  for (const auto& map : list.maps) {
    Json line = {
        {"id", map.mapId}, {"name", map.name}, {"pixel_width", map.pixelWidth}, {"pixel_height", map.pixelHeight}};
    const bool hasScale = map.widthMeters > 0.0;
    line["width_meters"] = hasScale ? Json(map.widthMeters) : Json();
    line["height_meters"] = hasScale ? Json(map.heightMeters) : Json();
    line["image"] = map.imageFile.empty() ? Json() : Json(map.imageFile);
    line["image_date"] = map.imageDate ? Json(platform::isoDate(*map.imageDate)) : Json();
    maps.push_back(std::move(line));
  }
  return {{"source", list.isUpdated ? "updated" : "built-in"},
          {"document", list.document},
          {"update_was_stopped", list.updateWasStopped},
          {"maps", std::move(maps)}};
}

}  // namespace wayloom::tools
