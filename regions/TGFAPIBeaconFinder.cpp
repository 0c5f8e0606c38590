#include "wayloom/regions/TGFAPIBeaconFinder.hpp"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"

#include "BeaconIndex.hpp"

namespace wayloom {

using platform::Json;

namespace {

// Up to this many comparisons of names, comparing all with one another is cheaper than sorting them.
constexpr std::size_t kFewComparisons = 1024;

const Json::array_t* entriesOf(const Json* document) {
  const Json* entries = platform::member(document, "ibeacons");
  return entries && entries->is_array() ? &entries->get_ref<const Json::array_t&>() : nullptr;
}

void mergeMany(Json::object_t& target, const Json::object_t& source) {
  target.reserve(target.size() + source.size());  // the names below are views into it
  std::map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < target.size(); ++i) places.emplace(target.data()[i].first, i);
  for (const auto& [name, value] : source) {
    if (const auto place = places.find(name); place != places.end()) {
      target.data()[place->second].second = value;
      continue;
    }
    const auto& added = static_cast<std::vector<Json::object_t::value_type>&>(target).emplace_back(name, value);
    places.emplace(added.first, target.size() - 1);
  }
}

void mergeAttributes(Json& target, const Json* source) {
  if (!source || !source->is_object()) return;
  if (target.empty())
    target = *source;
  else if (target.size() * source->size() > kFewComparisons)
    mergeMany(target.get_ref<Json::object_t&>(), source->get_ref<const Json::object_t&>());
  else
    target.update(*source);
}

void apply(RegionDetails& details, const Json& entry) {
  mergeAttributes(details.attributes, platform::member(entry, "attributes"));
  details.name = platform::stringValue(platform::member(entry, "name"));
  details.identifier = platform::stringValue(platform::member(entry, "identifier"));
}

RegionDetails emptyDetails() { return {"", "", Json::object()}; }

}  // namespace

TGFAPIBeaconFinder::TGFAPIBeaconFinder(std::shared_ptr<const Json> document)
    : document_(std::move(document)),
      entries_(entriesOf(document_.get())),
      index_(std::make_unique<BeaconIndex>(entries_)),
      nothing_(std::make_shared<const BeaconMatch>(emptyDetails())),
      matches_(index_->placeCount()) {}

TGFAPIBeaconFinder::~TGFAPIBeaconFinder() = default;

const BeaconMatchPtr& TGFAPIBeaconFinder::findAttrsForUUIDMajorMinor(const platform::UUID& uuid, Word major,
                                                                     Word minor) const {
  const auto place = index_->placeOf(uuid, major, minor);
  if (place == BeaconIndex::kNone) return nothing_;
  auto& shared = matches_[place];
  if (shared.made.load(std::memory_order_acquire)) return shared.match;
  const std::lock_guard lock(mutex_);
  if (!shared.made.load(std::memory_order_relaxed)) {
    shared.match = mergedMatch(uuid, major, minor);
    shared.made.store(true, std::memory_order_release);
  }
  return shared.match;
}

BeaconMatchPtr TGFAPIBeaconFinder::mergedMatch(const platform::UUID& uuid, Word major, Word minor) const {
  const auto found = index_->entriesOf(uuid, major, minor);
  auto details = emptyDetails();
  for (const auto position : {found.uuid, found.major, found.exact})
    if (position != BeaconIndex::kNone) apply(details, (*entries_)[position]);
  auto match = std::make_shared<BeaconMatch>(std::move(details));
  match->isListed = found.exact != BeaconIndex::kNone;
  return match;
}

TGFBeacon TGFAPIBeaconFinder::findIBeaconForCLBeacon(const platform::CLBeacon& beacon) const {
  return {beacon, findAttrsForUUIDMajorMinor(beacon.proximityUUID, beacon.major, beacon.minor)};
}

TGFBeaconRegionPtr TGFAPIBeaconFinder::findIBeaconRegionForCLBeaconRegion(
    const platform::CLBeaconRegionPtr& region) const {
  return std::make_shared<const TGFBeaconRegion>(
      region, findAttrsForUUIDMajorMinor(region->proximityUUID(), region->major(), region->minor()));
}

bool TGFAPIBeaconFinder::lists(const platform::BeaconIdentity& beacon) const {
  return index_->entriesOf(beacon.uuid, beacon.major, beacon.minor).exact != BeaconIndex::kNone;
}

bool TGFAPIBeaconFinder::knows(const platform::CLBeaconRegion& region) const {
  return index_->knows(region.proximityUUID(), region.major(), region.minor());
}

}  // namespace wayloom
