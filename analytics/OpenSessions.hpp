#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <tuple>

#include "wayloom/platform/Time.hpp"
#include "wayloom/platform/UUID.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/storage/DatabaseConnection.hpp"

#include "storage/BeaconRows.hpp"

namespace wayloom {

// Finds the open session of a beacon region, and the rows of the beacons seen in it. What was found is remembered until
// another connection changes the file: a ranging would otherwise read the tables from end to end, which grow for years.
// Within transactions only.
class OpenSessions {
 public:
  struct Session {
    std::int64_t id = 0;
    storage::BeaconRows beacons;
  };

  // The session entered last of those that are open; null when there is none. Valid until the next call of find() or
  // forget().
  Session* find(storage::DatabaseConnection& connection, const TGFBeaconRegion& region);
  // Notes that the beacon was seen: a new row in the session, or a new last time in the one that it has. False when
  // SQLite refused.
  static bool note(storage::DatabaseConnection& connection, Session& session, const TGFBeacon& beacon,
                   platform::CalendarTime now);
  // The region is about to be entered or left.
  void forget(const TGFBeaconRegion& region) { sessions_.erase(keyOf(region)); }

 private:
  using Number = std::optional<std::int64_t>;
  using Key = std::tuple<std::optional<platform::UUID>, bool, Number, bool, Number>;

  static Key keyOf(const TGFBeaconRegion& region);
  static std::optional<std::int64_t> idOf(storage::DatabaseConnection& connection, const Key& key);

  std::uint64_t stamp_ = 0;
  std::map<Key, std::optional<Session>> sessions_;
};

}  // namespace wayloom
