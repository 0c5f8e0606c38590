#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {
namespace {

constexpr const char* kTables =
    "create table if not exists schema_version (version integer);"
    "create table if not exists region_sessions (id integer primary key autoincrement,entered_at text,exited_at "
    "text,region_major integer,region_minor integer,region_uuid text,uuid text,uploaded_at text);"
    "create table if not exists beacon_sessions (id integer primary key autoincrement,first_detected_at "
    "text,last_detected_at text,beacon_major integer,beacon_minor integer,beacon_uuid text,uuid text,uploaded_at "
    "text,region_session_id integer);"
    "create table if not exists events (id integer primary key autoincrement,event_type text,event_details "
    "blob,uploaded_at text,triggered_at text,uuid text);"
    "create table if not exists geo_region_sessions (id integer primary key autoincrement,entered_at text,exited_at "
    "text,latitude real,longitude real,radius real,uuid text,region_id text,uploaded_at text);";

// For what a ranging, an entry, an exit and an upload look for, so that none of them costs more after years. Those of
// what is open and of what is due hold no other rows. All beacons of a session have its UUID.
constexpr const char* kIndexes =
    "create index if not exists open_region_sessions on region_sessions (region_uuid, region_major, region_minor, "
    "entered_at) where exited_at is null;"
    "create index if not exists due_region_sessions on region_sessions (uploaded_at) where uploaded_at is null and "
    "exited_at is not null;"
    "create index if not exists beacons_of_session on beacon_sessions (region_session_id, beacon_major, beacon_minor);"
    "create index if not exists due_events on events (uploaded_at) where uploaded_at is null;"
    "create index if not exists open_geo_region_sessions on geo_region_sessions (latitude, longitude, radius, "
    "entered_at) where exited_at is null;"
    "create index if not exists due_geo_region_sessions on geo_region_sessions (uploaded_at) where uploaded_at is null "
    "and exited_at is not null;";

}  // namespace

TGFAnalyticsDatabase::TGFAnalyticsDatabase(platform::Platform& platform)
    : TGFAnalyticsDatabase(platform, setupDatabasePath(platform)) {}

TGFAnalyticsDatabase::TGFAnalyticsDatabase(platform::Platform& platform, std::optional<std::string> path)
    : databasePath_(std::move(path)), databaseQueue_(platform, databasePath_, {kTables, kIndexes}) {}

std::unique_ptr<TGFAnalyticsDatabase> TGFAnalyticsDatabase::withInMemoryDatabase(platform::Platform& platform) {
  return std::unique_ptr<TGFAnalyticsDatabase>(new TGFAnalyticsDatabase(platform, std::nullopt));
}

std::string TGFAnalyticsDatabase::setupDatabasePath(platform::Platform& platform) {
  return platform.files().documentsDirectory() + "/GeofoldAnalytics.sqlite";
}

void TGFAnalyticsDatabase::dump(storage::DatabaseConnection& connection, const storage::TextSink& sink) {
  for (const char* query : {"select * from schema_version", "select * from region_sessions order by id desc",
                            "select * from beacon_sessions order by id desc", "select * from events order by id desc",
                            "select * from geo_region_sessions order by id desc"})
    if (!storage::dumpQuery(connection, query, sink)) return;
}

void TGFAnalyticsDatabase::dumpDatabaseToConsole() {
  databaseQueue_.inReadTransaction(
      [](storage::DatabaseConnection& connection) { dump(connection, storage::toStandardOutput); });
}

}  // namespace wayloom
