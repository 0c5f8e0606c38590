#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <random>

#include "wayloom/positioning/TWLLocationTracker.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using test::at;
using test::minorOf;
using test::ranged;
using testing::ElementsAre;
constexpr double kInstant = 1e-9;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct LocationTrackerTest : testing::Test {
  test::TestPlatform world;
  TWLLocationTracker& tracker = TWLLocationTracker::sharedLocationTracker(world);

  void range(const TGFBeaconList& beacons) {
    tracker.didRangeBeaconsInRegionInRegion(beacons, nullptr);
    world.time.runReady();
  }
  void rangeAfter(double seconds, const TGFBeaconList& beacons) {
    world.wait(seconds);
    range(beacons);
  }
  int winner() { return minorOf(tracker.closestBeacon()); }
  int candidate() { return minorOf(tracker.closestBeaconCandidate()); }
};

TEST_F(LocationTrackerTest, MergesInTheBackground) {
  tracker.didRangeBeaconsInRegionInRegion({at(1, 2.0)}, nullptr);
  EXPECT_EQ(winner(), 0);
  world.time.runReady();
  EXPECT_EQ(winner(), 1);
  EXPECT_EQ(tracker.beaconTracker().trackedBeacons().size(), 1U);
}

TEST_F(LocationTrackerTest, AWinnerHoldsForFiveSeconds) {
  range({at(1, 2.0)});
  rangeAfter(2.0, {at(1, 2.0), at(2, 1.0)});
  EXPECT_EQ(winner(), 1);
  EXPECT_EQ(candidate(), 2);
  rangeAfter(3.0, {at(1, 2.0), at(2, 1.0)});
  EXPECT_EQ(winner(), 1) << "exactly five seconds";
  rangeAfter(kInstant, {at(1, 0.5), at(2, 1.0)});
  EXPECT_EQ(winner(), 1) << "the winner is the nearest again: elected again";
  rangeAfter(4.0, {at(3, 0.1)});
  EXPECT_EQ(winner(), 1) << "which begins a new five seconds";
  rangeAfter(1.0 + kInstant, {});
  EXPECT_EQ(winner(), 3) << "an unseen beacon stands for election too";
}

TEST_F(LocationTrackerTest, ACandidateKeepsTheValueItWasChosenWith) {
  range({at(1, 1.0)});
  for (int second = 1; second <= 4; ++second) rangeAfter(1.0, {at(1, 3.0), at(2, 2.0)});
  EXPECT_EQ(candidate(), 1) << "compared at 1.0 m";
  EXPECT_EQ(tracker.closestBeacon()->accuracy(), 1.0);
  rangeAfter(2.0, {at(1, 3.0), at(2, 2.0)});
  EXPECT_EQ(winner(), 1) << "nobody asked since, so that the candidate expired only after it was elected again";
  EXPECT_EQ(tracker.closestBeacon()->accuracy(), 1.0);
  EXPECT_EQ(candidate(), 0);
  rangeAfter(1.0, {at(1, 3.0), at(2, 2.0)});
  EXPECT_EQ(candidate(), 2);
  EXPECT_EQ(winner(), 1);
  world.wait(5.0);
  EXPECT_EQ(winner(), 1) << "reading the winner makes the candidate expire, too: not yet";
  EXPECT_EQ(candidate(), 2);
  world.wait(kInstant);
  EXPECT_EQ(winner(), 0);
  EXPECT_EQ(candidate(), 0);
}

TEST_F(LocationTrackerTest, OnlyAStrictlyNearerBeaconBecomesCandidate) {
  range({at(1, 2.0), at(2, 2.0)});
  EXPECT_EQ(winner(), 1);
  rangeAfter(1.0, {at(3, 2.0), at(2, 2.0), at(1, 2.0)});
  EXPECT_EQ(candidate(), 1);
  const auto chosen = tracker.timestampClosestBeaconCandidateLastSeen();
  rangeAfter(1.0, {at(1, 1.5)});
  EXPECT_EQ(candidate(), 1);
  EXPECT_GT(tracker.timestampClosestBeaconCandidateLastSeen(), chosen) << "its own better value replaces it";
}

TEST_F(LocationTrackerTest, NeverElectsWhatHasNoMapOrNoDistance) {
  range({ranged(1, -60, 1.0, {{"map_id", nullptr}}), ranged(2, -60, 1.0, {{"measured_power", -59}}), at(3, 0.0),
         at(4, -1.0), at(5, NAN)});
  EXPECT_EQ(candidate(), 0);
  EXPECT_EQ(tracker.beaconTracker().trackedBeacons().size(), 5U);
  rangeAfter(1.0, {at(5, NAN), at(6, 100.0), at(7, kInfinity)});
  EXPECT_EQ(winner(), 6);
}

