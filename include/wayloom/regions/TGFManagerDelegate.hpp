#pragma once

#include "wayloom/platform/CLRegion.hpp"
#include "wayloom/platform/Error.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom {

class TGFManager;

// What the region manager tells its host; every operation is optional. Calls arrive on the main queue, except those
// at the end of a kit download (geofoldDidSync, geofoldDidFailWithError), which arrive on the queue of the downloads.
// In each of them the host may destroy the manager.
class TGFManagerDelegate {
 public:
  virtual ~TGFManagerDelegate() = default;

  // A kit download ended without an error.
  virtual void geofoldDidSync(TGFManager&) {}
  virtual void geofoldDidEnter(TGFManager&, const TGFRegionPtr&) {}
  virtual void geofoldDidExit(TGFManager&, const TGFRegionPtr&) {}
  virtual void geofoldDidDetermineStateForRegion(TGFManager&, platform::CLRegionState, const TGFRegionPtr&) {}
  // The beacons in the order in which the platform reported them; none when nothing is heard.
  virtual void geofoldDidRangeBeaconsInRegion(TGFManager&, const TGFBeaconList&, const TGFBeaconRegionPtr&) {}
  virtual void geofoldDidFailWithError(TGFManager&, const platform::Error&) {}
};

}  // namespace wayloom
