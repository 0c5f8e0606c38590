#pragma once

#include <cstdint>
#include <functional>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"
#include "wayloom/sim/RadioWorld.hpp"
#include "wayloom/sim/WalkPath.hpp"

namespace wayloom::sim {

// What a walk through a radio world brings about, in time order. Times are seconds since the walk's start.
struct RadioListener {
  std::function<void(double t, const ranging::IBeaconFrame&, const RadioBeacon&)> frame;
  std::function<void(double t, const platform::CLLocationCoordinate2D&, double accuracy)> fix;  // accuracy in metres
  std::function<void(double t, const MapPoint&)> truth;                                         // once a second
};

// Walks the path once. The same world, path and seed give the same calls with the same numbers.
void simulateRadio(const RadioWorld& world, const WalkPath& path, const VenueFrame& frame, std::uint64_t seed,
                   const RadioListener& listener);

}  // namespace wayloom::sim
