#include "wayloom/regions/BeaconConstraint.hpp"

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {
namespace {

using platform::Json;

std::optional<platform::UUID> uuidOf(const Json* value) {
  if (!value || !value->is_string()) return std::nullopt;
  return platform::UUID::parse(value->get_ref<const std::string&>());
}

std::optional<std::int64_t> numberOf(const Json* value) {
  if (!value || value->is_null()) return std::nullopt;
  return platform::integerValue(value);
}

bool sameNumber(std::optional<std::int64_t> left, std::optional<std::int64_t> right) { return left && left == right; }

}  // namespace

BeaconConstraint::BeaconConstraint(const Json& dictionary)
    : uuid(uuidOf(platform::member(dictionary, "uuid"))),
      major(numberOf(platform::member(dictionary, "major"))),
      minor(numberOf(platform::member(dictionary, "minor"))),
      hasMajor(!platform::isNull(platform::member(dictionary, "major"))),
      hasMinor(!platform::isNull(platform::member(dictionary, "minor"))) {}

BeaconConstraint::BeaconConstraint(const platform::CLBeacon& beacon)
    : uuid(beacon.proximityUUID), major(beacon.major), minor(beacon.minor), hasMajor(true), hasMinor(true) {}

BeaconConstraint::BeaconConstraint(const platform::CLBeaconRegion& region)
    : uuid(region.proximityUUID()),
      major(region.major()),
      minor(region.minor()),
      hasMajor(region.major().has_value()),
      hasMinor(region.minor().has_value()) {}

bool BeaconConstraint::covers(const BeaconConstraint& other) const {
  if (!uuid || uuid != other.uuid) return false;
  if (hasMajor && !sameNumber(major, other.major)) return false;
  return !hasMinor || sameNumber(minor, other.minor);
}

std::size_t BeaconConstraint::hash() const {
  const auto majorWord = static_cast<std::size_t>(major.value_or(0));
  const auto minorWord = static_cast<std::size_t>(minor.value_or(0));
  return (uuid ? uuid->hash() : 0) | (majorWord ^ ~minorWord);
}

}  // namespace wayloom
