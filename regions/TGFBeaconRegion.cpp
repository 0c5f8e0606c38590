#include "wayloom/regions/TGFBeaconRegion.hpp"

#include <utility>

namespace wayloom {
namespace {

using platform::CLBeaconRegion;

// The platform takes 16 bits, whatever the kit says.
std::uint16_t wordOf(std::optional<std::int64_t> number) { return static_cast<std::uint16_t>(number.value_or(0)); }

platform::CLBeaconRegionPtr regionOf(const BeaconConstraint& constraint, const RegionDetails& details) {
  if (!constraint.uuid || (constraint.hasMinor && !constraint.hasMajor)) return nullptr;
  std::optional<std::uint16_t> major;
  std::optional<std::uint16_t> minor;
  if (constraint.hasMajor) major = wordOf(constraint.major);
  if (constraint.hasMinor) minor = wordOf(constraint.minor);
  auto region = std::make_shared<CLBeaconRegion>(*constraint.uuid, major, minor, details.identifier.value_or(""));
  region->notifyOnEntry = true;
  region->notifyOnExit = true;
  region->notifyEntryStateOnDisplay = true;
  return region;
}

}  // namespace

TGFBeaconRegion::TGFBeaconRegion(const platform::Json& dictionary)
    : TGFRegion(std::make_shared<const RegionDetails>(RegionDetails::fromDictionary(dictionary))),
      constraint_(dictionary),
      region_(regionOf(constraint_, details())) {}

TGFBeaconRegion::TGFBeaconRegion(platform::CLBeaconRegionPtr region, BeaconMatchPtr match)
    : TGFRegion(std::move(match)), constraint_(*region), region_(std::move(region)) {}

bool TGFBeaconRegion::isEqual(const TGFRegion& other) const {
  return this == &other || isEqualToGFIBeaconRegion(dynamic_cast<const TGFBeaconRegion*>(&other));
}

bool TGFBeaconRegion::isEqualToGFIBeaconRegion(const TGFBeaconRegion* other) const {
  return other && constraint_.covers(other->constraint_);
}

}  // namespace wayloom
