#pragma once

namespace wayloom {

// Metres in a degree of longitude: a cos(beta) pi/180 with the reduced latitude beta of the WGS 84 ellipsoid.
// Latitude in degrees, -90 to 90.
double metresPerDegreeOfLongitude(double latitude);

// Metres in a degree of latitude: the first terms of the series of the WGS 84 meridian.
double metresPerDegreeOfLatitude(double latitude);

}  // namespace wayloom
