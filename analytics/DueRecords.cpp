// What a TGFAnalytics lists for upload, and marks when it has been uploaded.
#include <map>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "storage/UtcText.hpp"

namespace wayloom {

using platform::Json;
using storage::DatabaseConnection;
using storage::ResultSet;

namespace {

Json integerOrNull(const ResultSet& rows, const char* column) {
  return rows.isNull(column) ? Json(nullptr) : Json(rows.integer(column));
}

Json textOrNull(const ResultSet& rows, const char* column) {
  return rows.isNull(column) ? Json(nullptr) : Json(std::string(rows.text(column)));
}

void addDate(Json& record, const ResultSet& rows, const char* column) {
  if (const auto date = rows.date(column)) record[column] = storage::utcText(*date);
}

Json beaconSession(const ResultSet& rows) {
  Json record = {{"beacon_uuid", textOrNull(rows, "beacon_uuid")},
                 {"beacon_major", integerOrNull(rows, "beacon_major")},
                 {"beacon_minor", integerOrNull(rows, "beacon_minor")}};
  addDate(record, rows, "first_detected_at");
  addDate(record, rows, "last_detected_at");
  return record;
}

// The beacon sessions of every region session that is due, in one pass over a table that grows for years.
std::map<std::int64_t, Json> dueBeaconSessions(DatabaseConnection& connection) {
  std::map<std::int64_t, Json> bySession;
  auto rows = connection.executeQuery(
      "select * from beacon_sessions where region_session_id in (select id from region_sessions where uploaded_at is "
      "null and exited_at is not null)");
  while (rows.next()) {
    auto& list = bySession.try_emplace(rows.integer("region_session_id"), Json::array()).first->second;
    list.push_back(beaconSession(rows));
  }
  return bySession;
}

Json regionSession(const ResultSet& rows) {
  Json record = {{"id", rows.integer("id")},
                 {"region_uuid", textOrNull(rows, "region_uuid")},
                 {"region_major", integerOrNull(rows, "region_major")},
                 {"region_minor", integerOrNull(rows, "region_minor")}};
  addDate(record, rows, "entered_at");
  addDate(record, rows, "exited_at");
  return record;
}

Json geoSession(const ResultSet& rows) {
  Json record = {{"id", rows.integer("id")},
                 {"region_id", textOrNull(rows, "region_id")},
                 {"latitude", rows.real("latitude")},
                 {"longitude", rows.real("longitude")},
                 {"radius", rows.real("radius")}};
  addDate(record, rows, "entered_at");
  addDate(record, rows, "exited_at");
  return record;
}

// Details that somebody else wrote, or damaged, come back empty: the event itself is still told.
Json event(const ResultSet& rows) {
  auto details = platform::parseJson(rows.text("event_details")).value;
  Json record = {{"id", rows.integer("id")},
                 {"event_type", textOrNull(rows, "event_type")},
                 {"event_details", details && details->is_object() ? std::move(*details) : Json::object()}};
  addDate(record, rows, "triggered_at");
  return record;
}

Json recordsOf(DatabaseConnection& connection, const char* query, Json (*record)(const ResultSet&)) {
  Json records = Json::array();
  auto rows = connection.executeQuery(query);
  while (rows.next()) records.push_back(record(rows));
  return records;
}

}  // namespace

Json TGFAnalytics::beaconRegionsToBeUploaded() {
  Json records = Json::array();
  db_->databaseQueue().inReadTransaction([&](DatabaseConnection& connection) {
    records =
        recordsOf(connection, "select * from region_sessions where uploaded_at is null and exited_at is not null;",
                  regionSession);
    if (records.empty()) return;
    auto beacons = dueBeaconSessions(connection);
    for (auto& record : records) {
      const auto found = beacons.find(record["id"].get<std::int64_t>());
      record["beacon_sessions"] = found == beacons.end() ? Json::array() : std::move(found->second);
    }
  });
  return records;
}

Json TGFAnalytics::geoRegionsToBeUploaded() {
  Json records = Json::array();
  db_->databaseQueue().inReadTransaction([&](DatabaseConnection& connection) {
    records =
        recordsOf(connection, "select * from geo_region_sessions where uploaded_at is null and exited_at is not null;",
                  geoSession);
  });
  return records;
}

Json TGFAnalytics::eventsToBeUploaded() {
  Json records = Json::array();
  db_->databaseQueue().inReadTransaction([&](DatabaseConnection& connection) {
    records = recordsOf(connection, "select * from events where uploaded_at is null;", event);
  });
  return records;
}

void TGFAnalytics::markBeaconRegionsUploaded(const Json& records) {
  mark(records, "update region_sessions set uploaded_at = ? where id = ?;",
       "Posted beacon sessions to analytics server");
}

void TGFAnalytics::markGeoRegionsUploaded(const Json& records) {
  mark(records, "update geo_region_sessions set uploaded_at = ? where id = ?;",
       "Posted geo sessions to analytics server");
}

void TGFAnalytics::markEventsUploaded(const Json& records) {
  mark(records, "update events set uploaded_at = ? where id = ?;", "Posted events to analytics server");
}

// Each in a transaction of its own, so that recording never waits for more than one.
void TGFAnalytics::mark(const Json& records, const char* statement, const char* line) {
  for (const auto& record : records) {
    const auto id = platform::integerValue(platform::member(record, "id"));
    const bool marked = db_->inTransaction([&](DatabaseConnection& connection, bool&) {
      connection.executeUpdate(statement, {now(), id});
    });
    if (marked) TGFLogger::log(platform_, TGFLogLevel::info, line);
  }
}

}  // namespace wayloom
