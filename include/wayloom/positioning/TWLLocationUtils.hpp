#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/maps/TWLMapLocation.hpp"
#include "wayloom/platform/CLLocation.hpp"

namespace wayloom {

class TWLLocationTracker;

// Turns the question where the device is into a point on a floor-plan map. Stateless; any thread.
//
// Coordinates are WGS 84 degrees, points are standard pixels. Maps are those of the shared TWLMapConfigRepo.
class TWLLocationUtils {
 public:
  TWLLocationUtils() = delete;

  // Where the device is: the place of the beacon that the shared tracker elected, with twice the platform's estimate of
  // the distance to it as the uncertainty; without one, the last geographic fix when it is less than 180 s old and lies
  // on a map that takes fixes. Null when there is neither.
  static std::shared_ptr<TWLMapLocation> currentMapLocation(platform::Platform& platform);
  // The same for a caller that has the Platform's tracker at hand already.
  static std::shared_ptr<TWLMapLocation> currentMapLocation(platform::Platform& platform, TWLLocationTracker& tracker);

  // Metres in a degree of longitude: a cos(beta) pi/180 with the reduced latitude beta of the WGS 84 ellipsoid.
  // Latitude in degrees, -90 to 90.
  static double longitudinalLengthForLatitude(double latitude);
  // Metres in a degree of latitude: the first terms of the series of the WGS 84 meridian.
  static double latitudinalLengthForLatitude(double latitude);

  // Turns the axes clockwise by the angle, in a frame whose y points north.
  static Point rotateCoordinateWithRotation(Point point, double degrees);

  // The pixel of a coordinate on one map, within the image or not. Never null; on a map that the repository doesn't
  // know every coordinate is at pixel (0, 0).
  static std::shared_ptr<TWLMapLocation> mapLocationForGeolocationForMapId(
      platform::Platform& platform, const platform::CLLocationCoordinate2D& coordinate, std::string mapId);
  // The same on the first map, in the repository's order, that takes geographic fixes and whose image contains the
  // coordinate, edges included; null when there is none.
  static std::shared_ptr<TWLMapLocation> mapLocationForGeoLocation(platform::Platform& platform,
                                                                   const platform::CLLocationCoordinate2D& coordinate);

  // The coordinate of a pixel on one map; nothing for a map that the repository doesn't know.
  static std::optional<platform::CLLocationCoordinate2D> locationOnMapPixelCoords(platform::Platform& platform,
                                                                                  std::string_view mapId, Point pixels);
};

}  // namespace wayloom
