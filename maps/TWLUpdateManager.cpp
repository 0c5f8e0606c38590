#include "wayloom/maps/TWLUpdateManager.hpp"

#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"

#include "maps/BuildStamp.hpp"
#include "maps/MapFileNames.hpp"

namespace wayloom {
namespace {

constexpr std::string_view kBuiltInImageType = "svg";

}  // namespace

TWLUpdateManager& TWLUpdateManager::sharedUpdateManager(platform::Platform& platform) {
  return platform.shared<TWLUpdateManager>([&] { return std::make_unique<TWLUpdateManager>(platform); });
}

TWLUpdateManager::TWLUpdateManager(platform::Platform& platform, std::string buildDate)
    : platform_(platform),
      repo_(TWLMapConfigRepo::sharedRepo(platform)),
      files_(platform),
      buildDate_(std::move(buildDate)),
      shouldCopyMapResources_(platform.userDefaults().stringForKey(MAP_RESOURCES_COPIED) != buildDate_),
      updateBlockCondition_(platform.tasks().makeConditionLock()),
      dbCondition_(platform.tasks().makeConditionLock()) {}

std::string TWLUpdateManager::currentBuild() { return libraryBuildStamp(); }

void TWLUpdateManager::update() {
  if (updateInProgress_.exchange(true)) return;
  {
    const std::lock_guard lock(mutex_);
    updatedAt_ = platform_.calendarClock().now();
  }
  mapReady_ = false;
  menuReady_ = false;
  searchReady_ = false;
  platform_.tasks().backgroundQueue().async(scope_.bind([this] { run(); }));
}

void TWLUpdateManager::run() {
  const std::lock_guard lock(*updateBlockCondition_);
  if (shouldCopyMapResources_) {
    files_.copyMapDependencies();
    markMapResourcesCopied();
  }
  const auto mapIds = repo_.mapIds();
  menuReady_ = true;
  files_.updateMapsFromDictionary(builtInImages(mapIds));
  mapReady_ = true;
  repo_.update();
  updateInProgress_ = false;
  updateBlockCondition_->signalAll();
}

TWLMapsFileManager::Images TWLUpdateManager::builtInImages(const std::vector<std::string>& mapIds) const {
  TWLMapsFileManager::Images images;
  for (const auto& mapId : mapIds) {
    platform_.systemLog().write("map id is " + shownInLog(mapId));
    if (const auto refusal = refusalOfLocalName(mapId, kBuiltInImageType)) {
      platform_.systemLog().write("Refused the built-in image of map " + shownInLog(mapId) + ": " + *refusal);
      continue;
    }
    if (auto path = platform_.mainBundle().pathForResource(mapId, kBuiltInImageType))
      images.emplace_back(mapId, std::move(*path));
  }
  return images;
}

void TWLUpdateManager::waitUntilCompleted() {
  const std::lock_guard lock(*updateBlockCondition_);
  while (updateInProgress_) updateBlockCondition_->wait();
}

void TWLUpdateManager::markMapResourcesCopied() {
  shouldCopyMapResources_ = false;
  platform_.userDefaults().setString(MAP_RESOURCES_COPIED, buildDate_);
  platform_.userDefaults().synchronize();
}

std::optional<platform::CalendarTime> TWLUpdateManager::updatedAt() const {
  const std::lock_guard lock(mutex_);
  return updatedAt_;
}

}  // namespace wayloom
