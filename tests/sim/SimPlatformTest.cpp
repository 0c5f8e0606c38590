#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/sim/FaultyFileManager.hpp"
#include "wayloom/sim/FaultyHttpClient.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "tests/sim/SimVenue.hpp"

namespace wayloom::sim {
namespace {

using namespace std::chrono_literals;
using platform::CLBeacon;
using platform::HttpRequest;
using platform::HttpResponse;

HttpRequest request(const std::string& url, const std::string& method = "GET") {
  HttpRequest made;
  made.method = method;
  made.url = url;
  return made;
}

class VenueHttpServerTest : public testing::Test {
 protected:
  VenueHttpServerTest() {
    writeVenue(folder_);
    folder_.write("server/maps/map_config.json", "{}");
    folder_.write("server/maps/plans/a b.svg", "<svg/>");
    folder_.write("secret", "secret");
    world_.emplace(SimOptions{.venue = folder_.path()});
  }

  HttpResponse ask(const std::string& url, const std::string& method = "GET") {
    return platform::sendSynchronously(world_->platform().http(), world_->platform().tasks(), request(url, method));
  }

  TestFolder folder_;
  std::optional<SimPlatform> world_;
};

TEST_F(VenueHttpServerTest, answersFromTheVenueFolder) {
  std::filesystem::last_write_time(
      folder_.path() + "/server/kit.json",
      std::filesystem::file_time_type::clock::from_sys(std::chrono::sys_seconds(784111777s)));
  const auto kit = ask("http://kit.example/kits/1");
  EXPECT_EQ(kit.status, 200);
  EXPECT_EQ(kit.body.substr(0, 8), R"({"kit":{)");
  EXPECT_EQ(kit.header("last-modified"), "Sun, 06 Nov 1994 08:49:37 GMT");
  const auto head = ask("http://kit.example/kits/1", "HEAD");
  EXPECT_EQ(head.body, "");
  EXPECT_EQ(head.header("Last-Modified"), kit.header("Last-Modified"));
  EXPECT_EQ(head.header("Content-Length"), std::to_string(kit.body.size()));

  EXPECT_EQ(ask("https://anywhere.example/maps/map_config.json?v=2").body, "{}");
  EXPECT_EQ(ask("http://maps.example/maps/plans/a%20b.svg").body, "<svg/>");
  EXPECT_EQ(ask("http://analytics.example/any", "POST").status, 200);
  EXPECT_EQ(ask("http://analytics.example/any", "POST").body, "");
}

TEST_F(VenueHttpServerTest, leadsNowhereElse) {
  for (const char* url :
       {"http://kit.example/kits/2", "http://h/maps", "http://h/maps/", "http://h/maps/plans",
        "http://h/maps/../kit.json", "http://h/maps/%2e%2e/%2E%2E/secret", "http://h/maps/..%2f..%2fsecret",
        "http://h/maps/map_config.json%00.svg", "http://h/x/maps/map_config.json", "http://h/"}) {
    const auto response = ask(url);
    EXPECT_EQ(response.status, 404) << url;
    EXPECT_EQ(response.body, "") << url;
    EXPECT_FALSE(response.error) << url;
  }
  for (const char* url : {"", "maps/map_config.json", "file:///etc/passwd", "http://h/a b"})
    EXPECT_EQ(ask(url).error->domain, "HTTP") << url;
}

TEST_F(VenueHttpServerTest, networkAndLatency) {
  std::vector<std::string> seen;
  auto& tasks = world_->platform().tasks();
  const auto send = [&](const std::string& url) {
    return world_->platform().http().send(request(url), tasks.mainQueue(), [&seen](HttpResponse response) {
      seen.push_back(response.error ? "error" : std::to_string(response.status));
    });
  };
  world_->server().setRequestObserver([&](const HttpRequest& sent) { seen.push_back(sent.url); });
  auto first = send("http://h/1");
  EXPECT_EQ(seen.size(), 1U);
  world_->time().runReady();
  world_->server().setLatency(2s);
  auto second = send("http://h/2");
  auto cancelled = send("http://h/3");
  world_->time().advanceBy(1s);
  cancelled.reset();
  world_->server().setNetworkUp(false);  // before the answer is there
  world_->time().advanceBy(1s);
  EXPECT_EQ(seen, (std::vector<std::string>{"http://h/1", "404", "http://h/2", "http://h/3", "error"}));
  const auto before = world_->time().now();
  EXPECT_TRUE(ask("http://h/4").error);
  EXPECT_EQ(world_->time().now() - before, 2s);
}

// --- A device in a world ---

struct Device {
  explicit Device(SimOptions options)
      : world(std::move(options)), manager(std::make_unique<TWLManager>(world.platform())) {
    world.time().runReady();
  }

