#include <gmock/gmock.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::Json;
using testing::ElementsAre;
using testing::IsEmpty;

const platform::UUID kVenue = *platform::UUID::parse("5A0E5A0E-0001-4000-8000-00000000BEAC");

// Notes who was told which map, in a diary shared with others.
struct Witness : TWLManagerDelegate {
  Witness(std::string witnessName, std::vector<std::string>& sharedDiary)
      : name(std::move(witnessName)), diary(sharedDiary) {}

  void locationManagerDidUpdateMapLocation(TWLManager& manager, const TWLMapLocationPtr& location) override {
    diary.push_back(name + ":" + (location ? location->mapId() : "none"));
    if (andThen) andThen(manager, location);
  }

  std::string name;
  std::vector<std::string>& diary;
  std::function<void(TWLManager&, const TWLMapLocationPtr&)> andThen;
};

struct NavigationManagerTest : testing::Test {
  NavigationManagerTest() {
    world.files->writeFile("/app/Wayloom.plist", R"({"GFKitURL": "https://kit.example/kit", "GFAPIToken": "secret"})");
    world.files->writeFile("/app/map_config.json", R"({"hall": {"latitude": 50, "longitude": 8, "pixels_per_meter": 5,
        "map_pixel_width": 500, "map_pixel_height": 500, "map_corner_offset_y": 500, "geolocation_enabled": true}})");
    const auto entry = [](int minor) -> Json {
      return {{"uuid", kVenue.string()},
              {"major", 1},
              {"minor", minor},
              {"name", "Beacon"},
              {"identifier", std::to_string(minor)},
              {"attributes", {{"map_id", "hall"}, {"latitude", 50}, {"longitude", 8}, {"measured_power", -59}}}};
    };
    platform::HttpResponse response;
    response.status = 200;
    response.body = Json{{"kit", {{"id", 1}, {"ibeacons", {entry(1), entry(2)}}}}}.dump();
    world.http->answer("GET https://kit.example/kit", response);
  }

  void make(TWLManagerDelegate* told = nullptr) {
    manager = TWLManager::managerWithDelegate(world, told);
    world.time.runReady();
  }
  void deliver(double accuracy) {
    const platform::CLBeacon beacon = {
        .proximityUUID = kVenue, .major = 1, .minor = 1, .rssi = -60, .accuracy = accuracy};
    world.location->deliverRanging(std::span(&beacon, 1), region);
  }
  void range(double accuracy) {
    deliver(accuracy);
    world.time.runReady();
  }
  void fix(double latitude) {
    world.location->deliverFix({{latitude, 8.0}, 3.0, world.time.calendarClock()->now()});
    world.time.runReady();
  }
  std::vector<std::string> told() { return std::exchange(diary, {}); }

  test::TestPlatform world;
  std::vector<std::string> diary;
  Witness delegate{"delegate", diary}, first{"first", diary}, second{"second", diary};
  platform::CLBeaconRegionPtr region =
      std::make_shared<platform::CLBeaconRegion>(kVenue, std::nullopt, std::nullopt, "venue");
  std::unique_ptr<TWLManager> manager;
};

TEST_F(NavigationManagerTest, StartsTheEngineWithItsSettings) {
  make();
  const auto requests = world.http->takeRequests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].url, "https://kit.example/kit");
  auto& configuration = TGFConfiguration::sharedConfiguration(world);
  EXPECT_EQ(configuration.apiToken(), "secret");
  EXPECT_EQ(configuration.analyticsURL(), std::nullopt);
  EXPECT_EQ(manager->gfManager().locationManager().rangedRegions().size(), 2U);
  manager.reset();
  EXPECT_THAT(world.instance->location().makeLocationManager()->rangedRegions(), IsEmpty())
      << "it clears what it registered";

  world.files->writeFile("/app/Wayloom.plist", R"({"GFAnalyticsURL": "https://analytics.example/"})");
  make();
  EXPECT_EQ(configuration.url(), std::nullopt);
  EXPECT_EQ(configuration.analyticsURL(), "https://analytics.example/");
}

TEST_F(NavigationManagerTest, TellsThePositionOfTheMomentBefore) {
  make(&delegate);
  range(2.0);
  EXPECT_THAT(told(), IsEmpty()) << "nothing was merged yet";
  EXPECT_EQ(manager->currentMapLocation(), nullptr);
  range(1.5);
  EXPECT_THAT(told(), ElementsAre("delegate:hall"));
  EXPECT_EQ(manager->currentMapLocation()->pixelCoords(), (Point{0.0, 500.0}));
  EXPECT_EQ(manager->currentMapLocation()->uncertaintyRadiusMeters(), 4.0);
  manager->updateLocation();
  EXPECT_THAT(told(), ElementsAre("delegate:hall")) << "every time, changed or not";
  world.wait(5.1);
  manager->updateLocation();
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(manager->currentMapLocation(), nullptr);
}

