#include "wayloom/regions/TGFBeacon.hpp"

#include <utility>

namespace wayloom {

TGFBeacon::TGFBeacon(const platform::Json& dictionary)
    : TGFRegion(std::make_shared<const BeaconMatch>(RegionDetails::fromDictionary(dictionary))),
      constraint_(dictionary) {}

TGFBeacon::TGFBeacon(const platform::CLBeacon& beacon, BeaconMatchPtr match)
    : TGFRegion(std::move(match)), constraint_(beacon), beacon_(beacon) {}

bool TGFBeacon::isEqual(const TGFRegion& other) const {
  return this == &other || isEqualToGFIBeacon(dynamic_cast<const TGFBeacon*>(&other));
}

bool TGFBeacon::isEqualToGFIBeacon(const TGFBeacon* other) const {
  return other && constraint_.covers(other->constraint_);
}

}  // namespace wayloom
