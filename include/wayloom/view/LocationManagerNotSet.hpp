#pragma once

#include <stdexcept>

namespace wayloom {

// The host put a map view into a window without giving it a location manager. A programming error of the host's.
class LocationManagerNotSet : public std::logic_error {
 public:
  LocationManagerNotSet() : std::logic_error(name()) {}

  static constexpr const char* name() { return "QMBYMapView locationManager property not set"; }
};

}  // namespace wayloom
