#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/BeaconMatch.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"

namespace wayloom {

class BeaconIndex;

// Finds what the kit says of a beacon or beacon region that the platform reports.
//
// Three entries of the kit at most speak of an identity, and the more specific overrides: the UUID entry (its major is
// JSON null, whatever its minor), the major entry (equal major, minor JSON null) and the exact entry (both equal). Of
// several of one kind the last counts. Attributes are merged; name and identifier are those of the most specific entry,
// absent ones included. An identity without an entry gets no attributes and empty texts.
//
// The entries are indexed once; a look-up costs the same for every size of kit. A match is merged when it is first
// asked for and then shared, so that later look-ups of the same identity allocate nothing. Thread-safe after
// construction.
class TGFAPIBeaconFinder {
 public:
  using Word = std::optional<std::uint16_t>;

  // `document` is the kit document; null, or without an array "ibeacons", it matches nothing.
  explicit TGFAPIBeaconFinder(std::shared_ptr<const platform::Json> document);
  ~TGFAPIBeaconFinder();
  TGFAPIBeaconFinder(const TGFAPIBeaconFinder&) = delete;
  TGFAPIBeaconFinder& operator=(const TGFAPIBeaconFinder&) = delete;

  // Never null; the reference is good as long as the finder. An absent major or minor equals no entry's number.
  const BeaconMatchPtr& findAttrsForUUIDMajorMinor(const platform::UUID& uuid, Word major, Word minor) const;

  TGFBeacon findIBeaconForCLBeacon(const platform::CLBeacon& beacon) const;
  TGFBeaconRegionPtr findIBeaconRegionForCLBeaconRegion(const platform::CLBeaconRegionPtr& region) const;

  // Whether the kit names the region's UUID and, for a region with a major, has an entry that could match one of its
  // beacons.
  bool knows(const platform::CLBeaconRegion& region) const;
  bool lists(const platform::BeaconIdentity& beacon) const;

 private:
  // The match of one place of the index: made when somebody asks for it, then never changed.
  struct SharedMatch {
    std::atomic<bool> made = false;
    BeaconMatchPtr match;  // written under the mutex, before `made` is set
  };

  BeaconMatchPtr mergedMatch(const platform::UUID& uuid, Word major, Word minor) const;

  std::shared_ptr<const platform::Json> document_;
  const platform::Json::array_t* entries_;  // within document_; null when it has none
  std::unique_ptr<const BeaconIndex> index_;
  BeaconMatchPtr nothing_;
  mutable std::mutex mutex_;
  mutable std::vector<SharedMatch> matches_;
};

}  // namespace wayloom
