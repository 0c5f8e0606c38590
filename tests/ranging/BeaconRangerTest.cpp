#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "ranging/BeaconRanger.hpp"

namespace wayloom::ranging {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const UUID kVenue = *UUID::parse("5A0E0000-0000-4000-8000-000000000002");
const UUID kForeign = *UUID::parse("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0");
constexpr int kPower = -59;

CLBeaconRegionPtr region(const std::string& identifier, std::optional<std::uint16_t> major = {},
                         std::optional<std::uint16_t> minor = {}, const UUID& uuid = kVenue) {
  return std::make_shared<CLBeaconRegion>(uuid, major, minor, identifier);
}

struct Ranging {
  std::string identifier;
  std::vector<CLBeacon> beacons;
};

// A ranger with a clock, and what it has told.
class BeaconRangerTest : public testing::Test, protected BeaconRangerDelegate {
 protected:
  void hear(std::uint16_t major, std::uint16_t minor, int rssi = -70, const UUID& uuid = kVenue) {
    ranger.receive({{uuid, major, minor}, rssi, kPower}, now);
  }

  // Lets time pass, ticking when it is due.
  void pass(Duration duration) {
    const auto end = now + duration;
    while (ranger.nextTick() && *ranger.nextTick() <= end) {
      now = *ranger.nextTick();
      tick();
    }
    now = end;
  }

  void tick() {
    rangings.clear();
    ranger.tick(now);
    while (ranger.deliverNextRanging()) {
    }
  }

  std::vector<std::string> rangedIdentifiers() const {
    std::vector<std::string> identifiers;
    for (const auto& ranging : rangings) identifiers.push_back(ranging.identifier);
    return identifiers;
  }

  std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

  void ranged(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& told) override {
    if (onRanged) onRanged();
    rangings.push_back({told->identifier(), {beacons.begin(), beacons.end()}});
  }
  void entered(const CLBeaconRegionPtr& told) override {
    events.push_back("enter " + told->identifier());
    if (onEntered) onEntered();
  }
  void exited(const CLBeaconRegionPtr& told) override { events.push_back("exit " + told->identifier()); }
  void determinedState(CLRegionState state, const CLBeaconRegionPtr& told) override {
    events.push_back("state " + std::to_string(static_cast<int>(state)) + " " + told->identifier());
  }

  MonotonicTime now;
  std::vector<Ranging> rangings;  // of the last tick
  std::vector<std::string> events;
  std::function<void()> onRanged;
  std::function<void()> onEntered;
  BeaconRanger ranger{*this, {.capacity = 64}};
};

TEST(IBeaconFrameTest, ParsesOnlyWholeFramesOfItsKind) {
  std::vector<std::uint8_t> data{0x02, 0x15};
  data.insert(data.end(), kVenue.bytes().begin(), kVenue.bytes().end());
  data.insert(data.end(), {0x12, 0x34, 0xFF, 0xFE, 0xC5});

  const auto frame = IBeaconFrame::parse(0x004C, data, -71);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->identity, (BeaconIdentity{kVenue, 0x1234, 0xFFFE}));
  EXPECT_EQ(frame->power, -59);
  EXPECT_EQ(frame->rssi, -71);

  EXPECT_FALSE(IBeaconFrame::parse(0x004D, data, -71));
  EXPECT_FALSE(IBeaconFrame::parse(0x004C, {}, -71));
  for (const std::size_t length : {1U, 2U, 21U, 22U})
    EXPECT_FALSE(IBeaconFrame::parse(0x004C, std::span(data).first(length), -71)) << length;
  for (const std::size_t corrupt : {0U, 1U}) {
    auto wrong = data;
    ++wrong[corrupt];
    EXPECT_FALSE(IBeaconFrame::parse(0x004C, wrong, -71)) << corrupt;
  }
  data.push_back(0);
  EXPECT_FALSE(IBeaconFrame::parse(0x004C, data, -71));
}

TEST_F(BeaconRangerTest, TicksOnceASecondFromTheFirstFrameAndSkipsWhatItMissed) {
  ranger.startRanging(region("all"), now);
  EXPECT_FALSE(ranger.nextTick());
  tick();
  EXPECT_THAT(rangings, IsEmpty());

  now += 250ms;
  hear(1, 1, 127, kForeign);  // even a foreign frame without a measurement
  EXPECT_EQ(ranger.nextTick(), now + 1s);
  now += 999ms;
  tick();
  EXPECT_THAT(rangings, IsEmpty());
  now += 1ms;
  tick();
  EXPECT_THAT(rangedIdentifiers(), ElementsAre("all"));

  now += 3500ms;
  tick();
  EXPECT_EQ(rangings.size(), 1U);
  EXPECT_EQ(ranger.nextTick(), now + 500ms);

  // Time that runs back or stands still neither ticks nor unsettles what comes after.
  const auto due = ranger.nextTick();
  now -= 1h;
  hear(1, 1);
  tick();
  EXPECT_THAT(rangings, IsEmpty());
  EXPECT_EQ(ranger.nextTick(), due);
  now = *due;
  tick();
  ASSERT_EQ(rangings.size(), 1U);
  EXPECT_EQ(rangings[0].beacons.size(), 1U);
}

