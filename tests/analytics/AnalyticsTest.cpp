// What the analytics store keeps of regions, beacons and events, and what of it is uploaded.
#include <gmock/gmock.h>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/analytics/TGFAnalyticsEvent.hpp"
#include "wayloom/analytics/TGFAnalyticsLogger.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFCircle.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/regions/TGFNotifications.hpp"
#include "wayloom/regions/TGFPartner.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/support/StoreWorld.hpp"

namespace wayloom {
namespace {

using platform::Json;
using test::at;
using test::Lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kFile = "GeofoldAnalytics.sqlite";
const std::string kUuid = test::kVenue.string();

TGFBeaconRegion region(const Json& major, const Json& minor) {
  return TGFBeaconRegion(Json{{"identifier", "r"}, {"uuid", kUuid}, {"major", major}, {"minor", minor}});
}

TGFCircle circle(double radius) {
  return TGFCircle(Json{{"identifier", "yard"}, {"center", {52.1, 13.2}}, {"radius", radius}});
}

class AnalyticsTest : public testing::Test {
 protected:
  Lines sessions() const {
    return world.rows(kFile, "select id, entered_at, exited_at, region_major, region_minor from region_sessions");
  }
  Lines beacons() const {
    return world.rows(
        kFile,
        "select region_session_id, beacon_minor, first_detected_at, last_detected_at, typeof(beacon_minor), "
        "typeof(first_detected_at) from beacon_sessions");
  }