TEST_F(LocationTrackerTest, AWinnerThatIsNotTrackedExpires) {
  range({at(1, 1.0)});
  for (int second = 1; second <= 5; ++second) rangeAfter(1.0, {});
  EXPECT_EQ(tracker.beaconTracker().trackedBeacons().size(), 0U);
  world.wait(4.0);
  EXPECT_EQ(winner(), 1) << "last tracked five seconds ago";
  world.wait(kInstant);
  EXPECT_EQ(winner(), 0) << "without any ranging";
  EXPECT_TRUE(tracker.timestampClosestBeaconFirstSeen().has_value());
  range({at(2, 9.0)});
  EXPECT_EQ(winner(), 2) << "at once";
}

TEST_F(LocationTrackerTest, AWinnerWithoutMapIsNotSeen) {
  range({at(1, 1.0)});
  for (int second = 1; second <= 5; ++second) rangeAfter(1.0, {ranged(1, -60, 1.0, {{"map_id", nullptr}})});
  EXPECT_EQ(winner(), 1);
  world.wait(kInstant);
  EXPECT_EQ(winner(), 0);
}

TEST_F(LocationTrackerTest, ComparesOwnDistancesWhenAskedTo) {
  tracker.setUseCoreLocationRanging(false);
  const auto own = [](std::uint16_t minor, int rssi, double accuracy, platform::Json power) {
    return ranged(minor, rssi, accuracy, {{"map_id", "lobby"}, {"measured_power", std::move(power)}});
  };
  range({own(1, -70, 1.0, -59), own(2, -65, 9.0, "-59")});
  EXPECT_EQ(candidate(), 2);
  rangeAfter(6.0, {ranged(3, -80, 0.5, {{"map_id", "lobby"}}), own(2, -50, 9.0, -59)});
  EXPECT_EQ(winner(), 2) << "0.19 m, from the average";
  EXPECT_EQ(candidate(), 2);
  rangeAfter(1.0, {ranged(3, -80, 0.1, {{"map_id", "lobby"}}), own(2, -50, 9.0, -59)});
  EXPECT_EQ(candidate(), 3) << "without measured power its accuracy is compared";
  rangeAfter(5.1, {});
  world.wait(5.1);
  EXPECT_EQ(winner(), 0);
  rangeAfter(1.0, {own(4, -50, 1.0, 0), own(5, -90, 1.0, -59)});
  EXPECT_EQ(winner(), 5) << "a power of 0 is infinitely far";
  rangeAfter(0.5, {own(6, -50, 0.01, nullptr)});
  EXPECT_EQ(candidate(), 6) << "a power that is no number is none: its accuracy is compared";
  world.wait(12.0);
  EXPECT_EQ(winner(), 0);
  range({own(4, -50, 1.0, 0)});
  EXPECT_EQ(winner(), 4) << "but far is better than nothing";
}

TEST_F(LocationTrackerTest, TakesTheLastFixWhenItIsGood) {
  const auto offerAt = [&](platform::CalendarTime timestamp, double accuracy) {
    const std::vector<platform::CLLocation> fixes = {{{1.0, 1.0}, 5.0, world.time.calendarClock()->now()},
                                                     {{50.0, 8.0}, accuracy, timestamp}};
    tracker.setLocationFromCoreLocation(std::nullopt);
    tracker.locationManagerDidUpdateLocations(nullptr, fixes);
    const auto kept = tracker.locationFromCoreLocation();
    return kept && kept->coordinate.latitude == 50.0;
  };
  const auto offer = [&](double age, double accuracy) {
    return offerAt(world.time.calendarClock()->now() - platform::durationFromSeconds(age), accuracy);
  };
  EXPECT_TRUE(offer(0.0, 5.0));
  EXPECT_TRUE(offer(14.999, 5.0));
  EXPECT_FALSE(offer(15.0, 5.0));
  EXPECT_TRUE(offer(-14.999, 5.0)) << "from the future";
  EXPECT_FALSE(offer(-15.0, 5.0));
  EXPECT_FALSE(offerAt(platform::CalendarTime::min(), 5.0));
  EXPECT_FALSE(offerAt(platform::CalendarTime::max(), 5.0));
  EXPECT_FALSE(offer(0.0, 0.0));
  EXPECT_FALSE(offer(0.0, -1.0));
  EXPECT_FALSE(offer(0.0, NAN));
  tracker.setLocationFromCoreLocation(platform::CLLocation{});
  tracker.locationManagerDidUpdateLocations(nullptr, {});
  EXPECT_TRUE(tracker.locationFromCoreLocation().has_value()) << "otherwise the earlier one stays";
}

