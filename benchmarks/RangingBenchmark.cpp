// What one ranging of 50 beacons costs from the platform's report to the position on the map, nothing written anywhere:
// matching it with the kit, merging it, the election, and the position. Beside it the same arithmetic as a plain loop
// over arrays that knows the venue in advance: no queue, no lock, no kit, no objects for the host.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <vector>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;
using namespace std::chrono_literals;
using platform::Json;

constexpr int kBeacons = 50;
constexpr int kRangings = 16;
const platform::UUID kUuid = *platform::UUID::parse("5A0E0000-0000-4000-8000-000000000001");

using Ranging = std::vector<platform::CLBeacon>;

std::vector<Ranging> rangings() {
  std::vector<Ranging> made(kRangings);
  unsigned seed = 1;
  const auto pick = [&](unsigned limit) { return (seed = seed * 1664525U + 1013904223U) / 65536U % limit; };
  for (auto& ranging : made)
    for (int i = 0; i < kBeacons; ++i)
      ranging.push_back({.proximityUUID = kUuid,
                         .major = 1,
                         .minor = static_cast<std::uint16_t>(i),
                         .rssi = -50 - static_cast<int>(pick(45)),
                         .accuracy = 0.5 + pick(300) / 10.0,
                         .proximity = platform::CLProximity::near});
  return made;
}

double latitudeOf(int minor) { return 50.0 + 1e-5 * minor; }

class Venue {
 public:
  Venue() {
    Json entries = Json::array();
    for (int minor = 0; minor < kBeacons; ++minor)
      entries.push_back({{"uuid", kUuid.string()},
                         {"major", 1},
                         {"minor", minor},
                         {"name", "Beacon " + std::to_string(minor)},
                         {"identifier", "beacon-" + std::to_string(minor)},
                         {"attributes",
                          {{"map_id", "ground-floor-of-the-hall"},
                           {"latitude", latitudeOf(minor)},
                           {"longitude", 8.0},
                           {"measured_power", -59}}}});
    kit = TGFAPIDeserializer::buildKit(world, std::make_shared<const Json>(Json{{"id", 1}, {"ibeacons", entries}}));
    TWLMapConfigRepo::sharedRepo(world).loadFromJSON(
        R"({"ground-floor-of-the-hall": {"latitude": 50, "longitude": 8, "rotation_degrees": 12, "pixels_per_meter": 20,
            "map_pixel_width": 4000, "map_pixel_height": 4000}})");
  }

  test::TestPlatform world;
  std::unique_ptr<TGFKit> kit;
  TWLLocationTracker& tracker = TWLLocationTracker::sharedLocationTracker(world);
};

void ranging(benchmark::State& state) {
  Venue venue;
  venue.tracker.setUseCoreLocationRanging(state.range(0) == 0);
  if (state.range(1)) venue.tracker.setElectionObserver([](const auto& trace) { benchmark::DoNotOptimize(&trace); });
  const auto input = rangings();
  std::size_t next = 0;
  for (auto _ : state) {
    const auto beacons = venue.kit->getIBeaconsForCLBeacons(input[next++ % kRangings]);
    venue.tracker.didRangeBeaconsInRegionInRegion(beacons, nullptr);
    const auto location = TWLLocationUtils::currentMapLocation(venue.world, venue.tracker);
    benchmark::DoNotOptimize(location.get());
    venue.world.time.advanceBy(1s);
  }
}
BENCHMARK(ranging)->ArgNames({"own_distance", "traced"})->Args({0, 0})->Args({1, 0})->Args({0, 1});

void matchOnly(benchmark::State& state) {
  Venue venue;
  const auto input = rangings();
  std::size_t next = 0;
  for (auto _ : state) {
    const auto beacons = venue.kit->getIBeaconsForCLBeacons(input[next++ % kRangings]);
    benchmark::DoNotOptimize(beacons.data());
  }
}
BENCHMARK(matchOnly);

void locateOnly(benchmark::State& state) {
  Venue venue;
  venue.tracker.didRangeBeaconsInRegionInRegion(venue.kit->getIBeaconsForCLBeacons(rangings()[0]), nullptr);
  venue.world.time.runReady();
  for (auto _ : state) {
    const auto location = TWLLocationUtils::currentMapLocation(venue.world, venue.tracker);
    benchmark::DoNotOptimize(location.get());
  }
}
BENCHMARK(locateOnly);

// The plain loop: beacons are numbered by their minor, and samples lie in fixed arrays.
struct PlainLoop {
  struct Beacon {
    std::array<double, 8> rssi{};
    std::array<std::int64_t, 8> time{};
    std::size_t count = 0;
    double average = 0.0;
    double accuracy = 0.0;
    std::int64_t lastDetected = -1;
  };
  struct Chosen {
    int minor = -1;
    double accuracy = 0.0;
    std::int64_t since = 0;
  };

  void merge(const Ranging& ranging, std::int64_t now) {
    for (const auto& ranged : ranging) {
      auto& beacon = beacons[ranged.minor];
      std::size_t kept = 0;
      double sum = 0.0;
      for (std::size_t i = 0; i < beacon.count; ++i) {
        if (now - beacon.time[i] > 5) continue;
        beacon.rssi[kept] = beacon.rssi[i];
        beacon.time[kept++] = beacon.time[i];
        sum += beacon.rssi[i];
      }
      beacon.rssi[kept] = ranged.rssi;
      beacon.time[kept++] = now;
      beacon.count = kept;
      beacon.average = (sum + ranged.rssi) / static_cast<double>(kept);
      beacon.accuracy = ranged.accuracy;
      beacon.lastDetected = now;
    }
  }

  void elect(std::int64_t now) {
    for (int minor = 0; minor < kBeacons; ++minor) {
      const auto& beacon = beacons[static_cast<std::size_t>(minor)];
      if (now - beacon.lastDetected >= 5 || beacon.accuracy <= 0.0) continue;
      if (candidate.minor < 0 || candidate.accuracy > beacon.accuracy) candidate = {minor, beacon.accuracy, now};
    }
    if (candidate.minor >= 0 && (winner.minor < 0 || now - winner.since > 5)) {
      winner = candidate;
      winner.since = now;
    }
    if (now - candidate.since > 5) candidate.minor = -1;
  }

  std::array<Beacon, kBeacons> beacons;
  Chosen candidate, winner;
};

void plainLoop(benchmark::State& state) {
  const TWLMapConfig map(Json{{"latitude", 50}, {"longitude", 8}, {"rotation_degrees", 12}, {"pixels_per_meter", 20}});
  const MapProjection projection(map);
  PlainLoop loop;
  const auto input = rangings();
  std::int64_t now = 0;
  for (auto _ : state) {
    loop.merge(input[static_cast<std::size_t>(now) % kRangings], now);
    loop.elect(now);
    const Point pixels = projection.pixelsOf({latitudeOf(loop.winner.minor), 8.0});
    benchmark::DoNotOptimize(pixels.x);
    ++now;
  }
}
BENCHMARK(plainLoop);

}  // namespace
