#include "wayloom/analytics/TGFAnalytics.hpp"

#include <utility>

#include "wayloom/analytics/TGFAnalyticsLogger.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFCircle.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "analytics/AnalyticsUpload.hpp"
#include "analytics/DueRecords.hpp"
#include "storage/NewRowLimit.hpp"
#include "storage/UtcText.hpp"

namespace wayloom {

using platform::Json;
using storage::Blob;
using storage::DatabaseConnection;

namespace {

constexpr double kNewBeaconsAtOnce = 20000.0;

std::optional<std::string> uuidText(const std::optional<platform::UUID>& uuid) {
  return uuid ? std::optional(uuid->string()) : std::nullopt;
}

// The session of the region that was entered last, of those that are open. A minor without a major counts for nothing
// here, though it is stored: such a session is never found again.
std::optional<std::int64_t> openSession(DatabaseConnection& connection, const TGFBeaconRegion& region) {
  const auto uuid = uuidText(region.uuid());
  auto rows =
      region.hasMajor() && region.hasMinor()
          ? connection.executeQuery(
                "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? "
                "and region_major = ? and region_minor = ? order by entered_at desc;",
                {uuid, region.major(), region.minor()})
      : region.hasMajor()
          ? connection.executeQuery(
                "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? "
                "and region_major = ? and region_minor is null order by entered_at desc;",
                {uuid, region.major()})
          : connection.executeQuery(
                "select id from region_sessions where entered_at is not null and exited_at is null and region_uuid = ? "
                "and region_major is null and region_minor is null order by entered_at desc;",
                {uuid});
  return rows.next() ? std::optional(rows.integer(0)) : std::nullopt;
}

template <class Number>
std::optional<Number> presentIf(bool has, const std::optional<Number>& number) {
  return has ? number : std::nullopt;
}

bool fitsParser(const Json& value, int depth = 1) {
  if (!value.is_structured()) return true;
  if (depth > platform::kMaximumJsonDepth) return false;
  for (const auto& element : value)
    if (!fitsParser(element, depth + 1)) return false;
  return true;
}

}  // namespace

TGFAnalytics::TGFAnalytics(platform::Platform& platform)
    : TGFAnalytics(platform, std::make_unique<TGFAnalyticsDatabase>(platform)) {}

TGFAnalytics::TGFAnalytics(platform::Platform& platform, std::unique_ptr<TGFAnalyticsDatabase> db)
    : platform_(platform),
      db_(std::move(db)),
      newBeacons_(std::make_unique<storage::NewRowLimit>(platform, "The analytics store", kNewBeaconsAtOnce,
                                                         std::chrono::hours(1))),
      upload_(std::make_unique<AnalyticsUpload>(platform, *db_)) {}

TGFAnalytics::~TGFAnalytics() = default;

void TGFAnalytics::startLogging() {
  if (!logger_) logger_ = std::make_unique<TGFAnalyticsLogger>(platform_);
}

void TGFAnalytics::stopLogging() { logger_.reset(); }

platform::CalendarTime TGFAnalytics::now() const { return platform_.calendarClock().now(); }

std::string TGFAnalytics::formatDate(platform::CalendarTime date) { return storage::utcText(date); }

// --- Sessions ---

void TGFAnalytics::openSessionWithRegion(const TGFRegion& region) {
  db_->inTransaction([&](DatabaseConnection& connection, bool&) {
    if (const auto* beacons = dynamic_cast<const TGFBeaconRegion*>(&region)) {
      connection.executeUpdate(
          "insert into region_sessions (entered_at, region_uuid, region_major, region_minor) VALUES (?, ?, ?, ?);",
          {now(), uuidText(beacons->uuid()), presentIf(beacons->hasMajor(), beacons->major()),
           presentIf(beacons->hasMinor(), beacons->minor())});
    } else if (const auto* circle = dynamic_cast<const TGFCircle*>(&region)) {
      connection.executeUpdate(
          "insert into geo_region_sessions (entered_at, latitude, longitude, radius, region_id) VALUES (?, ?, ?, ?, "
          "?);",
          {now(), circle->latitude(), circle->longitude(), circle->radius(), circle->identifier()});
    }
  });
}

void TGFAnalytics::closeSessionWithRegion(const TGFRegion& region) {
  db_->inTransaction([&](DatabaseConnection& connection, bool&) {
    if (const auto* beacons = dynamic_cast<const TGFBeaconRegion*>(&region))
      closeBeaconSession(connection, *beacons);
    else if (const auto* circle = dynamic_cast<const TGFCircle*>(&region))
      closeGeoSession(connection, *circle);
  });
}

void TGFAnalytics::closeBeaconSession(DatabaseConnection& connection, const TGFBeaconRegion& region) {
  const auto session = openSession(connection, region);
  if (!session) return;
  if (!connection.executeUpdate("update region_sessions set exited_at = ? where id = ?;", {now(), *session}))
    TGFLogger::log(platform_, TGFLogLevel::error, "Failed to close session id %@", *session);
}

void TGFAnalytics::closeGeoSession(DatabaseConnection& connection, const TGFCircle& circle) {
  auto rows = connection.executeQuery(
      "select id from geo_region_sessions where entered_at is not null and exited_at is null and latitude = ? and "
      "longitude = ? and radius = ? order by entered_at desc;",
      {circle.latitude(), circle.longitude(), circle.radius()});
  if (!rows.next()) return;
  const auto id = rows.integer(0);
  if (!connection.executeUpdate("update geo_region_sessions set exited_at = ? where id = ?;", {now(), id}))
    TGFLogger::log(platform_, TGFLogLevel::error, "Failed to close geo session id %@", id);
}

void TGFAnalytics::updateSessionWithRegionAndBeacons(const TGFRegion& region, const TGFBeaconList& beacons) {
  const auto* beaconRegion = dynamic_cast<const TGFBeaconRegion*>(&region);
  if (beaconRegion == nullptr || beacons.empty()) return;
  db_->inTransaction([&](DatabaseConnection& connection, bool&) {
    const auto session = openSession(connection, *beaconRegion);
    if (!session) return;
    for (const auto& beacon : beacons)
      if (!noteBeacon(connection, *session, *beacon))
        TGFLogger::log(platform_, TGFLogLevel::error, "Failed inserting beacon (%@, %@, %@)",
                       uuidText(beacon->uuid()).value_or(""), beacon->major().value_or(0), beacon->minor().value_or(0));
  });
}

// The new last time of the beacon in the session, or its first; false when SQLite refuses.
bool TGFAnalytics::noteBeacon(DatabaseConnection& connection, std::int64_t session, const TGFBeacon& beacon) {
  const auto uuid = uuidText(beacon.uuid());
  auto rows = connection.executeQuery(
      "select id from beacon_sessions where region_session_id = ? and beacon_uuid = ? and beacon_major = ? and "
      "beacon_minor = ?",
      {session, uuid, beacon.major(), beacon.minor()});
  bool isKnown = false;
  bool done = true;
  while (rows.next()) {
    isKnown = true;
    done &= connection.executeUpdate("update beacon_sessions set last_detected_at = ? where id = ?;",
                                     {now(), rows.integer(0)});
  }
  if (isKnown || (!beacon.match().isListed && !newBeacons_->take())) return done;
  return connection.executeUpdate(
      "insert into beacon_sessions (region_session_id, first_detected_at,              beacon_uuid,    beacon_major, "
      "beacon_minor) VALUES (                ?,                 ?,                        ?,               ?,          "
      "  "
      "?);",
      {session, now(), uuid, beacon.major(), beacon.minor()});
}

// --- Events ---

void TGFAnalytics::addEventWithDetails(std::string_view type, const Json& details) {
  if (!details.is_object()) return addEventWithDetails(type, Json::object());
  const auto text = fitsParser(details) ? details.dump(-1, ' ', false, Json::error_handler_t::replace) : std::string();
  if (text.empty() || text.size() > kMostDetails)
    return TGFLogger::log(platform_, TGFLogLevel::error, "Refused the details of an event of type %@", type);
  db_->inTransaction([&](DatabaseConnection& connection, bool&) {
    connection.executeUpdate(
        "insert into events (event_type, event_details, triggered_at) VALUES (         ?,             ?,            "
        "?);",
        {type, Blob{text}, now()});
  });
}

// --- Upload ---

namespace {

Json allOf(const DueRecords& kind, TGFAnalyticsDatabase& db) {
  auto limits = storage::UploadLimits::none();
  return kind.list(db, limits);
}

}  // namespace

Json TGFAnalytics::beaconRegionsToBeUploaded() { return allOf(DueRecords::beaconRegions, *db_); }

Json TGFAnalytics::geoRegionsToBeUploaded() { return allOf(DueRecords::geoRegions, *db_); }

Json TGFAnalytics::eventsToBeUploaded() { return allOf(DueRecords::events, *db_); }

void TGFAnalytics::markBeaconRegionsUploaded(const Json& records) {
  DueRecords::beaconRegions.mark(platform_, *db_, DueRecords::idsOf(records));
}

void TGFAnalytics::markGeoRegionsUploaded(const Json& records) {
  DueRecords::geoRegions.mark(platform_, *db_, DueRecords::idsOf(records));
}

void TGFAnalytics::markEventsUploaded(const Json& records) {
  DueRecords::events.mark(platform_, *db_, DueRecords::idsOf(records));
}

void TGFAnalytics::uploadAnalyticsToServer() { upload_->begin(); }

}  // namespace wayloom
