// Real threads at work together; what goes wrong here, the thread sanitizer sees best.
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"

#include "tests/positioning/Beacons.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

constexpr int kRangings = 1500;
constexpr char kFirstPlan[] = R"({"lobby": {"pixels_per_meter": 5, "map_corner_offset_x": 10}})";
constexpr char kSecondPlan[] = R"({"lobby": {"pixels_per_meter": 5, "map_corner_offset_x": 20}})";

struct ThreadsTest : testing::Test {
  ThreadsTest() {
    auto services = world.services();
    services.tasks = loop;
    services.calendarClock = std::make_shared<posix::PosixCalendarClock>();
    services.monotonicClock = std::make_shared<posix::PosixMonotonicClock>();
    platform = std::make_unique<platform::Platform>(services);
    TWLMapConfigRepo::sharedRepo(*platform).loadFromJSON(kFirstPlan);
  }

  static TGFBeaconList ranging(int round) {
    TGFBeaconList beacons;
    for (int i = 0; i < 12; ++i)
      beacons.push_back(test::at(static_cast<std::uint16_t>((round + i) % 30), 1.0 + (round * 7 + i * 5) % 11));
    return beacons;
  }

  test::TestPlatform world;
  std::shared_ptr<posix::MainLoop> loop = std::make_shared<posix::MainLoop>();
  std::unique_ptr<platform::Platform> platform;
};

TEST_F(ThreadsTest, ReadersAskWhileRangingsAreMergedAndMapsReplaced) {
  auto& tracker = TWLLocationTracker::sharedLocationTracker(*platform);
  auto& repo = TWLMapConfigRepo::sharedRepo(*platform);
  std::atomic<bool> done = false;
  std::atomic<int> positions = 0, misplaced = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 2; ++i)
    threads.emplace_back([&] {
      while (!done) {
        if (const auto beacon = tracker.closestBeacon()) misplaced += beacon->accuracy() < 1.0;
        const auto location = TWLLocationUtils::currentMapLocation(*platform, tracker);
        if (!location) continue;
        ++positions;
        const double x = location->pixelCoords().x;
        misplaced += (x != 10.0 && x != 20.0) || location->uncertaintyRadiusPixels() <= 0 || !location->map();
      }
    });
  threads.emplace_back([&] {
    for (int i = 0; !done; ++i) {
      repo.loadFromJSON(i % 2 ? kFirstPlan : kSecondPlan);
      misplaced += repo.mapIds().size() != 1 || repo.maps().size() != 1;
      misplaced += tracker.beaconTracker().trackedBeacons().size() > 30;
      tracker.setUseCoreLocationRanging(i % 3 == 0);
    }
  });
  threads.emplace_back([&] {
    while (!done) {
      std::size_t seen = 0;  // on this stack: no call may come after setElectionObserver has returned
      tracker.setElectionObserver([&seen](const ElectionTrace& trace) { seen += trace.beacons.size(); });
      tracker.setElectionObserver(nullptr);
    }
  });
  for (int round = 0; round < kRangings; ++round) tracker.didRangeBeaconsInRegionInRegion(ranging(round), nullptr);
  while (positions < 1000 && misplaced == 0) std::this_thread::yield();
  done = true;
  threads.clear();
  EXPECT_EQ(misplaced, 0);
  for (int round = 0; round < 100; ++round) tracker.didRangeBeaconsInRegionInRegion(ranging(round), nullptr);
  platform.reset();  // with most of them still to be merged
}

TEST_F(ThreadsTest, AListenerMayGoAsSoonAsItIsRemoved) {
  struct Counter : TWLManagerDelegate {
    void locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr&) override { ++calls; }
    std::atomic<int> calls = 0;
  };
  TWLManager manager(*platform);
  std::atomic<bool> elected = false;
  manager.locationTracker().setElectionObserver([&](const ElectionTrace&) { elected = true; });
  manager.locationTracker().didRangeBeaconsInRegionInRegion(ranging(0), nullptr);
  while (!elected) std::this_thread::yield();

  std::atomic<bool> done = false;
  std::atomic<int> visits = 0;
  std::jthread visitor([&] {
    while (!done) {
      Counter counter;
      manager.addListener(counter);
      std::this_thread::yield();
      manager.removeListener(counter);
      EXPECT_GE(counter.calls, 1);
      ++visits;
    }
  });
  for (int i = 0; i < kRangings || visits < 100; ++i) manager.updateLocation();
  done = true;
}

}  // namespace
}  // namespace wayloom
