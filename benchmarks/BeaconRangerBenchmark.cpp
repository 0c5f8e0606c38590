// Frames through the ranger, ticks included, against the least that any ranger must do for a frame: find the beacon in
// a hash map and average.
#include <benchmark/benchmark.h>
#include <unordered_map>
#include <vector>

#include "ranging/BeaconRanger.hpp"

namespace {

using namespace wayloom::platform;
using namespace wayloom::ranging;
using namespace std::chrono_literals;

constexpr int kBeacons = 50;
constexpr auto kFrameInterval = 100ms / kBeacons;  // 50 beacons at 10 Hz

const UUID kVenue = *UUID::parse("5A0E0000-0000-4000-8000-000000000002");
const UUID kForeign = *UUID::parse("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0");

class Sink : public BeaconRangerDelegate {
 public:
  void ranged(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr&) override {
    benchmark::DoNotOptimize(beacons.data());
  }
  void entered(const CLBeaconRegionPtr&) override {}
  void exited(const CLBeaconRegionPtr&) override {}
  void determinedState(CLRegionState, const CLBeaconRegionPtr&) override {}
};

std::vector<IBeaconFrame> frames(const UUID& uuid) {
  std::vector<IBeaconFrame> made;
  for (int i = 0; i < kBeacons * 7; ++i)
    made.push_back({{uuid, 1, static_cast<std::uint16_t>(i % kBeacons)}, -60 - i % 23, -59});
  return made;
}

void run(benchmark::State& state, BeaconRanger& ranger, const std::vector<IBeaconFrame>& input) {
  MonotonicTime now;
  std::size_t next = 0;
  for (auto _ : state) {
    ranger.receive(input[next], now);
    next = next + 1 == input.size() ? 0 : next + 1;
    now += kFrameInterval;
    if (now < *ranger.nextTick()) continue;
    ranger.tick(now);
    while (ranger.deliverNextRanging()) {
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void oneRegion(benchmark::State& state) {
  Sink sink;
  BeaconRanger ranger(sink);
  const auto all = std::make_shared<CLBeaconRegion>(kVenue, std::nullopt, std::nullopt, "all");
  ranger.startRanging(all, {});
  ranger.startMonitoring(all, {});
  run(state, ranger, frames(kVenue));
}
BENCHMARK(oneRegion);

// The argument is the number of regions, each of one beacon.
void manyRegions(benchmark::State& state) {
  Sink sink;
  BeaconRanger ranger(sink);
  for (int i = 0; i < state.range(0); ++i) {
    const auto one =
        std::make_shared<CLBeaconRegion>(kVenue, std::uint16_t{1}, static_cast<std::uint16_t>(i), std::to_string(i));
    ranger.startRanging(one, {});
    ranger.startMonitoring(one, {});
  }
  run(state, ranger, frames(kVenue));
}
BENCHMARK(manyRegions)->Arg(50)->Arg(500);

void foreignFrames(benchmark::State& state) {
  Sink sink;
  BeaconRanger ranger(sink);
  ranger.startRanging(std::make_shared<CLBeaconRegion>(kVenue, std::nullopt, std::nullopt, "all"), {});
  run(state, ranger, frames(kForeign));
}
BENCHMARK(foreignFrames);

void plainAverage(benchmark::State& state) {
  struct Average {
    long sum = 0;
    long count = 0;
  };
  std::unordered_map<BeaconIdentity, Average> averages;
  const auto input = frames(kVenue);
  std::size_t next = 0;
  for (auto _ : state) {
    auto& average = averages[input[next].identity];
    average.sum += input[next].rssi;
    ++average.count;
    next = next + 1 == input.size() ? 0 : next + 1;
  }
  benchmark::DoNotOptimize(averages);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(plainAverage);

}  // namespace
