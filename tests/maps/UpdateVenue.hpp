// A venue whose server's maps a test changes, and what an update made of it on disk.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/Time.hpp"

#include "tests/sim/SimVenue.hpp"

namespace wayloom::test {

// A file's date, seconds since 1970.
inline void setDate(const std::string& path, double seconds) {
  const auto time = platform::calendarTimeFromSeconds(seconds).time_since_epoch();
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const timespec stamp{whole.count(), static_cast<long>((time - whole).count())};
  const timespec both[] = {stamp, stamp};
  ::utimensat(AT_FDCWD, path.c_str(), both, 0);
}
inline std::int64_t dateOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
}

// "name: content" of each file in the folder.
inline std::map<std::string, std::string> filesIn(const std::string& folder) {
  std::map<std::string, std::string> files;
  if (std::filesystem::is_directory(folder))
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::ostringstream content;
      content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
      files[entry.path().filename().string()] = content.str();
    }
  return files;
}

// Map ids and file paths of a document; a map's latitude tells which version of it that is.
using Paths = std::vector<std::pair<std::string, std::string>>;
inline std::string mapDocument(const Paths& maps, double version = 1) {
  auto document = platform::Json::object();
  for (const auto& [mapId, path] : maps) document[mapId] = {{"file_path", path}, {"latitude", version}};
  return document.dump();
}

class UpdateVenue {
 public:
  static constexpr double kBuiltInDate = 1'000;

  explicit UpdateVenue(const std::string& mapConfigUrl = "http://maps.example/maps/map_config.json") {
    folder_.write("bundle/Wayloom.plist",
                  sim::propertyList("<key>WLMapConfigURL</key><string>" + mapConfigUrl + "</string>"));
    folder_.write("bundle/Info.plist", sim::propertyList("<key>NSLocationAlwaysUsageDescription</key><string/>"));
    put("bundle/map_config.json", mapDocument({{"lobby", "lobby.svg"}}, 0), kBuiltInDate);
  }

  const std::string& path() const { return folder_.path(); }
  void put(const std::string& name, const std::string& content, double date) const {
    folder_.write(name, content);
    setDate(path() + "/" + name, date);
  }
  void remove(const std::string& name) const { std::filesystem::remove(path() + "/" + name); }
  // The server's document and images, all of that date; an image's content is "<path> <date>".
  void publish(const Paths& maps, int date) const {
    put("server/maps/map_config.json", mapDocument(maps, date), date);
    for (const auto& [mapId, file] : maps) put("server/maps/" + file, file + " " + std::to_string(date), date);
  }

 private:
  sim::TestFolder folder_;
};

}  // namespace wayloom::test
