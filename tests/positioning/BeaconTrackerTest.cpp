#include <cmath>
#include <gmock/gmock.h>
#include <limits>

#include "wayloom/positioning/TWLBeaconTracker.hpp"

#include "positioning/BeaconPlace.hpp"
#include "tests/positioning/Beacons.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using test::ranged;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(BeaconDistanceTest, FollowsTheCurve) {
  const auto distance = [](double rssi, std::int64_t power) { return TGFBeacon::distanceForRSSIForPower(rssi, power); };
  EXPECT_EQ(distance(0.0, -59), -1.0);
  EXPECT_NEAR(distance(-70.0, -59), 7.376, 0.0005);
  EXPECT_NEAR(distance(-59.0, -59), 1.154823, 1e-12) << "the seam belongs to the far branch";
  EXPECT_NEAR(distance(-58.999999, -59), 1.0, 1e-6);
  EXPECT_LT(distance(-58.999999, -59), 1.0);
  EXPECT_NEAR(distance(-30.0, -60), std::pow(0.5, 10), 1e-15);
  EXPECT_EQ(distance(-70.0, 0), std::numeric_limits<double>::infinity());
  EXPECT_NEAR(distance(-70.0, 70), 1.0, 1e-15) << "an even power of -1";
}

TEST(BeaconPlaceTest, ReadsTheAttributesLeniently) {
  const auto place = [](const char* attributes) { return BeaconPlace(platform::Json::parse(attributes)); };
  const auto full = place(R"({"map_id": "lobby", "latitude": "50.5", "longitude": 8.25, "measured_power": -59})");
  EXPECT_EQ(full.mapId, "lobby");
  EXPECT_EQ(full.coordinate.latitude, 50.5);
  EXPECT_EQ(full.coordinate.longitude, 8.25);
  EXPECT_EQ(place(R"({"map_id": 12})").mapId, "12");
  EXPECT_EQ(place(R"({"map_id": null})").mapId, std::nullopt);
  EXPECT_EQ(place("{}").coordinate.latitude, 0.0);
  struct Case {
    const char* power;
    std::optional<std::int64_t> read;
  };
  for (const auto& [power, read] :
       {Case{"-59", -59}, Case{"-59.9", -59}, Case{R"(" -59 dBm")", -59}, Case{"0", 0}, Case{"null", {}},
        Case{R"("strong")", {}}, Case{R"("- 59")", {}}, Case{"true", {}}, Case{"[-59]", {}}}) {
    const auto attributes = platform::Json{{"measured_power", platform::Json::parse(power)}};
    EXPECT_EQ(BeaconPlace(attributes).measuredPower, read) << power;
    const TGFBeacon beacon(platform::CLBeacon(),
                           std::make_shared<const BeaconMatch>(RegionDetails("", "", attributes)));
    EXPECT_EQ(&BeaconPlace::of(beacon), &BeaconPlace::of(TGFBeacon(beacon))) << "read once for all of one identity";
  }
}

struct BeaconTrackerTest : testing::Test {
  test::TestPlatform world;
  TWLBeaconTracker tracker{world};

  TGFBeaconPtr tracked(int minor) {
    for (const auto& beacon : tracker.trackedBeacons())
      if (test::minorOf(beacon) == minor) return beacon;
    return nullptr;
  }
  std::vector<int> minors() {
    std::vector<int> result;
    for (const auto& beacon : tracker.trackedBeacons()) result.push_back(test::minorOf(beacon));
    return result;
  }
  std::vector<double> samples(int minor) {
    std::vector<double> result;
    const auto beacon = tracked(minor);
    for (const auto& sample : beacon->signalMeasurements()) result.push_back(sample.rssi);
    return result;
  }
};

TEST_F(BeaconTrackerTest, AveragesOverTheWindow) {
  tracker.updateWithRangedBeacons({ranged(1, -70, 1.0)});
  EXPECT_EQ(tracked(1)->runningAverageRssi(), -70.0);
  EXPECT_NEAR(tracked(1)->distance(), 7.376, 0.0005);
  world.wait(2.5);
  tracker.updateWithRangedBeacons({ranged(1, -60, 1.0)});
  EXPECT_EQ(tracked(1)->runningAverageRssi(), -65.0);
  world.wait(2.5);
  tracker.updateWithRangedBeacons({ranged(1, 0, 1.0)});
  EXPECT_THAT(samples(1), ElementsAre(-70, -60)) << "the boundary belongs to the window; RSSI 0 is no sample";
  EXPECT_EQ(tracked(1)->lastDetected(), (*world.instance).monotonicClock().now());
  world.wait(1e-9);
  tracker.updateWithRangedBeacons({ranged(1, 5, 1.0)});
  EXPECT_THAT(samples(1), ElementsAre(-60));
  world.wait(2.5);
  tracker.updateWithRangedBeacons({ranged(1, 0, 1.0)});
  EXPECT_THAT(samples(1), IsEmpty());
  EXPECT_EQ(tracked(1)->runningAverageRssi(), 0.0);
  EXPECT_EQ(tracked(1)->distance(), -1.0);
}

TEST_F(BeaconTrackerTest, TheWindowCanBeSet) {
  EXPECT_EQ(TGFBeacon::secondsToAverage(world), 5.0);
  TGFBeacon::secondsToAverage(world, 60.0);
  for (int rssi = -90; rssi < -60; ++rssi) {
    tracker.updateWithRangedBeacons({ranged(1, rssi, 1.0)});
    world.wait(1.0);
  }
  EXPECT_EQ(samples(1).size(), 30U);
  EXPECT_EQ(tracked(1)->runningAverageRssi(), -75.5);
  TGFBeacon::secondsToAverage(world, 2.0);
  EXPECT_EQ(samples(1).size(), 30U) << "only a ranging recalculates";
  tracker.updateWithRangedBeacons({ranged(1, -50, 1.0)});
  EXPECT_THAT(samples(1), ElementsAre(-62, -61, -50));
  TGFBeacon::secondsToAverage(world, NAN);
  tracker.updateWithRangedBeacons({ranged(1, -50, 1.0)});
  EXPECT_THAT(samples(1), IsEmpty()) << "no age is within no number";
}

