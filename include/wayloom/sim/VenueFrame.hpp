#pragma once

#include <functional>
#include <string>

#include "wayloom/platform/CLLocation.hpp"

namespace wayloom::sim {

// Metres east and north of a venue's origin.
struct GroundPoint {
  double east = 0.0;
  double north = 0.0;
};

double distanceBetween(const GroundPoint& a, const GroundPoint& b);  // metres

// A place on one of the venue's maps, in standard pixels (5 a metre, x to the right, y down).
struct MapPoint {
  std::string mapId;
  double x = 0.0;
  double y = 0.0;
};

// Puts the places of all maps of a venue into one flat frame of metres, in which the simulated radio works. Immutable;
// any thread.
class VenueFrame {
 public:
  // How one map's pixels and geographic coordinates belong together; both must know every map that is asked for.
  struct Projection {
    std::function<platform::CLLocationCoordinate2D(const MapPoint&)> coordinateOf;
    std::function<MapPoint(const platform::CLLocationCoordinate2D&, const std::string& mapId)> pointOn;
  };

  // The origin should lie in the venue: the frame is flat. A kilometre away, at latitude 50,
  // a length is off by up to 2 parts in 10 000.
  VenueFrame(Projection projection, platform::CLLocationCoordinate2D origin);

  GroundPoint groundPoint(const MapPoint& point) const;
  MapPoint mapPoint(const GroundPoint& point, const std::string& mapId) const;
  platform::CLLocationCoordinate2D coordinate(const GroundPoint& point) const;

 private:
  Projection projection_;
  platform::CLLocationCoordinate2D origin_;
  double metresPerDegreeEast_;
  double metresPerDegreeNorth_;
};

}  // namespace wayloom::sim