TEST_F(BeaconRangerTest, EachRegionGetsItsBeaconsNearestFirst) {
  ranger.startRanging(region("silent", 9), now);
  ranger.startRanging(region("far", 2, 1), now);
  ranger.startRanging(region("all"), now);
  ranger.startRanging(region("second minor", {}, 2), now);
  ranger.startRanging(region("foreign", 1, {}, kForeign), now);
  hear(2, 1, -80);
  hear(1, 1, -75);
  hear(1, 2, -60);
  hear(1, 2, -70);
  pass(1s);

  EXPECT_THAT(rangedIdentifiers(), ElementsAre("all", "second minor", "far", "silent", "foreign"));
  const auto& all = rangings[0].beacons;
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].identity(), (BeaconIdentity{kVenue, 1, 2}));
  EXPECT_EQ(all[0].rssi, -65);
  EXPECT_GT(all[0].accuracy, 1.0);
  EXPECT_LT(all[0].accuracy, 3.0);
  EXPECT_EQ(all[0].proximity, CLProximity::near);
  EXPECT_EQ(all[1].identity(), (BeaconIdentity{kVenue, 1, 1}));
  EXPECT_EQ(all[2].rssi, -80);
  EXPECT_EQ(all[2].proximity, CLProximity::far);
  EXPECT_EQ(rangings[1].beacons.size(), 1U);
  EXPECT_EQ(rangings[2].beacons.size(), 1U);
  EXPECT_THAT(rangings[3].beacons, IsEmpty());
  EXPECT_THAT(rangings[4].beacons, IsEmpty());
}

TEST_F(BeaconRangerTest, ABeaconThatMissesSecondsGrowsFainterAndGoesAfterItsMemory) {
  ranger.startRanging(region("all"), now);
  hear(1, 1);
  double accuracy = 0.0;
  for (int second = 1; second <= 10; ++second) {
    pass(1s);
    ASSERT_EQ(rangings[0].beacons.size(), 1U) << second;
    const auto& beacon = rangings[0].beacons[0];
    EXPECT_EQ(beacon.rssi, second == 1 ? -70 : 0);
    EXPECT_GT(beacon.accuracy, accuracy);
    accuracy = beacon.accuracy;
  }
  hear(1, 1, 0);
  hear(1, 1, 127);
  hear(1, 1, -128);
  pass(1s);
  EXPECT_THAT(rangings[0].beacons, IsEmpty());
  EXPECT_EQ(ranger.beaconCount(), 0U);
}

