// Matching ranged beacons to kits of 20 and of 100 000 entries, side by side. Both hear the same number of beacons, as
// a device does wherever it stands; EveryEntry instead asks for all identities of the kit in random order, which is a
// measure of the memory behind a large kit rather than of the look-up.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <optional>
#include <random>

#include "wayloom/regions/TGFKit.hpp"
#include "wayloom/regions/TGFManager.hpp"

#include "SampleKit.hpp"
#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;

std::shared_ptr<const platform::Json> kitOf(std::uint32_t count) {
  return std::make_shared<const platform::Json>(benchmarks::sampleKit(count));
}

void lookUp(benchmark::State& state, const TGFAPIBeaconFinder& finder, const std::vector<platform::CLBeacon>& beacons) {
  for (const auto _ : state)
    for (const auto& beacon : beacons)
      benchmark::DoNotOptimize(
          finder.findAttrsForUUIDMajorMinor(beacon.proximityUUID, beacon.major, beacon.minor).get());
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(beacons.size()));
}

void LookUp(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  lookUp(state, TGFAPIBeaconFinder(kitOf(count)), benchmarks::heardBeacons(count, 20));
}

void LookUpStrangers(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  auto beacons = benchmarks::heardBeacons(count, 20);
  for (auto& beacon : beacons) beacon.major = 60000;
  lookUp(state, TGFAPIBeaconFinder(kitOf(count)), beacons);
}

void EveryEntry(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  auto beacons = benchmarks::heardBeacons(count, count);
  std::shuffle(beacons.begin(), beacons.end(), std::mt19937(1));
  lookUp(state, TGFAPIBeaconFinder(kitOf(count)), beacons);
}

// One ranging of 50 beacons turned into beacon objects.
void Ranging(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const TGFKit kit(kitOf(count));
  const auto beacons = benchmarks::heardBeacons(count, 50);
  for (const auto _ : state) benchmark::DoNotOptimize(kit.getIBeaconsForCLBeacons(beacons));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(beacons.size()));
}

// The same through the region manager, to the end of the pass that delivers its notification.
void RangingThroughManager(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  test::TestPlatform world;
  world.files->writeFile("/documents/geofold-kit.data", platform::Json{{"kit", benchmarks::sampleKit(count)}}.dump());
  TGFManagerDelegate delegate;
  TGFManager manager(world, &delegate, platform::Json{{"GFKitURL", "https://kits.example/kit"}});
  const auto beacons = benchmarks::heardBeacons(count, 50);
  const auto region =
      std::make_shared<const platform::CLBeaconRegion>(beacons[0].proximityUUID, std::nullopt, std::nullopt, "r");
  for (const auto _ : state) {
    manager.locationManagerDidRangeBeaconsInRegion(nullptr, beacons, region);
    world.time.runReady();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(beacons.size()));
}

BENCHMARK(LookUp)->Arg(20)->Arg(100000);
BENCHMARK(LookUpStrangers)->Arg(20)->Arg(100000);
BENCHMARK(EveryEntry)->Arg(20)->Arg(100000);
BENCHMARK(Ranging)->Arg(20)->Arg(100000);
BENCHMARK(RangingThroughManager)->Arg(20)->Arg(100000);

}  // namespace
