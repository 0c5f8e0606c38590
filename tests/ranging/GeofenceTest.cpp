// Circles entered and left by fixes, through the location services that every radio shares.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>

#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"

#include "ranging/FixFilter.hpp"
#include "tests/platform/HandDrivenTasks.hpp"

namespace wayloom::ranging {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr CLLocationCoordinate2D kCenter{48.0, 11.0};
constexpr double kMetresPerDegree = 6371008.8 * std::numbers::pi / 180.0;

class Geofence : public testing::Test, protected CLLocationManagerDelegate {
 protected:
  Geofence() { manager->setDelegate(this); }

  void watch(double radius, const std::string& identifier = "yard") {
    const auto region = std::make_shared<CLCircularRegion>(kCenter, radius, identifier);
    manager->startMonitoringForRegion(region);
    manager->requestStateForRegion(region);
    tasks.run();
  }

  // A fix so many metres north and east of the centre, a second after the one before.
  void fix(double north, double accuracy, double east = 0.0) {
    tasks.pass(1s);
    services.receiveFix({{kCenter.latitude + north / kMetresPerDegree,
                          kCenter.longitude + east / kMetresPerDegree / std::cos(48.0 * std::numbers::pi / 180.0)},
                         accuracy,
                         {}});
  }

  std::vector<std::string> take() { return std::exchange(told, {}); }

  void locationManagerDidEnterRegion(CLLocationManager*, const CLRegionPtr& region) override {
    told.push_back("enter " + region->identifier());
  }
  void locationManagerDidExitRegion(CLLocationManager*, const CLRegionPtr& region) override {
    told.push_back("exit " + region->identifier());
  }
  void locationManagerDidDetermineStateForRegion(CLLocationManager*, CLRegionState state,
                                                 const CLRegionPtr& region) override {
    told.push_back("state " + std::to_string(static_cast<int>(state)) + " " + region->identifier());
  }
  void locationManagerDidUpdateLocations(CLLocationManager*, std::span<const CLLocation> locations) override {
    fixes += locations.size();
  }

  HandDrivenTasks tasks;
  RangerLocationServices services{tasks, tasks};
  std::unique_ptr<CLLocationManager> manager = services.makeLocationManager();
  std::vector<std::string> told;
  std::size_t fixes = 0;
};

TEST_F(Geofence, IsEnteredAndLeftByFixesBeyondTheirUncertainty) {
  watch(100);
  fix(95, 10);
  EXPECT_THAT(take(), IsEmpty());  // on the edge: nobody knows
  fix(200, 10);
  EXPECT_THAT(take(), ElementsAre("state 2 yard"));
  fix(85, 10);  // speaks for inside, not beyond doubt
  EXPECT_THAT(take(), IsEmpty());
  for (int i = 0; i < 9; ++i) fix(85, 10);
  EXPECT_THAT(take(), IsEmpty());
  fix(85, 10);
  EXPECT_THAT(take(), ElementsAre("enter yard"));
  fix(150, 40);  // too vague to say more
  for (int i = 0; i < 60; ++i) fix(105, 10);
  EXPECT_THAT(take(), IsEmpty());
  fix(131, 10);
  EXPECT_THAT(take(), ElementsAre("exit yard"));
  fix(0, 10);
  EXPECT_THAT(take(), ElementsAre("enter yard"));

  // A kit registered afresh changes nothing; another circle of that name is another one.
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  watch(100);
  EXPECT_THAT(take(), ElementsAre("state 1 yard"));
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  fix(0, 10);  // comes in between
  watch(100);
  fix(0, 10);
  EXPECT_THAT(take(), ElementsAre("state 1 yard"));
  watch(50);
  fix(0, 10);
  EXPECT_THAT(take(), ElementsAre("enter yard", "state 1 yard"));
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  fix(900, 10);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(Geofence, DoesNotFlapForSomebodyOnTheEdge) {
  watch(60);
  fix(0, 5);
  take();
  std::mt19937 random(7);
  // The accuracy is the radius that holds 68 % of a normal distribution in the plane.
  std::normal_distribution<double> error(0.0, 12.0 / 1.515);
  for (int second = 0; second < 4 * 3600; ++second) fix(60 + error(random), 12, error(random));
  EXPECT_LE(take().size(), 1U);
  for (int second = 0; second < 30; ++second) fix(120 + second + error(random), 12, error(random));
  fix(10, 5);
  EXPECT_EQ(take().back(), "enter yard");
}

TEST_F(Geofence, FixesAreFilteredByDistanceAndPlausibility) {
  std::vector<std::optional<FixRequest>> requests;
  services.setFixRequestObserver([&](const auto& request) { requests.push_back(request); });
  manager->setDistanceFilter(10.0);
  manager->setDesiredAccuracy(100.0);
  manager->startUpdatingLocation();
  tasks.run();
  watch(100);  // wants every fix
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  tasks.run();
  EXPECT_THAT(requests, ElementsAre(FixRequest{100.0, 10.0}, FixRequest{}, FixRequest{100.0, 10.0}));

  fix(0, 5);
  EXPECT_EQ(fixes, 1U);
  for (int i = 0; i < 59; ++i) fix(i % 9, 5);
  EXPECT_EQ(fixes, 1U);
  fix(1, 5);  // a minute later
  EXPECT_EQ(fixes, 2U);
  fix(12, 5);
  EXPECT_EQ(fixes, 3U);

  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [latitude, longitude, accuracy] : std::vector<std::array<double, 3>>{
           {nan, 0, 5}, {91, 0, 5}, {0, -181, 5}, {0, 0, nan}, {0, 0, 0}, {0, 0, -1}, {0, 0, 1.0 / 0.0}})
    services.receiveFix({{latitude, longitude}, accuracy, {}});
  EXPECT_EQ(fixes, 3U);
  EXPECT_NEAR(manager->location()->coordinate.latitude, 48.0, 0.001);
  manager->stopUpdatingLocation();
  tasks.run();
  fix(900, 5);
  EXPECT_EQ(fixes, 3U);
}

// What a receiver tells second by second, and how old it is then.
TEST(FixFilterTest, ARememberedFirstFixHidesNoneThatIsFresher) {
  constexpr auto start = std::chrono::hours(500'000);
  const auto told = [&](const std::vector<Duration>& ages) {
    FixFilter filter;
    std::string marks;
    for (std::size_t i = 0; i < ages.size(); ++i) {
      const auto passed = std::chrono::seconds(i);
      const CLLocation fix{kCenter, 5.0, CalendarTime(start + passed - ages[i])};
      marks += filter.pass(fix, 10.0, MonotonicTime(passed)) ? 'x' : '.';
    }
    return marks;
  };
  EXPECT_EQ(told({15s, 16s, 0s, 1s, 1s, 0s}), "x.x...");
  EXPECT_EQ(told({200s, 0s, 0s}), "xx.");
  EXPECT_EQ(told({3h, 30s, 14s, 13s, 11s, 0s}), "xxx.xx");
  EXPECT_EQ(told({1s, 0s, 2s, 500ms, 1500ms, 0s}), "x.....");
  EXPECT_EQ(told({0s, 20s, 400s, 0s}), "x...");  // one from the past says nothing new
}

}  // namespace
}  // namespace wayloom::ranging
