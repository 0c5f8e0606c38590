#pragma once

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/platform/Error.hpp"

namespace wayloom {

class TWLMapView;

// Told by a map view, on the main thread. It may destroy the view in any of these calls.
class TWLMapViewDelegate {
 public:
  virtual ~TWLMapViewDelegate() = default;

  virtual void mapViewDidFinishLoad(TWLMapView&) {}
  virtual void mapViewDidFailLoadWithError(TWLMapView&, const platform::Error&) {}
  // Somebody tapped the plan there: metres from the map's overlay origin, x to the right, y downwards.
  virtual void mapViewTappedAt(TWLMapView&, Point) {}
};

}  // namespace wayloom
