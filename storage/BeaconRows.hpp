#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/storage/ResultSet.hpp"

namespace wayloom::storage {

// Which rows of a table are of which beacon: remembered, since the tables have no index and grow for years. Usually a
// beacon has one row, but nothing in a file keeps it from having more.
class BeaconRows {
 public:
  using Ids = std::vector<std::int64_t>;

  // From rows with "id", "beacon_uuid", "beacon_major" and "beacon_minor". Rows that no beacon can be looked up by are
  // passed over.
  void read(ResultSet rows);
  void add(const platform::BeaconIdentity& beacon, std::int64_t id) { rows_[beacon].push_back(id); }
  // Null when there is none.
  const Ids* find(const platform::BeaconIdentity& beacon) const;
  void clear() { rows_.clear(); }

 private:
  std::unordered_map<platform::BeaconIdentity, Ids> rows_;
};

}  // namespace wayloom::storage
