#pragma once

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/positioning/Geometry.hpp"

namespace wayloom {

class TWLMapConfig;

// Converts between geographic coordinates and standard pixels of one map, by a flat-earth approximation around the
// map's reference point. What depends on the map alone is computed once here, so that placing a point costs a few
// multiplications. A plain value.
//
// Good for a venue: 1 km from the reference point at latitude 50 the error is about 20 cm.
class MapProjection {
 public:
  // The projection of a map that nobody knows: every coordinate is at pixel (0, 0).
  MapProjection() = default;
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
  double metresPerDegreeOfLongitude_ = 0.0;
  double metresPerDegreeOfLatitude_ = 0.0;
  double cosine_ = 1.0;
  double sine_ = 0.0;
  double pixelsPerMeter_ = 0.0;
  Point cornerOffset_;
  double width_ = 0.0;
  double height_ = 0.0;
};

}  // namespace wayloom
