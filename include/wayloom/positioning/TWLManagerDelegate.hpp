#pragma once

#include "wayloom/maps/TWLMapLocation.hpp"

namespace wayloom {

class TWLManager;

// Told about map positions, as the navigation manager's delegate or as one of its listeners.
class TWLManagerDelegate {
 public:
  virtual ~TWLManagerDelegate() = default;

  // A new position, on the thread that caused it: for platform callbacks, the main thread. Null, for "no position",
  // only in the first call of a listener.
  virtual void locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr&) {}
};

}  // namespace wayloom
