#include "wayloom/regions/TGFMap.hpp"

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

TGFMap::TGFMap(const platform::Json& dictionary) {
  const auto* overlays = platform::member(dictionary, "overlays");
  if (!overlays || !overlays->is_array()) return;
  for (const auto& overlay : *overlays)
    if (platform::stringValue(platform::member(overlay, "type")) == "circle")
      overlays_.push_back(std::make_shared<const TGFCircle>(overlay));
}

}  // namespace wayloom
