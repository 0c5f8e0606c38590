// Geographic fixes of the real location service, which a receiver of the test's tells where it is.
#include <gmock/gmock.h>

#include "tests/linux/FakeAgent.hpp"
#include "tests/linux/NmeaSource.hpp"
#include "tests/linux/RadioWorld.hpp"

namespace wayloom::tests {
namespace {

using linux_::FixCondition;
using testing::ElementsAre;
using testing::HasSubstr;

class GeoClue : public RadioTest {
 protected:
  void startDaemon() {
    daemon.emplace(
        std::vector<std::string>{"/usr/libexec/geoclue", "--timeout=0", "--nmea-socket=" + (folder / "nmea")},
        ChildProcess::Surroundings{.errors = {},
                                   .environment = {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address(), "PATH=/usr/bin:/bin"}});
    for (int i = 0; i < 100 && !isOnBus(); ++i) std::this_thread::sleep_for(50ms);
    ASSERT_TRUE(isOnBus());
  }

  bool isOnBus() const {
    const auto connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
    const auto driver = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    bool has = false;
    driver->callMethod("NameHasOwner")
        .onInterface("org.freedesktop.DBus")
        .withArguments(std::string("org.freedesktop.GeoClue2"))
        .storeResultsTo(has);
    return has;
  }

  void locate() {
    services = std::make_shared<linux_::LinuxLocationServices>(
        loop, std::shared_ptr<platform::LogSink>(std::shared_ptr<void>(), this), radioOptions(bus.address()),
        linux_::GeoClueOptions{.bus = bus.address(), .callTimeout = 500ms, .retry = 200ms});
    manager = services->makeLocationManager();
    manager->setDelegate(this);
  }

  void locationManagerDidUpdateLocations(platform::CLLocationManager*,
                                         std::span<const platform::CLLocation> locations) override {
    fixes.insert(fixes.end(), locations.begin(), locations.end());
  }

  bool isFix(FixCondition condition) const { return services->fixStatus().condition == condition; }

  posix::TemporaryDirectory folder;
  NmeaSource receiver{folder / "nmea"};
  std::optional<ChildProcess> daemon;
  std::vector<platform::CLLocation> fixes;
};

TEST_F(GeoClue, FixesComeAndGeofencesAreEnteredAndLeft) {
  startDaemon();
  const FakeAgent agent(bus.address(), true);
  locate();
  manager->setDistanceFilter(0.0);
  manager->startUpdatingLocation();
  runUntil([&] { return !fixes.empty(); });
  ASSERT_FALSE(fixes.empty());
  EXPECT_NEAR(fixes.back().coordinate.latitude, 48.0, 1e-5);
  EXPECT_NEAR(fixes.back().coordinate.longitude, 11.0, 1e-5);
  EXPECT_GT(fixes.back().horizontalAccuracy, 0.0);
  EXPECT_LT(platform::secondsSince1970(platform::CalendarTime()), platform::secondsSince1970(fixes.back().timestamp));

  manager->startMonitoringForRegion(
      std::make_shared<platform::CLCircularRegion>(platform::CLLocationCoordinate2D{48.0, 11.0}, 3000.0, "town"));
  runUntilTold("enter town");
  receiver.moveTo(48.5, 11.0);
  runUntilTold("exit town");

  manager->stopUpdatingLocation();
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  runUntil([&] { return isFix(FixCondition::resting); });

  // The service ends and comes back.
  manager->startUpdatingLocation();
  runUntil([&] { return isFix(FixCondition::fixing); });
  daemon->end(SIGKILL);
  fixes.clear();
  startDaemon();
  const FakeAgent another(bus.address(), true);
  runUntil([&] { return !fixes.empty(); });
}

TEST_F(GeoClue, WhatKeepsFixesAwayIsToldOnceAndBeaconsAreHeardAllTheSame) {
  FakeBluez bluez(bus.address());
  beOn(bluez);
  locate();
  watchVenue();
  manager->startUpdatingLocation();
  runUntil([&] { return isFix(FixCondition::noService); });
  startDaemon();
  runUntil([&] { return isFix(FixCondition::noAgent); });
  {
    const FakeAgent agent(bus.address(), false);
    runUntil([&] { return isFix(FixCondition::refused); });
    runFor(500ms);
  }
  runUntilRanged();
  EXPECT_THAT(told, testing::IsSupersetOf({"error 5", "error 6", "error 7", "enter venue"}));
  EXPECT_EQ(countErrors(), 3);
}

TEST_F(GeoClue, NothingWaitsForAServiceThatDoesNotAnswer) {
  startDaemon();
  daemon->signal(SIGSTOP);
  locate();
  manager->startUpdatingLocation();
  runFor(200ms);
  const auto before = std::chrono::steady_clock::now();
  manager.reset();
  services.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
}

}  // namespace
}  // namespace wayloom::tests