  test::StoreWorld world;
};

TEST_F(AnalyticsTest, sessionsOpenAndCloseByTheirRegion) {
  TGFAnalytics analytics(world);
  const auto both = region(1, 2), majorOnly = region(1, nullptr), any = region(nullptr, nullptr);
  for (const auto* each : {&both, &majorOnly, &any}) analytics.openSessionWithRegion(*each);
  world.wait(1);
  analytics.openSessionWithRegion(majorOnly);  // twice without an exit: only the newer session ends
  world.wait(1);
  analytics.closeSessionWithRegion(majorOnly);
  analytics.closeSessionWithRegion(region(nullptr, nullptr));
  EXPECT_THAT(sessions(),
              ElementsAre("1 | 1448106000.5 | - | 1 | 2", "2 | 1448106000.5 | - | 1 | -",
                          "3 | 1448106000.5 | 1448106002.5 | - | -", "4 | 1448106001.5 | 1448106002.5 | 1 | -"));
  // A minor without a major is stored, and never found again.
  const auto minorOnly = region(nullptr, 7);
  analytics.openSessionWithRegion(minorOnly);
  analytics.updateSessionWithRegionAndBeacons(minorOnly, {at(1, 2.0)});
  analytics.closeSessionWithRegion(minorOnly);
  EXPECT_EQ(sessions().back(), "5 | 1448106002.5 | - | - | 7");
  EXPECT_THAT(beacons(), IsEmpty());
  EXPECT_THAT(world.takeLog(), IsEmpty());
}

TEST_F(AnalyticsTest, geofencesAreComparedInSinglePrecision) {
  TGFAnalytics analytics(world);
  analytics.openSessionWithRegion(circle(20.1));
  analytics.closeSessionWithRegion(circle(20.2));
  EXPECT_THAT(world.rows(kFile, "select exited_at from geo_region_sessions"), ElementsAre("-"));
  analytics.closeSessionWithRegion(circle(20.1 + 1e-9));
  EXPECT_THAT(world.rows(kFile,
                         "select region_id, exited_at, typeof(radius), latitude = 52.099998474121094 from "
                         "geo_region_sessions"),
              ElementsAre("yard | 1448106000.5 | real | 1"));
}

TEST_F(AnalyticsTest, beaconsBelongToTheSessionThatIsOpen) {
  TGFAnalytics analytics(world);
  TGFAnalytics other(world);
  const auto here = region(1, nullptr);
  analytics.updateSessionWithRegionAndBeacons(here, {at(1, 2.0)});  // before any enter
  EXPECT_THAT(beacons(), IsEmpty());
  analytics.openSessionWithRegion(here);
  for (int i = 0; i < 3; ++i) {
    analytics.updateSessionWithRegionAndBeacons(
        here, i == 0 ? TGFBeaconList{at(1, 2.0)} : TGFBeaconList{at(2, 1.0), at(1, 2.0)});
    world.wait(1);
  }
  EXPECT_THAT(beacons(), ElementsAre("1 | 1 | 1448106000.5 | 1448106002.5 | integer | text",
                                     "1 | 2 | 1448106001.5 | 1448106002.5 | integer | text"));
  // Another store on the file ends the session and begins the next: this one must notice.
  other.closeSessionWithRegion(here);
  analytics.updateSessionWithRegionAndBeacons(here, {at(1, 2.0)});
  EXPECT_THAT(beacons(), SizeIs(2));
  other.openSessionWithRegion(here);
  other.updateSessionWithRegionAndBeacons(here, {at(1, 2.0)});
  analytics.updateSessionWithRegionAndBeacons(here, {at(1, 2.0)});
  EXPECT_EQ(beacons().back(), "2 | 1 | 1448106003.5 | 1448106003.5 | integer | text");
  EXPECT_THAT(beacons(), SizeIs(3));
}

TEST_F(AnalyticsTest, beaconsAreTheSameByTheirNumbersAlone) {
  TGFAnalytics analytics(world);
  const auto here = region(1, nullptr), minorOnly = region(nullptr, 7), any = region(nullptr, nullptr);
  const auto entry = std::make_shared<const TGFBeacon>(Json{{"uuid", kUuid}, {"major", 1}, {"minor", 3}});
  analytics.openSessionWithRegion(here);
  for (int i = 0; i < 3; ++i) analytics.updateSessionWithRegionAndBeacons(here, {entry});
  EXPECT_THAT(beacons(), ElementsAre("1 | 3 | 1448106000.5 | 1448106000.5 | integer | text"));
  // Closed behind the functions' back.
  analytics.db().inTransaction([](storage::DatabaseConnection& connection, bool&) {
    connection.executeUpdate("update region_sessions set exited_at = '1448106000.5'");
  });
  analytics.updateSessionWithRegionAndBeacons(here, {at(4, 2.0)});
  EXPECT_THAT(beacons(), SizeIs(1));
  // A minor without a major counts for nothing when a session is looked for.
  analytics.openSessionWithRegion(any);
  analytics.openSessionWithRegion(minorOnly);
  analytics.updateSessionWithRegionAndBeacons(minorOnly, {at(4, 2.0)});
  analytics.updateSessionWithRegionAndBeacons(any, {at(4, 2.0)});
  EXPECT_EQ(beacons().back(), "2 | 4 | 1448106000.5 | 1448106000.5 | integer | text");
  EXPECT_THAT(beacons(), SizeIs(2));
}

TEST_F(AnalyticsTest, identitiesThatSomebodyMakesUpAreBounded) {
  TGFAnalytics analytics(world);
  const auto here = region(nullptr, nullptr);
  analytics.openSessionWithRegion(here);
  auto listed = std::make_shared<BeaconMatch>();
  listed->isListed = true;
  const auto range = [&](std::uint16_t major, const BeaconMatchPtr& match) {
    TGFBeaconList ranged;
    for (int minor = 0; minor < 5000; ++minor) {
      const platform::CLBeacon beacon{test::kVenue, major, static_cast<std::uint16_t>(minor)};
      ranged.push_back(std::make_shared<const TGFBeacon>(beacon, match));
    }
    analytics.updateSessionWithRegionAndBeacons(here, ranged);
  };
  const auto numbers = [&] { return world.rows(kFile, "select count(*) from beacon_sessions").at(0); };
  for (std::uint16_t major = 0; major < 5; ++major) range(major, std::make_shared<BeaconMatch>());
  EXPECT_EQ(numbers(), "20000");
  range(5, listed);
  EXPECT_EQ(numbers(), "25000");
  EXPECT_THAT(world.takeLog(), ElementsAre(testing::HasSubstr("leaves out beacons that the kit does not list")));
  world.wait(360);
  range(4, std::make_shared<BeaconMatch>());
  EXPECT_EQ(numbers(), "27000");
}

TEST_F(AnalyticsTest, eventsComeBackAsTheyWere) {
  TGFAnalytics analytics(world);
  const Json details = {{"n", 1}, {"x", 0.1}, {"whole", 2.0}, {"text", "\u00fc\"\n"}, {"deep", {{"a", {1, nullptr}}}}};
  analytics.addEventWithDetails("door", details);
  analytics.addEventWithDetails("none", nullptr);
  Json nested = Json::array();
  for (int i = 0; i < 300; ++i) nested = Json::array({nested});
  analytics.addEventWithDetails("deep", {{"nested", nested}});
  analytics.addEventWithDetails("large", {{"text", std::string(TGFAnalytics::kMostDetails, 'x')}});
  const auto events = analytics.eventsToBeUploaded();
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0]["event_details"].dump(), details.dump());
  EXPECT_EQ(events[0]["triggered_at"], "2015-11-21T11:40:00Z");
  EXPECT_EQ(events[1]["event_details"], Json::object());
  EXPECT_THAT(world.rows(kFile, "select distinct typeof(event_details) from events"), ElementsAre("blob"));
}

