#include "tools/common/VenueEndpoints.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/posix/PlistReader.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "backends/sim/JsonText.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

constexpr std::size_t kLargestKit = platform::kMaximumHttpBody;
constexpr const char* kFaultsPath = "/_faults";
constexpr const char* kStatusLoggerPath = "/sdk/v1/events";

bool contains(const std::vector<std::string>& texts, std::string_view text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

void addOnce(std::vector<std::string>& texts, const std::optional<std::string>& text) {
  if (text && !contains(texts, *text)) texts.push_back(*text);
}

// Decoded, so that two spellings of one path are alike.
std::string pathOf(std::string_view url) {
  std::string path;
  for (const auto& component : platform::urlPathComponents(url)) path.append("/").append(component);
  return path;
}

std::optional<std::string> text(const Json& value, std::string_view key) {
  auto found = platform::stringValue(platform::member(value, key));
  return found && found->empty() ? std::nullopt : found;
}

std::string escaped(std::string_view path) {
  constexpr std::string_view kUnreserved = "/-._~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string text;
  for (const char character : path) {
    if (kUnreserved.find(character) != kUnreserved.npos)
      text.push_back(character);
    else
      text += fmt::format("%{:02X}", static_cast<unsigned char>(character));
  }
  return text;
}

}  // namespace

std::string_view nameOf(Endpoint endpoint) {
  constexpr std::string_view kNames[] = {"none", "kit", "maps", "analytics", "status", "faults"};
  return kNames[static_cast<std::size_t>(endpoint)];
}

VenueEndpoints::VenueEndpoints(const std::string& venue) : venue_(venue), files_(venue, posix::PlistReader()) {
  for (const auto& url : files_.kitUrls()) addOnce(kitPaths_, freePath(url));
  if (kitPaths_.empty()) kitPaths_.emplace_back("/kit");
  // An application that creates a navigation manager takes everything from the latter, so that comes first.
  for (const char* name : {"/bundle/Wayloom.plist", "/bundle/Geofold.plist"})
    if (const auto list = posix::PlistReader().readDictionary(venue_ + name)) readPropertyList(*list);
  if (analyticsPaths_.empty()) analyticsPaths_.emplace_back("/analytics");
  readKit();
}

void VenueEndpoints::readPropertyList(const Json& list) {
  addOnce(analyticsPaths_, freePath(text(list, "GFAnalyticsURL")));
  addOnce(apiTokens_, text(list, "GFAPIToken"));
  const auto url = text(list, "WLMapConfigURL");
  if (const auto path = url ? pathOf(*url) : ""; path.starts_with("/maps/")) mapConfigPath_ = path;
}

void VenueEndpoints::readKit() {
  const auto content = posix::readRegularFile(files_.kitFile(), kLargestKit);
  const auto document = content ? platform::parseJson(*content).value : std::nullopt;
  const Json* kit = document ? platform::member(*document, "kit") : nullptr;
  statusPath_ = "/status";
  if (kit != nullptr) {
    statusPath_ = freePath(text(*kit, "status_url")).value_or(statusPath_);
    addOnce(statusTokens_, text(*kit, "status_token"));
  }
  for (const auto& token : apiTokens_) addOnce(statusTokens_, token);
}

std::optional<std::string> VenueEndpoints::freePath(const std::optional<std::string>& url) const {
  auto path = url ? pathOf(*url) : std::string();
  if (path.empty() || path.starts_with("/maps/") || path == kFaultsPath || contains(kitPaths_, path) ||
      contains(analyticsPaths_, path))
    return std::nullopt;
  return path;
}

std::string VenueEndpoints::kitUrl(const std::string& base) const { return base + escaped(kitPaths_.front()); }

std::string VenueEndpoints::mapConfigUrl(const std::string& base) const { return base + escaped(mapConfigPath_); }

std::string VenueEndpoints::analyticsUrl(const std::string& base) const {
  return base + escaped(analyticsPaths_.front());
}

std::string VenueEndpoints::statusUrl(const std::string& base) const { return base + escaped(statusPath_); }

Endpoint VenueEndpoints::find(std::string_view target) const {
  const auto path = pathOf(target);
  if (path == kFaultsPath) return Endpoint::faults;
  if (contains(kitPaths_, path)) return Endpoint::kit;
  if (contains(analyticsPaths_, path)) return Endpoint::analytics;
  if (path == statusPath_ || path == kStatusLoggerPath) return Endpoint::status;
  return path.starts_with("/maps/") ? Endpoint::maps : Endpoint::none;
}

const std::vector<std::string>& VenueEndpoints::tokensOf(Endpoint endpoint) const {
  static const std::vector<std::string> kNone;
  if (endpoint == Endpoint::status) return statusTokens_;
  return endpoint == Endpoint::analytics || endpoint == Endpoint::kit ? apiTokens_ : kNone;
}

bool VenueEndpoints::allows(Endpoint endpoint, std::string_view authorization) const {
  const auto& tokens = tokensOf(endpoint);
  return tokens.empty() || std::any_of(tokens.begin(), tokens.end(), [&](const std::string& token) {
           return authorization == "Token token=\"" + token + "\"";
         });
}

std::string VenueEndpoints::kitWithStatusAt(const std::string& base, std::string kit) const {
  auto document = platform::parseJson(kit).value;
  if (!document || !platform::member(*document, "kit") || !(*document)["kit"].is_object()) return kit;
  auto& members = (*document)["kit"];
  members["status_url"] = statusUrl(base);
  if (!text(members, "status_token") && !statusTokens_.empty()) members["status_token"] = statusTokens_.front();
  return sim::jsonText(*document, 2) + "\n";
}

}  // namespace wayloom::tools
