#include "wayloom/maps/TWLConfig.hpp"

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"

namespace wayloom {
namespace {

constexpr std::string_view kResourceName = "Wayloom";
constexpr std::string_view kResourceType = "plist";

}  // namespace

TWLConfig::TWLConfig(platform::Platform& platform) : platform_(&platform) { loadConfigFromPlist(); }

std::optional<std::string> TWLConfig::plistPath() const {
  if (auto path = platform_->mainBundle().pathForResource(kResourceName, kResourceType)) return path;
  return platform_->resourceBundle().pathForResource(kResourceName, kResourceType);
}

void TWLConfig::loadConfigFromPlist() {
  const auto path = plistPath();
  dict_ = path ? platform_->propertyLists().readDictionary(*path) : std::nullopt;
}

std::optional<std::string> TWLConfig::text(std::string_view key) const {
  return dict_ ? platform::stringValue(platform::member(*dict_, key)) : std::nullopt;
}

}  // namespace wayloom
