#include "wayloom/status/TPLStatusDatabase.hpp"

#include <algorithm>
#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "storage/InBatches.hpp"
#include "storage/NewRowLimit.hpp"
#include "storage/UploadLimits.hpp"
#include "storage/UtcText.hpp"

namespace wayloom {

using storage::DatabaseConnection;

namespace {

constexpr const char* kTables =
    "create table if not exists schema_version (version integer);"
    "create table if not exists beacon_sessions (id integer primary key autoincrement,first_detected_at "
    "text,last_detected_at text,beacon_major integer,beacon_minor integer,beacon_uuid text,uuid text,uploaded_at "
    "text);";

// For a sighting and a mark, and for an upload, which asks by these very words.
constexpr const char* kIndexes =
    "create index if not exists beacon_sessions_of_beacon on beacon_sessions (beacon_uuid, beacon_major, beacon_minor);"
    "create index if not exists due_beacon_sessions on beacon_sessions (uploaded_at) where uploaded_at is null or "
    "datetime(uploaded_at) < datetime(last_detected_at);";

constexpr double kNewBeaconsAtOnce = 20000.0;
constexpr std::size_t kBytesOfAnEvent = 80;  // in a document, besides the UUID

bool updateSession(DatabaseConnection& connection, const TPLBeacon& beacon, platform::CalendarTime now) {
  return connection.executeUpdate(
      "update beacon_sessions set last_detected_at = ? where beacon_uuid = ? and beacon_major = ? and beacon_minor = "
      "?;",
      {now, beacon.uuid, beacon.major, beacon.minor});
}

bool markSession(DatabaseConnection& connection, const TPLBeaconSession& session, platform::CalendarTime now) {
  return connection.executeUpdate(
      "update beacon_sessions set uploaded_at = ? where beacon_uuid = ? and beacon_major = ? and beacon_minor = ?;",
      {now, session.uuid, session.major, session.minor});
}

}  // namespace

TPLStatusDatabase::TPLStatusDatabase(platform::Platform& platform)
    : TPLStatusDatabase(platform, setupDatabasePath(platform)) {}

TPLStatusDatabase::TPLStatusDatabase(platform::Platform& platform, std::optional<std::string> path)
    : platform_(platform),
      databasePath_(std::move(path)),
      databaseQueue_(platform, databasePath_, {kTables, kIndexes}),
      newBeacons_(std::make_unique<storage::NewRowLimit>(platform, "The status store", kNewBeaconsAtOnce,
                                                         std::chrono::hours(10))) {}

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
  return databaseQueue_.inTransaction(callback);
}

void TPLStatusDatabase::setListedBeacons(StatusReporter::IsListed isListed) {
  const std::lock_guard lock(listMutex_);
  isListed_ = std::move(isListed);
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
    for (const auto& ranged : beacons) {
      const auto beacon = TPLBeacon::beaconWithCLBeacon(ranged);
      const auto changes = connection.changeCount();
      if (!updateSession(connection, beacon, now()) || connection.changeCount() != changes) continue;
      if (mayBeNew(ranged.identity())) insert(connection, beacon);
    }
  });
}

bool TPLStatusDatabase::mayBeNew(const platform::BeaconIdentity& beacon) {
  const std::lock_guard lock(listMutex_);
  return !isListed_ || isListed_(beacon) || newBeacons_->take();
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
  inTransaction([&](DatabaseConnection& connection, bool&) { updateSession(connection, beacon, now()); });
}

// --- Reports ---

TPLStatusDatabase::Sessions TPLStatusDatabase::beaconSessionsToBeUploaded() {
  auto limits = storage::UploadLimits::none();
  return beaconSessionsToBeUploaded(limits, {});
}

TPLStatusDatabase::Sessions TPLStatusDatabase::beaconSessionsToBeUploaded(storage::UploadLimits& limits,
                                                                          const Sessions& except) {
  Sessions sessions;
  databaseQueue_.inReadTransaction([&](DatabaseConnection& connection) {
    auto rows = connection.executeQuery(
        "select * from beacon_sessions where uploaded_at is null or datetime(uploaded_at) < "
        "datetime(last_detected_at);");
    while (limits.hasRoom() && rows.next()) {
      if (std::ranges::find(except, rows.integer("id"), &TPLBeaconSession::beaconSessionId) != except.end()) continue;
      const auto& session = sessions.emplace_back(beaconSessonFromResultSet(rows));
      limits.take(session.uuid.size() + kBytesOfAnEvent);
    }
  });
  return sessions;
}

void TPLStatusDatabase::markBeaconSessionAsUploaded(const TPLBeaconSession& session) {
  inTransaction([&](DatabaseConnection& connection, bool&) { markSession(connection, session, now()); });
}

TPLStatusDatabase::Sessions TPLStatusDatabase::markBeaconSessionsAsUploaded(const Sessions& sessions) {
  return storage::inBatches(databaseQueue_, sessions,
                            [this](DatabaseConnection& connection, const TPLBeaconSession& session) {
                              return markSession(connection, session, now());
                            });
}

TPLBeaconSession TPLStatusDatabase::beaconSessonFromResultSet(const storage::ResultSet& rows) {
  return {std::string(rows.text(TPLBeaconSessionUUIDColumnName)), rows.integer(TPLBeaconSessionMajorColumnName),
          rows.integer(TPLBeaconSessionMinorColumnName),          rows.integer(TPLBeaconSessionIDColumnName),
          rows.date(TPLBeaconSessionFirstDetectedAtColumnName),   rows.date(TPLBeaconSessionLastDetectedAtColumnName)};
}

// --- Diagnostics ---

void TPLStatusDatabase::dump(DatabaseConnection& connection, const storage::TextSink& sink) {
  storage::dumpQuery(connection, "select * from beacon_sessions order by id desc", sink);
}

void TPLStatusDatabase::dumpDatabaseToConsole() {
  databaseQueue_.inReadTransaction([](DatabaseConnection& connection) { dump(connection, storage::toStandardOutput); });
}

}  // namespace wayloom
