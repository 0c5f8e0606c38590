// Location services on a fake Bluetooth service, and what they tell.
#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

#include "wayloom/linux/LinuxLocationServices.hpp"
#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/posix/MainLoop.hpp"

#include "tests/linux/FakeBluez.hpp"
#include "tests/linux/PrivateBus.hpp"

namespace wayloom::tests {

using namespace std::chrono_literals;

inline const platform::UUID kVenue = *platform::UUID::parse("5A0E0000-0000-4000-8000-000000000002");

// WAYLOOM_REAL_TIMES=1 tests with the times that hosts get; otherwise they are shortened about twentyfold.
inline bool hasRealTimes() { return std::getenv("WAYLOOM_REAL_TIMES") != nullptr; }
inline std::chrono::milliseconds exitSilence() { return hasRealTimes() ? 30s : 700ms; }

inline linux_::BluezOptions radioOptions(const std::string& bus) {
  if (hasRealTimes()) return {.bus = bus};
  return {
      .bus = bus, .watchdog = 400ms, .callTimeout = 150ms, .firstRetry = 20ms, .longestRetry = 100ms, .gathering = 5ms};
}

class RadioTest : public testing::Test, protected platform::CLLocationManagerDelegate, public platform::LogSink {
 protected:
  void listen(std::optional<linux_::BluezOptions> options = std::nullopt) {
    services = std::make_shared<linux_::LinuxLocationServices>(
        loop, std::shared_ptr<platform::LogSink>(std::shared_ptr<void>(), this),
        options.value_or(radioOptions(bus.address())));
    services->setExitSilence(exitSilence());
    manager = services->makeLocationManager();
    manager->setDelegate(this);
  }

  void watchVenue() {
    const auto region = std::make_shared<platform::CLBeaconRegion>(kVenue, std::nullopt, std::nullopt, "venue");
    manager->startMonitoringForRegion(region);
    manager->startRangingBeaconsInRegion(region);
  }

  // Runs the main loop until `done` holds; a failure after the limit.
  void runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = hasRealTimes() ? 60s : 10s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < end) pass();
    EXPECT_TRUE(done());
  }
  void runFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) pass();
  }
  void runUntilTold(const std::string& what) {
    runUntil([&] { return count(what) > 0; });
  }
  bool is(linux_::RadioCondition condition) const { return services->radioStatus().condition == condition; }

  long count(const std::string& what) const { return std::count(told.begin(), told.end(), what); }
  long countErrors() const {
    return std::count_if(told.begin(), told.end(), [](const auto& line) { return line.starts_with("error"); });
  }

  // One beacon ten times a second.
  void beOn(FakeBluez& bluez) {
    bluez.every(100ms, [](FakeBluez& fake) { fake.sight(1, {kVenue, 1, 1}); });
  }

  // Until a ranging has the beacon afresh, which is to take ten seconds at most.
  void runUntilRanged() {
    rangedBeacons = 0;
    runUntil([&] { return rangedBeacons > 0; }, 10s);
  }

  void locationManagerDidRangeBeaconsInRegion(platform::CLLocationManager*, std::span<const platform::CLBeacon> beacons,
                                              const platform::CLBeaconRegionPtr& region) override {
    ++rangings[region->identifier()];
    for (const auto& beacon : beacons) {
      rangedBeacons += beacon.rssi != 0 ? 1 : 0;
      farthest = std::max(farthest, beacon.accuracy);
    }
  }
  void locationManagerDidEnterRegion(platform::CLLocationManager*, const platform::CLRegionPtr& region) override {
    told.push_back("enter " + region->identifier());
  }
  void locationManagerDidExitRegion(platform::CLLocationManager*, const platform::CLRegionPtr& region) override {
    told.push_back("exit " + region->identifier());
  }
  void locationManagerDidFailWithError(platform::CLLocationManager*, const platform::Error& error) override {
    told.push_back("error " + std::to_string(error.code));
  }
  void write(std::string_view line) override { logged.emplace_back(line); }

  PrivateBus bus;
  std::shared_ptr<posix::MainLoop> loop = std::make_shared<posix::MainLoop>();
  std::shared_ptr<linux_::LinuxLocationServices> services;
  std::unique_ptr<platform::CLLocationManager> manager;
  std::vector<std::string> told;
  std::vector<std::string> logged;
  std::map<std::string, int> rangings;
  std::size_t rangedBeacons = 0;
  double farthest = 0.0;  // metres

 private:
  void pass() {
    pollfd wake{loop->wakeDescriptor(), POLLIN, 0};
    ::poll(&wake, 1, 20);
    loop->runDue();
  }
};

}  // namespace wayloom::tests
