#include <ctime>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"

#include "tests/platform/HandDrivenTasks.hpp"

namespace wayloom::ranging {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const UUID kHouse = *UUID::parse("5A0E0000-0000-4000-8000-000000000002");

CLBeaconRegionPtr regionOfHouse(const std::string& identifier, std::optional<std::uint16_t> minor = {}) {
  return std::make_shared<CLBeaconRegion>(kHouse, std::uint16_t{1}, minor, identifier);
}

using Log = std::vector<std::string>;

// Writes down what it is told, and does what a test wants done then.
class Listener : public CLLocationManagerDelegate {
 public:
  Listener(Log& log, std::string name) : log_(log), name_(std::move(name)) {}

  void locationManagerDidUpdateLocations(CLLocationManager*, std::span<const CLLocation> fixes) override {
    note("fixes " + std::to_string(fixes.size()));
  }
  void locationManagerDidDetermineStateForRegion(CLLocationManager*, CLRegionState state,
                                                 const CLRegionPtr& told) override {
    note("state " + std::to_string(static_cast<int>(state)) + " " + told->identifier());
  }
  void locationManagerDidRangeBeaconsInRegion(CLLocationManager*, std::span<const CLBeacon> beacons,
                                              const CLBeaconRegionPtr& told) override {
    note(told->identifier() + " " + std::to_string(beacons.size()));
  }
  void locationManagerDidEnterRegion(CLLocationManager*, const CLRegionPtr& told) override {
    note("enter " + told->identifier());
  }
  void locationManagerDidExitRegion(CLLocationManager*, const CLRegionPtr& told) override {
    note("exit " + told->identifier());
  }
  void locationManagerDidFailWithError(CLLocationManager*, const Error& error) override {
    note("error " + error.description);
  }
  void locationManagerDidChangeAuthorizationStatus(CLLocationManager*, CLAuthorizationStatus status) override {
    note("status " + std::to_string(static_cast<int>(status)));
  }
  void locationManagerDidStartMonitoringForRegion(CLLocationManager*, const CLRegionPtr& told) override {
    note("monitoring " + told->identifier());
  }

  std::function<void()> then;

 private:
  void note(const std::string& what) {
    log_.push_back(name_ + what);
    if (then) then();
  }

  Log& log_;
  std::string name_;
};

class RangerLocationServicesTest : public testing::Test {
 protected:
  RangerLocationServicesTest() { manager->setDelegate(&listener); }

  void hear(std::uint16_t minor, int rssi = -70) {
    tasks.run();
    services->receive({{kHouse, 1, minor}, rssi, -59});
  }

  Log take() { return std::exchange(log, {}); }

