#include "tools/live/KitNames.hpp"

#include <filesystem>
#include <stdexcept>

#include "tools/common/VenuePlans.hpp"
#include "tools/common/VenueTroubles.hpp"

namespace wayloom::tools {

KitNames::KitNames(const std::string& venue) {
  if (venue.empty()) return;
  const auto troubles = troublesOf(venue, {VenuePart::addresses, VenuePart::usage, VenuePart::kit});
  if (!troubles.empty()) throw std::runtime_error(troubles.front());
  const auto folder = std::filesystem::absolute(venue).lexically_normal().string();
  std::string error;
  world_ = std::make_unique<sim::SimPlatform>(sim::SimOptions{.venue = folder});
  kit_ = readKit(world_->platform(), folder, error);
  if (!kit_) throw std::runtime_error(error);
}

std::string KitNames::nameOf(const platform::BeaconIdentity& identity) const {
  if (!kit_) return {};
  const auto beacon =
      kit_->getIBeaconForCLBeacon({.proximityUUID = identity.uuid, .major = identity.major, .minor = identity.minor});
  const auto& match = beacon.match();
  return match.name.value_or(match.identifier.value_or(""));
}

}  // namespace wayloom::tools
