#pragma once

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/platform/CLLocation.hpp"

namespace wayloom {

class TWLMapConfig;

// Converts between geographic coordinates and standard pixels of one map, by a flat-earth approximation around the
// map's reference point: degrees to metres with the lengths of a degree at that point, a rotation, a scale, an offset.
// What depends on the map alone is computed once here, so that placing a point costs a few multiplications. A plain
// value.
//
// Good for a venue: at latitude 50, 1 km north and 1 km east of the reference point, the error is about 20 cm.
class MapProjection {
 public:
  explicit MapProjection(const TWLMapConfig& map);

  // Standard pixels; not limited to the image.
  Point pixelsOf(const platform::CLLocationCoordinate2D& coordinate) const;
  // The exact inverse, up to rounding. Not a number where the map has no scale.
  platform::CLLocationCoordinate2D coordinateOf(const Point& pixels) const;

  // Whether a pixel lies on the map's image, edges included.
  bool contains(const Point& pixels) const {
    return pixels.x >= 0.0 && pixels.x <= width_ && pixels.y >= 0.0 && pixels.y <= height_;
  }

 private:
  platform::CLLocationCoordinate2D reference_;
  double metresPerDegreeOfLongitude_;
  double metresPerDegreeOfLatitude_;
  AxisRotation rotation_;
  AxisRotation inverseRotation_;
  double pixelsPerMeter_;
  Point cornerOffset_;
  double width_;
  double height_;
};

}  // namespace wayloom
