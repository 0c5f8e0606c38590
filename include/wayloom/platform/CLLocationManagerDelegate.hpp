#pragma once

#include <span>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/CLRegion.hpp"
#include "wayloom/platform/Error.hpp"

namespace wayloom::platform {

class CLLocationManager;

enum class CLAuthorizationStatus : int {
  notDetermined = 0,
  restricted = 1,
  denied = 2,
  authorizedAlways = 3,
  authorizedWhenInUse = 4,
};

// A direction from the platform's compass.
struct CLHeading {
  double magneticHeading = 0.0;   // degrees clockwise from magnetic north, 0 to 360
  double headingAccuracy = -1.0;  // degrees; negative: invalid
  CalendarTime timestamp;
};

// What a location manager tells, on the main queue. Every operation is optional; spans are valid during the call. When
// the library itself raises the call, the manager pointer is null, and the thread is that of the cause: the main
// thread, or the queue on which the region manager puts a downloaded kit into effect.
class CLLocationManagerDelegate {
 public:
  virtual ~CLLocationManagerDelegate() = default;

  virtual void locationManagerDidUpdateLocations(CLLocationManager*, std::span<const CLLocation>) {}
  virtual void locationManagerDidUpdateHeading(CLLocationManager*, const CLHeading&) {}
  virtual bool locationManagerShouldDisplayHeadingCalibration(CLLocationManager*) { return false; }
  virtual void locationManagerDidDetermineStateForRegion(CLLocationManager*, CLRegionState, const CLRegionPtr&) {}
  virtual void locationManagerDidRangeBeaconsInRegion(CLLocationManager*, std::span<const CLBeacon>,
                                                      const CLBeaconRegionPtr&) {}
  virtual void locationManagerRangingBeaconsDidFailForRegionWithError(CLLocationManager*, const CLBeaconRegionPtr&,
                                                                      const Error&) {}
  virtual void locationManagerDidEnterRegion(CLLocationManager*, const CLRegionPtr&) {}
  virtual void locationManagerDidExitRegion(CLLocationManager*, const CLRegionPtr&) {}
  virtual void locationManagerDidFailWithError(CLLocationManager*, const Error&) {}
  virtual void locationManagerMonitoringDidFailForRegionWithError(CLLocationManager*, const CLRegionPtr&,
                                                                  const Error&) {}
  virtual void locationManagerDidChangeAuthorizationStatus(CLLocationManager*, CLAuthorizationStatus) {}
  virtual void locationManagerDidStartMonitoringForRegion(CLLocationManager*, const CLRegionPtr&) {}
  virtual void locationManagerDidPauseLocationUpdates(CLLocationManager*) {}
  virtual void locationManagerDidResumeLocationUpdates(CLLocationManager*) {}
  virtual void locationManagerDidFinishDeferredUpdatesWithError(CLLocationManager*, const Error&) {}
};

}  // namespace wayloom::platform
