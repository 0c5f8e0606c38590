#include "wayloom/analytics/TGFAnalytics.hpp"

#include <utility>

#include "wayloom/analytics/TGFAPIAnalyticsUploader.hpp"
#include "wayloom/analytics/TGFAnalyticsLogger.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFCircle.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "analytics/OpenSessions.hpp"
#include "storage/UtcText.hpp"

namespace wayloom {

using platform::Json;
using storage::Blob;
using storage::DatabaseConnection;

namespace {

std::optional<std::string> uuidText(const std::optional<platform::UUID>& uuid) {
  return uuid ? std::optional(uuid->string()) : std::nullopt;
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
    : platform_(platform), db_(std::move(db)), openSessions_(std::make_unique<OpenSessions>()) {}

TGFAnalytics::~TGFAnalytics() {
  scope_.close();
  uploader_.reset();
}

void TGFAnalytics::startLogging() {
  if (!logger_) logger_ = std::make_unique<TGFAnalyticsLogger>(platform_);
}

void TGFAnalytics::stopLogging() { logger_.reset(); }

platform::CalendarTime TGFAnalytics::now() const { return platform_.calendarClock().now(); }

std::string TGFAnalytics::formatDate(platform::CalendarTime date) { return storage::utcText(date); }

// --- Sessions ---

void TGFAnalytics::openSessionWithRegion(const TGFRegion& region) {
  db_->inTransaction([&](DatabaseConnection& connection, bool&) { open(connection, region); });
}

void TGFAnalytics::open(DatabaseConnection& connection, const TGFRegion& region) {
  if (const auto* beacons = dynamic_cast<const TGFBeaconRegion*>(&region)) {
    openSessions_->forget(*beacons);
    connection.executeUpdate(
        "insert into region_sessions (entered_at, region_uuid, region_major, region_minor) VALUES (?, ?, ?, ?);",
        {now(), uuidText(beacons->uuid()), presentIf(beacons->hasMajor(), beacons->major()),
         presentIf(beacons->hasMinor(), beacons->minor())});
  } else if (const auto* circle = dynamic_cast<const TGFCircle*>(&region)) {
    connection.executeUpdate(
        "insert into geo_region_sessions (entered_at, latitude, longitude, radius, region_id) VALUES (?, ?, ?, ?, ?);",
        {now(), circle->latitude(), circle->longitude(), circle->radius(), circle->identifier()});
  }
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
  const auto* session = openSessions_->find(connection, region);
  if (session == nullptr) return;
  const auto id = session->id;
  openSessions_->forget(region);
  if (!connection.executeUpdate("update region_sessions set exited_at = ? where id = ?;", {now(), id}))
    TGFLogger::log(platform_, TGFLogLevel::error, "Failed to close session id %@", id);
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
    auto* session = openSessions_->find(connection, *beaconRegion);
    if (session == nullptr) return;
    for (const auto& beacon : beacons)
      if (!OpenSessions::note(connection, *session, *beacon, now()))
        TGFLogger::log(platform_, TGFLogLevel::error, "Failed inserting beacon (%@, %@, %@)",
                       uuidText(beacon->uuid()).value_or(""), beacon->major().value_or(0), beacon->minor().value_or(0));
  });
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

struct TGFAnalytics::Due {
  Json beaconRegions = Json::array();
  Json events = Json::array();
  Json geoRegions = Json::array();
};

void TGFAnalytics::uploadAnalyticsToServer() {
  if (uploading_.exchange(true)) return;
  if (!uploadQueue_) uploadQueue_ = platform_.tasks().makeSerialQueue("TGFAnalytics");
  uploadQueue_->async(scope_.bind([this] { runUpload(); }));
}

void TGFAnalytics::runUpload() {
  auto due = std::make_shared<Due>();
  due->beaconRegions = beaconRegionsToBeUploaded();
  due->events = eventsToBeUploaded();
  due->geoRegions = geoRegionsToBeUploaded();
  if (due->beaconRegions.empty() && due->events.empty() && due->geoRegions.empty()) {
    uploading_ = false;
    return;
  }
  uploader_ = std::make_unique<TGFAPIAnalyticsUploader>(platform_);
  uploader_->uploadBeaconRegionsAndGeoRegionsAndEvents(due->beaconRegions, due->geoRegions, due->events,
                                                       [this, due](bool uploaded) { finishUpload(*due, uploaded); });
}

void TGFAnalytics::finishUpload(const Due& due, bool uploaded) {
  if (uploaded) {
    markBeaconRegionsUploaded(due.beaconRegions);
    markEventsUploaded(due.events);
    markGeoRegionsUploaded(due.geoRegions);
  }
  uploading_ = false;
}

}  // namespace wayloom
