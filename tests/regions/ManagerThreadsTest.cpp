// The region manager on real threads: rangings on the main thread while downloads end on theirs. What can go wrong here
// shows under the thread sanitizer, or as a hang.
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/regions/TGFManager.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

constexpr auto kKitUrl = "https://kits.example/7";
constexpr auto kServedKit = R"({"kit": {"status_url": "u", "status_token": "t", "ibeacons": [
  {"identifier": "a", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 1, "minor": 1}]}})";

struct Host : TGFManagerDelegate {
  void geofoldDidSync(TGFManager& manager) override {
    const auto kit = manager.kit();
    synced += kit ? kit->beaconRegions().size() : 0;
  }
  void geofoldDidRangeBeaconsInRegion(TGFManager&, const TGFBeaconList& beacons, const TGFBeaconRegionPtr&) override {
    for (const auto& beacon : beacons) ranged += beacon->identifier() == "a" ? 1 : 0;
  }
  std::atomic<std::size_t> synced = 0;
  std::size_t ranged = 0;
};

struct Reporter : StatusReporter {
  explicit Reporter(std::atomic<std::size_t>& seen) : count(seen) {}
  void rangedBeacon(const platform::CLBeacon&) override { ++count; }
  std::atomic<std::size_t>& count;
};

class ManagerThreads : public testing::Test {
 protected:
  ManagerThreads() {
    platform::HttpResponse response;
    response.status = 200;
    response.body = kServedKit;
    world.http->answer(std::string("GET ") + kKitUrl, response);
    auto services = world.services();
    services.tasks = loop;
    services.monotonicClock = clock;
    services.location = location;
    platform = std::make_unique<platform::Platform>(services);
    location->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
  }

  void range() {
    const platform::CLBeacon beacon{region->proximityUUID(), 1, 1, -70, 2.0};
    location->deliverRanging({&beacon, 1}, region);
    loop->runDue();
  }

  test::TestPlatform world;
  std::shared_ptr<posix::MainLoop> loop = std::make_shared<posix::MainLoop>();
  std::shared_ptr<posix::PosixMonotonicClock> clock = std::make_shared<posix::PosixMonotonicClock>();
  std::shared_ptr<ranging::RangerLocationServices> location =
      std::make_shared<ranging::RangerLocationServices>(*loop, *clock);
  std::unique_ptr<platform::Platform> platform;
  platform::CLBeaconRegionPtr region = std::make_shared<const platform::CLBeaconRegion>(
      *platform::UUID::parse("5A0E1C9E-0000-4B7E-8000-000000000001"), std::nullopt, std::nullopt, "r");
};

TEST_F(ManagerThreads, RangingsSeeTheOldOrTheNewKit) {
  Host host;
  std::atomic<std::size_t> reported = 0;
  TGFManagerServices services;
  services.makeStatus = [&](platform::Platform&, const std::string&, const std::string&) {
    return std::make_unique<Reporter>(reported);
  };
  TGFManager manager(*platform, &host, platform::Json{{"GFKitURL", kKitUrl}}, services);
  manager.start();
  std::size_t rangings = 0;
  while (host.synced < 30 || host.ranged == 0 || reported == 0) {
    if (rangings % 4 == 0) manager.sync();
    if (rangings % 16 == 15) {
      manager.stop();
      manager.start();
    }
    range();
    ++rangings;
  }
  EXPECT_LE(host.ranged, rangings);
}

TEST_F(ManagerThreads, MayBeDestroyedWhileDownloadsEnd) {
  for (int round = 0; round < 40; ++round) {
    Host host;
    auto manager = std::make_unique<TGFManager>(*platform, &host, platform::Json{{"GFKitURL", kKitUrl}});
    manager->start();
    for (int i = 0; i < round % 5; ++i) manager->sync();
    for (int i = 0; i < round % 7; ++i) range();
    if (round % 3 == 0) std::this_thread::yield();
    manager.reset();
    const auto synced = host.synced.load();
    range();
    EXPECT_EQ(host.synced, synced);
  }
}

}  // namespace
}  // namespace wayloom
