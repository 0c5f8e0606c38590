#include "maps/Geodesy.hpp"

#include <cmath>

#include "wayloom/maps/Geometry.hpp"

namespace wayloom {
namespace {

// WGS 84, metres.
constexpr double kEquatorialRadius = 6378137.0;
constexpr double kPolarRadius = 6356752.3142;
// Length of a degree of latitude, metres: constant, cos 2 phi and cos 4 phi terms.
constexpr double kLatitudeTerm0 = 111132.954;
constexpr double kLatitudeTerm2 = -559.822;
constexpr double kLatitudeTerm4 = 1.175;

}  // namespace

double metresPerDegreeOfLongitude(double latitude) {
  const double reduced = std::atan(kPolarRadius / kEquatorialRadius * std::tan(latitude * kRadiansPerDegree));
  return kEquatorialRadius * std::cos(reduced) * kRadiansPerDegree;
}

double metresPerDegreeOfLatitude(double latitude) {
  const double phi = latitude * kRadiansPerDegree;
  return kLatitudeTerm0 + kLatitudeTerm2 * std::cos(2.0 * phi) + kLatitudeTerm4 * std::cos(4.0 * phi);
}

}  // namespace wayloom