TEST_F(AnalyticsTest, anInMemoryStoreLeavesNoFile) {
  TGFAnalytics analytics(world, TGFAnalyticsDatabase::withInMemoryDatabase(world));
  analytics.addEventWithDetails("door", Json::object());
  EXPECT_THAT(analytics.eventsToBeUploaded(), SizeIs(1));
  EXPECT_EQ(analytics.db().databasePath(), std::nullopt);
  EXPECT_FALSE(world.sim.platform().files().fileExists(world.sim.documents() + "/" + kFile));
}

// --- Upload ---

class AnalyticsUploadTest : public AnalyticsTest {
 protected:
  AnalyticsUploadTest() {
    world.configure({{"GFKitURL", "http://kit.example/api/kits/42"},
                     {"GFAPIToken", "secret"},
                     {"GFAnalyticsURL", "http://analytics.example/in"}});
  }

  void recordAll(TGFAnalytics& store) {
    const auto here = region(1, nullptr);
    store.openSessionWithRegion(here);
    store.updateSessionWithRegionAndBeacons(here, {at(4, 2.0)});
    store.openSessionWithRegion(circle(20.5));
    world.wait(1);
    store.updateSessionWithRegionAndBeacons(here, {at(4, 2.0), at(5, 2.0)});
    store.closeSessionWithRegion(here);
    store.closeSessionWithRegion(circle(20.5));
    store.openSessionWithRegion(here);  // stays open: not due
    store.addEventWithDetails("door", {{"n", 1}, {"triggered_at", "overwritten"}});
    store.addEventWithDetails("partner_id", {{"n", 2}});
    store.addEventWithDetails("door", {{"n", 3}});
  }

  TGFAnalytics analytics{world};
};

