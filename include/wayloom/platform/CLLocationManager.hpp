#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "wayloom/platform/CLLocationManagerDelegate.hpp"

namespace wayloom::platform {

// The most accurate fixes that the platform can give, whatever they cost.
inline constexpr double kCLLocationAccuracyBestForNavigation = -2.0;

// One object's access to the location services. Operations may be called from any thread and take effect at once for
// monitoredRegions() and rangedRegions(); the delegate is called on the main queue only. Regions are monitored and
// ranged for the whole application: every manager of one Platform sees the same sets, in the order of registration.
// After destruction the delegate is not called any more.
class CLLocationManager {
 public:
  virtual ~CLLocationManager() = default;

  virtual void setDelegate(CLLocationManagerDelegate* delegate) = 0;  // main thread; not owned; may be null

  virtual void requestAlwaysAuthorization() = 0;

  virtual void startMonitoringForRegion(CLRegionPtr region) = 0;
  virtual void stopMonitoringForRegion(const CLRegionPtr& region) = 0;
  virtual void requestStateForRegion(const CLRegionPtr& region) = 0;
  virtual std::vector<CLRegionPtr> monitoredRegions() const = 0;

  virtual void startRangingBeaconsInRegion(CLBeaconRegionPtr region) = 0;
  virtual void stopRangingBeaconsInRegion(const CLBeaconRegionPtr& region) = 0;
  virtual std::vector<CLBeaconRegionPtr> rangedRegions() const = 0;

  // Runs the changes, which start and stop regions, so that the platform takes them in as one: a region that is stopped
  // and started again goes on, and nothing is told or asked of a receiver in between. Where the platform can't do that,
  // it takes them in one by one.
  virtual void changeInOneStep(const std::function<void()>& changes) { changes(); }

  virtual void setDesiredAccuracy(double metres) = 0;  // or kCLLocationAccuracyBestForNavigation
  virtual void setDistanceFilter(double metres) = 0;   // a fix this near to the last one told is not told
  virtual void startUpdatingLocation() = 0;
  virtual void stopUpdatingLocation() = 0;
  virtual std::optional<CLLocation> location() const = 0;  // the last known fix
};

}  // namespace wayloom::platform
