// What a second of refined positions costs: an ordinary venue with 50 beacons heard and as many cells as there can be,
// and a hostile one. "p99_us" is what a second may cost; "bytes" what is kept beyond the kit.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <malloc.h>
#include <string>
#include <vector>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/RefinedPositions.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;
using platform::CLBeacon;
using platform::Json;

const platform::UUID kUuid = *platform::UUID::parse("5A0E0000-0000-4000-8000-000000000002");

// A kit with a beacon at each place, in degrees beside 50 N 8 E, on the maps in turn.
struct Venue {
  Venue(const std::vector<std::pair<double, double>>& places, int maps, const Json& power) {
    Json config;
    for (int i = 0; i < maps; ++i)
      config["map" + std::to_string(i)] = {{"latitude", 50},
                                           {"longitude", 8},
                                           {"pixels_per_meter", 5},
                                           {"map_pixel_width", 5000},
                                           {"map_pixel_height", 5000}};
    TWLMapConfigRepo::sharedRepo(world).loadFromJSON(config.dump());
    Json entries = Json::array();
    for (const auto& [south, east] : places)
      entries.push_back({{"uuid", kUuid.string()},
                         {"major", 1},
                         {"minor", entries.size()},
                         {"attributes",
                          {{"map_id", "map" + std::to_string(entries.size() % static_cast<std::size_t>(maps))},
                           {"latitude", 50.0 - south},
                           {"longitude", 8.0 + east},
                           {"measured_power", power}}}});
    kit = TGFAPIDeserializer::buildKit(world, std::make_shared<const Json>(Json{{"id", 1}, {"ibeacons", entries}}));
  }

  TGFBeaconList heard(int count) const {
    std::vector<CLBeacon> beacons;
    for (int i = 0; i < count; ++i)
      beacons.push_back({.proximityUUID = kUuid,
                         .major = 1,
                         .minor = static_cast<std::uint16_t>(i),
                         .rssi = -60 - i * 7919 % 30,
                         .accuracy = 1.0 + i % 20});
    return kit->getIBeaconsForCLBeacons(beacons);
  }

  test::TestPlatform world;
  TGFKitPtr kit;
};

void run(benchmark::State& state, Venue& venue, int count) {
  using Clock = std::chrono::steady_clock;
  const auto beacons = venue.heard(count);
  const auto before = mallinfo2().uordblks;
  RefinedPositions positions(venue.world);
  positions.setKit(venue.kit);
  platform::MonotonicTime now{};
  positions.ranged(beacons, now);
  positions.update(now);
  std::vector<double> microseconds;
  for (auto _ : state) {
    now += std::chrono::seconds(1);
    const auto start = Clock::now();
    positions.ranged(beacons, now);
    benchmark::DoNotOptimize(positions.update(now));
    microseconds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  std::sort(microseconds.begin(), microseconds.end());
  const auto quantile = [&](double share) {
    return microseconds[static_cast<std::size_t>(share * static_cast<double>(microseconds.size()))];
  };
  state.counters["median_us"] = quantile(0.5);
  state.counters["p99_us"] = quantile(0.99);
  state.counters["bytes"] =
      static_cast<double>(mallinfo2().uordblks - before) - 8.0 * static_cast<double>(microseconds.capacity());
}

void ordinarySecond(benchmark::State& state) {
  std::vector<std::pair<double, double>> places;
  for (int i = 0; i < 64; ++i) places.emplace_back(6e-5 * (i / 8) + 1e-4, 9e-5 * (i % 8) + 1e-4);  // 6.5 m apart
  Venue venue(places, 1, -59);
  run(state, venue, 50);
}

void hostileSecond(benchmark::State& state) {
  std::vector<std::pair<double, double>> places(1000, {1e-4, 1e-4});
  for (int i = 0; i < 2000; ++i) places.emplace_back(i % 97 * 9e-5, i % 89 * 1e-4);
  for (int i = 0; i < 100; ++i) places.emplace_back(1e300, -1e300);
  Venue venue(places, 2, 1e300);
  run(state, venue, 3000);
}

}  // namespace

BENCHMARK(ordinarySecond)->Iterations(5000)->Unit(benchmark::kMicrosecond);
BENCHMARK(hostileSecond)->Iterations(1000)->Unit(benchmark::kMicrosecond);
