// What the status store keeps of beacons, when it is reported, and how.
#include <gmock/gmock.h>

#include "wayloom/regions/TGFNotifications.hpp"
#include "wayloom/status/TGFStatusLogger.hpp"
#include "wayloom/status/TPLStatusManager.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/support/StoreWorld.hpp"

namespace wayloom {
namespace {

using platform::Json;
using test::Lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kFile = "Pulsekeep.sqlite";
const Json kServer = {{"url", "http://status.example/sdk/v1/events"}, {"token", "pulse"}};

TPLBeacon beacon(int minor) { return TPLBeacon::beaconWithUUIDMajorMinor(test::kVenue.string(), 1, minor); }

platform::CLBeacon ranged(std::uint16_t minor) { return {.proximityUUID = test::kVenue, .major = 1, .minor = minor}; }

class StatusTest : public testing::Test {
 protected:
  Lines rows() const {
    return world.rows(kFile,
                      "select id, beacon_uuid, beacon_major, beacon_minor, first_detected_at, last_detected_at, "
                      "uploaded_at, typeof(last_detected_at) from beacon_sessions");
  }
  static std::vector<std::int64_t> minorsOf(const std::vector<TPLBeaconSession>& sessions) {
    std::vector<std::int64_t> minors;
    for (const auto& session : sessions) minors.push_back(session.minor);
    return minors;
  }

  test::StoreWorld world;
};

TEST_F(StatusTest, aBeaconHasOneRow) {
  TPLStatusDatabase db(world);
  const auto first = db.rangedBeacon(beacon(1));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->beaconSessionId, 1);
  EXPECT_EQ(first->lastDetectedAt, world.sim.time().calendarNow());
  world.wait(2);
  const std::array beacons = {ranged(1), ranged(2), ranged(2)};
  db.rangedBeacons(beacons);
  EXPECT_EQ(db.rangedBeacon(beacon(2))->beaconSessionId, 2);
  TPLStatusDatabase other(world);
  other.insertNewBeaconSession(beacon(3));
  db.insertNewBeaconSession(beacon(4));
  world.wait(2);
  const std::array later = {ranged(3), ranged(4)};
  db.rangedBeacons(later);
  const std::string uuid = test::kVenue.string();
  EXPECT_THAT(rows(), ElementsAre("1 | " + uuid + " | 1 | 1 | 1448106000.5 | 1448106002.5 | - | text",
                                  "2 | " + uuid + " | 1 | 2 | 1448106002.5 | 1448106002.5 | - | text",
                                  "3 | " + uuid + " | 1 | 3 | 1448106002.5 | 1448106004.5 | - | text",
                                  "4 | " + uuid + " | 1 | 4 | 1448106002.5 | 1448106004.5 | - | text"));
  EXPECT_FALSE(db.beaconExists(beacon(5)));
  EXPECT_EQ(TPLStatusDatabase::formatDate(world.sim.time().calendarNow()), "2015-11-21T11:40:04.500Z");
}

// Stored seconds are Julian days to datetime(), and today's are beyond the last of them.
TEST_F(StatusTest, whatIsDueIsUpToDatetime) {
  TPLStatusDatabase db(world);
  db.rangedBeacon(beacon(1));
  db.rangedBeacon(beacon(2));
  EXPECT_THAT(minorsOf(db.beaconSessionsToBeUploaded()), ElementsAre(1, 2));
  db.markBeaconSessionsAsUploaded({db.beaconSessionsToBeUploaded()[0]});
  EXPECT_THAT(minorsOf(db.beaconSessionsToBeUploaded()), ElementsAre(2));
  world.wait(3600);
  db.rangedBeacon(beacon(1));
  EXPECT_THAT(minorsOf(db.beaconSessionsToBeUploaded()), ElementsAre(2));

  test::StoreWorld early(1000.0);  // seconds that are possible days
  TPLStatusDatabase earlyDb(early);
  earlyDb.rangedBeacon(beacon(1));
  earlyDb.markBeaconSessionsAsUploaded(earlyDb.beaconSessionsToBeUploaded());
  EXPECT_THAT(earlyDb.beaconSessionsToBeUploaded(), IsEmpty());
  early.wait(1);
  earlyDb.rangedBeacon(beacon(1));
  EXPECT_THAT(earlyDb.beaconSessionsToBeUploaded(), SizeIs(1));
}

TEST_F(StatusTest, uploadsAtMostEveryHalfMinute) {
  TPLStatusManager manager(world, kServer);
  EXPECT_TRUE(manager.isTimeToUpload());
  world.wait(0);  // the first tick: nothing to send, which counts as sent
  EXPECT_THAT(world.takeRequests(), IsEmpty());
  EXPECT_FALSE(manager.isTimeToUpload());
  world.wait(10);
  manager.rangedBeacons(std::array{ranged(1), ranged(2)});
  world.wait(20);
  EXPECT_FALSE(manager.isTimeToUpload());  // 30 s is not more than 30 s
  EXPECT_THAT(world.takeRequests(), IsEmpty());
  world.wait(1);
  manager.rangedBeacon(ranged(3));
  world.wait(0);
  const auto requests = world.takeRequests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].method + " " + requests[0].url, "POST http://status.example/sdk/v1/events");
  EXPECT_THAT(requests[0].headers, ElementsAre(testing::Pair("AUTHORIZATION", "Token token=\"pulse\""),
                                               testing::Pair("X-PL-AppID", "5761796C-6F6F-4D00-8000-000000000001"),
                                               testing::Pair("X-PL-FrameworkVersion", "1"),
                                               testing::Pair("Content-Type", "application/json"),
                                               testing::Pair("Accept", "application/json")));
  const std::string uuid = R"({"uuid":")" + test::kVenue.string() + R"(","major":1,"minor":)";
  EXPECT_EQ(requests[0].body, R"({"beacon_status_events":[)" + uuid + R"(1,"last_seen":"2015-11-21T11:40:10Z"},)" +
                                  uuid + R"(2,"last_seen":"2015-11-21T11:40:10Z"},)" + uuid +
                                  R"(3,"last_seen":"2015-11-21T11:40:31Z"}],)" +
                                  R"("app_id":"5761796C-6F6F-4D00-8000-000000000001"})");
  EXPECT_EQ(world.rows(kFile, "select distinct uploaded_at from beacon_sessions"), Lines{"1448106031.5"});
  manager.stopTimedUpload();
  world.wait(300);
  EXPECT_THAT(world.takeRequests(), IsEmpty());
}

