#include "wayloom/regions/BeaconMatch.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::Json;

RegionDetails::RegionDetails(std::optional<std::string> regionName, std::optional<std::string> regionIdentifier,
                             Json regionAttributes)
    : name(std::move(regionName)), identifier(std::move(regionIdentifier)), attributes(std::move(regionAttributes)) {
  if (!attributes.is_object()) attributes = Json::object();
}

RegionDetails RegionDetails::fromDictionary(const Json& dictionary) {
  const Json* attributes = platform::member(dictionary, "attributes");
  return {platform::stringValue(platform::member(dictionary, "name")),
          platform::stringValue(platform::member(dictionary, "identifier")),
          attributes && attributes->is_object() ? *attributes : Json::object()};
}

BeaconMatch::~BeaconMatch() {
  for (const Kept* kept = readings_.load(std::memory_order_acquire); kept != nullptr;) {
    const std::unique_ptr<const Kept> gone(kept);
    kept = gone->next;
  }
}

}  // namespace wayloom
