#include "positioning/BeaconPlace.hpp"

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {
namespace {

using platform::Json;

std::optional<std::string> mapIdOf(const Json* value) {
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (value->is_string()) return value->get<std::string>();
  return value->dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::int64_t> powerOf(const Json* value) {
  return platform::isNumeric(value) ? std::optional(platform::integerValue(value)) : std::nullopt;
}

}  // namespace

BeaconPlace::BeaconPlace(const Json& attributes)
    : mapId(mapIdOf(platform::member(attributes, "map_id"))),
      coordinate{platform::doubleValue(platform::member(attributes, "latitude")),
                 platform::doubleValue(platform::member(attributes, "longitude"))},
      measuredPower(powerOf(platform::member(attributes, "measured_power"))) {}

}  // namespace wayloom