TEST_F(BeaconTrackerTest, KeepsUnseenBeaconsForFiveSeconds) {
  tracker.updateWithRangedBeacons({ranged(1, -70, 1.0), ranged(2, -71, 2.0), ranged(3, -72, 3.0)});
  world.wait(2.0);
  tracker.updateWithRangedBeacons({ranged(4, -73, 4.0), ranged(3, -72, 3.5)});
  EXPECT_THAT(minors(), ElementsAre(4, 3, 1, 2)) << "the ranged in their order, then the unseen in theirs";
  world.time.stepCalendar(std::chrono::hours(-5));
  world.wait(3.0 - 1e-9);
  tracker.updateWithRangedBeacons({});
  EXPECT_THAT(minors(), ElementsAre(4, 3, 1, 2));
  EXPECT_THAT(samples(1), ElementsAre(-70)) << "the unseen keep their samples, however old";
  EXPECT_THAT(world.systemLog->take(), IsEmpty());
  world.wait(1e-9);
  tracker.updateWithRangedBeacons({ranged(2, -60, 2.0)});
  EXPECT_THAT(minors(), ElementsAre(2, 4, 3)) << "exactly five seconds is too long, unless it is heard again";
  EXPECT_THAT(samples(2), ElementsAre(-71, -60));
  EXPECT_THAT(world.systemLog->take(),
              ElementsAre("Stopping tracking: 5A0E5A0E-0001-4000-8000-00000000BEAC 1 1 because we have not seen it in "
                          "5.000000 seconds"));
  EXPECT_EQ(test::minorOf(tracker.trackedBeaconDictionary().at("5A0E5A0E-0001-4000-8000-00000000BEAC 1 2")), 2);
}

TEST_F(BeaconTrackerTest, ACrowdThatLeavesFillsNoLog) {
  TGFBeaconList crowd;
  for (std::uint16_t minor = 1; minor <= 300; ++minor) crowd.push_back(ranged(minor, -70, 1.0));
  tracker.updateWithRangedBeacons({crowd.begin(), crowd.begin() + 200});
  world.wait(0.5);
  tracker.updateWithRangedBeacons({crowd.begin() + 200, crowd.end()});
  world.wait(4.5);
  tracker.updateWithRangedBeacons({});
  EXPECT_EQ(world.systemLog->take().size(), 20U);
  world.wait(0.5);
  tracker.updateWithRangedBeacons({});
  EXPECT_THAT(world.systemLog->take(), IsEmpty()) << "the same second";
  world.wait(0.5);
  tracker.updateWithRangedBeacons({ranged(7, -70, 1.0)});
  EXPECT_THAT(world.systemLog->take(), ElementsAre("Stopping tracking: 280 more beacons because we have not seen them "
                                                   "in 5.000000 seconds"));
  world.wait(5.0);
  tracker.updateWithRangedBeacons({});
  EXPECT_THAT(world.systemLog->take(), ElementsAre(testing::HasSubstr(" 1 7 because we have not seen it")));
}

TEST_F(BeaconTrackerTest, OfTwoObjectsWithOneIdentityTheLaterCounts) {
  tracker.updateWithRangedBeacons({ranged(1, -70, 1.0)});
  world.wait(1.0);
  tracker.updateWithRangedBeacons({ranged(1, -60, 2.0), ranged(2, -50, 3.0), ranged(1, -80, 4.0), nullptr});
  EXPECT_THAT(minors(), ElementsAre(1, 2));
  EXPECT_EQ(tracked(1)->accuracy(), 4.0);
  EXPECT_THAT(samples(1), ElementsAre(-70, -80)) << "both took over the history from before this ranging";
}

TEST_F(BeaconTrackerTest, WorksOnCopies) {
  const auto mine = ranged(1, -70, 1.0);
  tracker.updateWithRangedBeacons({mine});
  EXPECT_TRUE(mine->signalMeasurements().empty());
  const auto theirs = tracked(1);
  world.wait(1.0);
  tracker.updateWithRangedBeacons({ranged(1, -60, 1.0)});
  EXPECT_EQ(theirs->signalMeasurements().size(), 1U);
  EXPECT_TRUE(theirs->isEqual(*mine));
}

TEST_F(BeaconTrackerTest, FindsEveryBeaconOfACrowd) {
  TGFBeaconList crowd;
  for (int major = 0; major < 40; ++major)
    for (const int minor : {0, 1, 65535})
      crowd.push_back(
          std::make_shared<const TGFBeacon>(platform::CLBeacon{.proximityUUID = test::kVenue,
                                                               .major = static_cast<std::uint16_t>(major * 256),
                                                               .minor = static_cast<std::uint16_t>(minor),
                                                               .rssi = -60},
                                            std::make_shared<const BeaconMatch>()));
  for (int round = 1; round <= 4; ++round) {
    tracker.updateWithRangedBeacons(crowd);
    world.wait(1.0);
    ASSERT_EQ(tracker.tracked().size(), crowd.size());
    for (const auto& beacon : tracker.tracked()) ASSERT_EQ(beacon.signalMeasurements().size(), round);
  }
}

}  // namespace
}  // namespace wayloom
