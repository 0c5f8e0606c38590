#include "analytics/DueRecords.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "storage/InBatches.hpp"
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

// In the order in which they were seen first, whatever index led to them.
Json beaconSessionsOf(DatabaseConnection& connection, std::int64_t session) {
  std::vector<std::pair<std::int64_t, Json>> records;
  auto rows = connection.executeQuery("select * from beacon_sessions where region_session_id = ?", {session});
  while (rows.next()) records.emplace_back(rows.integer("id"), beaconSession(rows));
  std::ranges::sort(records, {}, &std::pair<std::int64_t, Json>::first);
  Json sorted = Json::array();
  for (auto& [id, record] : records) sorted.push_back(std::move(record));
  return sorted;
}

Json regionSession(DatabaseConnection& connection, const ResultSet& rows) {
  Json record = {{"id", rows.integer("id")},
                 {"region_uuid", textOrNull(rows, "region_uuid")},
                 {"region_major", integerOrNull(rows, "region_major")},
                 {"region_minor", integerOrNull(rows, "region_minor")}};
  addDate(record, rows, "entered_at");
  addDate(record, rows, "exited_at");
  record["beacon_sessions"] = beaconSessionsOf(connection, rows.integer("id"));
  return record;
}

Json geoSession(DatabaseConnection&, const ResultSet& rows) {
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
Json event(DatabaseConnection&, const ResultSet& rows) {
  auto details = platform::parseJson(rows.text("event_details")).value;
  Json record = {{"id", rows.integer("id")},
                 {"event_type", textOrNull(rows, "event_type")},
                 {"event_details", details && details->is_object() ? std::move(*details) : Json::object()}};
  addDate(record, rows, "triggered_at");
  return record;
}

}  // namespace

const DueRecords DueRecords::beaconRegions(
    "select * from region_sessions where uploaded_at is null and exited_at is not null;", regionSession,
    "update region_sessions set uploaded_at = ? where id = ?;", "Posted beacon sessions to analytics server");
const DueRecords DueRecords::events("select * from events where uploaded_at is null;", event,
                                    "update events set uploaded_at = ? where id = ?;",
                                    "Posted events to analytics server");
const DueRecords DueRecords::geoRegions(
    "select * from geo_region_sessions where uploaded_at is null and exited_at is not null;", geoSession,
    "update geo_region_sessions set uploaded_at = ? where id = ?;", "Posted geo sessions to analytics server");

DueRecords::Ids DueRecords::idsOf(const Json& records) {
  Ids ids;
  for (const auto& record : records) ids.push_back(platform::integerValue(platform::member(record, "id")));
  return ids;
}

Json DueRecords::list(TGFAnalyticsDatabase& db, storage::UploadLimits& limits, const Ids& except) const {
  Json records = Json::array();
  db.databaseQueue().inReadTransaction([&](DatabaseConnection& connection) {
    auto rows = connection.executeQuery(query_);
    while (limits.hasRoom() && rows.next()) {
      if (std::ranges::find(except, rows.integer("id")) != except.end()) continue;
      const auto& record = records.emplace_back(read_(connection, rows));
      limits.take(record.dump(-1, ' ', false, Json::error_handler_t::replace).size());
    }
  });
  return records;
}

DueRecords::Ids DueRecords::mark(platform::Platform& platform, TGFAnalyticsDatabase& db, const Ids& ids) const {
  auto failed = storage::inBatches(db.databaseQueue(), ids, [&](DatabaseConnection& connection, std::int64_t id) {
    return connection.executeUpdate(mark_, {platform.calendarClock().now(), id});
  });
  for (auto marked = ids.size() - failed.size(); marked > 0; --marked)
    TGFLogger::log(platform, TGFLogLevel::info, line_);
  return failed;
}

}  // namespace wayloom
