#include <cmath>
#include <gmock/gmock.h>
#include <random>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/RefinedPositionUpdates.hpp"
#include "wayloom/positioning/RefinedPositions.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/regions/AllocationCounter.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::CLBeacon;
using platform::Json;
using platform::MonotonicTime;

constexpr double kLatitudeMetre = 1.0 / 111229.0619;  // degrees, at latitude 50
constexpr double kSpacing = 5.0;

// A map of 30 x 30 m whose top left corner is at 50 N 8 E, and one like it for whoever is upstairs.
Json mapConfig() {
  const Json map = {
      {"latitude", 50}, {"longitude", 8}, {"pixels_per_meter", 5}, {"map_pixel_width", 150}, {"map_pixel_height", 150}};
  return {{"ground", map}, {"upstairs", map}};
}

Json entry(int minor, Json attributes) {
  return {{"uuid", test::kVenue.string()},
          {"major", 1},
          {"minor", minor},
          {"identifier", "b" + std::to_string(minor)},
          {"attributes", std::move(attributes)}};
}

struct RefinedPositionsTest : testing::Test {
  struct Placed {
    Point metres;
    std::string map = "ground";
    double power = -59.0;
  };

  RefinedPositionsTest() {
    TWLMapConfigRepo::sharedRepo(world).loadFromJSON(mapConfig().dump());
    metresPerLongitude = 5.0 * 0.2 /
                         std::abs(TWLMapConfigRepo::sharedRepo(world)
                                      .configRepo()
                                      ->find("ground")
                                      ->projection.coordinateOf({5.0, 0.0})
                                      .longitude -
                                  8.0);
    for (int row = 0; row < 4; ++row)
      for (int column = 0; column < 4; ++column) placed.push_back({{7.5 + kSpacing * column, 7.5 + kSpacing * row}});
  }

  Json attributesOf(const Placed& beacon) const {
    return {{"map_id", beacon.map},
            {"latitude", 50.0 - beacon.metres.y * kLatitudeMetre},
            {"longitude", 8.0 + beacon.metres.x / metresPerLongitude},
            {"measured_power", beacon.power}};
  }
  void useKit() {
    Json entries = Json::array();
    for (std::size_t i = 0; i < placed.size(); ++i) entries.push_back(entry(int(i), attributesOf(placed[i])));
    use(entries);
  }
  void use(const Json& entries) {
    auto document = std::make_shared<const Json>(Json{{"id", 1}, {"ibeacons", entries}});
    kit = TGFAPIDeserializer::buildKit(world, document);
    positions.setKit(kit);
  }

  CLBeacon heardAt(std::size_t minor, Point device, double noise = 0.0) const {
    const auto& beacon = placed[minor];
    const double distance = std::hypot(beacon.metres.x - device.x, beacon.metres.y - device.y, 1.0);
    const double level = beacon.power - 22.8 * std::log10(distance) + noise;
    return {.proximityUUID = test::kVenue,
            .major = 1,
            .minor = static_cast<std::uint16_t>(minor),
            .rssi = static_cast<int>(std::lround(level)),
            .accuracy = std::pow(10.0, (beacon.power - level) / 20.0)};
  }
  TGFBeaconList allAt(Point device, double deviation = 0.0) {
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<CLBeacon> beacons;
    for (std::size_t i = 0; i < placed.size(); ++i) {
      const auto beacon = heardAt(i, device, deviation * noise(random));
      if (beacon.rssi > -95) beacons.push_back(beacon);
    }
    return kit->getIBeaconsForCLBeacons(beacons);
  }
  const RefinedPosition* second(const TGFBeaconList& beacons, double seconds = 1.0) {
    now += platform::durationFromSeconds(seconds);
    positions.ranged(beacons, now);
    return positions.update(now);
  }

  test::TestPlatform world;
  std::vector<Placed> placed;
  double metresPerLongitude = 0.0;
  TGFKitPtr kit;
  RefinedPositions positions{world};
  MonotonicTime now{};
  std::mt19937 random{7};
};

double errorOf(const RefinedPosition& position, Point truth) {
  return std::hypot(position.metres.x - truth.x, position.metres.y - truth.y);
}

