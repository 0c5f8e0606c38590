#include "wayloom/status/TPLStatusManager.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "status/UnfinishedUploads.hpp"

namespace wayloom {

TPLStatusManager::TPLStatusManager(platform::Platform& platform, const platform::Json& config)
    : TPLStatusManager(platform, std::make_unique<TPLStatusDatabase>(platform), config) {}

TPLStatusManager::TPLStatusManager(platform::Platform& platform, std::unique_ptr<TPLStatusDatabase> db,
                                   const platform::Json& config)
    : platform_(platform),
      config_(config),
      db_(std::move(db)),
      eventTracker_(UnfinishedUploads::of(platform).takeOrMake(platform, config)) {
  setupWatchdogQueue();
  startUploadWatchdog();
}

std::unique_ptr<TPLStatusManager> TPLStatusManager::withInMemoryDatabase(platform::Platform& platform,
                                                                         const platform::Json& config) {
  return std::make_unique<TPLStatusManager>(platform, TPLStatusDatabase::withInMemoryDatabase(platform), config);
}

TPLStatusManager::~TPLStatusManager() {
  stopTimedUpload();
  scope_.close();
  UnfinishedUploads::of(platform_).keep(std::move(eventTracker_), config_);
}

void TPLStatusManager::setListedBeacons(IsListed isListed) { db_->setListedBeacons(std::move(isListed)); }

void TPLStatusManager::rangedBeacon(const TPLBeacon& beacon) {
  db_->rangedBeacon(beacon);
  bufferedUpload();
}

void TPLStatusManager::rangedBeacons(std::span<const platform::CLBeacon> beacons) {
  if (beacons.empty()) return;
  db_->rangedBeacons(beacons);
  bufferedUpload();
}

void TPLStatusManager::bufferedUpload() {
  if (isTimeToUpload()) uploadEvents();
}

bool TPLStatusManager::isTimeToUpload() const {
  const auto last = eventTracker_->lastSuccessfulUpload();
  return !last || platform_.monotonicClock().now() - *last > std::chrono::seconds(uploadThresholdSeconds_);
}

void TPLStatusManager::uploadEvents() { eventTracker_->uploadEvents(); }

void TPLStatusManager::setupWatchdogQueue() {
  if (!watchdogQueue_) watchdogQueue_ = platform_.tasks().makeSerialQueue("wayloom.pulsekeep.watchdogs");
}

void TPLStatusManager::startUploadWatchdog() {
  if (uploadWatchdog_ || !watchdogQueue_) return;
  uploadWatchdog_ = platform_.tasks().startTimer(*watchdogQueue_, platform::Duration::zero(),
                                                 std::chrono::seconds(uploadThresholdSeconds_),
                                                 scope_.bind([this] { bufferedUpload(); }));
  if (!uploadWatchdog_) platform_.systemLog().write("Failed to create a watchdog timer - reason unknown.");
}

void TPLStatusManager::stopTimedUpload() { uploadWatchdog_.reset(); }

}  // namespace wayloom