TEST_F(BeaconRangerTest, RegionsAreEnteredAtTheFirstSightingAndLeftAfterSilence) {
  const auto quiet = std::make_shared<CLBeaconRegion>(kVenue, 1, std::nullopt, "quiet");
  quiet->notifyOnEntry = false;
  quiet->notifyOnExit = false;
  ranger.startMonitoring(region("all"), now);
  ranger.startMonitoring(region("one", 1, 1), now);
  ranger.startMonitoring(quiet, now);
  ranger.requestState(region("one"), now);
  ranger.requestState(region("never monitored"), now);
  EXPECT_THAT(takeEvents(), ElementsAre("state 0 one", "state 0 never monitored"));

  hear(1, 2, 0);
  EXPECT_THAT(takeEvents(), IsEmpty());
  hear(1, 2);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all"));
  for (int second = 0; second < 35; ++second) {
    pass(1s);
    hear(1, 2);
  }
  ranger.requestState(region("one"), now);
  ranger.requestState(quiet, now);
  EXPECT_THAT(takeEvents(), ElementsAre("state 2 one", "state 1 quiet"));

  pass(29s);
  EXPECT_THAT(takeEvents(), IsEmpty());
  pass(1s);
  EXPECT_THAT(takeEvents(), ElementsAre("exit all"));
  hear(1, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all", "enter one"));
  ranger.setExitSilence(5s);
  pass(5s);
  EXPECT_THAT(takeEvents(), ElementsAre("exit all", "exit one"));
}

TEST_F(BeaconRangerTest, SilenceWhileTheScannerIsDeafEndsNoRegion) {
  ranger.startMonitoring(region("all"), now);
  hear(1, 1);
  pass(20s);
  ranger.setScanning(false, now);
  pass(1h);
  ranger.startMonitoring(region("new", 2), now);
  pass(1h);
  ranger.setScanning(true, now);
  pass(29s);
  ranger.requestState(region("new", 2), now);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all", "state 0 new"));
  pass(1s);
  ranger.requestState(region("new", 2), now);
  EXPECT_THAT(takeEvents(), ElementsAre("exit all", "state 2 new"));

  // A hiccup takes back no more than its length, and a late tick is a hiccup of the process.
  hear(1, 1);
  pass(20s);
  ranger.setScanning(false, now);
  pass(2s);
  ranger.setScanning(true, now);
  pass(6s);
  now += 5s;
  tick();
  pass(8s);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all"));
  pass(1s);
  EXPECT_THAT(takeEvents(), ElementsAre("exit all"));
}

// What else is in the air while somebody stands at a beacon for ten minutes and then leaves it.
struct Air {
  const char* name;
  int strangers = 0;
  Duration strangersEvery = 1h;
  Duration heardEvery = 300ms;  // by a controller that filters duplicates, once a window
  Duration restartEvery = 1h;   // of the scan,
  Duration deaf = 0s;           // which takes so long
};

class SilenceInAir : public BeaconRangerTest, public testing::WithParamInterface<Air> {};

TEST_P(SilenceInAir, RegionIsLeftHalfAMinuteAfterItsLastFrameAndNotBefore) {
  const auto& air = GetParam();
  ranger.startMonitoring(region("all"), now);
  ranger.startMonitoring(region("other", 7), now);
  ranger.startRanging(region("all"), now);
  const auto start = now;
  auto lastFrame = now;
  std::optional<MonotonicTime> left;
  const auto isDue = [&](Duration every) { return (now - start) % every == 0s; };
  for (; now - start < 15min; pass(100ms)) {
    if (air.deaf > 0s && isDue(air.restartEvery)) ranger.setScanning(false, now);
    if ((now - start) % air.restartEvery == air.deaf) ranger.setScanning(true, now);
    for (int i = 0; i < air.strangers; ++i)
      if ((now - start) % air.strangersEvery == (i * 300ms) % air.strangersEvery)
        hear(2, static_cast<std::uint16_t>(i), -80, kForeign);
    if (now - start < 10min && isDue(air.heardEvery)) {
      hear(1, 1);
      lastFrame = now;
    }
    if (!left && !events.empty() && events.back() == "exit all") left = now;
  }
  EXPECT_THAT(takeEvents(), ElementsAre("enter all", "exit all"));
  ASSERT_TRUE(left);
  EXPECT_GE(*left - lastFrame, 30s);
  EXPECT_LE(*left - lastFrame, 45s);
}

INSTANTIATE_TEST_SUITE_P(, SilenceInAir,
                         testing::Values(Air{"nobody"}, Air{"stranger8", 1, 8s}, Air{"stranger15", 1, 15s},
                                         Air{"stranger25", 1, 25s}, Air{"fortyStrangers", 40, 1s},
                                         Air{"filter", 0, 1h, 10200ms}, Air{"filterAmongStrangers", 40, 10s, 10200ms},
                                         Air{"restarts", 1, 8s, 300ms, 6300ms, 500ms},
                                         Air{"restartsAndFilter", 3, 8s, 10200ms, 20s, 1s}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(BeaconRangerTest, RestsWhileThereIsNothingToDoAndKeepsItsSeconds) {
  hear(1, 1);
  EXPECT_FALSE(ranger.nextTick());
  now += 2500ms;
  ranger.startRanging(region("all"), now);
  EXPECT_EQ(ranger.nextTick(), now + 500ms);
  hear(1, 1);
  pass(500ms);
  EXPECT_THAT(rangedIdentifiers(), ElementsAre("all"));
  ranger.stopRanging("all");
  pass(2s);
  EXPECT_FALSE(ranger.nextTick());
  EXPECT_EQ(ranger.beaconCount(), 0U);
  now += 1h + 100ms;
  ranger.startMonitoring(region("all"), now);
  EXPECT_EQ(ranger.nextTick(), now + 900ms);
}

TEST_F(BeaconRangerTest, RegisteringTheSameRegionsAfreshChangesNothing) {
  ranger.startMonitoring(region("all"), now);
  ranger.startRanging(region("all"), now);
  for (int i = 0; i < 10; ++i) hear(1, 1, -60);
  pass(1s);
  const double accuracy = rangings[0].beacons[0].accuracy;
  now += 990ms;
  ranger.stopMonitoring("all");
  ranger.stopRanging("all");
  pass(20ms);  // and a tick
  hear(1, 1, -90);
  ranger.startMonitoring(region("all"), now);
  ranger.startRanging(region("all"), now);
  hear(1, 1, -60);
  pass(1s);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all"));
  ASSERT_THAT(rangedIdentifiers(), ElementsAre("all"));
  EXPECT_NEAR(rangings[0].beacons[0].accuracy, accuracy, 0.2 * accuracy);

  // One identifier with other beacons is another region; what nobody ranges any more is forgotten.
  ranger.startMonitoring(region("all", 2), now);
  ranger.startRanging(region("all", 2), now);
  hear(1, 1);
  pass(1s);
  EXPECT_THAT(takeEvents(), IsEmpty());
  ASSERT_THAT(rangedIdentifiers(), ElementsAre("all"));
  EXPECT_THAT(rangings[0].beacons, IsEmpty());
  EXPECT_EQ(ranger.beaconCount(), 0U);

  ranger.stopMonitoring("all");
  ranger.stopRanging("all");
  hear(2, 1);
  pass(1s);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_THAT(rangings, IsEmpty());
}

TEST_F(BeaconRangerTest, CallbacksMayChangeRegionsHandInFramesAndTick) {
  ranger.startMonitoring(region("a"), now);
  ranger.startMonitoring(region("b", 1), now);
  onEntered = [this] {
    ranger.stopMonitoring("a");
    ranger.stopMonitoring("b");
    ranger.startMonitoring(region("c", 2), now);
    hear(2, 2);
  };
  hear(1, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("enter a", "enter c"));

  for (const auto* identifier : {"x", "y", "z"}) ranger.startRanging(region(identifier), now);
  onRanged = [this] {
    onRanged = nullptr;
    ranger.stopRanging("x");
    ranger.stopRanging("y");
    for (std::uint16_t minor = 1; minor < 30; ++minor) hear(1, minor);
    ranger.startRanging(region("w"), now);
    now += 1s;
    ranger.tick(now);
  };
  hear(1, 1);
  pass(1s);
  EXPECT_THAT(rangedIdentifiers(), ElementsAre("x", "z", "w"));
  EXPECT_EQ(rangings[0].beacons.size(), 1U);
  EXPECT_EQ(rangings[1].beacons.size(), 29U);
}

TEST_F(BeaconRangerTest, AFloodOfIdentitiesNeitherGrowsNorPushesOutBeaconsThatKeepSending) {
  ranger.startRanging(region("all"), now);
  ranger.startMonitoring(region("all"), now);
  std::mt19937 random(7);
  const auto number = [&random] { return static_cast<std::uint16_t>(random()); };
  for (int i = 0; i < 100'000; ++i) {
    hear(number(), number(), -40, kForeign);
    EXPECT_EQ(ranger.beaconCount(), 0U);
  }
  for (int minor = 0; minor < 8; ++minor)
    for (int i = 0; i < 2; ++i) hear(1, static_cast<std::uint16_t>(minor), -70);
  for (int i = 0; i < 100'000; ++i) {
    hear(static_cast<std::uint16_t>(2 + number() % 60'000), number(), -40);
    ASSERT_LE(ranger.beaconCount(), 64U);
    if (i % 100 == 0) hear(1, static_cast<std::uint16_t>(i / 100 % 8));
    if (i % 500 == 0) pass(1s);
  }
  pass(1s);
  int kept = 0;
  for (const auto& beacon : rangings[0].beacons) kept += beacon.major == 1;
  EXPECT_EQ(kept, 8);
  EXPECT_EQ(rangings[0].beacons.size(), 64U);
  pass(11s);
  EXPECT_EQ(ranger.beaconCount(), 0U);
  EXPECT_THAT(takeEvents(), ElementsAre("enter all"));

  // With nothing but beacons heard again, the one silent for longest makes room.
  for (std::uint16_t minor = 0; minor < 70; ++minor) {
    hear(1, minor);
    hear(1, minor);
    now += 1ms;
  }
  pass(1s);
  std::vector<int> minors;
  for (const auto& beacon : rangings[0].beacons) minors.push_back(beacon.minor);
  EXPECT_EQ(minors.size(), 64U);
  EXPECT_THAT(minors, testing::Each(testing::Ge(6)));
}

}  // namespace
}  // namespace wayloom::ranging