  HandDrivenTasks tasks;
  Log log;
  Listener listener{log, ""};
  std::unique_ptr<RangerLocationServices> services = std::make_unique<RangerLocationServices>(tasks, tasks);
  std::unique_ptr<CLLocationManager> manager = services->makeLocationManager();
};

TEST_F(RangerLocationServicesTest, TicksFromTheFirstFrameAndLetsWorkRunBetweenRegions) {
  manager->startRangingBeaconsInRegion(regionOfHouse("far", 1));
  manager->startRangingBeaconsInRegion(regionOfHouse("near", 2));
  manager->startRangingBeaconsInRegion(regionOfHouse("silent", 3));
  services->setDeliveryObserver([this] { log.push_back("delivered"); });
  listener.then = [this] { tasks.backgroundQueue().async([this] { log.push_back("work"); }); };
  tasks.pass(10s);
  EXPECT_THAT(log, IsEmpty());

  hear(1, -80);
  hear(2, -60);
  tasks.pass(999ms);
  EXPECT_THAT(log, IsEmpty());
  tasks.pass(1ms);
  EXPECT_THAT(take(), ElementsAre("near 1", "delivered", "work", "far 1", "delivered", "work", "silent 0", "delivered",
                                  "work"));

  // A region that goes while its turn is still to come gets none.
  listener.then = [this] { manager->stopRangingBeaconsInRegion(regionOfHouse("far")); };
  tasks.pass(1s);
  EXPECT_THAT(take(), ElementsAre("near 1", "delivered", "silent 0", "delivered"));
}

TEST_F(RangerLocationServicesTest, RegionsBelongToTheApplicationAndChangeAtOnce) {
  const auto other = services->makeLocationManager();
  std::thread([&] {
    other->startRangingBeaconsInRegion(regionOfHouse("a"));
    other->startRangingBeaconsInRegion(regionOfHouse("b"));
    other->startRangingBeaconsInRegion(regionOfHouse("a", 2));
    other->startMonitoringForRegion(regionOfHouse("a"));
    other->startMonitoringForRegion(std::make_shared<CLCircularRegion>(CLLocationCoordinate2D{}, 10.0, "circle"));
    other->stopMonitoringForRegion(regionOfHouse("never"));
  }).join();
  const auto ranged = manager->rangedRegions();
  ASSERT_EQ(ranged.size(), 2U);
  EXPECT_EQ(ranged[0]->identifier(), "b");
  EXPECT_EQ(ranged[1]->minor(), 2);
  EXPECT_EQ(manager->monitoredRegions().size(), 2U);
  EXPECT_THAT(log, IsEmpty());
  tasks.run();
  EXPECT_THAT(take(), ElementsAre("monitoring a", "monitoring circle"));

  for (const auto& monitored : manager->monitoredRegions()) manager->requestStateForRegion(monitored);
  hear(7);
  EXPECT_THAT(take(), ElementsAre("state 0 a", "enter a"));
  tasks.pass(1s);
  EXPECT_THAT(take(), ElementsAre("b 1", "a 0"));

  // A circle takes the place of the beacon region of its identifier, and the other way round.
  const auto named = [](const char* identifier) {
    return std::make_shared<CLCircularRegion>(CLLocationCoordinate2D{}, 10.0, identifier);
  };
  manager->startMonitoringForRegion(named("a"));
  manager->startMonitoringForRegion(regionOfHouse("circle"));
  EXPECT_EQ(manager->monitoredRegions().size(), 2U);
  hear(7);
  services->receiveFix({{}, 1.0, {}});
  EXPECT_THAT(take(), ElementsAre("monitoring a", "monitoring circle", "enter circle", "enter a"));

  // With nothing to do the clock rests.
  EXPECT_EQ(tasks.timerCount(), 1U);
  for (const auto& monitored : manager->monitoredRegions()) manager->stopMonitoringForRegion(monitored);
  for (const auto& each : manager->rangedRegions()) manager->stopRangingBeaconsInRegion(each);
  tasks.pass(2s);
  EXPECT_EQ(tasks.timerCount(), 0U);
  hear(7);
  services->receiveFix({{}, 1.0, {}});
  tasks.pass(60s);
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(tasks.timerCount(), 0U);
  manager->startRangingBeaconsInRegion(regionOfHouse("a"));
  tasks.pass(1s);
  EXPECT_THAT(take(), ElementsAre("a 0"));
}

// Regions of UUIDs of their own, regions that share one, and circles: registered, registered afresh and stopped.
TEST_F(RangerLocationServicesTest, ManyRegionsComeAndGoInLinearTime) {
  const auto microsecondsEach = [this](std::uint16_t count) {
    std::vector<CLRegionPtr> regions;
    for (std::uint16_t i = 0; i < count; ++i) {
      auto bytes = kHouse.bytes();
      bytes[0] = static_cast<std::uint8_t>(i);
      bytes[1] = static_cast<std::uint8_t>(i >> 8U);
      const auto number = std::to_string(i);
      regions.push_back(std::make_shared<CLBeaconRegion>(UUID(bytes), std::nullopt, i, "own " + number));
      regions.push_back(std::make_shared<CLBeaconRegion>(kHouse, std::nullopt, std::nullopt, "same " + number));
      regions.push_back(std::make_shared<CLCircularRegion>(CLLocationCoordinate2D{}, 10.0, "circle " + number));
    }
    const auto start = std::clock();
    for (const bool comes : {true, true, false}) {
      for (const auto& region : regions) {
        const auto beacons = std::dynamic_pointer_cast<const CLBeaconRegion>(region);
        comes ? manager->startMonitoringForRegion(region) : manager->stopMonitoringForRegion(region);
        if (beacons && comes) manager->startRangingBeaconsInRegion(beacons);
        if (beacons && !comes) manager->stopRangingBeaconsInRegion(beacons);
      }
      tasks.run();
      EXPECT_EQ(manager->monitoredRegions().size(), comes ? regions.size() : 0U);
    }
    tasks.pass(2s);
    log.clear();
    return 1e6 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC / count;
  };
  for (int i = 0; i < 2; ++i) {  // before the first frame, and after it
    const double few = microsecondsEach(500);
    EXPECT_LT(microsecondsEach(8000), 4 * few);  // 16 times as much in quadratic time
    hear(1);
  }
}

TEST_F(RangerLocationServicesTest, ManagersAndServicesMayGoInACallback) {
  Listener second(log, "second ");
  auto other = services->makeLocationManager();
  other->setDelegate(&second);
  manager->startMonitoringForRegion(regionOfHouse("a"));
  manager->startRangingBeaconsInRegion(regionOfHouse("a"));
  tasks.run();
  EXPECT_THAT(take(), ElementsAre("monitoring a", "second monitoring a"));
  listener.then = [&] { other.reset(); };
  hear(1);
  EXPECT_THAT(take(), ElementsAre("enter a"));

  listener.then = [&] { services.reset(); };
  tasks.pass(1s);
  EXPECT_THAT(take(), ElementsAre("a 1"));
  EXPECT_EQ(tasks.timerCount(), 0U);
  manager->startRangingBeaconsInRegion(regionOfHouse("b"));
  tasks.pass(60s);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(RangerLocationServicesTest, WithoutAuthorisationNothingIsHeardAndNoRegionIsLeft) {
  manager->startMonitoringForRegion(regionOfHouse("a"));
  manager->startRangingBeaconsInRegion(regionOfHouse("a"));
  hear(1);
  take();
  services->setAuthorizationStatus(CLAuthorizationStatus::authorizedAlways);
  services->setAuthorizationStatus(CLAuthorizationStatus::denied);
  EXPECT_EQ(services->authorizationStatus(), CLAuthorizationStatus::denied);
  for (int second = 0; second < 120; ++second) {
    hear(1);
    tasks.pass(1s);
  }
  EXPECT_THAT(take(), ElementsAre("status 2"));

  services->setAuthorizationStatus(CLAuthorizationStatus::authorizedWhenInUse);
  tasks.pass(1s);
  EXPECT_THAT(take(), ElementsAre("status 4", "a 0"));
  services->setScanning(false);
  tasks.pass(120s);
  services->setScanning(true);
  services->setExitSilence(3s);
  take();
  tasks.pass(3s);
  EXPECT_THAT(take(), ElementsAre("a 0", "a 0", "exit a", "a 0"));
}

TEST_F(RangerLocationServicesTest, AStepIsTakenInAsOneChange) {
  const auto region = regionOfHouse("a");
  const auto circle =
      std::make_shared<const platform::CLCircularRegion>(platform::CLLocationCoordinate2D{50.0, 8.0}, 30.0, "yard");
  manager->startMonitoringForRegion(region);
  manager->startMonitoringForRegion(circle);
  hear(1);
  tasks.pass(2s);
  take();
  std::vector<std::string> requests;
  services->setFixRequestObserver([&](const auto& request) { requests.push_back(request ? "fixes" : "no fixes"); });
  services->setBeaconRequestObserver([&](bool wanted) { requests.push_back(wanted ? "beacons" : "no beacons"); });
  manager->changeInOneStep([&] {
    for (const auto& each : manager->monitoredRegions()) manager->stopMonitoringForRegion(each);
    EXPECT_THAT(manager->monitoredRegions(), IsEmpty());
    tasks.pass(3s);
    hear(1);
    EXPECT_THAT(take(), IsEmpty()) << "between stop and start, however long that takes";
    manager->startMonitoringForRegion(region);
    manager->startMonitoringForRegion(circle);
  });
  tasks.run();
  hear(1);
  tasks.pass(2s);
  EXPECT_THAT(take(), ElementsAre("monitoring a", "monitoring yard")) << "no entry is told again";
  EXPECT_THAT(requests, IsEmpty());
  EXPECT_EQ(manager->monitoredRegions().size(), 2U);
  manager->requestStateForRegion(region);
  tasks.run();
  EXPECT_THAT(take(), ElementsAre("state 1 a"));
}

TEST_F(RangerLocationServicesTest, SuspendedTimeIsNoSilence) {
  manager->startMonitoringForRegion(regionOfHouse("a"));
  hear(1);
  tasks.pass(2s);
  take();
  tasks.suspend(3600s);
  tasks.pass(29s);
  EXPECT_THAT(take(), IsEmpty());
  tasks.pass(3s);
  EXPECT_THAT(take(), ElementsAre("exit a"));
}

TEST_F(RangerLocationServicesTest, PassesOnWhatThePlatformReportsByItself) {
  int deliveries = 0;
  services->setDeliveryObserver([&] { ++deliveries; });
  services->deliverRanging(std::vector<CLBeacon>(3), regionOfHouse("r"));
  services->deliverFix({{50.0, 8.0}, 5.0, {}});
  services->deliverEnter(regionOfHouse("r"));
  services->deliverState(CLRegionState::inside, regionOfHouse("r"));
  services->deliverExit(regionOfHouse("r"));
  services->deliverFailure({"HTTP", 7, "no"});
  EXPECT_THAT(take(), ElementsAre("r 3", "fixes 1", "enter r", "state 1 r", "exit r", "error no"));
  EXPECT_EQ(deliveries, 2);
  EXPECT_EQ(manager->location()->coordinate.latitude, 50.0);
  services->setMonitoringAvailable(false);
  EXPECT_EQ(services->isMonitoringAvailable(), false);
  EXPECT_FALSE(services->regionMonitoringAvailable());

  std::vector<std::optional<FixRequest>> requests;
  services->setFixRequestObserver([&](const auto& request) { requests.push_back(request); });
  auto other = services->makeLocationManager();
  manager->setDistanceFilter(10.0);
  manager->setDesiredAccuracy(100.0);
  manager->startUpdatingLocation();
  tasks.run();
  other->setDistanceFilter(50.0);
  other->startUpdatingLocation();
  tasks.run();
  other.reset();
  manager->stopUpdatingLocation();
  tasks.run();
  EXPECT_THAT(requests, ElementsAre(FixRequest{100.0, 10.0}, FixRequest{kCLLocationAccuracyBestForNavigation, 10.0},
                                    std::nullopt));
}

}  // namespace
}  // namespace wayloom::ranging