TEST_F(RefinedPositionsTest, FindsTheDeviceBetweenBeacons) {
  useKit();
  const Point truth = {13.6, 16.8};
  const RefinedPosition* position = nullptr;
  for (int i = 0; i < 8; ++i) position = second(allAt(truth, 4.0));
  ASSERT_TRUE(position && position->map);
  EXPECT_EQ(position->map->mapId(), "ground");
  EXPECT_LT(errorOf(*position, truth), 1.5);
  EXPECT_GT(position->radius, 0.8);
  EXPECT_LT(position->radius, 4.0);
  EXPECT_EQ(position->beacon->text(), "b9");
  EXPECT_GT(position->beaconProbability, 0.5);
  EXPECT_DOUBLE_EQ(position->mapProbability, 1.0);
  EXPECT_DOUBLE_EQ(position->pixels.x, 5.0 * position->metres.x);
  EXPECT_NEAR(position->coordinate.latitude, 50.0 - position->metres.y * kLatitudeMetre, 1e-9);
  EXPECT_EQ(position->time, now);
}

// Median error, delay and step of somebody who walks to and fro and of somebody who stands, for several kits.
TEST_F(RefinedPositionsTest, FollowsAWalkerAndIsCalmWhileSomebodyStands) {
  for (const bool withPower : {true, false}) {
    if (!withPower)
      for (auto& beacon : placed) beacon.power = -70.0;  // as frames say; the kit says nothing
    useKit();
    if (!withPower) {
      Json entries = Json::array();
      for (std::size_t i = 0; i < placed.size(); ++i) {
        auto attributes = attributesOf(placed[i]);
        attributes.erase("measured_power");
        entries.push_back(entry(int(i), attributes));
      }
      use(entries);
    }
    std::vector<double> errors;
    double along = 0.0;
    for (int t = 0; t < 200; ++t) {
      along = std::fmod(1.4 * t, 30.0);
      const Point truth = {7.5 + (along < 15.0 ? along : 30.0 - along), 14.0};
      const auto* position = second(allAt(truth, 3.0));
      if (t > 10) errors.push_back(errorOf(*position, truth));
    }
    std::nth_element(errors.begin(), errors.begin() + 95, errors.end());
    EXPECT_LT(errors[95], 2.0) << withPower;
    double steps = 0.0;
    Point last;
    for (int t = 0; t < 60; ++t) {
      const auto* position = second(allAt({12.0, 12.0}, 3.0));
      if (t >= 10) steps += std::hypot(position->metres.x - last.x, position->metres.y - last.y);
      last = position->metres;
    }
    EXPECT_LT(steps / 50.0, 0.5) << withPower;
  }
}

TEST_F(RefinedPositionsTest, SaysOnceThatNothingIsHeard) {
  useKit();
  EXPECT_EQ(positions.update(now), nullptr) << "nothing was ranged yet";
  const auto* position = second({});
  ASSERT_TRUE(position);
  EXPECT_FALSE(position->map);
  EXPECT_EQ(second({}), nullptr);
  EXPECT_TRUE(second(allAt({12.0, 12.0}))->map);
  EXPECT_EQ(positions.update(now), nullptr) << "nothing new";
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(second({})->map) << "heard " << i + 1 << " s ago";
  EXPECT_FALSE(second({})->map);
  EXPECT_EQ(second({}), nullptr);
  // Beacons that the kit doesn't know, or that were not measured, are nothing.
  auto stranger = heardAt(0, {12.0, 12.0});
  stranger.major = 9;
  auto silent = heardAt(0, {12.0, 12.0});
  silent.rssi = 0;
  EXPECT_EQ(second(kit->getIBeaconsForCLBeacons(std::vector{stranger, silent})), nullptr);
}

// One wrong power, one moved beacon, one that is dead, one receiver in a pocket: none throws the position far.
TEST_F(RefinedPositionsTest, StandsWrongKits) {
  const Point truth = {13.0, 12.0};
  const auto errorAfter = [&](double offset) {
    const RefinedPosition* position = nullptr;
    for (int i = 0; i < 10; ++i) {
      std::vector<CLBeacon> beacons;
      for (std::size_t k = 0; k < placed.size(); ++k) beacons.push_back(heardAt(k, truth, offset));
      position = second(kit->getIBeaconsForCLBeacons(beacons));
    }
    return errorOf(*position, truth);
  };
  useKit();
  EXPECT_LT(errorAfter(0.0), 0.5);
  EXPECT_LT(errorAfter(-6.0), 1.5) << "in a pocket";
  placed[5].power = -51.0;
  useKit();
  placed[5].power = -59.0;
  EXPECT_LT(errorAfter(0.0), 1.5) << "8 dB off";
  placed[10].metres = {7.0, 24.0};
  useKit();
  placed[10].metres = {17.5, 17.5};
  EXPECT_LT(errorAfter(0.0), 2.5) << "moved by 12 m";
}