TEST_F(AnalyticsUploadTest, postsOneDocumentAndMarksWhatWasInIt) {
  TGFPartner::shared(world).setIdentifier("partner");
  recordAll(analytics);
  analytics.uploadAnalyticsToServer();
  EXPECT_THAT(world.takeRequests(), IsEmpty());  // not on the caller's thread
  world.wait(0);
  const auto requests = world.takeRequests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].method + " " + requests[0].url, "POST http://analytics.example/in");
  EXPECT_THAT(requests[0].headers, ElementsAre(testing::Pair("AUTHORIZATION", "Token token=\"secret\""),
                                               testing::Pair("X-GF-AppID", "5761796C-6F6F-4D00-8000-000000000001"),
                                               testing::Pair("X-GF-FrameworkVersion", "1.0.3"),
                                               testing::Pair("Content-Type", "application/json"),
                                               testing::Pair("Accept", "application/json")));
  EXPECT_EQ(Json::parse(requests[0].body), Json::parse(R"({
    "door": [{"n": 1, "triggered_at": "2015-11-21T11:40:01Z"}, {"n": 3, "triggered_at": "2015-11-21T11:40:01Z"}],
    "partner_id": "partner",
    "geofold_kit_events": [{"kit_id": "42",
      "region_sessions": [{"id": 1, "region_uuid": ")" +
                                                       kUuid + R"(", "region_major": 1, "region_minor": null,
        "entered_at": "2015-11-21T11:40:00Z", "exited_at": "2015-11-21T11:40:01Z", "beacon_sessions": [
          {"beacon_uuid": ")" + kUuid + R"(", "beacon_major": 1, "beacon_minor": 4,
           "first_detected_at": "2015-11-21T11:40:00Z", "last_detected_at": "2015-11-21T11:40:01Z"},
          {"beacon_uuid": ")" + kUuid + R"(", "beacon_major": 1, "beacon_minor": 5,
           "first_detected_at": "2015-11-21T11:40:01Z"}]}],
      "geo_region_sessions": [{"id": 1, "region_id": "yard", "latitude": 52.099998474121094,
        "longitude": 13.199999809265137, "radius": 20.5, "entered_at": "2015-11-21T11:40:00Z",
        "exited_at": "2015-11-21T11:40:01Z"}]}],
    "app_id": "5761796C-6F6F-4D00-8000-000000000001"})"));
  for (const char* table : {"region_sessions where exited_at is not null", "geo_region_sessions", "events"})
    EXPECT_THAT(world.rows(kFile, std::string("select distinct uploaded_at from ") + table),
                ElementsAre("1448106001.5"))
        << table;
  // Nothing is due any more, so nothing is sent.
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(world.takeRequests(), IsEmpty());
}

TEST_F(AnalyticsUploadTest, whatWasNotDeliveredIsOfferedAgain) {
  world.configure({{"GFAPIToken", "secret"}});
  TGFLogger::setLevel(world, TGFLogLevel::info);
  analytics.addEventWithDetails("door", {{"n", 1}});
  for (int i = 0; i < 2; ++i) {
    analytics.uploadAnalyticsToServer();
    world.wait(0);
    EXPECT_THAT(world.takeLog(), ElementsAre("Geofold[Info] No GFAnalyticsURL set in Geofold.plist, skipping upload"));
  }
  world.configure({{"GFAnalyticsURL", "http://analytics.example/in"}});
  world.sim.server().setNetworkUp(false);
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(world.takeLog(), IsEmpty());
  EXPECT_THAT(analytics.eventsToBeUploaded(), SizeIs(1));
  // Without a kit URL there is no kit; the two lists are there all the same.
  EXPECT_EQ(Json::parse(world.takeRequests().at(0).body)["geofold_kit_events"],
            Json::parse(R"([{"region_sessions": [], "geo_region_sessions": []}])"));
  world.sim.server().setNetworkUp(true);
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(world.takeLog(), ElementsAre("Geofold[Info] Posted events to analytics server"));
}

TEST_F(AnalyticsUploadTest, goesOnDocumentByDocumentUntilNothingIsDue) {
  const auto sizes = [&] {
    std::vector<std::size_t> all;
    for (const auto& request : world.takeRequests()) {
      const auto body = Json::parse(request.body);
      EXPECT_LT(request.body.size(), 1500U << 10U);
      all.push_back((body.contains("step") ? body["step"].size() : 0) +
                    body["geofold_kit_events"][0]["region_sessions"].size());
    }
    return all;
  };
  const auto here = region(1, nullptr);
  for (int i = 0; i < 300; ++i) {
    analytics.openSessionWithRegion(here);
    analytics.updateSessionWithRegionAndBeacons(here, {at(4, 2.0)});
    analytics.closeSessionWithRegion(here);
  }
  for (int i = 0; i < 1900; ++i) analytics.addEventWithDetails("step", {{"n", i}});
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(sizes(), ElementsAre(1000, 1000, 200));
  for (int i = 0; i < 10; ++i) analytics.addEventWithDetails("step", {{"text", std::string(300000, 'x')}});
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(sizes(), ElementsAre(4, 4, 2));
  EXPECT_THAT(analytics.eventsToBeUploaded(), IsEmpty());
  EXPECT_THAT(analytics.beaconRegionsToBeUploaded(), IsEmpty());
  // The first that fails ends the pass.
  for (int i = 0; i < 1500; ++i) analytics.addEventWithDetails("step", {{"n", i}});
  world.sim.server().setNetworkUp(false);
  analytics.uploadAnalyticsToServer();
  world.wait(0);
  EXPECT_THAT(sizes(), ElementsAre(1000));
}

