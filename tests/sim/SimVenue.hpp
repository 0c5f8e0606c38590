#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace wayloom::sim {

// A folder that goes with the test.
class TestFolder {
 public:
  TestFolder() : path_((std::filesystem::temp_directory_path() / "wayloom-test-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder for the test");
  }
  ~TestFolder() { std::filesystem::remove_all(path_); }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const std::string& path() const { return path_; }
  void write(const std::string& name, const std::string& content) const {
    const auto file = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }

 private:
  std::string path_;
};

inline constexpr const char* kVenueUuid = "5A0E6D0C-7B1F-4E57-9C3D-0B2A4F86E913";

inline std::string propertyList(const std::string& members) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + members + "</dict></plist>";
}

// A venue with two beacons, minor 1 in the lobby and minor 2 in the hall, each at its map's reference point.
inline void writeVenue(const TestFolder& folder) {
  folder.write("bundle/Wayloom.plist", propertyList("<key>GFKitURL</key><string>http://kit.example/kits/1</string>"
                                                    "<key>GFAPIToken</key><string>token</string>"));
  folder.write("bundle/Info.plist", propertyList("<key>NSLocationAlwaysUsageDescription</key><string>x</string>"));
  const std::string map = R"({"name":"m","file_path":"m.svg","latitude":50.1,"longitude":8.6,"rotation_degrees":0,
      "pixels_per_meter":5,"map_pixel_width":500,"map_pixel_height":500,"map_corner_offset_x":)";
  folder.write("bundle/map_config.json", R"({"lobby":)" + map + R"(50,"map_corner_offset_y":25},"hall":)" + map +
                                             R"(60,"map_corner_offset_y":30}})");
  const auto entry = [](int minor, const std::string& mapId) {
    return R"({"identifier":"b)" + std::to_string(minor) + R"(","name":"B","uuid":")" + kVenueUuid +
           R"(","major":1,"minor":)" + std::to_string(minor) + R"(,"attributes":{"map_id":")" + mapId +
           R"(","latitude":50.1,"longitude":8.6,"measured_power":-59}})";
  };
  folder.write("server/kit.json",
               R"({"kit":{"id":1,"ibeacons":[)" + entry(1, "lobby") + "," + entry(2, "hall") + "]}}");
}

}  // namespace wayloom::sim
