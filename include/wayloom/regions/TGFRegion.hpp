#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/BeaconMatch.hpp"

namespace wayloom {

// A region of the kit: a geofence, a beacon region or a beacon. Immutable once made; safe to read from any thread.
class TGFRegion {
 public:
  explicit TGFRegion(std::shared_ptr<const RegionDetails> details) : details_(std::move(details)) {}
  virtual ~TGFRegion() = default;

  const std::optional<std::string>& name() const { return details_->name; }
  // Unique within a kit; the platform knows the region by it.
  const std::optional<std::string>& identifier() const { return details_->identifier; }
  const platform::Json& attributes() const { return details_->attributes; }  // always an object

  virtual bool isEqual(const TGFRegion& other) const { return this == &other; }
  virtual std::size_t hash() const { return std::hash<const void*>()(this); }

 protected:
  TGFRegion(const TGFRegion&) = default;
  TGFRegion& operator=(const TGFRegion&) = default;
  TGFRegion(TGFRegion&&) = default;
  TGFRegion& operator=(TGFRegion&&) = default;

  const RegionDetails& details() const { return *details_; }

 private:
  std::shared_ptr<const RegionDetails> details_;
};

using TGFRegionPtr = std::shared_ptr<const TGFRegion>;

}  // namespace wayloom
