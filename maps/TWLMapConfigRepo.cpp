#include "wayloom/maps/TWLMapConfigRepo.hpp"

#include <utility>

#include "wayloom/maps/TWLConfig.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/Platform.hpp"

#include "maps/MapUpdate.hpp"
#include "platform/HttpDate.hpp"

namespace wayloom {
namespace {

constexpr std::string_view kBuiltInType = "json";

std::int64_t wholeSecondsSince1970(platform::CalendarTime time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

TWLMapConfigRepo& TWLMapConfigRepo::sharedRepo(platform::Platform& platform) {
  return platform.shared<TWLMapConfigRepo>([&] { return std::make_unique<TWLMapConfigRepo>(platform); });
}

TWLMapConfigRepo::TWLMapConfigRepo(platform::Platform& platform) : platform_(platform), files_(platform) {
  completeStoppedUpdate();
  load();
  setUpdateUrl(TWLConfig(platform).WLMapConfigURL());
}

TWLMapConfigRepo::TWLMapConfigRepo(platform::Platform& platform, std::string_view json)
    : platform_(platform), files_(platform) {
  loadFromJSON(json);
}

TWLMapConfigRepo::~TWLMapConfigRepo() { scope_.close(); }

void TWLMapConfigRepo::load() {
  const std::lock_guard lock(documentMutex_);
  log("Initializing map config repo");
  if (loadFromSavedJSONFile()) return;
  log("No map config saved json file available.  Loading from built in file");
  loadFromBuiltInJSONFile();
}

bool TWLMapConfigRepo::loadFromSavedJSONFile() {
  const std::string path = platform_.files().documentsDirectory() + "/" + std::string(SAVED_JSON_FILENAME);
  log("Looking for json file at " + path);
  const auto data = platform_.files().readFile(path);
  log("Found data of length " + std::to_string(data ? data->size() : 0) + " at " + path);
  if (!data) return false;
  log("Trying to parse data as json");
  return loadFromJSON(*data);
}

bool TWLMapConfigRepo::loadFromBuiltInJSONFile() {
  const auto path = builtInPath();
  const auto data = path ? platform_.files().readFile(*path) : std::nullopt;
  return data && loadFromJSON(*data);
}

bool TWLMapConfigRepo::loadFromJSON(std::string_view data) {
  const auto document = platform::parseJson(data, platform_.documentLimits());
  if (!document.value || !document.value->is_object()) {
    log("Map config document can't be used: " + (document.value ? "it is no object" : document.error));
    return false;
  }
  std::vector<TWLMapConfig> configs;
  for (const auto& [mapId, object] : document.value->items()) {
    if (!object.is_object()) {
      log("Map config document: \"" + mapId + "\" is no object and is left out");
      continue;
    }
    configs.emplace_back(object).setMapId(mapId);
  }
  if (configs.empty()) return false;
  auto catalogue = std::make_shared<const MapCatalogue>(std::move(configs));
  const std::lock_guard lock(mutex_);
  configRepo_.swap(catalogue);
  return true;
}

void TWLMapConfigRepo::reset() {
  if (const auto path = builtInPath()) platform_.files().removeFile(*path);
  load();
}

std::vector<std::string> TWLMapConfigRepo::mapIds() const {
  std::vector<std::string> ids;
  const auto catalogue = configRepo();  // kept: a reload puts another in its place
  for (const auto& map : catalogue->maps()) ids.push_back(map.config->mapId());
  return ids;
}

std::vector<TWLMapConfigPtr> TWLMapConfigRepo::maps() const {
  std::vector<TWLMapConfigPtr> configs;
  const auto catalogue = configRepo();
  for (const auto& map : catalogue->maps()) configs.push_back(map.config);
  return configs;
}

TWLMapConfigPtr TWLMapConfigRepo::forMapId(std::string_view mapId) const {
  const auto catalogue = configRepo();
  const auto* map = catalogue->find(mapId);
  return map ? map->config : nullptr;
}

std::shared_ptr<const MapCatalogue> TWLMapConfigRepo::configRepo() const {
  const std::lock_guard lock(mutex_);
  return configRepo_;
}

std::optional<std::string> TWLMapConfigRepo::updateUrl() const {
  const std::lock_guard lock(mutex_);
  return updateUrl_;
}

void TWLMapConfigRepo::setUpdateUrl(std::optional<std::string> url) {
  const std::lock_guard lock(mutex_);
  updateUrl_.swap(url);
}

std::int64_t TWLMapConfigRepo::lastUpdateTime() const {
  log("loading from defaults");
  std::int64_t seconds = platform_.userDefaults().integerForKey(MAP_CONFIG_UPDATE_TIME_KEY);
  if (seconds == 0) {
    const auto path = builtInPath();
    const auto date = path ? platform_.files().modificationDate(*path) : std::nullopt;
    if (date) seconds = wholeSecondsSince1970(*date);
  }
  log("last update time is " + std::to_string(seconds));
  return seconds;
}

void TWLMapConfigRepo::setLastUpdateTime() {
  const std::int64_t seconds = wholeSecondsSince1970(platform_.calendarClock().now());
  log("last update time will now be " + std::to_string(seconds));
  platform_.userDefaults().setInteger(MAP_CONFIG_UPDATE_TIME_KEY, seconds);
  platform_.userDefaults().synchronize();
}

std::optional<platform::CalendarTime> TWLMapConfigRepo::dateFrom(const std::optional<std::string>& text) {
  return text ? platform::parseHttpDate(*text) : std::nullopt;
}

std::optional<std::string> TWLMapConfigRepo::builtInPath() const {
  return platform_.mainBundle().pathForResource(BUILT_IN_JSON_FILENAME, kBuiltInType);
}

void TWLMapConfigRepo::log(std::string_view line) const { platform_.systemLog().write(line); }

}  // namespace wayloom
