// The region manager: what it does when, told by everything around it in one order of events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wayloom/regions/MissingUsageDescription.hpp"
#include "wayloom/regions/TGFPartner.hpp"

#include "ManagerWorld.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using platform::CLAuthorizationStatus;
using platform::CLBeacon;
using platform::CLBeaconRegion;
using platform::CLRegionState;
using platform::Error;
using platform::Json;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kKit = R"({"kit": {"status_url": "https://status", "status_token": "t",
  "map": {"overlays": [{"type": "circle", "identifier": "yard", "center": [50, 8], "radius": 30}]},
  "ibeacons": [{"identifier": "useless", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": null, "minor": 2},
               {"identifier": "wide", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": null, "minor": null},
               {"identifier": "exact", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 1, "minor": 2}]}})";

const Events kRegistration = {"monitor yard",
                              "state yard",
                              "monitor wide",
                              "monitor exact",
                              "range wide",
                              "range exact",
                              "status for https://status t",
                              "did sync"};

Events joined(std::initializer_list<Events> parts) {
  Events all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class Manager : public testing::Test, protected ManagerWorld {
 protected:
  platform::CLBeaconRegionPtr reported(const char* uuid = kUUID) {
    return std::make_shared<const CLBeaconRegion>(*platform::UUID::parse(uuid), std::nullopt, std::nullopt, "r");
  }
  static CLBeacon beacon(std::uint16_t major, std::uint16_t minor) {
    return {*platform::UUID::parse(kUUID), major, minor, -70, 2.5, platform::CLProximity::near};
  }
  void startWithKit() {
    serve(kKit);
    makeManager();
    manager->start();
    world.time.runReady();
    take();
  }
};

TEST_F(Manager, NeedsAUsageDescription) {
  world.mainBundle->info = Json::object();
  EXPECT_NO_THROW(makeManager()) << "the library's bundle has one";
  world.resourceBundle->info = Json::object();
  try {
    makeManager();
    FAIL() << "nothing was thrown";
  } catch (const MissingUsageDescription& failure) {
    EXPECT_STREQ(failure.name(), "Missing info.plist key");
    EXPECT_STREQ(failure.what(), "You must add NSLocationAlwaysUsageDescription key to your info.plist file.");
  }
}

TEST_F(Manager, TheFirstDownloadPutsTheKitIntoEffect) {
  TGFLogger::setLevel(*platform, TGFLogLevel::debug);
  world.files->writeFile("/documents/geofold-7.data", kKit);
  serve(kKit);
  makeManager();
  EXPECT_THAT(world.console->take(), testing::Contains("Geofold[Debug] Loading kit from cache file"));
  ASSERT_TRUE(manager->kit());
  EXPECT_THAT(take(), IsEmpty());

  manager->syncWithCompletionHandler([this](BackgroundFetchResult result) {
    events.push_back("handler " + std::to_string(static_cast<int>(result)));
  });
  world.time.runReady();
  EXPECT_THAT(take(), ElementsAre("handler 0", "did sync")) << "not started";

  manager->start();
  manager->start();
  EXPECT_THAT(take(), ElementsAre("analytics start"));
  world.http->takeRequests();
  world.time.runReady();
  auto expected = kRegistration;
  expected.insert(expected.end() - 1, "handler 0");
  EXPECT_EQ(take(), expected);

  manager->sync();
  world.time.runReady();
  EXPECT_EQ(take(),
            joined({{"unmonitor yard", "unmonitor wide", "unmonitor exact", "unrange wide", "unrange exact"},
                    {"monitor yard", "state yard", "monitor wide", "monitor exact", "range wide", "range exact"},
                    {"status gone", "status for https://status t", "handler 0", "did sync"}}));
  const auto lines = world.console->take();
  for (const auto* line : {"Geofold[Debug] Monitoring Geofence Circle ",
                           "Geofold[Debug] Start Monitoring For UUID 5A0E1C9E-0000-4B7E-8000-000000000001",
                           "Geofold[Debug] Start Ranging For UUID 5A0E1C9E-0000-4B7E-8000-000000000001",
                           "Geofold[Info] Stopping monitoring for yard", "Geofold[Info] Stopping ranging for wide",
                           "Geofold[Warning] No region can be monitored for the kit's entry useless"})
    EXPECT_THAT(lines, testing::Contains(line));
}

TEST_F(Manager, AKitWithoutAStatusServerDropsTheReporter) {
  startWithKit();
  serve(R"({"kit": {"status_url": "https://status", "ibeacons": []}})");
  manager->sync();
  world.time.runReady();
  EXPECT_THAT(take(), ElementsAre("unmonitor yard", "unmonitor wide", "unmonitor exact", "unrange wide",
                                  "unrange exact", "status gone", "did sync"));
}

TEST_F(Manager, SyncsHourlyAndEveryTickUntilThen) {
  goOffline();
  makeManager();
  manager->syncWithCompletionHandler([this](BackgroundFetchResult result) {
    if (result != BackgroundFetchResult::newData) events.push_back("handler " + std::to_string(int(result)));
  });
  EXPECT_THAT(takeAfter(0s), ElementsAre("handler 2", "did fail HTTP 7 no route"));
  manager->start();
  EXPECT_THAT(takeAfter(0s), ElementsAre("analytics start", "handler 2", "did fail HTTP 7 no route"));
  EXPECT_THAT(takeAfter(30s), ElementsAre("analytics upload", "handler 2", "did fail HTTP 7 no route"));
  serve(kKit);
  EXPECT_EQ(takeAfter(30s), joined({{"analytics upload"}, kRegistration}));
  // Ticks come every 30 s; the last one at 3600 s after the sync, which is not earlier than an hour ago.
  const auto hour = takeAfter(3600s);
  EXPECT_EQ(hour.size(), 120U);
  EXPECT_THAT(hour, Each("analytics upload"));
  world.http->takeRequests();
  world.time.stepCalendar(-48h);
  EXPECT_EQ(takeAfter(30s).back(), "did sync") << "setting the clock back must not keep the kit";
  EXPECT_EQ(world.http->takeRequests().size(), 1U);

  goOffline();
  takeAfter(3600s);
  const auto failed = takeAfter(30s);
  EXPECT_EQ(failed[0], "analytics upload");
  EXPECT_EQ(failed[1], "unmonitor yard") << "the cached document is registered again";
  EXPECT_EQ(failed.back(), "did fail HTTP 7 no route");
}

TEST_F(Manager, AnswersWithoutAKitLeaveTheKitInForce) {
  startWithKit();
  const auto kit = manager->kit();
  TGFLogger::setLevel(*platform, TGFLogLevel::error);
  for (const auto* body : {"[1]", "{}", R"({"kit": null})", R"({"kit": [1]})", "7", "<html>"}) {
    serve(body);
    manager->sync();
    EXPECT_THAT(takeAfter(0s), ElementsAre("did sync")) << body;
    EXPECT_EQ(manager->kit(), kit) << body;
    EXPECT_EQ(world.console->take().size(), 1U) << body;
  }
}

TEST_F(Manager, RegistersNothingWithoutAuthorisation) {
  startWithKit();
  const auto registered = location->monitored;
  const auto syncEvents = [&] {
    manager->sync();
    return takeAfter(0s);
  };
  for (const auto status :
       {CLAuthorizationStatus::authorizedWhenInUse, CLAuthorizationStatus::denied, CLAuthorizationStatus::restricted}) {
    location->status = status;
    EXPECT_THAT(syncEvents(),
                ElementsAre("raw own fail 523", "did fail Geofold 523 Region Monitoring Not Authorized", "did sync"));
  }
  location->available = false;
  EXPECT_THAT(syncEvents(),
              ElementsAre("raw own fail 522", "did fail Geofold 522 Region Monitoring Not Available", "did sync"));
  location->available = std::nullopt;
  location->oldAvailable = false;
  EXPECT_THAT(syncEvents(), ElementsAre("did sync"));
  EXPECT_EQ(location->monitored, registered);
  manager->stop();
  EXPECT_THAT(take(), ElementsAre("analytics stop")) << "what can't be asked for can't be cleared";

  location->available = true;
  location->status = CLAuthorizationStatus::notDetermined;
  manager->start();
  EXPECT_EQ(takeAfter(0s)[1], "authorize");
}

TEST_F(Manager, StopTakesEveryRegionAndStartBeginsAfresh) {
  startWithKit();
  location->monitored.push_back(std::make_shared<const platform::CLRegion>("somebody else's"));
  manager->stop();
  EXPECT_THAT(take(), ElementsAre("unmonitor yard", "unmonitor wide", "unmonitor exact", "unmonitor somebody else's",
                                  "unrange wide", "unrange exact", "analytics stop"));
  EXPECT_THAT(takeAfter(2h), IsEmpty());
  manager->locationManagerDidRangeBeaconsInRegion(nullptr, std::vector{beacon(1, 2)}, reported());
  EXPECT_EQ(take().back(), "status 1/2") << "the status reporter stays";
  manager->stopStatusMonitoring();
  EXPECT_THAT(take(), ElementsAre("status gone"));
  location->ranged.push_back(reported());
  manager->stopRangingIBeacons();
  EXPECT_THAT(take(), ElementsAre("unrange r"));

  manager->sync();
  manager->start();
  manager->stop();
  EXPECT_THAT(takeAfter(0s), ElementsAre("analytics start", "analytics stop", "did sync", "did sync"));
  manager->start();
  take();
  EXPECT_EQ(takeAfter(0s)[0], "monitor yard");
}

TEST_F(Manager, TellsEntriesExitsAndStates) {
  startWithKit();
  std::vector<std::unique_ptr<platform::NotificationCenter::Observation>> observations;
  for (const auto* name : {TGFManagerDidEnterRegionNotification, TGFManagerDidExitRegionNotification,
                           TGFManagerDidDetermineStateForRegionNotification})
    observations.push_back(
        platform->notificationCenter().addObserver(name, manager.get(), [this](const platform::Notification& posted) {
          const auto* state = posted.userInfo.get<int>(TGFManagerNotificationRegionStateKey);
          const auto& region = *posted.userInfo.get<TGFRegionPtr>(TGFManagerNotificationRegionKey);
          events.push_back(posted.name + " " +
                           std::to_string(*posted.userInfo.get<int>(TGFManagerNotificationEventKey)) + " " +
                           *region->identifier() + (state ? " " + std::to_string(*state) : ""));
        }));

  const auto yard = manager->kit()->map()->overlays()[0]->region();
  manager->locationManagerDidEnterRegion(nullptr, yard);
  manager->locationManagerDidExitRegion(nullptr, reported());
  manager->locationManagerDidDetermineStateForRegion(nullptr, CLRegionState::outside, yard);
  EXPECT_THAT(take(), ElementsAre("raw enter", "did enter yard", "did exit wide", "did determine 2 yard"));
  EXPECT_THAT(takeAfter(0s), ElementsAre("TGFManagerDidEnterRegion 2 yard", "TGFManagerDidExitRegion 3 wide",
                                         "TGFManagerDidDetermineStateForRegion 1 yard 2"));

  const auto stranger = reported("5A0E1C9E-0000-4B7E-8000-000000000009");
  manager->locationManagerDidEnterRegion(nullptr, stranger);
  manager->locationManagerDidExitRegion(nullptr, std::make_shared<const platform::CLRegion>("unknown"));
  manager->locationManagerDidDetermineStateForRegion(nullptr, CLRegionState::inside, stranger);
  EXPECT_THAT(takeAfter(0s), ElementsAre("raw enter"));
}

TEST_F(Manager, TellsRangingsInTheKitsTerms) {
  startWithKit();
  const auto observation = platform->notificationCenter().addObserver(
      TGFManagerDidRangeBeaconsInRegionNotification, nullptr, [this](const platform::Notification& posted) {
        EXPECT_EQ(*posted.userInfo.get<int>(TGFManagerNotificationEventKey), 4);
        const auto& region = *posted.userInfo.get<TGFRegionPtr>(TGFManagerNotificationRegionKey);
        const auto& beacons = *posted.userInfo.get<TGFBeaconList>(TGFManagerNotificationBeaconsKey);
        events.push_back("notified of " + std::to_string(beacons.size()) + " in " + *region->identifier());
      });
  manager->locationManagerDidRangeBeaconsInRegion(nullptr, std::vector{beacon(1, 2), beacon(1, 3)}, reported());
  EXPECT_THAT(takeAfter(0s), ElementsAre("raw range", "did range wide: exact wide", "status 1/2", "status 1/3",
                                         "notified of 2 in wide"));
  manager->locationManagerDidRangeBeaconsInRegion(nullptr, {}, reported());
  EXPECT_THAT(takeAfter(0s), ElementsAre("raw range", "did range wide:", "notified of 0 in wide"));

  const auto stranger = reported("5A0E1C9E-0000-4B7E-8000-000000000009");
  manager->locationManagerDidRangeBeaconsInRegion(nullptr, std::vector{beacon(1, 2)}, stranger);
  EXPECT_THAT(takeAfter(0s), ElementsAre("raw range", "status 1/2")) << "a region that the kit doesn't know";
}

// Notes what the second delegate gets, argument by argument.
struct SecondDelegate : platform::CLLocationManagerDelegate {
  using Sender = platform::CLLocationManager*;

  void locationManagerDidUpdateLocations(Sender sender, std::span<const platform::CLLocation> fixes) override {
    note("locations", sender, static_cast<int>(fixes.size()));
  }
  void locationManagerDidUpdateHeading(Sender sender, const platform::CLHeading& heading) override {
    note("heading", sender, static_cast<int>(heading.magneticHeading));
  }
  void locationManagerDidDetermineStateForRegion(Sender sender, CLRegionState state,
                                                 const platform::CLRegionPtr& region) override {
    note("state", sender, static_cast<int>(state), region->identifier());
  }
  void locationManagerDidRangeBeaconsInRegion(Sender sender, std::span<const CLBeacon> beacons,
                                              const platform::CLBeaconRegionPtr& region) override {
    note("ranged", sender, static_cast<int>(beacons.size()), region->identifier());
  }
  void locationManagerRangingBeaconsDidFailForRegionWithError(Sender sender, const platform::CLBeaconRegionPtr& region,
                                                              const Error& error) override {
    note("ranging failed", sender, static_cast<int>(error.code), region->identifier());
  }
  void locationManagerDidEnterRegion(Sender sender, const platform::CLRegionPtr& region) override {
    note("entered", sender, 0, region->identifier());
  }
  void locationManagerDidExitRegion(Sender sender, const platform::CLRegionPtr& region) override {
    note("left", sender, 0, region->identifier());
  }
  void locationManagerDidFailWithError(Sender sender, const Error& error) override {
    note("failed", sender, static_cast<int>(error.code));
  }
  void locationManagerMonitoringDidFailForRegionWithError(Sender sender, const platform::CLRegionPtr& region,
                                                          const Error& error) override {
    note("monitoring failed", sender, static_cast<int>(error.code), region->identifier());
  }
  void locationManagerDidChangeAuthorizationStatus(Sender sender, CLAuthorizationStatus status) override {
    note("authorization", sender, static_cast<int>(status));
  }
  void locationManagerDidStartMonitoringForRegion(Sender sender, const platform::CLRegionPtr& region) override {
    note("monitoring", sender, 0, region->identifier());
  }
  void locationManagerDidPauseLocationUpdates(Sender sender) override { note("paused", sender); }
  void locationManagerDidResumeLocationUpdates(Sender sender) override { note("resumed", sender); }
  void locationManagerDidFinishDeferredUpdatesWithError(Sender sender, const Error& error) override {
    note("deferred", sender, static_cast<int>(error.code));
  }

  void note(const std::string& what, Sender sender, int number = 0, const std::string& region = "-") {
    told.push_back(what + (sender == expected ? " " : " of a stranger ") + std::to_string(number) + " " + region);
  }
  Sender expected = nullptr;
  Events told;
};

TEST_F(Manager, PassesEveryRawCallbackOnUnchanged) {
  startWithKit();
  SecondDelegate second;
  second.expected = &manager->locationManager();
  manager->setDelegate(nullptr);
  manager->setLocationManagerDelegate(&second);
  auto* sender = second.expected;
  const Error error{"Radio", 9, "off"};
  const auto region = reported();
  manager->locationManagerDidUpdateLocations(sender, std::vector<platform::CLLocation>(2));
  manager->locationManagerDidUpdateHeading(sender, {.magneticHeading = 90.0, .timestamp = {}});
  manager->locationManagerDidDetermineStateForRegion(sender, CLRegionState::outside, region);
  manager->locationManagerDidRangeBeaconsInRegion(sender, std::vector(3, beacon(1, 2)), region);
  manager->locationManagerRangingBeaconsDidFailForRegionWithError(sender, region, error);
  manager->locationManagerDidEnterRegion(sender, region);
  manager->locationManagerDidExitRegion(sender, region);
  manager->locationManagerDidFailWithError(sender, error);
  manager->locationManagerMonitoringDidFailForRegionWithError(sender, region, error);
  manager->locationManagerDidChangeAuthorizationStatus(sender, CLAuthorizationStatus::denied);
  manager->locationManagerDidStartMonitoringForRegion(sender, region);
  manager->locationManagerDidPauseLocationUpdates(sender);
  manager->locationManagerDidResumeLocationUpdates(sender);
  manager->locationManagerDidFinishDeferredUpdatesWithError(sender, error);
  EXPECT_THAT(second.told,
              ElementsAre("locations 2 -", "heading 90 -", "state 2 r", "ranged 3 r", "ranging failed 9 r",
                          "entered 0 r", "left 0 r", "failed 9 -", "monitoring failed 9 r", "authorization 2 -",
                          "monitoring 0 r", "paused 0 -", "resumed 0 -", "deferred 9 -"));
  manager->setLocationManagerDelegate(nullptr);
  manager->locationManagerDidPauseLocationUpdates(sender);
  EXPECT_EQ(second.told.size(), 14U);
}

TEST_F(Manager, WorksWithoutKitDelegatesAndServices) {
  manager = std::make_unique<TGFManager>(*platform);
  EXPECT_EQ(manager->kit(), nullptr);
  manager->start();
  manager->locationManagerDidRangeBeaconsInRegion(nullptr, std::vector{beacon(1, 2)}, reported());
  manager->locationManagerDidEnterRegion(nullptr, reported());
  manager->locationManagerDidFailWithError(nullptr, Error{});
  EXPECT_FALSE(manager->locationManagerShouldDisplayHeadingCalibration(nullptr));
  EXPECT_EQ(manager->getRegionForIdentifier("yard"), nullptr);
  EXPECT_THAT(takeAfter(60s), IsEmpty());
  manager->stop();
}

TEST_F(Manager, AnswersItsHost) {
  startWithKit();
  EXPECT_EQ(manager->getLat(), "0.000000");
  location->fix = platform::CLLocation{{50.1234567, -8.5}, 5.0, {}};
  EXPECT_EQ(manager->getLat(), "50.123457");
  EXPECT_EQ(manager->getLng(), "-8.500000");

  manager->logLevel(7);
  EXPECT_TRUE(manager->isRangingRegion(platform::CLRegion("exact")));
  EXPECT_THAT(world.console->take(),
              ElementsAre("Geofold[Debug] Checking ranging for wide", "Geofold[Debug] Checking ranging for exact"));
  EXPECT_FALSE(manager->isRangingRegion(platform::CLRegion("yard")));

  manager->setPartnerIdentifier("p");
  EXPECT_EQ(TGFPartner::shared(*platform).getIdentifier(), "p");
  EXPECT_EQ(manager->getRegionForIdentifier("yard")->identifier(), "yard");
  EXPECT_TRUE(manager->locationManagerShouldDisplayHeadingCalibration(nullptr));
  EXPECT_EQ(TGFManager::getVersion(), "1.0.3");

  world.console->take();
  manager->locationManagerRangingBeaconsDidFailForRegionWithError(nullptr, reported(), Error{"Radio", 3, "off"});
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Error] Ranging Beacons Failed with Error: off (Radio 3)"));
}

// At each of these moments the host destroys the manager from within the call; nothing may follow but the end of
// logging.
TEST_F(Manager, MayBeDestroyedInEveryCall) {
  struct Case {
    const char* at;
    std::function<void()> cause;
  };
  const auto range = [this] {
    manager->locationManagerDidRangeBeaconsInRegion(nullptr, std::vector{beacon(1, 2)}, reported());
  };
  const auto enter = [this] { manager->locationManagerDidEnterRegion(nullptr, reported()); };
  for (const auto& [at, cause] : {Case{"did sync", [this] { manager->sync(); }}, Case{"did range", range},
                                  Case{"raw range", range}, Case{"did enter", enter}, Case{"raw enter", enter},
                                  Case{"raw own fail",
                                       [this] {
                                         location->status = CLAuthorizationStatus::denied;
                                         manager->sync();
                                       }},
                                  Case{"did fail", [this] { manager->stop(); }}}) {
    location->status = CLAuthorizationStatus::authorizedAlways;
    startWithKit();
    if (std::string_view(at) == "did fail") location->status = CLAuthorizationStatus::denied;
    int posted = 0;
    std::vector<std::unique_ptr<platform::NotificationCenter::Observation>> observations;
    for (const auto* name : {TGFManagerDidEnterRegionNotification, TGFManagerDidRangeBeaconsInRegionNotification})
      observations.push_back(platform->notificationCenter().addObserver(name, nullptr, [&](auto&) { ++posted; }));
    delegate.thenAt = at;
    delegate.then = [this] { manager.reset(); };
    cause();
    const auto seen = takeAfter(2h);
    ASSERT_FALSE(manager) << at;
    const auto moment = std::find_if(seen.begin(), seen.end(), [&](const auto& e) { return e.starts_with(at); });
    EXPECT_EQ(Events(moment + 1, seen.end()), (Events{"analytics stop", "status gone"})) << at;
    EXPECT_EQ(posted, 0) << at;
  }
}

TEST_F(Manager, MayBeDestroyedWithADownloadUnderWay) {
  serve(kKit);
  makeManager();
  manager->start();
  manager.reset();
  EXPECT_THAT(takeAfter(2h), ElementsAre("analytics start", "analytics stop"));
}

}  // namespace
}  // namespace wayloom
