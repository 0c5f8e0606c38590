#include "wayloom/regions/TGFCircle.hpp"

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::Json;

namespace {

const Json* elementOf(const Json* array, std::size_t index) {
  return array && array->is_array() && array->size() > index ? &(*array)[index] : nullptr;
}

}  // namespace

TGFCircle::TGFCircle(const Json& dictionary)
    : TGFRegion(std::make_shared<const RegionDetails>(RegionDetails::fromDictionary(dictionary))),
      latitude_(platform::floatValue(elementOf(platform::member(dictionary, "center"), 0))),
      longitude_(platform::floatValue(elementOf(platform::member(dictionary, "center"), 1))),
      radius_(platform::floatValue(platform::member(dictionary, "radius"))),
      region_(std::make_shared<const platform::CLCircularRegion>(
          platform::CLLocationCoordinate2D{latitude_, longitude_}, radius_, identifier().value_or(""))) {}

}  // namespace wayloom