TEST_F(AnalyticsUploadTest, whatWasDeliveredAndCanNotBeMarkedIsNotSentAgain) {
  for (int i = 0; i < 3; ++i) analytics.addEventWithDetails("step", {{"n", i}});
  const auto sent = [&] {
    analytics.uploadAnalyticsToServer();
    world.wait(30);
    std::string numbers;
    for (const auto& request : world.takeRequests()) {
      const auto body = Json::parse(request.body);
      for (const auto& event : body["step"]) numbers += event["n"].dump();
    }
    return numbers;
  };
  world.execute(kFile,
                "create trigger refuse before update on events when old.id = 2 begin select raise(abort, 'no'); end");
  EXPECT_EQ(sent(), "012");
  analytics.addEventWithDetails("step", {{"n", 3}});
  EXPECT_EQ(sent(), "3");
  EXPECT_EQ(sent(), "");
  world.execute(kFile, "drop trigger refuse");
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(analytics.eventsToBeUploaded(), IsEmpty());
  // A mark that doesn't last ends the pass, too: once a document, and not without a pause.
  world.execute(kFile,
                "create trigger undo after update on events begin update events set uploaded_at = null where id = "
                "new.id; end");
  for (int i = 0; i < 1200; ++i) analytics.addEventWithDetails("step", {{"n", 7}});
  EXPECT_EQ(sent().size(), 1000U);
}

TEST_F(AnalyticsUploadTest, oneAtATimeAndGoneWithItsObject) {
  world.sim.server().setLatency(std::chrono::seconds(50));
  auto uploading = std::make_unique<TGFAnalytics>(world);
  recordAll(*uploading);
  for (int i = 0; i < 3; ++i) {
    uploading->uploadAnalyticsToServer();
    world.wait(10);
  }
  EXPECT_THAT(world.takeRequests(), SizeIs(1));
  uploading->addEventWithDetails("late", Json::object());
  uploading.reset();
  world.wait(100);
  EXPECT_THAT(analytics.eventsToBeUploaded(), SizeIs(4));
}

// --- The logger ---

TEST_F(AnalyticsTest, theLoggerRecordsWhileItLives) {
  auto& center = world.sim.platform().notificationCenter();
  const auto post = [&](const char* name, bool complete) {
    platform::UserInfo info;
    if (complete) {
      info.set(TGFManagerNotificationRegionKey, TGFRegionPtr(std::make_shared<TGFBeaconRegion>(region(1, nullptr))));
      info.set(TGFManagerNotificationBeaconsKey, TGFBeaconList{at(9, 1.0)});
    }
    center.post({name, nullptr, info});
  };
  TGFAnalytics analytics(world);
  analytics.startLogging();
  analytics.startLogging();
  for (const bool complete : {false, true})
    for (const char* name : {TGFManagerDidEnterRegionNotification, TGFManagerDidRangeBeaconsInRegionNotification,
                             TGFManagerDidExitRegionNotification, TGFManagerDidTriggerAnalyticsEvent})
      post(name, complete);
  TGFAnalyticsEvent::postEventWithDetails(world, "door", {{"n", 1}});
  EXPECT_THAT(analytics.eventsToBeUploaded(), IsEmpty());
  world.wait(0);
  EXPECT_THAT(analytics.eventsToBeUploaded(), SizeIs(1));
  EXPECT_THAT(sessions(), ElementsAre("1 | 1448106000.5 | 1448106000.5 | 1 | -"));
  EXPECT_THAT(beacons(), ElementsAre("1 | 9 | 1448106000.5 | - | integer | text"));
  analytics.stopLogging();
  post(TGFManagerDidEnterRegionNotification, true);
  EXPECT_THAT(sessions(), SizeIs(1));
}

}  // namespace
}  // namespace wayloom