TEST_F(LocationTrackerTest, TellsWhy) {
  std::vector<ElectionTrace> traces;
  const auto explanation = [&] { return traces.back().explanation(); };
  tracker.setElectionObserver([&](const ElectionTrace& trace) { traces.push_back(trace); });
  range({ranged(9, -60, 0.5, {{"map_id", nullptr}})});
  EXPECT_EQ(explanation(), "No winner: no tracked beacon has a map and a known distance");
  rangeAfter(1.0, {at(1, 3.0), at(2, 2.0), at(3, 2.5), at(4, -1.0)});
  ASSERT_EQ(traces.size(), 2U);
  std::vector<std::pair<int, CandidateVerdict>> verdicts;
  for (const auto& beacon : traces[1].beacons) verdicts.emplace_back(beacon.identity.minor, beacon.verdict);
  EXPECT_THAT(verdicts,
              ElementsAre(std::pair(1, CandidateVerdict::becameCandidate),
                          std::pair(2, CandidateVerdict::becameCandidate), std::pair(3, CandidateVerdict::notNearer),
                          std::pair(4, CandidateVerdict::unknownDistance), std::pair(9, CandidateVerdict::withoutMap)));
  EXPECT_EQ(traces[1].beacons[4].sinceLastDetected, std::chrono::seconds(1));
  EXPECT_EQ(traces[1].beacons[1].samples, 1);
  EXPECT_EQ(traces[1].winnerBefore, std::nullopt);
  EXPECT_EQ(explanation(),
            "There was no winner: elected is the candidate \"Beacon 2\", compared at 2.00 m since 0.0 s");

  rangeAfter(2.0, {at(1, 1.0), at(2, 2.0)});
  EXPECT_EQ(
      explanation(),
      "\"Beacon 2\" stays the winner: elected 2.0 s ago, it holds for 5 s; the candidate is \"Beacon 1\", compared "
      "at 1.00 m since 0.0 s");
  tracker.setUseCoreLocationRanging(false);
  rangeAfter(3.5, {at(2, 2.0)});
  EXPECT_EQ(traces.back().rule, ElectionRule::replaced);
  EXPECT_EQ(traces.back().beacons[0].source, ComparedValue::ownDistance);
  EXPECT_EQ(traces.back().candidateAfter->age, std::chrono::milliseconds(3500));
  EXPECT_EQ(traces.back().winnerAfter->identity.minor, 1);
  EXPECT_EQ(traces.back().dropped.size(), 3U);
  rangeAfter(6.0, {});
  EXPECT_EQ(traces.back().rule, ElectionRule::electedAgain);
  EXPECT_TRUE(traces.back().candidateExpired);
  rangeAfter(5.5, {});
  EXPECT_EQ(
      explanation(),
      "\"Beacon 1\" is no winner any more: it was not tracked for 5.5 s, and no other beacon has a map and a known "
      "distance");

  tracker.setElectionObserver([&](const ElectionTrace&) {
    traces.clear();
    tracker.setElectionObserver(nullptr);
  });
  rangeAfter(1.0, {});
  rangeAfter(1.0, {});
  EXPECT_TRUE(traces.empty());
}

// Whatever is ranged, and whenever: what must hold of every election.
TEST_F(LocationTrackerTest, KeepsItsPromisesWhateverIsRanged) {
  std::mt19937 random(20240229);
  const auto pick = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  double now = 0.0, elected = 0.0;
  int holder = 0, changes = 0;
  tracker.setElectionObserver([&](const ElectionTrace& trace) {
    double nearest = trace.candidateBefore ? trace.candidateBefore->value : kInfinity;
    for (const auto& beacon : trace.beacons) {
      const bool nearer = beacon.verdict == CandidateVerdict::becameCandidate;
      EXPECT_EQ(nearer, beacon.verdict != CandidateVerdict::withoutMap && beacon.value > 0.0 && beacon.value < nearest);
      if (nearer) nearest = beacon.value;
    }
    EXPECT_EQ(trace.candidateAfter ? trace.candidateAfter->value : kInfinity, nearest);
  });
  for (int step = 0; step < 4000; ++step) {
    const double seconds = 0.25 * (pick(20) == 0 ? pick(40) : pick(6));
    world.wait(seconds);
    now += seconds;
    world.time.stepCalendar(std::chrono::seconds(pick(3) - 1));
    TGFBeaconList beacons;
    for (int i = pick(7); i > 0; --i) {
      const int minor = 1 + pick(6);
      const bool mapped = pick(10) > 0;
      beacons.push_back(ranged(static_cast<std::uint16_t>(minor), -40 - pick(50), pick(10) ? 0.5 * pick(20) : -1.0,
                               mapped ? platform::Json{{"map_id", "lobby"}} : platform::Json::object()));
    }
    range(beacons);
    const auto next = tracker.closestBeacon();
    EXPECT_TRUE(!next || (next->attributes().contains("map_id") && next->accuracy() > 0.0)) << step;
    if (minorOf(next) == holder) continue;
    EXPECT_TRUE(holder == 0 || !next || now - elected > 5.0) << step << ": a winner is safe for 5 s";
    holder = minorOf(next);
    elected = now;
    ++changes;
  }
  EXPECT_GT(changes, 300);
}

}  // namespace
}  // namespace wayloom
