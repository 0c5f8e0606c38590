#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/platform/CLRegion.hpp"

namespace wayloom::sim {

// How a line describes a region.
struct RegionText {
  std::string_view identifier;
  std::string_view uuid;  // empty: not a beacon region
  std::optional<std::uint16_t> major;
  std::optional<std::uint16_t> minor;
};

// Gives regions that are described alike one object. Bounded: too many different ones make it forget all.
class RegionCache {
 public:
  // Null when the UUID is none.
  platform::CLRegionPtr find(const RegionText& text);

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  struct Entry {
    std::string uuid;
    std::optional<std::uint16_t> major;
    std::optional<std::uint16_t> minor;
    platform::CLRegionPtr region;
  };

  std::unordered_map<std::string, Entry, Hash, std::equal_to<>> entries_;  // by identifier
};

}  // namespace wayloom::sim
