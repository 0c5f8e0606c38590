#include "view/MapPageLoad.hpp"

#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLMapsFileManager.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Url.hpp"

#include "maps/MapFileNames.hpp"
#include "view/PageText.hpp"

namespace wayloom {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(100);

std::string wholeNumber(double value) { return std::to_string(truncated(value)); }

platform::Json queryOf(const TWLMapConfig& map, const std::string& mapId, const TWLMapLocation* dot) {
  platform::Json query;
  query["dot-x"] = dot == nullptr ? "" : wholeNumber(dot->pixelCoords().x);
  query["dot-y"] = dot == nullptr ? "" : wholeNumber(dot->pixelCoords().y);
  query["map-width"] = map.scaledMapPixelWidth();
  query["map-height"] = map.scaledMapPixelHeight();
  query["crop-width"] = truncated(map.scaledCropSize().width);
  query["crop-height"] = truncated(map.scaledCropSize().height);
  query["map-file"] = mapId + ".svg";
  query["uncertainty-radius"] = dot == nullptr ? "" : std::to_string(dot->uncertaintyRadiusPixels());
  return query;
}

MapPageLoad::Result addressOf(platform::Platform& platform, const TWLMapConfig& given,
                              const TWLMapLocationPtr& location) {
  const auto& mapId = given.mapId();
  const auto known = TWLMapConfigRepo::sharedRepo(platform).forMapId(mapId);
  const TWLMapConfig& map = known ? *known : given;  // one that the host made, or that is gone meanwhile
  const bool isBare = map.filePath().value_or("").ends_with(".png");
  if (const auto refusal = refusalOfLocalName(mapId, isBare ? "png" : "svg"))
    return {std::nullopt, "map " + shownInLog(mapId) + ": " + *refusal};
  const TWLMapsFileManager files(platform);
  if (isBare) return {files.mapDirectoryPath() + "/" + mapId + ".png", {}};
  const auto* dot = location && location->mapId() == mapId ? location.get() : nullptr;
  const auto page = platform::fileUrlForPath(files.mapHtmlFilePath());
  const auto query = "?" + toUrlParams(queryOf(map, mapId, dot));
  platform.systemLog().write("Loading map from " + files.mapHtmlFilePath() + " with query string " + query);
  return {page + query, {}};
}

}  // namespace

MapPageLoad::MapPageLoad(platform::Platform& platform, TWLMapConfigPtr map, Begin begin, Ready ready)
    : platform_(platform), map_(std::move(map)), begin_(std::move(begin)), ready_(std::move(ready)) {
  auto& tasks = platform_.tasks();
  timer_ = tasks.startTimer(tasks.backgroundQueue(), platform::Duration::zero(), kPollInterval, [this] { look(); });
}

void MapPageLoad::look() {
  if (isReady_ || !TWLUpdateManager::sharedUpdateManager(platform_).mapReady()) return;
  isReady_ = true;
  const auto location = begin_();
  platform_.tasks().mainQueue().async(scope_.bind([this, result = addressOf(platform_, *map_, location)] {
    timer_.reset();
    const auto ready = ready_;  // which may destroy this
    ready(result);
  }));
}

}  // namespace wayloom
