#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"

#include <cstdio>
#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "storage/DatabaseDump.hpp"

namespace wayloom {
namespace {

constexpr const char* kSchema =
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

}  // namespace

TGFAnalyticsDatabase::TGFAnalyticsDatabase(platform::Platform& platform)
    : TGFAnalyticsDatabase(platform, setupDatabasePath(platform)) {}

TGFAnalyticsDatabase::TGFAnalyticsDatabase(platform::Platform& platform, std::optional<std::string> path)
    : databasePath_(std::move(path)), databaseQueue_(platform, databasePath_, kSchema) {}

std::unique_ptr<TGFAnalyticsDatabase> TGFAnalyticsDatabase::withInMemoryDatabase(platform::Platform& platform) {
  return std::unique_ptr<TGFAnalyticsDatabase>(new TGFAnalyticsDatabase(platform, std::nullopt));
}

std::string TGFAnalyticsDatabase::setupDatabasePath(platform::Platform& platform) {
  return platform.files().documentsDirectory() + "/GeofoldAnalytics.sqlite";
}

std::string TGFAnalyticsDatabase::dump(storage::DatabaseConnection& connection) {
  std::string text;
  for (const char* query : {"select * from schema_version", "select * from region_sessions order by id desc",
                            "select * from beacon_sessions order by id desc", "select * from events order by id desc",
                            "select * from geo_region_sessions order by id desc"})
    text += storage::dumpOf(connection, query);
  return text;
}

void TGFAnalyticsDatabase::dumpDatabaseToConsole() {
  std::string text;
  databaseQueue_.inReadTransaction([&](storage::DatabaseConnection& connection) { text = dump(connection); });
  std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace wayloom
