#pragma once

#include <memory>
#include <string>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/regions/TGFKit.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

// Turns a kit document into the kit model. Parts of the document that can't be used are left out with a log line.
// Stateless; any thread.
class TGFAPIDeserializer {
 public:
  static std::unique_ptr<TGFKit> buildKit(platform::Platform& platform, std::shared_ptr<const platform::Json> document);

  // Null for a null pointer and for what isn't an object.
  static TGFMapPtr buildMap(platform::Platform& platform, const platform::Json* map);

  // One region for each entry, or, when there are more than 20, one for each distinct "uuid" text: the platform can't
  // watch many.
  static std::vector<TGFBeaconRegionPtr> buildBeaconRegions(platform::Platform& platform,
                                                            const platform::Json* entries);

  // The distinct "uuid" texts of the entries, in the order of their first occurrence.
  static std::vector<std::string> uniqueIBeaconRegionsFrom(const platform::Json& entries);
};

}  // namespace wayloom
