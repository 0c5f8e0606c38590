#include <cmath>
#include <gmock/gmock.h>
#include <random>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::CLLocationCoordinate2D;

TEST(GeodesyTest, LengthsOfADegreeAndRotation) {
  EXPECT_NEAR(TWLLocationUtils::longitudinalLengthForLatitude(0.0), 111319.4908, 1e-4);
  EXPECT_NEAR(TWLLocationUtils::latitudinalLengthForLatitude(0.0), 110574.307, 1e-9);
  EXPECT_NEAR(TWLLocationUtils::latitudinalLengthForLatitude(60.0), 111412.2775, 1e-9);
  EXPECT_NEAR(TWLLocationUtils::longitudinalLengthForLatitude(60.0), 55800.0, 1.0);
  EXPECT_NEAR(TWLLocationUtils::longitudinalLengthForLatitude(-90.0), 0.0, 1e-6);
  const Point turned = TWLLocationUtils::rotateCoordinateWithRotation({1.0, 0.0}, 90.0);
  EXPECT_NEAR(turned.x, 0.0, 1e-15);
  EXPECT_EQ(turned.y, -1.0);
  EXPECT_NEAR(TWLLocationUtils::rotateCoordinateWithRotation(turned, -90.0).x, 1.0, 1e-15);
}

struct LocationUtilsTest : testing::Test {
  test::TestPlatform world;
  TWLMapConfigRepo& repo = TWLMapConfigRepo::sharedRepo(world);
  TWLLocationTracker& tracker = TWLLocationTracker::sharedLocationTracker(world);

  void load(const platform::Json& document) { ASSERT_TRUE(repo.loadFromJSON(document.dump())); }
  Point pixels(CLLocationCoordinate2D coordinate, const char* mapId) {
    return TWLLocationUtils::mapLocationForGeolocationForMapId(world, coordinate, mapId)->pixelCoords();
  }
  std::string mapHolding(CLLocationCoordinate2D coordinate) {
    const auto location = TWLLocationUtils::mapLocationForGeoLocation(world, coordinate);
    return location ? location->mapId() : "";
  }
  std::shared_ptr<TWLMapLocation> current() { return TWLLocationUtils::currentMapLocation(world); }
};

constexpr double kMetreNorthAt50 = 1.0 / 111229.0619;  // degrees: 111132.954 - 559.822 cos 100 + 1.175 cos 200

TEST_F(LocationUtilsTest, PlacesPointsOnAMap) {
  load({{"plain",
         {{"latitude", 50},
          {"longitude", 8},
          {"pixels_per_meter", 10},
          {"map_corner_offset_x", 200},
          {"map_corner_offset_y", 400}}},
        {"turned", {{"latitude", 50}, {"longitude", 8}, {"pixels_per_meter", 5}, {"rotation_degrees", 90}}}});
  const CLLocationCoordinate2D tenMetresNorth = {50.0 + 10.0 * kMetreNorthAt50, 8.0};
  EXPECT_EQ(pixels({50.0, 8.0}, "plain"), (Point{100.0, 200.0}));
  EXPECT_NEAR(pixels(tenMetresNorth, "plain").x, 100.0, 1e-6);
  EXPECT_NEAR(pixels(tenMetresNorth, "plain").y, 150.0, 1e-4);
  EXPECT_NEAR(pixels(tenMetresNorth, "turned").x, 50.0, 1e-4) << "north turns towards east";
  EXPECT_NEAR(pixels(tenMetresNorth, "turned").y, 0.0, 1e-6);
  EXPECT_EQ(pixels(tenMetresNorth, "unknown"), (Point{0.0, 0.0}));
  EXPECT_EQ(TWLLocationUtils::mapLocationForGeolocationForMapId(world, {}, "unknown")->mapId(), "unknown");
  EXPECT_EQ(TWLLocationUtils::locationOnMapPixelCoords(world, "unknown", {1.0, 1.0}), std::nullopt);
}

TEST_F(LocationUtilsTest, GoesThereAndBack) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> latitudes(-80.0, 80.0), longitudes(-170.0, 170.0), near(-0.01, 0.01),
      turns(-360.0, 360.0);
  for (int i = 0; i < 200; ++i) {
    const double latitude = latitudes(random), longitude = longitudes(random), rotation = turns(random);
    load({{"m",
           {{"latitude", latitude},
            {"longitude", longitude},
            {"rotation_degrees", rotation},
            {"pixels_per_meter", 17.5},
            {"map_corner_offset_x", 1000.5},
            {"map_corner_offset_y", -3}}}});
    const CLLocationCoordinate2D there = {latitude + near(random), longitude + near(random)};
    const Point pixel = pixels(there, "m");
    const auto back = TWLLocationUtils::locationOnMapPixelCoords(world, "m", pixel);
    ASSERT_NEAR(back->latitude, there.latitude, 1e-11);
    ASSERT_NEAR(back->longitude, there.longitude, 1e-11);

    const double x = (there.longitude - longitude) * TWLLocationUtils::longitudinalLengthForLatitude(latitude);
    const double y = (there.latitude - latitude) * TWLLocationUtils::latitudinalLengthForLatitude(latitude);
    const double angle = rotation * 0.017453292519943295;
    ASSERT_NEAR(pixel.x, (x * std::cos(angle) + y * std::sin(angle)) * 5.0 + 1000.5 * 5.0 / 17.5, 1e-9);
    ASSERT_NEAR(pixel.y, -((-x * std::sin(angle) + y * std::cos(angle)) * 5.0) - 3 * 5.0 / 17.5, 1e-9);
  }
}

