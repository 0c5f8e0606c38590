#include "wayloom/regions/TGFKit.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::Json;

TGFKit::TGFKit(std::shared_ptr<const Json> document, TGFMapPtr map, std::vector<TGFBeaconRegionPtr> beaconRegions)
    : json_(std::move(document)),
      id_(platform::integerValue(platform::member(json_.get(), "id"))),
      name_(platform::stringValue(platform::member(json_.get(), "name"))),
      statusURL_(platform::stringValue(platform::member(json_.get(), "status_url"))),
      statusToken_(platform::stringValue(platform::member(json_.get(), "status_token"))),
      map_(std::move(map)),
      beaconRegions_(std::move(beaconRegions)),
      finder_(json_) {}

TGFBeacon TGFKit::getIBeaconForCLBeacon(const platform::CLBeacon& beacon) const {
  return finder_.findIBeaconForCLBeacon(beacon);
}

TGFBeaconList TGFKit::getIBeaconsForCLBeacons(std::span<const platform::CLBeacon> beacons) const {
  const auto batch = std::make_shared<std::vector<TGFBeacon>>();
  batch->reserve(beacons.size());
  TGFBeaconList list;
  list.reserve(beacons.size());
  for (const auto& beacon : beacons) {
    const auto& match = finder_.findAttrsForUUIDMajorMinor(beacon.proximityUUID, beacon.major, beacon.minor);
    list.emplace_back(batch, &batch->emplace_back(beacon, match));
  }
  return list;
}

TGFBeaconRegionPtr TGFKit::getIBeaconRegionForCLBeaconRegion(const platform::CLBeaconRegionPtr& region) const {
  return finder_.findIBeaconRegionForCLBeaconRegion(region);
}

TGFRegionPtr TGFKit::getRegionForIdentifier(std::string_view identifier) const {
  if (map_)
    for (const auto& circle : map_->overlays())
      if (circle->identifier() == identifier) return circle;
  for (const auto& region : beaconRegions_)
    if (region->identifier() == identifier) return region;
  return nullptr;
}

void TGFKit::enumerateIBeaconsUsingBlock(const BeaconBlock& block) const {
  const Json* entries = platform::member(json_.get(), "ibeacons");
  if (!entries || !entries->is_array()) return;
  bool stop = false;
  for (std::size_t index = 0; index < entries->size() && !stop; ++index) {
    const auto& entry = (*entries)[index];
    if (entry.is_object()) block(TGFBeacon(entry), index, stop);
  }
}

}  // namespace wayloom
