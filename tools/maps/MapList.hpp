#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::tools {

// One map as an application with this Documents directory has it.
struct ListedMap {
  std::string mapId;
  std::string name;
  std::int64_t pixelWidth = 0;  // image pixels
  std::int64_t pixelHeight = 0;
  double widthMeters = 0.0;  // 0 without a scale
  double heightMeters = 0.0;
  std::string imageFile;                              // its path, there or not; empty when it can't have one
  std::optional<platform::CalendarTime> imageDate{};  // nothing when it is not there
};

struct MapList {
  bool isUpdated = false;  // whether the maps are those of an update, or built in
  std::string document;    // the file that they are from
  std::vector<ListedMap> maps;
  bool updateWasStopped = false;  // the next start completes one, which may change the list
};

// Reads what is in the directories and changes nothing. On failure there is an error instead.
std::optional<MapList> listMaps(const std::string& bundle, const std::string& documents, std::string& error);

// A table, and one JSON object.
std::string textOf(const MapList& list);
platform::Json jsonOf(const MapList& list);

}  // namespace wayloom::tools
