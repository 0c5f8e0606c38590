#pragma once

#include <string>
#include <utility>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/CLRegion.hpp"

namespace wayloom::platform {

// A geofence: everything within `radius` metres of a point.
class CLCircularRegion : public CLRegion {
 public:
  CLCircularRegion(CLLocationCoordinate2D center, double radius, std::string identifier)
      : CLRegion(std::move(identifier)), center_(center), radius_(radius) {}

  CLLocationCoordinate2D center() const { return center_; }
  double radius() const { return radius_; }  // metres

 private:
  CLLocationCoordinate2D center_;
  double radius_;
};

}  // namespace wayloom::platform
