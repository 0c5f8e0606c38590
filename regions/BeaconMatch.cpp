#include "wayloom/regions/BeaconMatch.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::Json;

namespace {

std::shared_ptr<const std::string> mapIdOf(const Json* value) {
  if (!value || value->is_null()) return nullptr;
  if (value->is_string()) return std::make_shared<const std::string>(value->get_ref<const std::string&>());
  return std::make_shared<const std::string>(value->dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace

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

BeaconMatch::BeaconMatch(RegionDetails details)
    : RegionDetails(std::move(details)),
      mapId(mapIdOf(platform::member(attributes, "map_id"))),
      latitude(platform::doubleValue(platform::member(attributes, "latitude"))),
      longitude(platform::doubleValue(platform::member(attributes, "longitude"))) {
  if (const Json* power = platform::member(attributes, "measured_power")) measuredPower = platform::integerValue(power);
}

}  // namespace wayloom
