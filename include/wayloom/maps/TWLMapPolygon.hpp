#pragma once

#include <vector>

#include "wayloom/maps/Geometry.hpp"

namespace wayloom {

// A line or area on the earth that the host wants to see on a map. Each point holds a latitude as x and a longitude as
// y, degrees. A plain value.
class TWLMapPolygon {
 public:
  void addPoint(Point latitudeAndLongitude) { points_.push_back(latitudeAndLongitude); }
  const std::vector<Point>& points() const { return points_; }  // in the order of adding

 private:
  std::vector<Point> points_;
};

}  // namespace wayloom
