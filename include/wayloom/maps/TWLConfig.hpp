#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// The map layer's settings: the property list "Wayloom.plist" of the host application's bundle or, when the host has
// none, the library's own copy. The two are never merged. Read once, when the object is made; a plain value afterwards.
class TWLConfig {
 public:
  explicit TWLConfig(platform::Platform& platform);

  // Where the property list is, or nothing when neither bundle has one.
  std::optional<std::string> plistPath() const;
  // Reads it again.
  void loadConfigFromPlist();
  // Its dictionary, or nothing when the file is missing or unreadable.
  const std::optional<platform::Json>& dict() const { return dict_; }

  // A missing key, or one that holds no text, gives nothing.
  std::optional<std::string> WLMapConfigURL() const { return text("WLMapConfigURL"); }  // map configuration document
  std::optional<std::string> GFKitURL() const { return text("GFKitURL"); }              // kit document
  std::optional<std::string> GFAPIToken() const { return text("GFAPIToken"); }          // for the kit's services
  std::optional<std::string> GFAnalyticsURL() const { return text("GFAnalyticsURL"); }  // analytics service

 private:
  std::optional<std::string> text(std::string_view key) const;

  platform::Platform* platform_;
  std::optional<platform::Json> dict_;
};

}  // namespace wayloom