TEST_F(NavigationManagerTest, TellsListenersThenTheDelegateThenKeepsThePosition) {
  make(&delegate);
  manager->addListener(first);
  auto owned = std::make_shared<Witness>("owned", diary);
  const std::weak_ptr<Witness> watch = owned;
  manager->addListener(owned);
  manager->addListener(first);
  EXPECT_THAT(told(), ElementsAre("first:none", "owned:none", "first:none")) << "each is told at once";
  EXPECT_THAT(manager->listeners(), ElementsAre(testing::Pointer(&first), owned));
  owned.reset();
  range(2.0);
  std::vector<TWLMapLocationPtr> kept;
  delegate.andThen = [&](TWLManager& sender, const TWLMapLocationPtr&) { kept.push_back(sender.currentMapLocation()); };
  range(2.0);
  EXPECT_THAT(told(), ElementsAre("first:hall", "owned:hall", "delegate:hall"));
  EXPECT_THAT(kept, ElementsAre(nullptr));
  EXPECT_NE(manager->currentMapLocation(), nullptr);

  manager->removeListener(first);
  manager->setDelegate(nullptr);
  manager->updateLocation();
  EXPECT_THAT(told(), ElementsAre("owned:hall"));
  EXPECT_FALSE(watch.expired());
  manager->removeListener(*watch.lock());
  EXPECT_TRUE(watch.expired());
}

TEST_F(NavigationManagerTest, ListenersMayComeAndGoWhileTheyAreCalled) {
  make();
  for (auto* listener : {&first, &second}) manager->addListener(*listener);
  range(2.0);
  told();
  Witness third("third", diary);
  first.andThen = [&](TWLManager& sender, const TWLMapLocationPtr&) {
    sender.removeListener(first);
    sender.removeListener(second);
    sender.addListener(third);
  };
  manager->updateLocation();
  EXPECT_THAT(told(), ElementsAre("first:hall", "third:hall"));
  third.andThen = [&](TWLManager& sender, const TWLMapLocationPtr&) {
    third.andThen = nullptr;
    sender.addListener(second);
    sender.updateLocation();
  };
  manager->updateLocation();
  EXPECT_THAT(told(), ElementsAre("third:hall", "second:hall", "third:hall", "second:hall")) << "even to ask anew";
}

TEST_F(NavigationManagerTest, KeepsWhomItWasGivenWithOwnershipAndSurvivesWhatTheyThrow) {
  make();
  auto owned = std::make_shared<Witness>("owned", diary);
  const std::weak_ptr<Witness> watch = owned;
  manager->addListener(*owned);
  manager->addListener(std::exchange(owned, nullptr));
  EXPECT_FALSE(watch.expired()) << "given by reference first, but then by a pointer that owns";
  range(2.0);
  told();
  watch.lock()->andThen = [&](TWLManager& sender, const TWLMapLocationPtr&) {
    sender.removeListener(*watch.lock());
    throw std::runtime_error("a listener's fault");
  };
  manager->addListener(first);
  EXPECT_THROW(manager->updateLocation(), std::runtime_error);
  EXPECT_TRUE(watch.expired());
  told();
  manager->updateLocation();
  EXPECT_THAT(told(), ElementsAre("first:hall"));
  EXPECT_THAT(manager->listeners(), ElementsAre(testing::Pointer(&first)));
}

TEST_F(NavigationManagerTest, FallsBackOnFixes) {
  std::vector<std::optional<ranging::FixRequest>> requests;
  world.location->setFixRequestObserver([&](const auto& request) { requests.push_back(request); });
  make(&delegate);
  EXPECT_THAT(requests, IsEmpty()) << "off at first";
  manager->startGeolocation();
  world.time.runReady();
  EXPECT_EQ(requests.back(), (ranging::FixRequest{platform::kCLLocationAccuracyBestForNavigation, 10.0}));
  fix(50.0002);
  EXPECT_THAT(told(), ElementsAre("delegate:hall"));
  EXPECT_NEAR(manager->currentMapLocation()->pixelCoords().y, 500.0 - 5.0 * 22.25, 0.1);
  EXPECT_EQ(manager->currentMapLocation()->uncertaintyRadiusMeters(), 3.0);
  fix(51.0);
  EXPECT_THAT(told(), IsEmpty()) << "on no map";
  EXPECT_EQ(manager->currentMapLocation(), nullptr);
  manager->stopGeolocation();
  world.time.runReady();
  EXPECT_EQ(requests.back(), std::nullopt);
  manager->startGeolocation();
  world.time.runReady();
  manager.reset();
  world.time.runReady();
  EXPECT_EQ(requests.back(), std::nullopt);
}

TEST_F(NavigationManagerTest, MayBeDestroyedAtAnyTime) {
  for (const auto destroyer : {&first, &second, &delegate}) {
    make(&delegate);
    manager->addListener(first);
    manager->addListener(second);
    range(1.0);
    told();
    destroyer->andThen = [&](TWLManager&, const TWLMapLocationPtr&) { manager.reset(); };
    range(1.0);
    EXPECT_EQ(told().back(), destroyer->name + ":hall") << "nobody is told after it";
    destroyer->andThen = nullptr;
  }
  manager = TWLManager::manager(world);
  manager->setDelegate(&delegate);
  manager.reset();
  world.time.runReady();
  make();
  deliver(1.0);
  manager.reset();
  world.time.runReady();
  make();
  deliver(1.0);
  manager.reset();
  world.instance.reset();
  world.time.runReady();
}

TEST_F(NavigationManagerTest, KeepsWhatTheHostLeavesWithIt) {
  make();
  manager->setMapId("hall");
  EXPECT_EQ(manager->mapId(), "hall");
  struct : TGFManagerDelegate {
  } host;
  manager->setGfManagerDelegate(&host);
  EXPECT_EQ(manager->gfManagerDelegate(), &host);
  EXPECT_EQ(&manager->locationTracker(), &TWLLocationTracker::sharedLocationTracker(world));
}

}  // namespace
}  // namespace wayloom