TEST_F(StatusTest, aFailedUploadStaysDueAndIsTriedAtEveryRanging) {
  TPLStatusManager manager(world, kServer);
  world.sim.server().setNetworkUp(false);
  for (int i = 0; i < 3; ++i) {
    manager.rangedBeacon(ranged(1));
    world.wait(1);
  }
  EXPECT_THAT(world.takeRequests(), SizeIs(4));  // one of them is the first tick's
  EXPECT_EQ(world.takeLog().at(0), "Failed uploading events: The network is down (HTTP 6)");
  EXPECT_EQ(world.rows(kFile, "select uploaded_at from beacon_sessions"), Lines{"-"});
  // Without a URL, what was never sent counts as sent.
  TPLStatusManager silent(world, Json{{"token", "pulse"}});
  world.wait(1);
  EXPECT_EQ(world.takeLog().at(0), "No TPLStatusURL set, skipping upload");
  EXPECT_EQ(world.rows(kFile, "select uploaded_at from beacon_sessions"), Lines{"1448106003.5"});
}

TEST_F(StatusTest, triggersDuringAnUploadAreOneMoreAfterIt) {
  world.sim.server().setLatency(std::chrono::seconds(20));
  auto manager = std::make_unique<TPLStatusManager>(world, kServer);
  for (int i = 0; i < 15; ++i) {
    manager->rangedBeacon(ranged(static_cast<std::uint16_t>(i)));
    world.wait(1);
  }
  EXPECT_THAT(world.takeRequests(), SizeIs(1));
  world.wait(10);
  EXPECT_THAT(world.takeRequests(), SizeIs(1));
  // While the second is under way: it ends and marks. The next manager of the same server goes on with it.
  manager.reset();
  manager = std::make_unique<TPLStatusManager>(world, kServer);
  world.wait(1);
  EXPECT_TRUE(manager->eventTracker().isUploading());
  manager.reset();
  world.wait(100);
  EXPECT_THAT(world.takeRequests(), IsEmpty());
  EXPECT_THAT(world.rows(kFile, "select * from beacon_sessions where uploaded_at is null"), IsEmpty());
}

TEST_F(StatusTest, uploadsDocumentByDocumentUntilNothingIsDue) {
  TPLStatusDatabase db(world);
  for (std::uint16_t minor = 0; minor < 2500; ++minor) db.rangedBeacons(std::array{ranged(minor)});
  TPLStatusManager manager(world, kServer);
  world.wait(0);
  std::vector<std::size_t> sizes;
  for (const auto& request : world.takeRequests())
    sizes.push_back(Json::parse(request.body)["beacon_status_events"].size());
  EXPECT_THAT(sizes, ElementsAre(1000, 1000, 500));
  EXPECT_THAT(db.beaconSessionsToBeUploaded(), IsEmpty());
}

