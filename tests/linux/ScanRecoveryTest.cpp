// What may happen to a scan, and that it is running again soon after.
#include <gmock/gmock.h>

#include "wayloom/linux/LinuxPlatform.hpp"

#include "tests/linux/RadioWorld.hpp"

namespace wayloom::tests {
namespace {

using linux_::RadioCondition;
using testing::ElementsAre;
using testing::HasSubstr;

class ScanRecovery : public RadioTest {
 protected:
  // Inside the venue, with a beacon on.
  void settle(FakeBluez& bluez) {
    beOn(bluez);
    listen();
    watchVenue();
    runUntilTold("enter venue");
    runUntilRanged();
  }

  // What every cause must come to: one error, no exit while it lasts, then rangings.
  void expectRecovery(RadioCondition cause, const std::function<void()>& begin, const std::function<void()>& end) {
    told.clear();
    logged.clear();
    begin();
    runUntil([&] { return is(cause); });
    runFor(2 * exitSilence());
    end();
    runUntilRanged();
    EXPECT_THAT(told, ElementsAre("error " + std::to_string(static_cast<int>(cause))));
    EXPECT_THAT(logged, ElementsAre(HasSubstr(std::string(description(cause))), "Bluetooth works again."));
  }
};

TEST_F(ScanRecovery, DaemonStopsAndComesBack) {
  std::optional<FakeBluez> bluez(std::in_place, bus.address());
  settle(*bluez);
  expectRecovery(
      RadioCondition::noDaemon, [&] { bluez.reset(); },
      [&] {
        bluez.emplace(bus.address());
        beOn(*bluez);
      });
}

TEST_F(ScanRecovery, AdapterAndPowerGoAndCome) {
  FakeBluez bluez(bus.address());
  settle(bluez);
  expectRecovery(
      RadioCondition::noAdapter, [&] { bluez.removeAdapter(); }, [&] { bluez.addAdapter(); });
  expectRecovery(
      RadioCondition::unpowered, [&] { bluez.setPowered(false); }, [&] { bluez.setPowered(true); });
}

TEST_F(ScanRecovery, CallsFailOrHang) {
  FakeBluez bluez(bus.address());
  settle(bluez);
  const auto with = [&](const FakeBluez::Faults& faults) {
    return [&, faults] {
      bluez.setFaults(faults);
      if (!faults.hangs && faults.error.empty()) return;
      bluez.endDiscovery();
    };
  };
  expectRecovery(RadioCondition::failing, with({.error = "org.bluez.Error.InProgress"}), with({}));
  expectRecovery(RadioCondition::failing, with({.hangs = true}), with({}));
  expectRecovery(RadioCondition::refused, with({.error = "org.freedesktop.DBus.Error.AccessDenied"}), with({}));
}

TEST_F(ScanRecovery, BusEndsAndComesBack) {
  std::optional<FakeBluez> bluez(std::in_place, bus.address());
  settle(*bluez);
  expectRecovery(
      RadioCondition::noBus,
      [&] {
        bus.stop();
        bluez.reset();
      },
      [&] {
        bus.start();
        bluez.emplace(bus.address());
        beOn(*bluez);
      });
}

TEST_F(ScanRecovery, ScanThatClaimsToRunButHearsNothingIsRestarted) {
  FakeBluez bluez(bus.address());
  settle(bluez);
  told.clear();
  const int starts = bluez.starts();
  bluez.setFaults({.silentUntilRestart = true});
  runUntil([&] { return bluez.starts() > starts; });
  runUntilRanged();
  EXPECT_THAT(told, ElementsAre());
  EXPECT_TRUE(is(RadioCondition::scanning));
  EXPECT_THAT(logged, ElementsAre(HasSubstr("no device at all is heard"), "Bluetooth works again."));

  // Where there is really nothing to hear, regions are left all the same, though the restarts go on.
  logged.clear();
  bluez.setFaults({.silent = true});
  runUntilTold("exit venue");
  const int silentStarts = bluez.starts();
  runUntil([&] { return bluez.starts() > silentStarts + 1; });
  EXPECT_EQ(logged.size(), 1U);
  bluez.setFaults({});
  runUntilTold("enter venue");
  EXPECT_EQ(countErrors(), 0);
}

// A steady beacon is heard once in a scan window, which must not look like a silent scan; and where somebody passes by
// now and then, the log must not grow with each of them.
TEST_F(ScanRecovery, RareFramesNeitherRestartTheScanNorFillTheLog) {
  FakeBluez bluez(bus.address());
  auto options = radioOptions(bus.address());
  const auto window = options.watchdog * 1024 / 1300;
  bluez.setFaults({.duplicateWindow = window});
  beOn(bluez);
  listen(options);
  watchVenue();
  runUntilTold("enter venue");
  runFor(std::chrono::duration_cast<std::chrono::milliseconds>(window) * 4);
  EXPECT_EQ(bluez.starts(), 1);
  EXPECT_THAT(logged, ElementsAre());

  options.watchdog = 50ms;
  listen(options);
  watchVenue();
  bluez.setFaults({});
  bluez.every(150ms, [](FakeBluez& fake) { fake.sight(1, {kVenue, 1, 1}); });
  const int starts = bluez.starts();
  runUntil([&] { return bluez.starts() > starts + 20; }, 20s);
  EXPECT_EQ(std::count(logged.begin(), logged.end(), "Bluetooth works again."), 5);
  EXPECT_LE(logged.size(), 10U);
}

// With a monitor beside the scan, a controller that drops duplicates reports every frame.
TEST_F(ScanRecovery, AdvertisementMonitorIsKeptBesideTheScanWhereTheServiceTakesOne) {
  std::optional<FakeBluez> bluez(std::in_place, bus.address(), FakeBluez::Monitors::taken);
  const auto dropDuplicates = [&] { bluez->setFaults({.duplicateWindow = 1h}); };
  int reports = 0;
  const auto expectEveryFrame = [&] {
    runUntil([&] { return !bluez->monitor().empty() && is(RadioCondition::scanning); });
    EXPECT_EQ(bluez->monitor(), "or_patterns 0 255 4C000215");
    EXPECT_TRUE(services->radioStatus().hasMonitor);
    reports = 0;
    runUntil([&] { return reports >= 5; });
  };
  dropDuplicates();
  settle(*bluez);
  services->setReportObserver([&](auto heard) { reports += static_cast<int>(heard.size()); });
  expectEveryFrame();

  bluez.reset();
  bluez.emplace(bus.address(), FakeBluez::Monitors::taken);
  dropDuplicates();
  beOn(*bluez);
  expectEveryFrame();
  bluez->removeAdapter();
  bluez->addAdapter();
  expectEveryFrame();

  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  manager->stopRangingBeaconsInRegion(manager->rangedRegions().front());
  runUntil([&] { return bluez->monitor().empty() && !bluez->isDiscovering(); });

  // One that is refused is done without.
  bluez->setFaults({.refusesMonitors = true});
  watchVenue();
  runUntilRanged();
  EXPECT_FALSE(services->radioStatus().hasMonitor);
}

TEST_F(ScanRecovery, NothingIsSaidOfAdaptersBeforeTheServiceHasAnswered) {
  FakeBluez bluez(bus.address());
  bluez.setFaults({.hangs = true});
  auto options = radioOptions(bus.address());
  options.callTimeout = 5s;
  listen(options);
  watchVenue();
  runFor(200ms);
  EXPECT_TRUE(is(RadioCondition::starting));
  beOn(bluez);
  bluez.setFaults({});
  runUntilRanged();
  EXPECT_THAT(told, ElementsAre("enter venue"));
  EXPECT_THAT(logged, ElementsAre());
}

TEST_F(ScanRecovery, ScanEndedByTheServiceIsBegunAgain) {
  FakeBluez bluez(bus.address());
  settle(bluez);
  told.clear();
  bluez.endDiscovery();
  runUntil([&] { return bluez.starts() == 2; });
  runUntilRanged();
  EXPECT_THAT(told, ElementsAre());
}

TEST_F(ScanRecovery, NothingWaitsForABusThatHangs) {
  FakeBluez bluez(bus.address());
  settle(bluez);
  bus.freeze();
  runFor(300ms);
  const auto before = std::chrono::steady_clock::now();
  manager.reset();
  services.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
  // Connecting to it hangs, too.
  listen();
  watchVenue();
  runFor(200ms);
  manager.reset();
  services.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 2s);
  bus.thaw();
}

// A host that wraps the log between makeServices and its Platform.
TEST_F(ScanRecovery, TroublesGoToTheLogOfThePlatform) {
  const posix::TemporaryDirectory folder;
  auto made = linux_::makeServices({.posix = {.mainBundle = folder.path(), .documents = folder.path(), .loop = loop},
                                    .bluez = radioOptions("unix:path=/nonexistent/bus")});
  made.systemLog = std::shared_ptr<platform::LogSink>(std::shared_ptr<void>(), this);
  const platform::Platform platform(std::move(made));
  runUntil([&] { return !logged.empty(); });
  EXPECT_THAT(logged, ElementsAre(HasSubstr("can't be reached")));
}

TEST_F(ScanRecovery, HostWithoutABusIsToldOnceAndWorksOtherwise) {
  listen(radioOptions("unix:path=/nonexistent/bus"));
  watchVenue();
  runUntil([&] { return is(RadioCondition::noBus); });
  runFor(400ms);
  EXPECT_THAT(told, ElementsAre("error 4"));
  EXPECT_THAT(logged, ElementsAre(HasSubstr("can't be reached")));
  EXPECT_EQ(services->bluetooth()->state(), platform::CBCentralManagerState::unsupported);
  EXPECT_TRUE(services->isMonitoringAvailable().value());
  services->receive({{kVenue, 1, 1}, -60, -59});
  runUntil([&] { return rangings["venue"] > 0; });
}

}  // namespace
}  // namespace wayloom::tests
