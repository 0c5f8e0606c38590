#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/TGFAPIBeaconFinder.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFMap.hpp"

namespace wayloom {

// The description of one venue: its beacon regions, its beacons with their attributes, and its geofences. Made from a
// kit document by TGFAPIDeserializer::buildKit. Immutable but for `url`; every const operation may be called from any
// thread.
class TGFKit {
 public:
  // `document` may be null; then the kit is empty.
  explicit TGFKit(std::shared_ptr<const platform::Json> document, TGFMapPtr map = nullptr,
                  std::vector<TGFBeaconRegionPtr> beaconRegions = {});

  std::int64_t id() const { return id_; }
  const std::optional<std::string>& name() const { return name_; }
  const std::optional<std::string>& statusURL() const { return statusURL_; }
  const std::optional<std::string>& statusToken() const { return statusToken_; }
  const TGFMapPtr& map() const { return map_; }  // may be null
  const std::vector<TGFBeaconRegionPtr>& beaconRegions() const { return beaconRegions_; }
  const std::shared_ptr<const platform::Json>& json() const { return json_; }  // the whole document, unchanged

  const std::optional<std::string>& url() const { return url_; }
  void setUrl(std::string url) { url_ = std::move(url); }

  TGFBeacon getIBeaconForCLBeacon(const platform::CLBeacon& beacon) const;
  // The beacons of one ranging, in order; they share one allocation.
  TGFBeaconList getIBeaconsForCLBeacons(std::span<const platform::CLBeacon> beacons) const;
  TGFBeaconRegionPtr getIBeaconRegionForCLBeaconRegion(const platform::CLBeaconRegionPtr& region) const;
  // Whether the kit names the region's UUID and, for a region with a major, has an entry that could match one of its
  // beacons.
  bool knowsRegion(const platform::CLBeaconRegion& region) const { return finder_.knows(region); }

  // Whether an entry of the kit names the beacon's UUID, major and minor.
  bool lists(const platform::BeaconIdentity& beacon) const { return finder_.lists(beacon); }

  // The first geofence, else the first beacon region, with that identifier; or null.
  TGFRegionPtr getRegionForIdentifier(std::string_view identifier) const;

  // Calls with a beacon for each entry in document order, and its index there, until `stop` is set. Entries that aren't
  // objects are passed over.
  using BeaconBlock = std::function<void(const TGFBeacon& beacon, std::size_t index, bool& stop)>;
  void enumerateIBeaconsUsingBlock(const BeaconBlock& block) const;

 private:
  std::shared_ptr<const platform::Json> json_;
  std::int64_t id_;
  std::optional<std::string> name_;
  std::optional<std::string> statusURL_;
  std::optional<std::string> statusToken_;
  std::optional<std::string> url_;
  TGFMapPtr map_;
  std::vector<TGFBeaconRegionPtr> beaconRegions_;
  TGFAPIBeaconFinder finder_;
};

using TGFKitPtr = std::shared_ptr<const TGFKit>;

}  // namespace wayloom
