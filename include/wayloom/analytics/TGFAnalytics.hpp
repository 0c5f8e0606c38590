// The record of what the region engine observed: stays inside regions, the beacons seen meanwhile, stays inside
// geofences, and events that the host raised; kept in a file until it is uploaded, and after.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/regions/AnalyticsRecorder.hpp"
#include "wayloom/regions/TGFBeacon.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom {

class OpenSessions;
class TGFAPIAnalyticsUploader;
class TGFAnalyticsLogger;
class TGFBeaconRegion;
class TGFCircle;

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
  // Notes when the beacons were seen in the open session of a beacon region; nothing without one.
  void updateSessionWithRegionAndBeacons(const TGFRegion& region, const TGFBeaconList& beacons);
  // The details, an object of texts and numbers, are kept as JSON; what is no object counts as an empty one. An event
  // is refused, with a log line, when they take more than kMostDetails bytes or are nested deeper than the parser goes.
  void addEventWithDetails(std::string_view type, const platform::Json& details);
  static constexpr std::size_t kMostDetails = 1U << 20U;

  // Arrays of records, objects whose members are columns: the sessions that have ended and the events, as far as they
  // have not been uploaded.
  platform::Json beaconRegionsToBeUploaded();
  platform::Json geoRegionsToBeUploaded();
  platform::Json eventsToBeUploaded();
  // Take such records.
  void markBeaconRegionsUploaded(const platform::Json& records);
  void markGeoRegionsUploaded(const platform::Json& records);
  void markEventsUploaded(const platform::Json& records);

  // "2015-11-21T11:40:00Z"
  static std::string formatDate(platform::CalendarTime date);

  // Begins an upload of all that is due, on a queue of its own, and returns. While one is under way, it does nothing.
  void uploadAnalyticsToServer() override;

  TGFAnalyticsDatabase& db() { return *db_; }

 private:
  struct Due;

  void open(storage::DatabaseConnection& connection, const TGFRegion& region);
  void closeBeaconSession(storage::DatabaseConnection& connection, const TGFBeaconRegion& region);
  void closeGeoSession(storage::DatabaseConnection& connection, const TGFCircle& circle);
  void mark(const platform::Json& records, const char* statement, const char* line);
  void runUpload();
  void finishUpload(const Due& due, bool uploaded);
  platform::CalendarTime now() const;

  platform::Platform& platform_;
  std::unique_ptr<TGFAnalyticsDatabase> db_;
  std::unique_ptr<OpenSessions> openSessions_;  // used within transactions only
  std::unique_ptr<TGFAnalyticsLogger> logger_;

  std::unique_ptr<platform::TaskQueue> uploadQueue_;
  std::atomic<bool> uploading_ = false;
  std::unique_ptr<TGFAPIAnalyticsUploader> uploader_;  // of the last pass; made on the upload queue
  platform::TaskScope scope_;
};

}  // namespace wayloom
