#pragma once

#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// WGS 84, degrees; latitude -90 to 90 (north positive), longitude -180 to 180 (east positive).
struct CLLocationCoordinate2D {
  double latitude = 0.0;
  double longitude = 0.0;

  bool operator==(const CLLocationCoordinate2D&) const = default;
};

// One geographic fix.
struct CLLocation {
  CLLocationCoordinate2D coordinate;
  double horizontalAccuracy = -1.0;  // metres; 0 or less: the coordinate is invalid
  CalendarTime timestamp;            // when the platform determined it, which may be long ago
};

}  // namespace wayloom::platform
