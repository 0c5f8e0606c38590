#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/regions/BeaconConstraint.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom {

// One beacon region that is monitored and ranged. Immutable; safe to read from any thread.
class TGFBeaconRegion : public TGFRegion {
 public:
  // From a kit entry; wrong types read as absent.
  explicit TGFBeaconRegion(const platform::Json& dictionary);
  // What the platform reports, with what the kit says of it; neither may be null.
  TGFBeaconRegion(platform::CLBeaconRegionPtr region, BeaconMatchPtr match);

  const std::optional<platform::UUID>& uuid() const { return constraint_.uuid; }
  std::optional<std::int64_t> major() const { return constraint_.major; }
  std::optional<std::int64_t> minor() const { return constraint_.minor; }
  bool hasMajor() const { return constraint_.hasMajor; }
  bool hasMinor() const { return constraint_.hasMinor; }

  // The platform's region, always the same object: of the UUID, of UUID and major, or of all three, notifying of entry,
  // exit and entry while the display is on. Null for a minor without a major, and without a UUID.
  const platform::CLBeaconRegionPtr& region() const { return region_; }

  // Equality looks only at the major and minor that this region has: deliberately not symmetric.
  bool isEqual(const TGFRegion& other) const override;
  bool isEqualToGFIBeaconRegion(const TGFBeaconRegion* other) const;
  std::size_t hash() const override { return constraint_.hash(); }

 private:
  BeaconConstraint constraint_;
  platform::CLBeaconRegionPtr region_;  // made at construction: threads share this object without a lock
};

using TGFBeaconRegionPtr = std::shared_ptr<const TGFBeaconRegion>;

}  // namespace wayloom
