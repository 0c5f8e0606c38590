#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include <set>
#include <string_view>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFLogger.hpp"

namespace wayloom {

using platform::Json;
using platform::Platform;

namespace {

constexpr std::size_t kMostSpecificRegions = 20;

TGFBeaconRegionPtr genericRegion(std::size_t index, const std::string& uuid) {
  const Json dictionary = {{"identifier", "gf-ibeacon-region-" + std::to_string(index)},
                           {"uuid", uuid},
                           {"major", nullptr},
                           {"minor", nullptr},
                           {"attributes", nullptr}};
  return std::make_shared<const TGFBeaconRegion>(dictionary);
}

// Entries that no beacon can ever match; counted, because a kit may have very many.
void logUnusable(Platform& platform, const Json::array_t& entries) {
  if (!TGFLogger::logs(platform, TGFLogLevel::warning)) return;
  std::size_t notObjects = 0;
  std::size_t withoutUUID = 0;
  for (const auto& entry : entries) {
    const auto uuid = platform::stringValue(platform::member(entry, "uuid"));
    if (!entry.is_object())
      ++notObjects;
    else if (!uuid || !platform::UUID::parse(*uuid))
      ++withoutUUID;
  }
  if (notObjects > 0) TGFLogger::log(platform, TGFLogLevel::warning, "Skipped %@ kit beacons: not objects", notObjects);
  if (withoutUUID > 0)
    TGFLogger::log(platform, TGFLogLevel::warning, "%@ kit beacons have no readable uuid", withoutUUID);
}

}  // namespace

std::unique_ptr<TGFKit> TGFAPIDeserializer::buildKit(Platform& platform, std::shared_ptr<const Json> document) {
  auto map = buildMap(platform, platform::member(document.get(), "map"));
  auto beaconRegions = buildBeaconRegions(platform, platform::member(document.get(), "ibeacons"));
  return std::make_unique<TGFKit>(std::move(document), std::move(map), std::move(beaconRegions));
}

TGFMapPtr TGFAPIDeserializer::buildMap(Platform& platform, const Json* map) {
  if (!map || map->is_null()) return nullptr;
  if (!map->is_object()) {
    TGFLogger::log(platform, TGFLogLevel::warning, "Skipped the kit's map: not an object");
    return nullptr;
  }
  return std::make_shared<const TGFMap>(*map);
}

std::vector<TGFBeaconRegionPtr> TGFAPIDeserializer::buildBeaconRegions(Platform& platform, const Json* entries) {
  std::vector<TGFBeaconRegionPtr> regions;
  if (!platform.location().supportsBeaconRegions()) {
    TGFLogger::log(platform, TGFLogLevel::alert, "Beacons are not supported on iOS 6.x");
    return regions;
  }
  if (!entries || entries->is_null()) return regions;
  if (!entries->is_array()) {
    TGFLogger::log(platform, TGFLogLevel::warning, "Skipped the kit's beacons: not an array");
    return regions;
  }
  logUnusable(platform, entries->get_ref<const Json::array_t&>());
  if (entries->size() > kMostSpecificRegions) {
    TGFLogger::log(platform, TGFLogLevel::debug, "More than 20 regions found, registering generic UUID level regions");
    for (const auto& uuid : uniqueIBeaconRegionsFrom(*entries)) regions.push_back(genericRegion(regions.size(), uuid));
    return regions;
  }
  for (const auto& entry : *entries)
    if (entry.is_object()) regions.push_back(std::make_shared<const TGFBeaconRegion>(entry));
  return regions;
}

std::vector<std::string> TGFAPIDeserializer::uniqueIBeaconRegionsFrom(const Json& entries) {
  std::vector<std::string> texts;
  std::set<std::string_view> seen;
  std::string_view last;
  for (const auto& entry : entries) {
    const Json* uuid = platform::member(entry, "uuid");
    if (!uuid || !uuid->is_string()) continue;
    const std::string_view text = uuid->get_ref<const std::string&>();
    if (!seen.empty() && text == last) continue;  // entries of one UUID mostly follow one another
    last = text;
    if (seen.insert(text).second) texts.emplace_back(text);
  }
  return texts;
}

}  // namespace wayloom
