#include "wayloom/sim/VenueFrame.hpp"

#include <cmath>
#include <utility>

#include "wayloom/positioning/TWLLocationUtils.hpp"

namespace wayloom::sim {

double distanceBetween(const GroundPoint& a, const GroundPoint& b) {
  return std::hypot(a.east - b.east, a.north - b.north);
}

VenueFrame::VenueFrame(Projection projection, platform::CLLocationCoordinate2D origin)
    : projection_(std::move(projection)),
      origin_(origin),
      metresPerDegreeEast_(TWLLocationUtils::longitudinalLengthForLatitude(origin.latitude)),
      metresPerDegreeNorth_(TWLLocationUtils::latitudinalLengthForLatitude(origin.latitude)) {}

GroundPoint VenueFrame::groundPoint(const MapPoint& point) const {
  const auto coordinate = projection_.coordinateOf(point);
  return {(coordinate.longitude - origin_.longitude) * metresPerDegreeEast_,
          (coordinate.latitude - origin_.latitude) * metresPerDegreeNorth_};
}

platform::CLLocationCoordinate2D VenueFrame::coordinate(const GroundPoint& point) const {
  return {origin_.latitude + point.north / metresPerDegreeNorth_,
          origin_.longitude + point.east / metresPerDegreeEast_};
}

MapPoint VenueFrame::mapPoint(const GroundPoint& point, const std::string& mapId) const {
  return projection_.pointOn(coordinate(point), mapId);
}

}  // namespace wayloom::sim
