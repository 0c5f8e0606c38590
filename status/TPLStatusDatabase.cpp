#include "wayloom/status/TPLStatusDatabase.hpp"

#include <cstdio>
#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "storage/BeaconRows.hpp"
#include "storage/DatabaseDump.hpp"
#include "storage/UtcText.hpp"

namespace wayloom {

using storage::DatabaseConnection;

namespace {

constexpr const char* kSchema =
    "create table if not exists schema_version (version integer);"
    "create table if not exists beacon_sessions (id integer primary key autoincrement,first_detected_at "
    "text,last_detected_at text,beacon_major integer,beacon_minor integer,beacon_uuid text,uuid text,uploaded_at "
    "text);";

}  // namespace

TPLStatusDatabase::TPLStatusDatabase(platform::Platform& platform)
    : TPLStatusDatabase(platform, setupDatabasePath(platform)) {}

TPLStatusDatabase::TPLStatusDatabase(platform::Platform& platform, std::optional<std::string> path)
    : platform_(platform),
      databasePath_(std::move(path)),
      databaseQueue_(platform, databasePath_, kSchema),
      rows_(std::make_unique<storage::BeaconRows>()) {}

TPLStatusDatabase::~TPLStatusDatabase() = default;

std::unique_ptr<TPLStatusDatabase> TPLStatusDatabase::withInMemoryDatabase(platform::Platform& platform) {
  return std::unique_ptr<TPLStatusDatabase>(new TPLStatusDatabase(platform, std::nullopt));
}

std::string TPLStatusDatabase::setupDatabasePath(platform::Platform& platform) {
  return platform.files().documentsDirectory() + "/Pulsekeep.sqlite";
}

platform::CalendarTime TPLStatusDatabase::now() const { return platform_.calendarClock().now(); }

std::string TPLStatusDatabase::formatDate(platform::CalendarTime date) {
  return storage::utcTextWithMilliseconds(date);
}

bool TPLStatusDatabase::inTransaction(const storage::DatabaseQueue::TransactionCallback& callback) {
  return databaseQueue_.inTransaction([&](DatabaseConnection& connection, bool& rollback) {
    rowsStamp_ = 0;
    callback(connection, rollback);
  });
}

// --- Sightings ---

std::optional<TPLBeaconSession> TPLStatusDatabase::rangedBeacon(const TPLBeacon& beacon) {
  if (beaconExists(beacon))
    updateBeaconSession(beacon);
  else
    insertNewBeaconSession(beacon);
  return sessionForBeacon(beacon);
}

void TPLStatusDatabase::rangedBeacons(std::span<const platform::CLBeacon> beacons) {
  if (beacons.empty()) return;
  databaseQueue_.inTransaction([&](DatabaseConnection& connection, bool&) {
    if (const auto stamp = connection.stamp(); std::exchange(rowsStamp_, stamp) != stamp) {
      rows_->clear();
      rows_->read(connection.executeQuery("select id, beacon_uuid, beacon_major, beacon_minor from beacon_sessions"));
    }
    for (const auto& beacon : beacons) note(connection, beacon);
  });
}

void TPLStatusDatabase::note(DatabaseConnection& connection, const platform::CLBeacon& beacon) {
  if (const auto* ids = rows_->find(beacon.identity())) {
    for (const auto id : *ids)
      connection.executeUpdate("update beacon_sessions set last_detected_at = ? where id = ?;", {now(), id});
  } else if (insert(connection, TPLBeacon::beaconWithCLBeacon(beacon))) {
    rows_->add(beacon.identity(), connection.lastInsertRowId());
  }
}

std::optional<TPLBeaconSession> TPLStatusDatabase::sessionForBeacon(const TPLBeacon& beacon) {
  std::optional<TPLBeaconSession> session;
  databaseQueue_.inDatabase([&](DatabaseConnection& connection) {
    auto rows = connection.executeQuery(
        "select * from beacon_sessions where beacon_uuid = ? and beacon_major = ? and beacon_minor = ?",
        {beacon.uuid, beacon.major, beacon.minor});
    if (rows.next()) session = beaconSessonFromResultSet(rows);
  });
  return session;
}

void TPLStatusDatabase::insertNewBeaconSession(const TPLBeacon& beacon) {
  inTransaction([&](DatabaseConnection& connection, bool&) { insert(connection, beacon); });
}

bool TPLStatusDatabase::insert(DatabaseConnection& connection, const TPLBeacon& beacon) {
  const auto first = now();
  return connection.executeUpdate(
      "insert into beacon_sessions (first_detected_at, last_detected_at, beacon_uuid, beacon_major, beacon_minor, "
      "uploaded_at) VALUES                      (                ?,                ?,           ?,             ?,      "
      " "
      "     ?,       NULL);",
      {first, now(), beacon.uuid, beacon.major, beacon.minor});
}

void TPLStatusDatabase::updateBeaconSession(const TPLBeacon& beacon) {
  databaseQueue_.inTransaction([&](DatabaseConnection& connection, bool&) {
    connection.executeUpdate(
        "update beacon_sessions set last_detected_at = ? where beacon_uuid = ? and beacon_major = ? and beacon_minor = "
        "?;",
        {now(), beacon.uuid, beacon.major, beacon.minor});
  });
}

// --- Reports ---

std::vector<TPLBeaconSession> TPLStatusDatabase::beaconSessionsToBeUploaded() {
  std::vector<TPLBeaconSession> sessions;
  databaseQueue_.inReadTransaction([&](DatabaseConnection& connection) {
    auto rows = connection.executeQuery(
        "select * from beacon_sessions where uploaded_at is null or datetime(uploaded_at) < "
        "datetime(last_detected_at);");
    while (rows.next()) sessions.push_back(beaconSessonFromResultSet(rows));
  });
  return sessions;
}

void TPLStatusDatabase::markBeaconSessionAsUploaded(const TPLBeaconSession& session) {
  databaseQueue_.inTransaction([&](DatabaseConnection& connection, bool&) {
    connection.executeUpdate(
        "update beacon_sessions set uploaded_at = ? where beacon_uuid = ? and beacon_major = ? and beacon_minor = ?;",
        {now(), session.uuid, session.major, session.minor});
  });
}

void TPLStatusDatabase::markBeaconSessionsAsUploaded(const std::vector<TPLBeaconSession>& sessions) {
  for (const auto& session : sessions) markBeaconSessionAsUploaded(session);
}

TPLBeaconSession TPLStatusDatabase::beaconSessonFromResultSet(const storage::ResultSet& rows) {
  return {std::string(rows.text(TPLBeaconSessionUUIDColumnName)), rows.integer(TPLBeaconSessionMajorColumnName),
          rows.integer(TPLBeaconSessionMinorColumnName),          rows.integer(TPLBeaconSessionIDColumnName),
          rows.date(TPLBeaconSessionFirstDetectedAtColumnName),   rows.date(TPLBeaconSessionLastDetectedAtColumnName)};
}

// --- Diagnostics ---

std::string TPLStatusDatabase::dump(DatabaseConnection& connection) {
  return storage::dumpOf(connection, "select * from beacon_sessions order by id desc");
}

void TPLStatusDatabase::dumpDatabaseToConsole() {
  std::string text;
  databaseQueue_.inReadTransaction([&](DatabaseConnection& connection) { text = dump(connection); });
  std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace wayloom
