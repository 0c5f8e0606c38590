#pragma once

#include <memory>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/TGFCircle.hpp"

namespace wayloom {

// The kit's geofences, in document order. Immutable.
class TGFMap {
 public:
  // From the kit's "map"; overlays of other types than "circle" are left out.
  explicit TGFMap(const platform::Json& dictionary);

  const std::vector<TGFCirclePtr>& overlays() const { return overlays_; }

 private:
  std::vector<TGFCirclePtr> overlays_;
};

using TGFMapPtr = std::shared_ptr<const TGFMap>;

}  // namespace wayloom
