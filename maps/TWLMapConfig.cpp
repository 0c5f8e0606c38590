#include "wayloom/maps/TWLMapConfig.hpp"

#include "wayloom/maps/TWLMapConfigKeys.hpp"
#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {
namespace {

using platform::Json;
using platform::member;

double number(const Json& object, std::string_view key) { return platform::doubleValue(member(object, key)); }

// Offsets are published in single precision: 0.1 in the document is the float nearest to it here.
Point singlePrecisionPoint(const Json& object, std::string_view xKey, std::string_view yKey) {
  return {platform::floatValue(member(object, xKey)), platform::floatValue(member(object, yKey))};
}

double numberOr(const Json& object, std::string_view key, std::int64_t missing) {
  const Json* value = member(object, key);
  return value ? platform::doubleValue(value) : static_cast<double>(missing);
}

}  // namespace

void TWLMapConfig::loadFromJSONObject(const Json& object) {
  latitude_ = number(object, QMBY_MAP_CONFIG_LATITUDE_KEY);
  longitude_ = number(object, QMBY_MAP_CONFIG_LONGITUDE_KEY);
  rotationDegrees_ = number(object, QMBY_MAP_CONFIG_ROTATION_DEGREES_KEY);
  pixelsPerMeter_ = number(object, QMBY_MAP_CONFIG_PIXELS_PER_METER_KEY);
  mapPixelWidth_ = truncated(number(object, QMBY_MAP_CONFIG_MAP_PIXEL_WIDTH_KEY));
  mapPixelHeight_ = truncated(number(object, QMBY_MAP_CONFIG_MAP_PIXEL_HEIGHT_KEY));
  mapCornerOffset_ =
      singlePrecisionPoint(object, QMBY_MAP_CONFIG_MAP_CORNER_OFFSET_X_KEY, QMBY_MAP_CONFIG_MAP_CORNER_OFFSET_Y_KEY);
  overlayPixelOffset_ = singlePrecisionPoint(object, QMBY_MAP_CONFIG_OVERLAY_PIXEL_OFFSET_X_KEY,
                                             QMBY_MAP_CONFIG_OVERLAY_PIXEL_OFFSET_Y_KEY);
  hideMap_ = platform::boolValue(member(object, QMBY_MAP_CONFIG_HIDE_MAP_KEY));
  geolocationEnabled_ = platform::boolValue(member(object, QMBY_MAP_CONFIG_GEOLOCATION_ENABLED_KEY));
  cropWidth_ = numberOr(object, QMBY_MAP_CONFIG_CROP_WIDTH, mapPixelWidth_);
  cropHeight_ = numberOr(object, QMBY_MAP_CONFIG_CROP_HEIGHT, mapPixelHeight_);
  name_ = platform::stringValue(member(object, QMBY_MAP_CONFIG_NAME));
  filePath_ = platform::stringValue(member(object, QMBY_MAP_CONFIG_FILE_PATH));
}

}  // namespace wayloom