TEST_F(RefinedPositionsTest, StaysOnAMapUntilAnotherIsClearlyStronger) {
  for (int i = 0; i < 16; ++i) placed.push_back({placed[static_cast<std::size_t>(i)].metres, "upstairs"});
  useKit();
  const auto mapWith = [&](double upstairs, int seconds) {
    const RefinedPosition* position = nullptr;
    for (int t = 0; t < seconds; ++t) {
      std::vector<CLBeacon> beacons;
      for (std::size_t k = 0; k < placed.size(); ++k)
        beacons.push_back(heardAt(k, {12.0, 12.0}, k < 16 ? -upstairs / 2 : upstairs / 2));
      position = second(kit->getIBeaconsForCLBeacons(beacons));
    }
    return position->map->mapId() + (position->mapProbability > 0.5 ? "" : "?");
  };
  EXPECT_EQ(mapWith(-15.0, 5), "ground");
  EXPECT_EQ(mapWith(15.0, 2), "ground") << "a moment is no move";
  EXPECT_EQ(mapWith(15.0, 30), "upstairs");
  EXPECT_EQ(mapWith(0.0, 60), "upstairs");
  // The same kit and maps, fetched again, change nothing.
  const auto before = *second(allAt({12.0, 12.0}));
  useKit();
  const auto* after = second(allAt({12.0, 12.0}));
  EXPECT_EQ(after->map->mapId(), "upstairs");
  EXPECT_LT(errorOf(*after, before.metres), 0.5);
}

TEST_F(RefinedPositionsTest, AllocatesNothingOnceItRuns) {
  useKit();
  std::vector<TGFBeaconList> walk;
  for (int t = 0; t < 120; ++t) walk.push_back(allAt({8.0 + 0.1 * t, 20.0 - 0.1 * t}, 4.0));
  for (int t = 0; t < 20; ++t) second(walk[static_cast<std::size_t>(t)]);
  const auto allocations = allocationCount();
  for (int t = 20; t < 100; ++t) ASSERT_TRUE(second(walk[static_cast<std::size_t>(t)]));
  for (int t = 0; t < 12; ++t) second({});
  for (int t = 100; t < 120; ++t) ASSERT_TRUE(second(walk[static_cast<std::size_t>(t)]));
  EXPECT_EQ(allocationCount(), allocations);
}

