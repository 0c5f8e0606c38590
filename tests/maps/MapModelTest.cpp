#include <cmath>
#include <gmock/gmock.h>
#include <limits>

#include "wayloom/maps/TWLConfig.hpp"
#include "wayloom/maps/TWLMapConfig.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLMapLocation.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::Json;
constexpr double kUnbounded = std::numeric_limits<double>::infinity();

TEST(MapConfigTest, ReadsNumbersAndTexts) {
  const TWLMapConfig map(Json{{"latitude", "50.25"},
                              {"longitude", -8.5},
                              {"rotation_degrees", "12.5 degrees"},
                              {"pixels_per_meter", 20},
                              {"map_pixel_width", "1001.9"},
                              {"map_pixel_height", -7.9},
                              {"map_corner_offset_x", 101},
                              {"map_corner_offset_y", 0.1},
                              {"overlay_pixel_offset_x", "-8"},
                              {"hide_map", "yes"},
                              {"geolocation_enabled", 1},
                              {"crop_height", nullptr},
                              {"name", "Lobby"},
                              {"file_path", 7},
                              {"mapId", "not read"}});
  EXPECT_EQ(map.latitude(), 50.25);
  EXPECT_EQ(map.longitude(), -8.5);
  EXPECT_EQ(map.rotationDegrees(), 12.5);
  EXPECT_EQ(map.mapPixelWidth(), 1001);
  EXPECT_EQ(map.mapPixelHeight(), -7);
  EXPECT_EQ(map.scaledMapCornerOffset().x, 25.25);
  EXPECT_EQ(map.mapCornerOffset().y, static_cast<double>(0.1F)) << "offsets are single precision";
  EXPECT_EQ(map.scaledOverlayPixelOffset(), (Point{-2.0, 0.0}));
  EXPECT_TRUE(map.hideMap());
  EXPECT_TRUE(map.geolocationEnabled());
  EXPECT_EQ(map.cropWidth(), 1001.0) << "absent: the image's width";
  EXPECT_EQ(map.cropHeight(), 0.0) << "present: its value";
  EXPECT_EQ(map.name(), "Lobby");
  EXPECT_EQ(map.filePath(), std::nullopt);
  EXPECT_EQ(map.mapId(), "");
}

TEST(MapConfigTest, ScalesToFivePixelsAMetreAndSaturates) {
  TWLMapConfig map(Json{{"map_pixel_width", 1001.9}, {"map_pixel_height", -1001.9}, {"pixels_per_meter", 10}});
  EXPECT_EQ(map.scaledMapPixelWidth(), 500);
  EXPECT_EQ(map.scaledMapPixelHeight(), -500) << "truncated towards zero";
  EXPECT_EQ(map.scaledCropSize(), (Size{500.5, -500.5}));

  map.loadFromJSONObject(Json{{"map_pixel_width", 1e300}, {"map_pixel_height", -1e300}});
  EXPECT_EQ(map.mapPixelWidth(), INT64_MAX);
  EXPECT_EQ(map.mapPixelHeight(), INT64_MIN);
  EXPECT_EQ(map.scaledMapPixelWidth(), INT64_MAX) << "no scale: infinite";
  EXPECT_EQ(map.scaledMapPixelHeight(), INT64_MIN);
  EXPECT_TRUE(std::isnan(map.scaledMapCornerOffset().x));
  map.setMapPixelWidth(0);
  EXPECT_EQ(map.scaledMapPixelWidth(), 0) << "no number";

  map.loadFromJSONObject(Json::array());
  EXPECT_EQ(map.mapPixelWidth(), 0);
}

struct MapLocationTest : testing::Test {
  test::TestPlatform world;

  TWLMapConfigRepo& repo(const char* document) {
    auto& shared = TWLMapConfigRepo::sharedRepo(world);
    EXPECT_TRUE(shared.loadFromJSON(document));
    return shared;
  }
};

TEST_F(MapLocationTest, RadiusInPixelsFollowsMetresUpToFifty) {
  repo(R"({"lobby": {}})");
  TWLMapLocation location(world, {1.0, 2.0}, "lobby");
  location.setUncertaintyRadiusPixels(99);
  const std::vector<std::pair<double, std::int64_t>> cases = {{0.0, 0},    {2.5, 12},           {50.0, 250},
                                                              {50.1, 250}, {kUnbounded, 250},   {-2.0, -10},
                                                              {-0.1, 0},   {-1e300, INT64_MIN}, {NAN, 0}};
  for (const auto& [metres, pixels] : cases) {
    location.setUncertaintyRadiusMeters(metres);
    EXPECT_EQ(location.uncertaintyRadiusPixels(), pixels) << metres;
  }
  location.setUncertaintyRadiusMeters(60.0);
  location.setMapId("cellar");
  EXPECT_EQ(location.uncertaintyRadiusPixels(), 0) << "unknown map";
}

TEST_F(MapLocationTest, KeepsTheMapItFoundAndAsksAgainUntilItFindsOne) {
  auto& maps = repo(R"({"lobby": {"name": "old"}})");
  TWLMapLocation location(world, {}, "lobby");
  EXPECT_EQ(location.map()->name(), "old");
  TWLMapLocation early(world, {}, "cellar");
  EXPECT_EQ(early.map(), nullptr);

  maps.loadFromJSON(R"({"cellar": {"name": "new"}})");
  EXPECT_EQ(location.map()->name(), "old");
  EXPECT_EQ(location.uncertaintyRadiusPixels(), 0);
  EXPECT_EQ(early.map()->name(), "new");
  early.setMap(nullptr);
  EXPECT_EQ(early.map()->name(), "new");
}

TEST(ConfigTest, TheHostsPropertyListHidesTheLibrarysOwn) {
  test::TestPlatform world;
  const TWLConfig none(world);
  EXPECT_EQ(none.plistPath(), std::nullopt);
  EXPECT_EQ(none.dict(), std::nullopt);
  EXPECT_EQ(none.GFKitURL(), std::nullopt);

  world.files->writeFile("/library/Wayloom.plist", R"({"GFKitURL": "library", "GFAPIToken": "token"})");
  TWLConfig config(world);
  EXPECT_EQ(config.GFAPIToken(), "token");
  world.files->writeFile("/app/Wayloom.plist", R"({"GFKitURL": "host", "GFAnalyticsURL": 7})");
  EXPECT_EQ(config.GFKitURL(), "library") << "read once";
  config.loadConfigFromPlist();
  EXPECT_EQ(config.plistPath(), "/app/Wayloom.plist");
  EXPECT_EQ(config.GFKitURL(), "host");
  EXPECT_EQ(config.GFAPIToken(), std::nullopt) << "not merged";
  EXPECT_EQ(config.GFAnalyticsURL(), std::nullopt) << "no text";
  EXPECT_EQ(config.WLMapConfigURL(), std::nullopt);
}

}  // namespace
}  // namespace wayloom
