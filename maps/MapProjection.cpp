#include "wayloom/maps/MapProjection.hpp"

#include "wayloom/maps/TWLMapConfig.hpp"

#include "maps/Geodesy.hpp"

namespace wayloom {

MapProjection::MapProjection(const TWLMapConfig& map)
    : reference_{map.latitude(), map.longitude()},
      metresPerDegreeOfLongitude_(metresPerDegreeOfLongitude(map.latitude())),
      metresPerDegreeOfLatitude_(metresPerDegreeOfLatitude(map.latitude())),
      rotation_(map.rotationDegrees()),
      inverseRotation_(-map.rotationDegrees()),
      pixelsPerMeter_(map.standardPixelsPerMeter()),
      cornerOffset_(map.scaledMapCornerOffset()),
      width_(static_cast<double>(map.scaledMapPixelWidth())),
      height_(static_cast<double>(map.scaledMapPixelHeight())) {}

Point MapProjection::pixelsOf(const platform::CLLocationCoordinate2D& coordinate) const {
  const Point metres = rotation_.apply({(coordinate.longitude - reference_.longitude) * metresPerDegreeOfLongitude_,
                                        (coordinate.latitude - reference_.latitude) * metresPerDegreeOfLatitude_});
  return {metres.x * pixelsPerMeter_ + cornerOffset_.x, -(metres.y * pixelsPerMeter_) + cornerOffset_.y};
}

platform::CLLocationCoordinate2D MapProjection::coordinateOf(const Point& pixels) const {
  const Point metres = inverseRotation_.apply(
      {(pixels.x - cornerOffset_.x) / pixelsPerMeter_, -((pixels.y - cornerOffset_.y) / pixelsPerMeter_)});
  return {.latitude = reference_.latitude + metres.y / metresPerDegreeOfLatitude_,
          .longitude = reference_.longitude + metres.x / metresPerDegreeOfLongitude_};
}

}  // namespace wayloom
