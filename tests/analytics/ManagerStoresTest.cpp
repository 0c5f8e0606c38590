// The region manager with the stores that it makes by itself, on real time and with a server that never answers a post.
#include <fstream>
#include <gmock/gmock.h>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/analytics/TGFAnalyticsEvent.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/status/TGFStatusLogger.hpp"

#include "tests/posix/RawServer.hpp"
#include "tests/posix/TemporaryDirectory.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;

class ManagerStoresTest : public testing::Test {
 protected:
  ManagerStoresTest() {
    std::ofstream(folder / "Info.plist") << R"(<?xml version="1.0"?><plist version="1.0"><dict>
        <key>NSLocationAlwaysUsageDescription</key><string>x</string></dict></plist>)";
    location->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
    platform = posix::makePlatform(
        {.mainBundle = folder.path(), .documents = folder / "documents", .loop = loop, .location = location});
  }

  void serve(posix::RawServer& raw, int connection) {
    const auto request = posix::RawServer::receive(connection);
    if (!request.starts_with("GET")) return raw.hang();
    const auto kit = R"({"kit": {"status_url": ")" + raw.url() + R"(", "status_token": "t", "ibeacons": [
        {"identifier": "a", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": null, "minor": null}]}})";
    posix::RawServer::send(connection, "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                                           std::to_string(kit.size()) + "\r\n\r\n" + kit);
  }

  // Walks through the region until both stores are posting.
  void walk(TGFManager& manager) {
    while (!manager.kit()) std::this_thread::sleep_for(1ms);
    const auto region = manager.kit()->beaconRegions().front()->region();
    const platform::CLBeacon beacon{.proximityUUID = region->proximityUUID(), .major = 1, .minor = 1};
    location->deliverEnter(region);
    location->deliverRanging({&beacon, 1}, region);
    location->deliverExit(region);
    loop->runDue();
    while (server.connections() < 3) {
      analytics->uploadAnalyticsToServer();
      location->deliverRanging({&beacon, 1}, region);
      loop->runDue();
      std::this_thread::sleep_for(1ms);
    }
  }

  posix::TemporaryDirectory folder;
  posix::RawServer server{[this](posix::RawServer& raw, int connection) { serve(raw, connection); }};
  std::shared_ptr<posix::MainLoop> loop = std::make_shared<posix::MainLoop>();
  posix::PosixMonotonicClock clock;
  std::shared_ptr<ranging::RangerLocationServices> location =
      std::make_shared<ranging::RangerLocationServices>(*loop, clock);
  std::unique_ptr<platform::Platform> platform;
  TGFAnalytics* analytics = nullptr;
};

TEST_F(ManagerStoresTest, shutDownDoesNotWaitForAnUploadThatHangs) {
  TGFManagerServices services;
  services.makeAnalytics = [&](platform::Platform& on, TGFManager&) {
    auto made = std::make_unique<TGFAnalytics>(on);
    analytics = made.get();
    return made;
  };
  auto manager = std::make_unique<TGFManager>(
      *platform, nullptr, platform::Json{{"GFKitURL", server.url() + "kit"}, {"GFAnalyticsURL", server.url()}},
      services);
  manager->start();
  walk(*manager);
  auto logger = std::make_unique<TGFStatusLogger>(*platform, server.url());
  logger->postStatusWithRegionOrBeacons(
      nullptr, {std::make_shared<TGFBeacon>(platform::CLBeacon{}, std::make_shared<BeaconMatch>())});
  while (server.connections() < 4) std::this_thread::sleep_for(1ms);

  const auto begin = std::chrono::steady_clock::now();
  logger.reset();
  manager.reset();
  platform.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
}

TEST_F(ManagerStoresTest, aManagerRecordsWithoutFurtherSetUp) {
  {
    TGFManager manager(*platform, nullptr, platform::Json{{"GFKitURL", server.url() + "kit"}});
    manager.start();
    TGFAnalyticsEvent::postEventWithDetails(*platform, "door", {{"n", 1}});
    loop->runDue();
    manager.stop();
    TGFAnalyticsEvent::postEventWithDetails(*platform, "door", {{"n", 2}});
    loop->runDue();
  }
  EXPECT_THAT(TGFAnalytics(*platform).eventsToBeUploaded(), testing::SizeIs(1));
  TGFManager silent(*platform, nullptr, platform::Json::object(), TGFManagerServices::none());
  silent.start();
  TGFAnalyticsEvent::postEventWithDetails(*platform, "door", {{"n", 3}});
  loop->runDue();
  EXPECT_THAT(TGFAnalytics(*platform).eventsToBeUploaded(), testing::SizeIs(1));
}

}  // namespace
}  // namespace wayloom
