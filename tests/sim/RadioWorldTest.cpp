#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <tuple>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/sim/RadioSimulator.hpp"
#include "wayloom/sim/RadioWorld.hpp"

namespace wayloom::sim {
namespace {

// A venue at the equator whose maps all show the same ground: 5 pixels a metre, the origin at (0, 0).
VenueFrame flatVenue() {
  constexpr double kEast = 6378137.0 * std::numbers::pi / 180.0;
  constexpr double kNorth = 111132.954 - 559.822 + 1.175;
  return VenueFrame(
      {.coordinateOf =
           [](const MapPoint& point) {
             return platform::CLLocationCoordinate2D{-point.y / 5.0 / kNorth, point.x / 5.0 / kEast};
           },
       .pointOn =
           [](const platform::CLLocationCoordinate2D& coordinate, const std::string& mapId) {
             return MapPoint{mapId, coordinate.longitude * kEast * 5.0, -coordinate.latitude * kNorth * 5.0};
           }},
      {0.0, 0.0});
}

constexpr const char* kWorld = R"({
  "propagation": {"path_loss_exponent": 2.0, "shadowing_sigma_db": 4.0, "shadowing_correlation_m": 3.0,
                  "fading_sigma_db": 2.0, "body_blocking_db": 8.0, "floor_attenuation_db": 15.0},
  "receiver": {"height_m": 1.0, "gain_db": 0.0, "sensitivity_dbm": -95.0, "frame_loss": 0.25},
  "location_fixes": {"map_ids": ["up"], "interval_s": 2.0, "accuracy_m": 6.0, "error_sigma_m": 2.0},
  "maps": {"down": {"floor": 0, "elevation_m": 0.0, "walls": [[25.0, -50.0, 25.0, 50.0, 7.0]]},
           "up": {"floor": 1, "elevation_m": 4.0}},
  "beacons": [{"uuid": "7D3A1C52-94E8-4B0F-A6D1-2E5B8C90F417", "major": 1, "minor": 11, "map_id": "down",
               "x": 0.0, "y": 0.0, "height_m": 1.0, "power_at_1m_dbm": -60.0, "advertised_power_dbm": -59,
               "advertising_interval_s": 0.25}]})";

RadioWorld worldFrom(const VenueFrame& frame, const platform::Json& document) {
  std::string error;
  auto world = RadioWorld::fromJson(
      document, frame, [](const std::string& id) { return id == "down" || id == "up"; }, error);
  EXPECT_TRUE(world) << error;
  return std::move(*world);
}

platform::Json document() { return *platform::parseJson(kWorld).value; }

Pose facing(MapPoint place, const VenueFrame& frame, double elevation, double east, double north) {
  return {.place = place,
          .ground = frame.groundPoint(place),
          .elevation = elevation,
          .facingEast = east,
          .facingNorth = north};
}

TEST(RadioWorld, WeakensWithDistanceWallsFloorsAndTheBody) {
  const VenueFrame frame = flatVenue();
  const RadioWorld world = worldFrom(frame, document());
  const auto& beacon = world.beacons().front();
  const auto mean = [&](MapPoint place, double elevation, double east) {
    return world.meanRssi(beacon, facing(std::move(place), frame, elevation, east, 0.0));
  };
  EXPECT_NEAR(mean({"down", 20.0, 0.0}, 0.0, -1.0), -60.0 - 20.0 * std::log10(4.0), 1e-9);
  EXPECT_NEAR(mean({"down", 50.0, 0.0}, 0.0, -1.0), -60.0 - 20.0 - 7.0, 1e-9) << "behind the wall";
  EXPECT_NEAR(mean({"down", 20.0, 0.0}, 0.0, 1.0), -60.0 - 20.0 * std::log10(4.0) - 8.0, 1e-9) << "back turned";
  EXPECT_NEAR(mean({"up", 0.0, 0.0}, 4.0, 1.0), -60.0 - 20.0 * std::log10(4.0) - 15.0, 1e-9) << "one floor up";
  EXPECT_NEAR(mean({"down", 0.0, 0.0}, 0.0, 1.0), -60.0 - 20.0 * std::log10(0.3), 1e-9) << "no nearer than 0.3 m";
}

TEST(RadioWorld, ShadowingHasItsSigmaAndCorrelationLengthAndStaysPut) {
  double variance = 0.0;
  double covariance = 0.0;
  constexpr int kFields = 4000;
  for (int i = 0; i < kFields; ++i) {
    const ShadowingField field(4.0, 3.0, SeededRandom(7, static_cast<std::uint64_t>(i)));
    const double here = field.at({10.0, -20.0}, 1.0);
    variance += here * here;
    covariance += here * field.at({13.0, -20.0}, 1.0);
    ASSERT_EQ(here, field.at({10.0, -20.0}, 1.0));
  }
  EXPECT_NEAR(std::sqrt(variance / kFields), 4.0, 0.2);
  EXPECT_NEAR(covariance / variance, std::exp(-1.0), 0.06);
}

TEST(RadioWorld, RefusesWhatCannotBe) {
  const VenueFrame frame = flatVenue();
  const auto refusal = [&](const char* pointer, const platform::Json& value) {
    auto changed = document();
    changed[platform::Json::json_pointer(pointer)] = value;
    std::string error;
    EXPECT_FALSE(RadioWorld::fromJson(
        changed, frame, [](const std::string& id) { return id == "down" || id == "up"; }, error));
    return error;
  };
  EXPECT_NE(refusal("/propagation/path_loss_exponent", -1).find("path_loss_exponent"), std::string::npos);
  EXPECT_NE(refusal("/receiver/frame_loss", 2).find("frame_loss"), std::string::npos);
  EXPECT_NE(refusal("/beacons/0/map_id", "cellar").find("cellar"), std::string::npos);
  EXPECT_NE(refusal("/beacons/0/uuid", 5).find("beacon 1"), std::string::npos);
  EXPECT_NE(refusal("/beacons/0/advertising_interval_s", 0).find("advertising_interval_s"), std::string::npos);
  EXPECT_NE(refusal("/maps/attic", platform::Json::object()).find("attic"), std::string::npos);
}

