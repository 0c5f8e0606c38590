#pragma once

#include <memory>
#include <optional>

#include "wayloom/platform/CLLocationManager.hpp"

namespace wayloom::platform {

// The platform's location services as a whole. Thread-safe.
class LocationServices {
 public:
  virtual ~LocationServices() = default;

  virtual std::unique_ptr<CLLocationManager> makeLocationManager() = 0;
  virtual CLAuthorizationStatus authorizationStatus() const = 0;

  // Whether beacon regions can be monitored; nothing when this platform can't tell.
  virtual std::optional<bool> isMonitoringAvailable() const = 0;
  // The older and coarser question: whether any region can be monitored.
  virtual bool regionMonitoringAvailable() const = 0;
  // Whether the platform knows beacon regions at all.
  virtual bool supportsBeaconRegions() const { return true; }
};

}  // namespace wayloom::platform
