#include "backends/sim/RegionCache.hpp"

#include <memory>

namespace wayloom::sim {
namespace {

constexpr std::size_t kMostRegions = 10000;

platform::CLRegionPtr makeRegion(const RegionText& text) {
  std::string identifier(text.identifier);
  if (text.uuid.empty()) return std::make_shared<const platform::CLRegion>(std::move(identifier));
  const auto uuid = platform::UUID::parse(text.uuid);
  if (!uuid) return nullptr;
  return std::make_shared<const platform::CLBeaconRegion>(*uuid, text.major, text.minor, std::move(identifier));
}

}  // namespace

platform::CLRegionPtr RegionCache::find(const RegionText& text) {
  const auto found = entries_.find(text.identifier);
  if (found != entries_.end()) {
    const auto& entry = found->second;
    if (entry.uuid == text.uuid && entry.major == text.major && entry.minor == text.minor) return entry.region;
  }
  auto region = makeRegion(text);
  if (!region) return nullptr;
  if (entries_.size() >= kMostRegions) entries_.clear();
  entries_.insert_or_assign(std::string(text.identifier),
                            Entry{std::string(text.uuid), text.major, text.minor, region});
  return region;
}

}  // namespace wayloom::sim
