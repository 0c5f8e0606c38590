#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/platform/Json.hpp"

namespace wayloom {

// The geometry of one floor-plan map: where it lies on the earth, how its image is scaled, what of it is shown.
//
// A plain value without a lock: the map catalogue hands it out as an immutable shared object. Image pixels are those
// of the map's image file; standard pixels are the common scale of 5 pixels a metre in which all positions are given.
class TWLMapConfig {
 public:
  TWLMapConfig() = default;
  // One map object of a map configuration document.
  explicit TWLMapConfig(const platform::Json& object) { loadFromJSONObject(object); }

  // Sets every field but mapId from the document. A missing member, or one that can't be read as what it should be,
  // counts as 0, false or an absent text; without a crop the whole image is visible. Nothing is validated.
  void loadFromJSONObject(const platform::Json& object);

  const std::string& mapId() const { return mapId_; }
  void setMapId(std::string mapId) { mapId_ = std::move(mapId); }

  // The reference point: WGS 84, degrees.
  double latitude() const { return latitude_; }
  void setLatitude(double degrees) { latitude_ = degrees; }
  double longitude() const { return longitude_; }
  void setLongitude(double degrees) { longitude_ = degrees; }

  // Turns metres east and north of the reference point into the map's directions; positive turns east towards south.
  double rotationDegrees() const { return rotationDegrees_; }
  void setRotationDegrees(double degrees) { rotationDegrees_ = degrees; }

  // Image pixels a metre. With 0 every scaled value is infinite or no number.
  double pixelsPerMeter() const { return pixelsPerMeter_; }
  void setPixelsPerMeter(double pixels) { pixelsPerMeter_ = pixels; }

  // Size of the image, image pixels.
  std::int64_t mapPixelWidth() const { return mapPixelWidth_; }
  void setMapPixelWidth(std::int64_t pixels) { mapPixelWidth_ = pixels; }
  std::int64_t mapPixelHeight() const { return mapPixelHeight_; }
  void setMapPixelHeight(std::int64_t pixels) { mapPixelHeight_ = pixels; }

  // Image pixel of the reference point, from the image's top-left corner.
  Point mapCornerOffset() const { return mapCornerOffset_; }
  void setMapCornerOffset(Point pixels) { mapCornerOffset_ = pixels; }
  // Image pixel at which the map's overlay is drawn.
  Point overlayPixelOffset() const { return overlayPixelOffset_; }
  void setOverlayPixelOffset(Point pixels) { overlayPixelOffset_ = pixels; }

  bool hideMap() const { return hideMap_; }
  void setHideMap(bool hide) { hideMap_ = hide; }
  // Whether geographic fixes of the platform may be placed on this map.
  bool geolocationEnabled() const { return geolocationEnabled_; }
  void setGeolocationEnabled(bool enabled) { geolocationEnabled_ = enabled; }

  // Size of the visible part, image pixels.
  double cropWidth() const { return cropWidth_; }
  void setCropWidth(double pixels) { cropWidth_ = pixels; }
  double cropHeight() const { return cropHeight_; }
  void setCropHeight(double pixels) { cropHeight_ = pixels; }

  // For people.
  const std::optional<std::string>& name() const { return name_; }
  void setName(std::optional<std::string> name) { name_ = std::move(name); }
  // Path of the map's image, relative to the directory of the document on the server. Outside text: not a local path.
  const std::optional<std::string>& filePath() const { return filePath_; }
  void setFilePath(std::optional<std::string> path) { filePath_ = std::move(path); }

  // Standard pixels. The whole numbers are truncated towards zero; beyond their range they saturate, and 0 stands for
  // no number.
  double standardPixelsPerMeter() const { return kStandardPixelsPerMeter; }
  std::int64_t scaledMapPixelWidth() const { return truncated(scaled(static_cast<double>(mapPixelWidth_))); }
  std::int64_t scaledMapPixelHeight() const { return truncated(scaled(static_cast<double>(mapPixelHeight_))); }
  Point scaledOverlayPixelOffset() const { return {scaled(overlayPixelOffset_.x), scaled(overlayPixelOffset_.y)}; }
  Point scaledMapCornerOffset() const { return {scaled(mapCornerOffset_.x), scaled(mapCornerOffset_.y)}; }
  Size scaledCropSize() const { return {scaled(cropWidth_), scaled(cropHeight_)}; }

 private:
  static constexpr double kStandardPixelsPerMeter = 5.0;

  double scaled(double imagePixels) const { return imagePixels * kStandardPixelsPerMeter / pixelsPerMeter_; }

  std::string mapId_;
  double latitude_ = 0.0;
  double longitude_ = 0.0;
  double rotationDegrees_ = 0.0;
  double pixelsPerMeter_ = 0.0;
  std::int64_t mapPixelWidth_ = 0;
  std::int64_t mapPixelHeight_ = 0;
  Point mapCornerOffset_;
  Point overlayPixelOffset_;
  bool hideMap_ = false;
  bool geolocationEnabled_ = false;
  double cropWidth_ = 0.0;
  double cropHeight_ = 0.0;
  std::optional<std::string> name_;
  std::optional<std::string> filePath_;
};

using TWLMapConfigPtr = std::shared_ptr<const TWLMapConfig>;

}  // namespace wayloom