TEST_F(LocationUtilsTest, FindsTheFirstMapThatTakesFixes) {
  const auto map = [](double latitude, bool enabled) -> platform::Json {
    return {{"latitude", latitude},          {"longitude", 8},         {"pixels_per_meter", 5},
            {"map_pixel_width", 100},        {"map_pixel_height", 50}, {"map_corner_offset_y", 50},
            {"geolocation_enabled", enabled}};
  };
  load({{"closed", map(50, false)},
        {"z", map(50, true)},
        {"a", map(50, true)},
        {"far", map(51, true)},
        {"no-scale", {{"geolocation_enabled", true}}}});
  EXPECT_EQ(mapHolding({50.0, 8.0}), "z");
  EXPECT_EQ(mapHolding({51.0, 8.0}), "far");
  EXPECT_EQ(mapHolding({50.0, 7.999999}), "");
  EXPECT_EQ(mapHolding({NAN, 8.0}), "");
  for (const Point edge : {Point{0, 0}, Point{100, 0}, Point{0, 50}, Point{100, 50}}) {
    auto inside = *TWLLocationUtils::locationOnMapPixelCoords(world, "z", edge);
    EXPECT_EQ(
        mapHolding(*TWLLocationUtils::locationOnMapPixelCoords(world, "z", {edge.x == 0 ? -0.001 : 100.001, edge.y})),
        "");
    EXPECT_EQ(
        mapHolding(*TWLLocationUtils::locationOnMapPixelCoords(world, "z", {edge.x, edge.y == 0 ? -0.001 : 50.001})),
        "");
    inside = *TWLLocationUtils::locationOnMapPixelCoords(world, "z",
                                                         {edge.x == 0 ? 0.001 : 99.999, edge.y == 0 ? 0.001 : 49.999});
    EXPECT_EQ(mapHolding(inside), "z");
  }
  const auto& projection = repo.configRepo()->find("z")->projection;
  EXPECT_TRUE(projection.contains({100.0, 50.0}));
  EXPECT_TRUE(projection.contains({0.0, 0.0}));
}

TEST_F(LocationUtilsTest, TheElectedBeaconGoesBeforeTheFix) {
  load({{"lobby",
         {{"latitude", 50},
          {"longitude", 8},
          {"pixels_per_meter", 5},
          {"map_pixel_width", 1000},
          {"map_pixel_height", 1000},
          {"geolocation_enabled", true},
          {"map_corner_offset_y", 500}}}});
  EXPECT_EQ(current(), nullptr);
  const auto now = [&] { return world.time.calendarClock()->now(); };
  tracker.setLocationFromCoreLocation(platform::CLLocation{{50.0, 8.0}, 12.5, now()});
  ASSERT_NE(current(), nullptr);
  EXPECT_EQ(current()->mapId(), "lobby");
  EXPECT_EQ(current()->pixelCoords(), (Point{0.0, 500.0}));
  EXPECT_EQ(current()->uncertaintyRadiusMeters(), 12.5);

  tracker.setUseCoreLocationRanging(false);
  tracker.didRangeBeaconsInRegionInRegion(
      {test::ranged(1, -70, 2.25, {{"map_id", "cellar"}, {"latitude", "50"}, {"measured_power", -59}})}, nullptr);
  world.time.runReady();
  EXPECT_EQ(current()->mapId(), "cellar");
  EXPECT_EQ(current()->pixelCoords(), (Point{0.0, 0.0})) << "a map that nobody knows";
  EXPECT_EQ(current()->uncertaintyRadiusMeters(), 4.5) << "twice the accuracy, whatever was compared";
  EXPECT_EQ(current()->uncertaintyRadiusPixels(), 0);
  world.wait(5.1);

  EXPECT_EQ(current()->mapId(), "lobby") << "no beacon any more: the fix";
  world.wait(174.8);
  EXPECT_NE(current(), nullptr) << "179.9 s old";
  world.wait(0.1);
  EXPECT_EQ(current(), nullptr) << "180.0 s old";
  world.time.stepCalendar(std::chrono::minutes(-5));
  EXPECT_NE(current(), nullptr) << "a fix's age goes by the calendar, either way";
  tracker.setLocationFromCoreLocation(platform::CLLocation{{51.0, 8.0}, 12.5, now()});
  EXPECT_EQ(current(), nullptr) << "on no map";
}

}  // namespace
}  // namespace wayloom