  // A ranging of both beacons now.
  void range(double lobby, double hall) {
    const auto uuid = *platform::UUID::parse(kVenueUuid);
    const std::vector<CLBeacon> beacons = {{uuid, 1, 1, -60, lobby, platform::CLProximity::near},
                                           {uuid, 1, 2, -60, hall, platform::CLProximity::near}};
    world.location().deliverRanging(
        beacons, std::make_shared<const platform::CLBeaconRegion>(uuid, std::nullopt, std::nullopt, "r"));
    world.time().runReady();
  }
  std::string mapId() {
    manager->updateLocation();
    const auto location = manager->currentMapLocation();
    return location ? location->mapId() : "-";
  }

  SimPlatform world;
  std::unique_ptr<TWLManager> manager;
};

TEST(SimPlatform, worldsSideBySideKnowNothingOfEachOther) {
  const TestFolder venue;
  writeVenue(venue);
  std::vector<std::unique_ptr<Device>> devices;
  for (int i = 0; i < 20; ++i) devices.push_back(std::make_unique<Device>(SimOptions{.venue = venue.path()}));
  for (int i = 0; i < 20; ++i) {
    devices[static_cast<std::size_t>(i)]->range(i % 2 == 0 ? 1.0 : 3.0, 2.0);
    devices[static_cast<std::size_t>(i)]->world.time().advanceBy(std::chrono::seconds(i));
  }
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(devices[static_cast<std::size_t>(i)]->mapId(), i > 5 ? "-" : i % 2 == 0 ? "lobby" : "hall") << i;
}

TEST(SimPlatform, documentsOutliveTheirWorldAndFreshOnesDoNot) {
  const TestFolder venue;
  const TestFolder documents;
  writeVenue(venue);
  std::string fresh;
  {
    Device device({.venue = venue.path()});
    fresh = device.world.documents();
    EXPECT_TRUE(std::filesystem::exists(fresh + "/geofold-kits-1.data"));
  }
  EXPECT_FALSE(std::filesystem::exists(fresh));

  const platform::CalendarTime start(1'600'000'000s);
  {
    Device device({.venue = venue.path(), .documents = documents.path(), .start = start});
    device.world.platform().userDefaults().setInteger("launches", 7);
  }
  Device device({.venue = venue.path(), .documents = documents.path()});
  EXPECT_EQ(device.world.platform().userDefaults().integerForKey("launches"), 7);
}

// Somebody sets the clock a day back and forth during a walk: the same beacons are elected at the same moments.
TEST(SimPlatform, calendarStepsChangeNoElection) {
  const TestFolder venue;
  writeVenue(venue);
  const auto walk = [&](const std::vector<platform::Duration>& steps) {
    Device device({.venue = venue.path()});
    std::string trace;
    for (std::size_t second = 0; second < 120; ++second) {
      if (second % 10 == 3) device.world.time().stepCalendar(steps[second / 10 % steps.size()]);
      if (second % 30 < 21) device.range(second % 14 < 7 ? 1.0 : 4.0, 2.0);
      trace += device.mapId() + " ";
      device.world.time().advanceBy(1s);
    }
    return trace;
  };
  const auto undisturbed = walk({0s});
  EXPECT_NE(undisturbed.find("lobby hall"), std::string::npos);
  EXPECT_NE(undisturbed.find("hall lobby"), std::string::npos);
  EXPECT_NE(undisturbed.find(" - "), std::string::npos);
  EXPECT_EQ(walk({24h, -24h, -24h, 24h}), undisturbed);
  EXPECT_EQ(walk({-24h * 365, 24h}), undisturbed);
}

// While the radio is off nothing is heard: the position goes, but nobody has left, until the radio is on and silent.
TEST(SimPlatform, bluetoothOffEndsPositionsButNoRegion) {
  struct Crossings : TWLManager {
    using TWLManager::TWLManager;
    void geofoldDidEnter(TGFManager&, const TGFRegionPtr&) override { trace += "enter "; }
    void geofoldDidExit(TGFManager&, const TGFRegionPtr&) override { trace += "exit "; }
    std::string trace;
  };
  const TestFolder venue;
  writeVenue(venue);
  SimPlatform world({.venue = venue.path()});
  Crossings manager(world.platform());
  std::vector<platform::CBCentralManagerState> states;
  world.platform().bluetooth().setStateCallback([&](auto state) { states.push_back(state); });
  world.time().runReady();
  const auto hear = [&](platform::Duration duration) {
    const auto end = world.time().now() + duration;
    while (world.time().now() < end) {
      world.receive({{*platform::UUID::parse(kVenueUuid), 1, 1}, -60, -59});
      world.time().advanceBy(250ms);
    }
  };
  hear(5s);
  ASSERT_NE(manager.currentMapLocation(), nullptr);
  world.setBluetoothState(platform::CBCentralManagerState::poweredOff);
  hear(60s);
  EXPECT_EQ(manager.currentMapLocation(), nullptr);
  EXPECT_EQ(manager.trace, "enter ");
  world.setBluetoothState(platform::CBCentralManagerState::poweredOn);
  world.time().advanceBy(29s);
  EXPECT_EQ(manager.trace, "enter ");
  world.time().advanceBy(2s);
  EXPECT_EQ(manager.trace, "enter exit ");
  hear(3s);
  EXPECT_NE(manager.currentMapLocation(), nullptr);
  using enum platform::CBCentralManagerState;
  EXPECT_EQ(states, (std::vector{poweredOn, poweredOff, poweredOn}));
}

// A day with a bad network and a bad disk: everything survives, and the same seed gives the same day.
TEST(SimPlatform, faultsAreTheSameForTheSameSeed) {
  const TestFolder venue;
  writeVenue(venue);
  const auto day = [&](std::uint64_t seed) {
    std::string trace;
    SimOptions options{.venue = venue.path()};
    options.log = [&](LogChannel, std::string_view line) { trace.append(line).append("\n"); };
    options.decorate = [&](platform::PlatformServices& services) {
      services.http = std::make_shared<FaultyHttpClient>(
          services.http, services.tasks, HttpFaults{.fail = 0.2, .delay = 0.3, .cut = 0.2, .garbage = 0.2}, seed);
      services.files = std::make_shared<FaultyFileManager>(
          services.files, FileFaults{.failRead = 0.1, .garbageRead = 0.2, .failWrite = 0.2, .cutWrite = 0.1}, seed);
    };
    Device device(std::move(options));
    for (int hour = 0; hour < 24; ++hour) {
      device.range(1.0 + hour % 3, 2.0);
      trace += device.mapId() + "\n";
      device.world.time().advanceBy(1h);
    }
    // Folders have names of their own.
    for (std::size_t at; (at = trace.find(device.world.documents())) != std::string::npos;)
      trace.erase(at, device.world.documents().size());
    return trace;
  };
  const auto trace = day(1);
  EXPECT_EQ(day(1), trace);
  EXPECT_NE(day(2), trace);
}

}  // namespace
}  // namespace wayloom::sim
