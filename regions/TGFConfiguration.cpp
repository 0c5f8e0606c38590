#include "wayloom/regions/TGFConfiguration.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/regions/TGFLogger.hpp"

namespace wayloom {

using platform::Json;

namespace {

constexpr std::string_view kUrl = "GFKitURL";
constexpr std::string_view kToken = "GFAPIToken";
constexpr std::string_view kAnalyticsUrl = "GFAnalyticsURL";
constexpr std::string_view kMapName = "GFMapName";

}  // namespace

TGFConfiguration& TGFConfiguration::sharedConfiguration(platform::Platform& platform) {
  return platform.shared<TGFConfiguration>([&] { return std::make_unique<TGFConfiguration>(platform); });
}

TGFConfiguration::TGFConfiguration(platform::Platform& platform) : platform_(platform) { loadConfigFromPlist(); }

std::optional<std::string> TGFConfiguration::plistPath() const {
  if (auto path = platform_.mainBundle().pathForResource("Geofold", "plist")) return path;
  return platform_.resourceBundle().pathForResource("Geofold", "plist");
}

void TGFConfiguration::loadConfigFromPlist() {
  const auto path = plistPath();
  if (!path) TGFLogger::log(platform_, TGFLogLevel::critical, "ERROR: Missing Geofold.plist file.");
  auto dictionary = path ? platform_.propertyLists().readDictionary(*path) : std::nullopt;
  if (path && !dictionary) TGFLogger::log(platform_, TGFLogLevel::critical, "ERROR: Unreadable file %@", *path);
  configureWithDictionary(dictionary.value_or(Json::object()));
}

void TGFConfiguration::configureWithDictionary(const Json& dictionary) {
  Json replacement = dictionary.is_object() ? dictionary : Json::object();
  const std::lock_guard lock(mutex_);
  config_ = std::move(replacement);
}

Json TGFConfiguration::config() const {
  const std::lock_guard lock(mutex_);
  return config_;
}

std::optional<std::string> TGFConfiguration::url() const { return urlText(kUrl); }
std::optional<std::string> TGFConfiguration::apiToken() const { return text(kToken); }
std::optional<std::string> TGFConfiguration::analyticsURL() const { return urlText(kAnalyticsUrl); }
std::optional<std::string> TGFConfiguration::mapName() const { return text(kMapName); }

void TGFConfiguration::setUrl(std::string_view url) { set(kUrl, url); }
void TGFConfiguration::setApiToken(std::string_view token) { set(kToken, token); }
void TGFConfiguration::setAnalyticsURL(std::string_view url) { set(kAnalyticsUrl, url); }
void TGFConfiguration::setMapName(std::string_view name) { set(kMapName, name); }

std::optional<std::string> TGFConfiguration::text(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  return platform::stringValue(platform::member(config_, key));
}

std::optional<std::string> TGFConfiguration::urlText(std::string_view key) const {
  auto value = text(key);
  return value && platform::isWellFormedUrl(*value) ? value : std::nullopt;
}

void TGFConfiguration::set(std::string_view key, std::string_view value) {
  const std::lock_guard lock(mutex_);
  config_[std::string(key)] = std::string(value);
}

}  // namespace wayloom
