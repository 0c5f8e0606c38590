// Manufacturer data of any length, and what a ranger makes of the frames in it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "wayloom/ranging/SignalEstimator.hpp"

#include "ranging/BeaconRanger.hpp"

namespace {

using namespace wayloom::platform;
using namespace wayloom::ranging;

class Checker : public BeaconRangerDelegate {
 public:
  void ranged(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) override {
    for (const auto& beacon : beacons) {
      const bool sound = beacon.accuracy >= SignalEstimator::kNearest && beacon.accuracy <= SignalEstimator::kFarthest;
      if (!sound || beacon.rssi > 0 || beacon.rssi < -127 || !region->contains(beacon.identity())) std::abort();
    }
  }
  void entered(const CLBeaconRegionPtr&) override {}
  void exited(const CLBeaconRegionPtr&) override {}
  void determinedState(CLRegionState, const CLBeaconRegionPtr&) override {}
};

constexpr std::size_t kFrameLength = 23;
constexpr std::size_t kStepLength = kFrameLength + 2;  // RSSI and elapsed time come first

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::span data(bytes, size);
  const auto whole = IBeaconFrame::parse(0x004C, data, -70);
  if (whole && size != kFrameLength) std::abort();

  Checker checker;
  BeaconRanger ranger(checker, {.capacity = 4});
  MonotonicTime now;
  for (; data.size() >= kStepLength; data = data.subspan(kStepLength)) {
    const auto frame = IBeaconFrame::parse(0x004C, data.subspan(2, kFrameLength), static_cast<std::int8_t>(data[0]));
    now += std::chrono::milliseconds(100) * data[1];
    if (frame) {
      ranger.startRanging(
          std::make_shared<CLBeaconRegion>(frame->identity.uuid, frame->identity.major, std::nullopt, "major"), now);
      ranger.receive(*frame, now);
    }
    ranger.tick(now);
    while (ranger.deliverNextRanging()) {
    }
    if (ranger.beaconCount() > 4) std::abort();
  }
  return 0;
}
