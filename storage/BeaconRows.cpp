#include "storage/BeaconRows.hpp"

#include <optional>

namespace wayloom::storage {
namespace {

bool isNumber16(std::int64_t number) { return number >= 0 && number <= UINT16_MAX; }

std::optional<platform::BeaconIdentity> identityIn(const ResultSet& rows) {
  const auto text = rows.text("beacon_uuid");
  const auto uuid = platform::UUID::parse(text);
  const auto major = rows.integer("beacon_major");
  const auto minor = rows.integer("beacon_minor");
  if (!uuid || uuid->string() != text || !isNumber16(major) || !isNumber16(minor)) return std::nullopt;
  if (rows.isNull("beacon_major") || rows.isNull("beacon_minor")) return std::nullopt;
  return platform::BeaconIdentity{*uuid, static_cast<std::uint16_t>(major), static_cast<std::uint16_t>(minor)};
}

}  // namespace

void BeaconRows::read(ResultSet rows) {
  while (rows.next())
    if (const auto beacon = identityIn(rows)) add(*beacon, rows.integer("id"));
}

const BeaconRows::Ids* BeaconRows::find(const platform::BeaconIdentity& beacon) const {
  const auto found = rows_.find(beacon);
  return found == rows_.end() ? nullptr : &found->second;
}

}  // namespace wayloom::storage
