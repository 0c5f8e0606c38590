#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

// The region engine's settings: "Geofold.plist" of the main bundle (of the library's bundle when the main one has
// none), or what the host passes instead. A key that is missing, holds something else than text, or a URL that is
// malformed reads as absent. Thread-safe.
class TGFConfiguration {
 public:
  // One for each Platform, made on first use; reads the property list.
  static TGFConfiguration& sharedConfiguration(platform::Platform& platform);

  explicit TGFConfiguration(platform::Platform& platform);

  std::optional<std::string> plistPath() const;  // nothing when there is no such file
  void loadConfigFromPlist();
  void configureFromPlistFile() { loadConfigFromPlist(); }
  // Replaces every value, those of the property list too; what isn't an object counts as an empty one.
  void configureWithDictionary(const platform::Json& dictionary);

  platform::Json config() const;  // all of it, as it was given; an object

  std::optional<std::string> url() const;
  std::optional<std::string> apiToken() const;
  std::optional<std::string> analyticsURL() const;
  std::optional<std::string> mapName() const;
  void setUrl(std::string_view url);
  void setApiToken(std::string_view token);
  void setAnalyticsURL(std::string_view url);
  void setMapName(std::string_view name);

 private:
  std::optional<std::string> text(std::string_view key) const;
  std::optional<std::string> urlText(std::string_view key) const;
  void set(std::string_view key, std::string_view value);

  platform::Platform& platform_;
  mutable std::mutex mutex_;
  platform::Json config_ = platform::Json::object();
};

}  // namespace wayloom
