// Tells a status server which beacons are alive: writes down every beacon that is ranged, and uploads what is new every
// half minute.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/regions/StatusReporter.hpp"
#include "wayloom/status/TPLBeacon.hpp"
#include "wayloom/status/TPLEventTrackingQueue.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"

namespace wayloom {

// Any thread, except that starting and stopping the watchdog want one at a time. An upload that is under way at
// destruction ends and marks its rows; destroying the Platform cancels it, and its rows stay due.
class TPLStatusManager : public StatusReporter {
 public:
  // The configuration holds the "url" and the "token" of the status server. The watchdog starts at once.
  TPLStatusManager(platform::Platform& platform, const platform::Json& config);
  TPLStatusManager(platform::Platform& platform, std::unique_ptr<TPLStatusDatabase> db, const platform::Json& config);
  // Writes down in memory; uploads still take what the file holds.
  static std::unique_ptr<TPLStatusManager> withInMemoryDatabase(platform::Platform& platform,
                                                                const platform::Json& config);
  ~TPLStatusManager() override;

  static std::string getVersion() { return "1"; }

  // Write down, then upload if it is time. Done when they return, the upload excepted.
  void rangedBeacon(const TPLBeacon& beacon);
  void rangedBeacon(const platform::CLBeacon& beacon) override { rangedBeacon(TPLBeacon::beaconWithCLBeacon(beacon)); }
  void rangedBeacons(std::span<const platform::CLBeacon> beacons) override;
  // Without it every beacon ranged is written down, see TPLStatusDatabase.
  void setListedBeacons(IsListed isListed) override;

  void bufferedUpload();
  // Whether no upload has succeeded yet, or the last did more than the threshold ago.
  bool isTimeToUpload() const;
  void uploadEvents();  // now; does not wait for it

  // Seconds between two ticks, and at least between two successful uploads.
  std::int32_t uploadThresholdSeconds() const { return uploadThresholdSeconds_; }
  // The first tick comes at once. Does nothing while the watchdog runs.
  void startUploadWatchdog();
  void stopTimedUpload();

  TPLStatusDatabase& db() { return *db_; }
  TPLEventTrackingQueue& eventTracker() { return *eventTracker_; }

 private:
  void setupWatchdogQueue();

  platform::Platform& platform_;
  const platform::Json config_;
  std::unique_ptr<TPLStatusDatabase> db_;
  const std::int32_t uploadThresholdSeconds_ = 30;
  std::unique_ptr<TPLEventTrackingQueue> eventTracker_;
  std::unique_ptr<platform::TaskQueue> watchdogQueue_;
  std::unique_ptr<platform::Timer> uploadWatchdog_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
