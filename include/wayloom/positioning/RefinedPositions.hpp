// Positions in metres from rangings, next to the specified ones and without any influence on them.
//
//   RefinedPositions positions(platform);
//   positions.setKit(manager.gfManager().kit());
//   positions.ranged(beacons, now);  // of each region
//   if (const auto* position = positions.update(now); position && position->map) draw(*position);
//
// A host with a TWLManager takes RefinedPositionUpdates, which does this by itself. docs/positions.md has the model,
// its constants and its figures.
#pragma once

#include <memory>

#include "wayloom/platform/Time.hpp"
#include "wayloom/positioning/RefinedPosition.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFKit.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// Reads no clock and posts no task: the same calls give the same positions. One thread at a time. It allocates when the
// kit or the Platform's maps have changed, and nothing else; a second costs at most about a tenth of a millisecond in
// an ordinary venue and below a millisecond in any.
class RefinedPositions {
 public:
  explicit RefinedPositions(platform::Platform& platform);
  ~RefinedPositions();
  RefinedPositions(const RefinedPositions&) = delete;
  RefinedPositions& operator=(const RefinedPositions&) = delete;

  // Whose beacons count: those with an entry of their own (UUID, major and minor) whose attributes give a map of the
  // Platform's shared TWLMapConfigRepo and a place on or near its image. Another kit begins anew. May be null.
  void setKit(TGFKitPtr kit);

  // One ranging of one region. Times must not go back; those that do count as the latest.
  void ranged(const TGFBeaconList& beacons, platform::MonotonicTime at);

  // Where the device is, after all rangings of an instant. Null when there is nothing to tell: nothing was ranged since
  // the last update, or it was told already that nothing is heard. Valid until the next call.
  const RefinedPosition* update(platform::MonotonicTime at);

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace wayloom
