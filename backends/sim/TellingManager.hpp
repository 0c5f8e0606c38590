#pragma once

#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/sim/Replayer.hpp"

namespace wayloom::sim {

// The navigation manager, telling what it is told. The teller has tell(operation of ReplayListener, arguments...),
// which adds the time; calls at the end of a kit download come on the download's queue.
template <class Teller>
class TellingManager : public TWLManager {
 public:
  TellingManager(platform::Platform& platform, Teller& teller) : TWLManager(platform), teller_(teller) {}
  ~TellingManager() override { shutDown(); }

  void geofoldDidSync(TGFManager& engine) override {
    teller_.tell(&ReplayListener::synced);
    TWLManager::geofoldDidSync(engine);
  }
  void geofoldDidEnter(TGFManager& engine, const TGFRegionPtr& region) override {
    teller_.tell(&ReplayListener::entered, *region);
    TWLManager::geofoldDidEnter(engine, region);
  }
  void geofoldDidExit(TGFManager& engine, const TGFRegionPtr& region) override {
    teller_.tell(&ReplayListener::exited, *region);
    TWLManager::geofoldDidExit(engine, region);
  }
  void geofoldDidDetermineStateForRegion(TGFManager& engine, platform::CLRegionState state,
                                         const TGFRegionPtr& region) override {
    teller_.tell(&ReplayListener::determinedState, state, *region);
    TWLManager::geofoldDidDetermineStateForRegion(engine, state, region);
  }
  void geofoldDidRangeBeaconsInRegion(TGFManager& engine, const TGFBeaconList& beacons,
                                      const TGFBeaconRegionPtr& region) override {
    teller_.tell(&ReplayListener::ranged, beacons, *region);
    TWLManager::geofoldDidRangeBeaconsInRegion(engine, beacons, region);
  }
  void geofoldDidFailWithError(TGFManager& engine, const platform::Error& error) override {
    teller_.tell(&ReplayListener::failed, error);
    TWLManager::geofoldDidFailWithError(engine, error);
  }

 private:
  Teller& teller_;
};

}  // namespace wayloom::sim
