#include "analytics/OpenSessions.hpp"

#include <string>
#include <utility>

namespace wayloom {

using storage::DatabaseConnection;

namespace {

constexpr const char* kOfMajorAndMinor =
    "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? and "
    "region_major = ? and region_minor = ? order by entered_at desc;";
constexpr const char* kOfMajor =
    "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? and "
    "region_major = ? and region_minor is null order by entered_at desc;";
constexpr const char* kOfUuid =
    "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? and "
    "region_major is null and region_minor is null order by entered_at desc;";
constexpr const char* kBeacons =
    "select id, beacon_uuid, beacon_major, beacon_minor from beacon_sessions where region_session_id = ?";

constexpr const char* kInsert =
    "insert into beacon_sessions (region_session_id, first_detected_at,              beacon_uuid,    beacon_major, "
    "beacon_minor) VALUES (                ?,                 ?,                        ?,               ?,            "
    "?);";

std::optional<std::string> textOf(const std::optional<platform::UUID>& uuid) {
  return uuid ? std::optional(uuid->string()) : std::nullopt;
}

}  // namespace

OpenSessions::Session* OpenSessions::find(DatabaseConnection& connection, const TGFBeaconRegion& region) {
  if (const auto stamp = connection.stamp(); std::exchange(stamp_, stamp) != stamp) sessions_.clear();
  const auto [entry, isNew] = sessions_.try_emplace(keyOf(region));
  auto& session = entry->second;
  if (!isNew) return session ? &*session : nullptr;
  const auto id = idOf(connection, entry->first);
  if (!id) return nullptr;
  session.emplace().id = *id;
  session->beacons.read(connection.executeQuery(kBeacons, {*id}));
  return &*session;
}

OpenSessions::Key OpenSessions::keyOf(const TGFBeaconRegion& region) {
  return {region.uuid(), region.hasMajor(), region.major(), region.hasMinor(), region.minor()};
}

// A minor without a major counts for nothing here, though it is stored: such a session is never found again.
std::optional<std::int64_t> OpenSessions::idOf(DatabaseConnection& connection, const Key& key) {
  const auto& [uuid, hasMajor, major, hasMinor, minor] = key;
  const auto text = textOf(uuid);
  auto rows = hasMajor && hasMinor ? connection.executeQuery(kOfMajorAndMinor, {text, major, minor})
              : hasMajor           ? connection.executeQuery(kOfMajor, {text, major})
                                   : connection.executeQuery(kOfUuid, {text});
  return rows.next() ? std::optional(rows.integer(0)) : std::nullopt;
}

bool OpenSessions::note(DatabaseConnection& connection, Session& session, const TGFBeacon& beacon,
                        platform::CalendarTime now) {
  const auto& ranged = beacon.beacon();
  const auto* rows = ranged ? session.beacons.find(ranged->identity()) : nullptr;
  if (rows == nullptr) {
    if (!connection.executeUpdate(kInsert, {session.id, now, textOf(beacon.uuid()), beacon.major(), beacon.minor()}))
      return false;
    if (ranged) session.beacons.add(ranged->identity(), connection.lastInsertRowId());
    return true;
  }
  bool done = true;
  for (const auto id : *rows)
    done &= connection.executeUpdate("update beacon_sessions set last_detected_at = ? where id = ?;", {now, id});
  return done;
}

}  // namespace wayloom
