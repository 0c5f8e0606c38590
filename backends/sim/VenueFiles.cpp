#include "backends/sim/VenueFiles.hpp"

#include <algorithm>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Url.hpp"

namespace wayloom::sim {

VenueFiles::VenueFiles(std::string venueFolder, const platform::PropertyListReader& propertyLists)
    : venueFolder_(std::move(venueFolder)) {
  if (venueFolder_.empty()) return;
  for (const char* name : {"/bundle/Geofold.plist", "/bundle/Wayloom.plist"}) {
    const auto configuration = propertyLists.readDictionary(venueFolder_ + name);
    const auto url = configuration ? platform::stringValue(platform::member(*configuration, "GFKitURL")) : std::nullopt;
    if (url) kitUrls_.push_back(*url);
  }
}

std::string VenueFiles::mapFileFor(std::string_view url) const {
  if (venueFolder_.empty()) return {};
  const auto components = platform::urlPathComponents(url);
  if (components.size() < 2 || components.front() != "maps") return {};
  std::string path = venueFolder_ + "/server";
  for (const auto& component : components) {
    if (component == "." || component == ".." || component.find('\0') != component.npos) return {};
    path.append("/").append(component);
  }
  return path;
}

std::string VenueFiles::fileFor(std::string_view url) const {
  return std::find(kitUrls_.begin(), kitUrls_.end(), url) != kitUrls_.end() ? kitFile() : mapFileFor(url);
}

}  // namespace wayloom::sim
