#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/Json.hpp"

namespace wayloom {

// Which beacons a kit entry, a beacon or a beacon region speaks of: a UUID, with an optional major and minor. A plain
// value.
//
// A flag may be set while its number is absent: a kit entry without the member "major" constrains it, to nothing.
struct BeaconConstraint {
  BeaconConstraint() = default;
  explicit BeaconConstraint(const platform::Json& dictionary);  // "uuid", "major", "minor"; JSON null clears a flag
  explicit BeaconConstraint(const platform::CLBeacon& beacon);
  explicit BeaconConstraint(const platform::CLBeaconRegion& region);

  // Whether `other` has the same UUID and, where this one has a major or minor, the same number. Not symmetric: a UUID
  // alone covers every major of it, but not the reverse. Never true without a UUID.
  bool covers(const BeaconConstraint& other) const;

  // hash(uuid) | (major ^ ~minor); an absent number counts as 0.
  std::size_t hash() const;

  std::optional<platform::UUID> uuid;
  std::optional<std::int64_t> major;
  std::optional<std::int64_t> minor;
  bool hasMajor = false;
  bool hasMinor = false;
};

}  // namespace wayloom
