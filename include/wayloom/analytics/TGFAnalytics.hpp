// The record of what the region engine observed: stays inside regions, the beacons seen meanwhile, stays inside
// geofences, and events that the host raised; kept in a file until it is uploaded, and after.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/regions/AnalyticsRecorder.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom {

class AnalyticsUpload;
class TGFAnalyticsLogger;
class TGFBeaconRegion;
class TGFCircle;

namespace storage {
class NewRowLimit;
}

// Several may work on one file at the same time: the region manager's uploads, and the logger has another one, which
// records. Operations may be called from any thread and are done when they return; only startLogging, stopLogging and
// uploadAnalyticsToServer want one thread at a time. A failure is told in the log alone, see DatabaseQueue.
class TGFAnalytics : public AnalyticsRecorder {
 public:
  explicit TGFAnalytics(platform::Platform& platform);
  TGFAnalytics(platform::Platform& platform, std::unique_ptr<TGFAnalyticsDatabase> db);
  // Cancels an upload that is under way; its rows stay due.
  ~TGFAnalytics() override;

  // Record what the region manager's notifications tell, from now until stopLogging().
  void startLogging() override;
  void stopLogging() override;

  // A region is a TGFBeaconRegion or a TGFCircle; others leave no trace. Whether a session of it is open already is not
  // asked: two enters begin two sessions, and an exit ends the one entered last.
  void openSessionWithRegion(const TGFRegion& region);
  void closeSessionWithRegion(const TGFRegion& region);
  // Notes when the beacons were seen in the open session of a beacon region; nothing without one. Of beacons that the
  // kit does not list by their UUID, major and minor, 20 000 are taken up at once and as many again within an hour.
  void updateSessionWithRegionAndBeacons(const TGFRegion& region, const TGFBeaconList& beacons);
  // The details, an object of texts and numbers, are kept as JSON; what is no object counts as an empty one. An event
  // is refused, with a log line, when they take more than kMostDetails bytes or are nested deeper than the parser goes.
  void addEventWithDetails(std::string_view type, const platform::Json& details);
  static constexpr std::size_t kMostDetails = 1U << 20U;

  // Arrays of records, objects whose members are columns: the sessions that have ended and the events, as far as they
  // have not been uploaded. All of them, however many they are.
  platform::Json beaconRegionsToBeUploaded();
  platform::Json geoRegionsToBeUploaded();
  platform::Json eventsToBeUploaded();
  // Take such records.
  void markBeaconRegionsUploaded(const platform::Json& records);
  void markGeoRegionsUploaded(const platform::Json& records);
  void markEventsUploaded(const platform::Json& records);

  // "2015-11-21T11:40:00Z"
  static std::string formatDate(platform::CalendarTime date);

  // Begins an upload of all that is due, on a queue of its own, and returns. While one is under way, it does nothing. A
  // document holds at most 1 000 records or 1 MB, the last record whole; the next follows when it has been delivered.
  void uploadAnalyticsToServer() override;

  TGFAnalyticsDatabase& db() { return *db_; }
  TGFAnalyticsLogger* logger() { return logger_.get(); }  // null unless logging has been started

 private:
  void closeBeaconSession(storage::DatabaseConnection& connection, const TGFBeaconRegion& region);
  void closeGeoSession(storage::DatabaseConnection& connection, const TGFCircle& circle);
  bool noteBeacon(storage::DatabaseConnection& connection, std::int64_t session, const TGFBeacon& beacon);
  platform::CalendarTime now() const;

  platform::Platform& platform_;
  std::unique_ptr<TGFAnalyticsDatabase> db_;
  std::unique_ptr<storage::NewRowLimit> newBeacons_;  // used within transactions only
  std::unique_ptr<TGFAnalyticsLogger> logger_;
  std::unique_ptr<AnalyticsUpload> upload_;
};

}  // namespace wayloom