Walk walkOf(std::vector<Waypoint> waypoints) {
  Walk walk;
  walk.speed = 1.0;
  walk.waypoints = std::move(waypoints);
  return walk;
}

TEST(WalkPath, PassesDoorsAtOnceAndStairsHalfWay) {
  const VenueFrame frame = flatVenue();
  const WalkPath path(walkOf({{.place = {"down", 0.0, 0.0}},
                              {.place = {"down", 20.0, 0.0}, .pause = 3.0},
                              {.place = {"up", 20.0, 0.0}},
                              {.place = {"down", 40.0, 0.0}, .pause = 0.0, .speed = 0.5}}),
                      frame, [](const std::string& id) { return id == "up" ? 4.0 : 0.0; });
  EXPECT_NEAR(path.duration(), 4.0 + 3.0 + 8.0, 1e-9);
  EXPECT_NEAR(path.poseAt(2.0).place.x, 10.0, 1e-6);
  EXPECT_EQ(path.poseAt(6.9).place.mapId, "down");
  EXPECT_NEAR(path.poseAt(5.0).facingEast, 1.0, 1e-9) << "still facing the way one came";
  EXPECT_EQ(path.poseAt(7.0 + 1e-6).place.mapId, "up") << "through the door";
  const Pose before = path.poseAt(7.0 + 3.9);
  const Pose after = path.poseAt(7.0 + 4.1);
  EXPECT_EQ(before.place.mapId, "up");
  EXPECT_EQ(after.place.mapId, "down");
  EXPECT_NEAR(before.elevation, 2.05, 1e-6);
  EXPECT_NEAR(after.place.x, 30.25, 1e-6);
  EXPECT_NEAR(path.poseAt(1e9).place.x, 40.0, 1e-6) << "stays at the end";
}

TEST(WalkPath, ReadsDocumentsAndSaysWhatIsWrong) {
  std::string error;
  const auto read = [&](const char* text) { return Walk::fromJson(*platform::parseJson(text).value, error); };
  const auto walk =
      read(R"({"start": "5", "waypoints": [{"map_id": "m", "x": 1, "y": 2, "pause_s": 3, "speed_m_s": 2}]})");
  ASSERT_TRUE(walk) << error;
  EXPECT_EQ(walk->start, 5.0);
  EXPECT_EQ(walk->waypoints[0].speed, 2.0);
  for (const char* bad : {R"({})", R"([])", R"({"waypoints": []})", R"({"waypoints": [{"x": 1, "y": 2}]})",
                          R"({"waypoints": [{"map_id": "m", "x": 1, "y": 2, "pause_s": -1}]})",
                          R"({"speed_m_s": 0, "waypoints": [{"map_id": "m", "x": 1, "y": 2}]})"}) {
    error.clear();
    EXPECT_FALSE(read(bad)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

using Trace = std::vector<std::tuple<double, int, double, double>>;

Trace traceOf(const platform::Json& world, std::uint64_t seed, int minor) {
  const VenueFrame frame = flatVenue();
  const WalkPath path(
      walkOf({{.place = {"down", 5.0, 0.0}, .pause = 100.0}, {.place = {"up", 5.0, 0.0}, .pause = 100.0}}), frame,
      [](const std::string&) { return 0.0; });
  Trace trace;
  simulateRadio(worldFrom(frame, world), path, frame, seed,
                {.frame =
                     [&](double t, const ranging::IBeaconFrame& heard, const RadioBeacon&) {
                       if (heard.identity.minor == minor) trace.emplace_back(t, heard.rssi, 0.0, 0.0);
                     },
                 .fix = [&](double t, const platform::CLLocationCoordinate2D& c,
                            double) { trace.emplace_back(t, 1, c.latitude, c.longitude); },
                 .truth = [&](double t, const MapPoint& p) { trace.emplace_back(t, 2, p.x, p.y); }});
  return trace;
}

TEST(RadioSimulator, RepeatsItselfAndKeepsBeaconsIndependent) {
  const Trace first = traceOf(document(), 1, 11);
  EXPECT_EQ(first, traceOf(document(), 1, 11));
  EXPECT_NE(first, traceOf(document(), 2, 11));
  auto more = document();
  more["beacons"].push_back(more["beacons"][0]);
  more["beacons"][1]["minor"] = 12;
  EXPECT_EQ(first, traceOf(more, 1, 11));
  EXPECT_TRUE(std::is_sorted(first.begin(), first.end(),
                             [](const auto& a, const auto& b) { return std::get<0>(a) < std::get<0>(b); }));

  const auto count = [&](int kind) {
    return std::count_if(first.begin(), first.end(), [&](const auto& e) { return std::get<1>(e) == kind; });
  };
  EXPECT_EQ(count(2), 201) << "truth once a second, both ends included";
  EXPECT_EQ(count(1), 51) << "fixes on the map that has them alone";
  const auto frames = static_cast<double>(first.size()) - 252.0;
  EXPECT_NEAR(frames, 200.0 / 0.255 * 0.75, 40.0) << "a frame every quarter of a second, a quarter of them lost";
}

}  // namespace
}  // namespace wayloom::sim
