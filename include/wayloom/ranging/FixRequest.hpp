#pragma once

#include "wayloom/platform/CLLocationManager.hpp"

namespace wayloom::ranging {

// What the location managers that update locations want between them; a radio for fixes need not do more. Circles that
// are monitored want fixes, too, and all of them.
struct FixRequest {
  double desiredAccuracy = platform::kCLLocationAccuracyBestForNavigation;  // metres, the most demanding
  double distanceFilter = 0.0;                                              // metres, the smallest

  bool operator==(const FixRequest&) const = default;
};

}  // namespace wayloom::ranging