TEST_F(StatusTest, identitiesThatSomebodyMakesUpAreBounded) {
  TPLStatusManager manager(world, kServer);
  manager.stopTimedUpload();
  manager.setListedBeacons([](const platform::BeaconIdentity& beacon) { return beacon.major == 1; });
  const auto range = [&](std::uint16_t major, int number) {
    std::vector<platform::CLBeacon> beacons;
    for (int minor = 0; minor < number; ++minor)
      beacons.push_back({.proximityUUID = test::kVenue, .major = major, .minor = static_cast<std::uint16_t>(minor)});
    manager.db().rangedBeacons(beacons);
    return world.rows(kFile, "select count(*) from beacon_sessions").at(0);
  };
  EXPECT_EQ(range(2, 25000), "20000");
  EXPECT_EQ(range(1, 100), "20100");
  EXPECT_EQ(range(2, 25000), "20100");
  EXPECT_THAT(world.takeLog(), ElementsAre("The status store leaves out beacons that the kit does not list: more than "
                                           "20000 new ones; sightings left out so far: 1"));
  world.wait(3600);
  EXPECT_EQ(range(3, 5000), "22100");
}

TEST_F(StatusTest, anInMemoryManagerUploadsWhatTheFileHolds) {
  TPLStatusDatabase(static_cast<platform::Platform&>(world)).insertNewBeaconSession(beacon(1));
  const auto manager = TPLStatusManager::withInMemoryDatabase(world, kServer);
  manager->rangedBeacon(ranged(2));
  world.wait(0);
  EXPECT_EQ(Json::parse(world.takeRequests().at(0).body)["beacon_status_events"][0]["minor"], 1);
  EXPECT_THAT(rows(), SizeIs(1));
  EXPECT_TRUE(manager->db().beaconExists(beacon(2)));
}

// --- Requests ---

TEST_F(StatusTest, asynchronousRequestsGoOutTwiceAndFallBackOnTheLastAnswer) {
  TPLAPIRequest api(world, "pulse");
  EXPECT_EQ(api.fileNameFrom("http://h/sdk/v1/events"), "pulsekeep-sdk-v1-events.data");
  EXPECT_EQ(api.fileNameFrom("http://h/"), "pulsekeep-.data");
  Lines answers;
  const auto note = [&](std::optional<platform::Error> error, std::optional<Json> document) {
    answers.push_back((error ? error->domain + " " + std::to_string(error->code) : "fine") + " " +
                      (document ? document->dump() : "-"));
  };
  const std::string url = "http://status.example/sdk/v1/events";
  api.postBodyHandler(url, "{}", note);
  world.wait(0);
  EXPECT_THAT(world.takeRequests(), SizeIs(2));
  EXPECT_EQ(answers, Lines{"Pulsekeep 204 -"});
  api.writeToDiskFromURL(R"({"kept":1})", url);
  world.sim.server().setNetworkUp(false);
  api.getHandler(url, note);
  world.wait(0);
  EXPECT_EQ(answers.back(), R"(HTTP 6 {"kept":1})");
  EXPECT_EQ(api.postSyncBody(url, "{}")->code, 6);
}

TEST_F(StatusTest, theStatusLoggerPostsOneBeaconAfterTheOther) {
  world.configure({{"GFAPIToken", "secret"}});
  auto& center = world.sim.platform().notificationCenter();
  const auto post = [&](const char* name) {
    platform::UserInfo info;
    info.set(TGFManagerNotificationBeaconsKey, TGFBeaconList{test::at(1, 2.0), test::at(2, 2.0)});
    center.post({name, nullptr, info});
    world.wait(0);
  };
  auto logger = std::make_unique<TGFStatusLogger>(world, "http://localhost:3000/sdk/v1/events");
  post(TGFManagerDidEnterRegionNotification);
  post(TGFManagerDidRangeBeaconsInRegionNotification);
  const std::string uuid = test::kVenue.string();
  EXPECT_THAT(world.takeLog(),
              ElementsAre("Status enter", "Status range", "Posting a status for " + uuid + " 1 1",
                          "Post returned status ", "Posting a status for " + uuid + " 1 2", "Post returned status "));
  const auto requests = world.takeRequests();
  ASSERT_THAT(requests, SizeIs(2));
  EXPECT_EQ(requests[0].body, R"({"beacon_status_events":[{"uuid":")" + uuid + R"(","major":1,"minor":1}]})");
  logger.reset();
  EXPECT_FALSE(center.hasObservers(TGFManagerDidEnterRegionNotification));
  EXPECT_TRUE(center.hasObservers(TGFManagerDidRangeBeaconsInRegionNotification));
  post(TGFManagerDidRangeBeaconsInRegionNotification);
  EXPECT_THAT(world.takeLog(), IsEmpty());
}

}  // namespace
}  // namespace wayloom
