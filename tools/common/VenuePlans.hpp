#pragma once

#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFKit.hpp"
#include "wayloom/sim/VenueFrame.hpp"

#include "tools/evaluate/Evaluation.hpp"

namespace wayloom::tools {

// A venue's kit as its server would give it: DIR/server/kit.json. Nothing, and the reason in `error`, when it can't be
// read; what is wrong inside is logged on the Platform.
TGFKitPtr readKit(platform::Platform& platform, const std::string& venue, std::string& error);

// The kit's beacons that stand on a map which the venue has: one for each entry with major and minor, with the
// attributes of wider entries merged in as positioning sees them.
struct PlacedBeacon {
  platform::BeaconIdentity identity;
  std::string label;
  PlanPoint place;
  std::optional<std::int64_t> measuredPower;  // dBm at one metre
};
std::vector<PlacedBeacon> placedBeacons(platform::Platform& platform, const TGFKit& kit);

// Metres between places of the Platform's maps, across maps by their coordinates. The Platform must outlive it.
PlanDistance planDistance(platform::Platform& platform);

// The Platform's maps in one frame of metres around the first map's reference point. The Platform must outlive it.
sim::VenueFrame venueFrame(platform::Platform& platform);

}  // namespace wayloom::tools
