// The member names of one map in a map configuration document.
#pragma once

#include <string_view>

namespace wayloom {

inline constexpr std::string_view QMBY_MAP_CONFIG_LATITUDE_KEY = "latitude";
inline constexpr std::string_view QMBY_MAP_CONFIG_LONGITUDE_KEY = "longitude";
inline constexpr std::string_view QMBY_MAP_CONFIG_ROTATION_DEGREES_KEY = "rotation_degrees";
inline constexpr std::string_view QMBY_MAP_CONFIG_PIXELS_PER_METER_KEY = "pixels_per_meter";
inline constexpr std::string_view QMBY_MAP_CONFIG_MAP_PIXEL_WIDTH_KEY = "map_pixel_width";
inline constexpr std::string_view QMBY_MAP_CONFIG_MAP_PIXEL_HEIGHT_KEY = "map_pixel_height";
inline constexpr std::string_view QMBY_MAP_CONFIG_MAP_CORNER_OFFSET_X_KEY = "map_corner_offset_x";
inline constexpr std::string_view QMBY_MAP_CONFIG_MAP_CORNER_OFFSET_Y_KEY = "map_corner_offset_y";
inline constexpr std::string_view QMBY_MAP_CONFIG_OVERLAY_PIXEL_OFFSET_X_KEY = "overlay_pixel_offset_x";
inline constexpr std::string_view QMBY_MAP_CONFIG_OVERLAY_PIXEL_OFFSET_Y_KEY = "overlay_pixel_offset_y";
inline constexpr std::string_view QMBY_MAP_CONFIG_HIDE_MAP_KEY = "hide_map";
inline constexpr std::string_view QMBY_MAP_CONFIG_GEOLOCATION_ENABLED_KEY = "geolocation_enabled";
inline constexpr std::string_view QMBY_MAP_CONFIG_CROP_WIDTH = "crop_width";
inline constexpr std::string_view QMBY_MAP_CONFIG_CROP_HEIGHT = "crop_height";
inline constexpr std::string_view QMBY_MAP_CONFIG_NAME = "name";
inline constexpr std::string_view QMBY_MAP_CONFIG_FILE_PATH = "file_path";

}  // namespace wayloom