// Whatever a kit says, positions are finite and on the map's beacons, and the order of a ranging doesn't matter.
TEST_F(RefinedPositionsTest, StandsHostileKits) {
  const Json wide = {{"latitude", 50},
                     {"longitude", 8},
                     {"pixels_per_meter", 5},
                     {"map_pixel_width", 5000},
                     {"map_pixel_height", 5000}};
  TWLMapConfigRepo::sharedRepo(world).loadFromJSON(Json{{"a", wide}, {"b", wide}, {"flat", {{"latitude", 50}}}}.dump());
  Json entries = Json::array();
  const auto add = [&](Json attributes) { entries.push_back(entry(int(entries.size()), std::move(attributes))); };
  for (int i = 0; i < 1000; ++i)  // all at one point
    add({{"map_id", i % 2 ? "a" : "b"}, {"latitude", 49.999}, {"longitude", 8.001}, {"measured_power", 1e300}});
  for (const Json& place : {Json(1e300), Json(-1e300), Json("nan"), Json(nullptr), Json(89.9), Json::object()})
    for (const Json& power : {Json(1e300), Json(-1e300), Json("loud"), Json(-59)})
      add({{"map_id", "a"}, {"latitude", place}, {"longitude", place}, {"measured_power", power}});
  std::uniform_real_distribution<double> degrees(0.0, 0.009);
  for (int i = 0; i < 1000; ++i)
    add({{"map_id", "b"}, {"latitude", 50.0 - degrees(random)}, {"longitude", 8.0 + degrees(random)}});
  add({{"map_id", "flat"}, {"latitude", 50}, {"longitude", 8}});
  use(entries);
  std::vector<CLBeacon> beacons;
  const double accuracies[] = {1.0, -1.0, 1e300, 0.0, std::nan("")};
  for (std::size_t i = 0; i < entries.size(); ++i)
    beacons.push_back({.proximityUUID = test::kVenue,
                       .major = 1,
                       .minor = static_cast<std::uint16_t>(i),
                       .rssi = -1 - static_cast<int>(i * 37 % 140),
                       .accuracy = accuracies[i % 5]});
  RefinedPositions other(world);
  other.setKit(kit);
  for (int t = 0; t < 20; ++t) {
    const auto* position = second(kit->getIBeaconsForCLBeacons(beacons));
    ASSERT_TRUE(position && position->map && position->beacon);
    for (const double number :
         {position->pixels.x, position->pixels.y, position->coordinate.latitude, position->coordinate.longitude,
          position->radius, position->mapProbability, position->beaconProbability, position->speed})
      ASSERT_TRUE(std::isfinite(number));
    ASSERT_GE(position->metres.x, -51.0);
    ASSERT_LE(position->metres.x, 1051.0);
    std::shuffle(beacons.begin(), beacons.end(), random);
    other.ranged(kit->getIBeaconsForCLBeacons(beacons), now);
    const auto* same = other.update(now);
    ASSERT_EQ(same->map, position->map);
    ASSERT_NEAR(same->metres.x, position->metres.x, 1e-6);
  }
  positions.setKit(nullptr);
  EXPECT_FALSE(second({})->map);
}

struct RefinedPositionUpdatesTest : RefinedPositionsTest {
  RefinedPositionUpdatesTest() {
    world.files->writeFile("/app/Wayloom.plist", R"({"GFKitURL": "https://kit.example/kit", "GFAPIToken": "secret"})");
    Json entries = Json::array();
    for (std::size_t i = 0; i < placed.size(); ++i) entries.push_back(entry(int(i), attributesOf(placed[i])));
    platform::HttpResponse response;
    response.status = 200;
    response.body = Json{{"kit", {{"id", 1}, {"ibeacons", entries}}}}.dump();
    world.http->answer("GET https://kit.example/kit", response);
    manager = TWLManager::manager(world);
    world.time.runReady();
    TWLMapConfigRepo::sharedRepo(world).loadFromJSON(mapConfig().dump());
  }

  // As a radio's tick does: a region after another.
  void tick() {
    for (const int half : {0, 1}) {
      std::vector<CLBeacon> beacons;
      for (std::size_t i = 0; i < placed.size(); ++i)
        if (int(i % 2) == half) beacons.push_back(heardAt(i, {13.0, 12.0}));
      world.time.scheduler()->mainQueue().async([this, beacons, half] {
        const auto region =
            std::make_shared<const platform::CLBeaconRegion>(test::kVenue, 1, std::nullopt, half ? "odd" : "even");
        world.location->deliverRanging(beacons, region);
      });
    }
    world.wait(1.0);
  }

  std::unique_ptr<TWLManager> manager;
};

TEST_F(RefinedPositionUpdatesTest, TellsOnceForAllRegionsOfASecond) {
  std::vector<double> told;
  auto updates = std::make_unique<RefinedPositionUpdates>(world, *manager, [&](const RefinedPosition& position) {
    told.push_back(errorOf(position, {13.0, 12.0}));
  });
  for (int i = 0; i < 5; ++i) tick();
  ASSERT_EQ(told.size(), 5U);
  EXPECT_LT(told[4], 1.0);
  updates.reset();
  tick();
  EXPECT_EQ(told.size(), 5U);

  int calls = 0;
  updates = std::make_unique<RefinedPositionUpdates>(world, *manager, [&](const RefinedPosition&) {
    ++calls;
    updates.reset();
  });
  tick();
  tick();
  EXPECT_EQ(calls, 1) << "its owner may end it in the call";
  // A manager's end with a round under way.
  updates = std::make_unique<RefinedPositionUpdates>(world, *manager, nullptr);
  tick();
  updates.reset();
  manager.reset();
  world.wait(1.0);
}

}  // namespace
}  // namespace wayloom
