// What regions and circles cost against their number: a kit's way from its document into effect at the platform (and a
// second time, when the hourly sync registers it afresh), the registration alone, and a second of ranging, monitoring
// and fixes with all of them registered. The BigO line of each table is its slope; all are to be N.
#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/regions/TGFManager.hpp"

#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;
using namespace std::chrono_literals;
using platform::Json;

platform::UUID uuid(std::uint32_t index) {
  platform::UUID::Bytes bytes = {0x5A, 0x0E, 0x1C, 0x9E};
  for (int i = 0; i < 4; ++i) bytes[12 + i] = static_cast<std::uint8_t>(index >> (24 - 8 * i));
  return platform::UUID(bytes);
}

std::string kitOfUuids(std::uint32_t count) {
  Json entries = Json::array();
  for (std::uint32_t i = 0; i < count; ++i)
    entries.push_back({{"identifier", "region-" + std::to_string(i)},
                       {"uuid", uuid(i).string()},
                       {"major", nullptr},
                       {"minor", nullptr}});
  return Json{{"kit", {{"ibeacons", std::move(entries)}}}}.dump();
}

std::string kitOfCircles(std::uint32_t count) {
  Json circles = Json::array();
  for (std::uint32_t i = 0; i < count; ++i)
    circles.push_back({{"type", "circle"},
                       {"identifier", "circle-" + std::to_string(i)},
                       {"center", {50.0 + i * 1e-5, 8.0}},
                       {"radius", 30}});
  return Json{{"kit", {{"map", {{"overlays", std::move(circles)}}}}}}.dump();
}

// A region manager in a world in memory, and its clock.
void intoEffect(benchmark::State& state, std::string (*kit)(std::uint32_t)) {
  platform::HttpResponse response;
  response.status = 200;
  response.body = kit(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    test::TestPlatform world;
    world.http->answer("GET https://kit", response);
    TGFManager manager(world, nullptr, Json{{"GFKitURL", "https://kit"}});
    manager.start();
    world.time.runReady();
    manager.sync();
    world.time.runReady();
    if (manager.locationManager().monitoredRegions().size() != static_cast<std::size_t>(state.range(0)))
      state.SkipWithError("the kit did not come into effect");
  }
  state.SetComplexityN(state.range(0));
}

void uuidsIntoEffectTwice(benchmark::State& state) { intoEffect(state, kitOfUuids); }
void circlesIntoEffectTwice(benchmark::State& state) { intoEffect(state, kitOfCircles); }

// Location services in virtual time with their only manager.
struct Services {
  void addUuids(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
      const auto region = std::make_shared<platform::CLBeaconRegion>(uuid(static_cast<std::uint32_t>(i)), std::nullopt,
                                                                     std::nullopt, "region-" + std::to_string(i));
      manager->startMonitoringForRegion(region);
      manager->startRangingBeaconsInRegion(region);
    }
  }
  void addCircles(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i)
      manager->startMonitoringForRegion(std::make_shared<platform::CLCircularRegion>(
          platform::CLLocationCoordinate2D{50.0 + static_cast<double>(i) * 1e-5, 8.0}, 30.0,
          "circle-" + std::to_string(i)));
  }

  sim::VirtualTime time{platform::calendarTimeFromSeconds(1e9)};
  ranging::RangerLocationServices services{*time.scheduler(), *time.monotonicClock()};
  std::unique_ptr<platform::CLLocationManager> manager = services.makeLocationManager();
};

void registration(benchmark::State& state) {
  for (auto _ : state) {
    Services world;
    world.addUuids(state.range(0));
    world.addCircles(state.range(0));
    world.time.runReady();
    for (const auto& region : world.manager->monitoredRegions()) world.manager->stopMonitoringForRegion(region);
    for (const auto& region : world.manager->rangedRegions()) world.manager->stopRangingBeaconsInRegion(region);
    world.time.runReady();
  }
  state.SetComplexityN(state.range(0));
}

// One ranging for each of them, by the rules.
void secondOfRanging(benchmark::State& state) {
  Services world;
  world.addUuids(state.range(0));
  world.services.receive({{uuid(0), 1, 1}, -60, -59});
  world.time.advanceBy(1s);
  for (auto _ : state) {
    world.services.receive({{uuid(0), 1, 1}, -60, -59});
    world.time.advanceBy(1s);
  }
  state.SetComplexityN(state.range(0));
}

void fixAmongCircles(benchmark::State& state) {
  Services world;
  world.addCircles(state.range(0));
  world.time.runReady();
  for (auto _ : state) world.services.receiveFix({{50.0, 8.0}, 5.0, {}});
  state.SetComplexityN(state.range(0));
}

void sizes(benchmark::internal::Benchmark* table) {
  table->RangeMultiplier(10)->Range(100, 100'000)->Unit(benchmark::kMillisecond)->Complexity();
}

BENCHMARK(uuidsIntoEffectTwice)->Apply(sizes);
BENCHMARK(circlesIntoEffectTwice)->Apply(sizes);
BENCHMARK(registration)->Apply(sizes);
BENCHMARK(secondOfRanging)->Apply(sizes);
BENCHMARK(fixAmongCircles)->Apply(sizes);

}  // namespace
