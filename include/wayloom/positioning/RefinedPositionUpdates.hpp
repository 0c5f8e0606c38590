#pragma once

#include <functional>
#include <memory>

#include "wayloom/platform/NotificationCenter.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/positioning/RefinedPosition.hpp"
#include "wayloom/positioning/RefinedPositions.hpp"

namespace wayloom {

class TGFManager;
class TWLManager;

// Follows the rangings of a manager and tells a refined position for each round of them: once a second, when every
// region of the second has been ranged.
//
//   RefinedPositionUpdates updates(*platform, manager, [](const RefinedPosition& position) { ... });
//
// Made, called back and destroyed on the main queue, the destruction in the callback too; the manager must outlive it.
// The specified positions are what they are without it.
class RefinedPositionUpdates {
 public:
  // A position without a map says, once, that nothing is heard any more.
  using Handler = std::function<void(const RefinedPosition&)>;

  RefinedPositionUpdates(platform::Platform& platform, TWLManager& manager, Handler handler);
  ~RefinedPositionUpdates();
  RefinedPositionUpdates(const RefinedPositionUpdates&) = delete;
  RefinedPositionUpdates& operator=(const RefinedPositionUpdates&) = delete;

 private:
  void ranged(const TGFBeaconList& beacons);
  void waitForTheRest();
  void passEnded();

  platform::Platform& platform_;
  TGFManager& engine_;
  std::shared_ptr<const Handler> handler_;
  RefinedPositions positions_;
  int rangings_ = 0;      // since the last update
  int seenRangings_ = 0;  // of them, when the current pass was waited for
  std::unique_ptr<platform::NotificationCenter::Observation> observation_;
  platform::TaskScope scope_;  // last
};

}  // namespace wayloom
