#pragma once

#include <memory>

#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom {

// A circular geofence. Immutable; safe to read from any thread.
class TGFCircle : public TGFRegion {
 public:
  // From an overlay of the kit; wrong types read as 0 and absent.
  explicit TGFCircle(const platform::Json& dictionary);

  float latitude() const { return latitude_; }  // degrees
  float longitude() const { return longitude_; }
  float radius() const { return radius_; }  // metres

  // The platform's region, always the same object.
  const platform::CLRegionPtr& region() const { return region_; }

 private:
  float latitude_;
  float longitude_;
  float radius_;
  platform::CLRegionPtr region_;  // made at construction: threads share this object without a lock
};

using TGFCirclePtr = std::shared_ptr<const TGFCircle>;

}  // namespace wayloom
