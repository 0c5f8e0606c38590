// What the region manager does when the platform's location manager calls it.
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

namespace wayloom {

using platform::CLBeacon;
using platform::CLBeaconRegionPtr;
using platform::CLLocationManager;
using platform::CLRegionPtr;
using platform::CLRegionState;
using platform::Error;
using platform::UserInfo;
using LocationDelegate = platform::CLLocationManagerDelegate;

namespace {

UserInfo eventInfo(TGFManagerEvent event, TGFRegionPtr region) {
  UserInfo info;
  info.set(TGFManagerNotificationEventKey, static_cast<int>(event));
  info.set(TGFManagerNotificationRegionKey, std::move(region));
  return info;
}

}  // namespace

template <class Call>
bool TGFManager::forward(Call call) {
  auto* delegate = locationManagerDelegate_.load();
  if (!delegate) return true;
  const std::weak_ptr<const bool> life = life_;
  call(*delegate);
  return !life.expired();
}

void TGFManager::postNotificationWithUserInfo(const char* name, UserInfo userInfo) {
  platform_.notificationQueue().enqueue({name, this, std::move(userInfo)});
}

// --- Callbacks that do more than forward ---

void TGFManager::locationManagerDidEnterRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  if (!forward([&](LocationDelegate& delegate) { delegate.locationManagerDidEnterRegion(manager, region); })) return;
  const auto entered = getTGFRegionForCLRegion(region);
  if (!entered || !tellDelegate([&](TGFManagerDelegate& delegate) { delegate.geofoldDidEnter(*this, entered); }))
    return;
  postNotificationWithUserInfo(TGFManagerDidEnterRegionNotification,
                               eventInfo(TGFManagerEvent::regionEntered, entered));
}

void TGFManager::locationManagerDidExitRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  if (!forward([&](LocationDelegate& delegate) { delegate.locationManagerDidExitRegion(manager, region); })) return;
  const auto left = getTGFRegionForCLRegion(region);
  if (!left || !tellDelegate([&](TGFManagerDelegate& delegate) { delegate.geofoldDidExit(*this, left); })) return;
  postNotificationWithUserInfo(TGFManagerDidExitRegionNotification, eventInfo(TGFManagerEvent::regionExited, left));
}

void TGFManager::locationManagerDidDetermineStateForRegion(CLLocationManager* manager, CLRegionState state,
                                                           const CLRegionPtr& region) {
  const auto pass = [&](LocationDelegate& delegate) {
    delegate.locationManagerDidDetermineStateForRegion(manager, state, region);
  };
  if (!forward(pass)) return;
  const auto known = getTGFRegionForCLRegion(region);
  if (!known) return;
  const auto tell = [&](TGFManagerDelegate& delegate) {
    delegate.geofoldDidDetermineStateForRegion(*this, state, known);
  };
  if (!tellDelegate(tell)) return;
  auto info = eventInfo(TGFManagerEvent::stateDetermined, known);
  info.set(TGFManagerNotificationRegionStateKey, static_cast<int>(state));
  postNotificationWithUserInfo(TGFManagerDidDetermineStateForRegionNotification, std::move(info));
}

void TGFManager::locationManagerDidRangeBeaconsInRegion(CLLocationManager* manager, std::span<const CLBeacon> beacons,
                                                        const CLBeaconRegionPtr& region) {
  const auto pass = [&](LocationDelegate& delegate) {
    delegate.locationManagerDidRangeBeaconsInRegion(manager, beacons, region);
  };
  if (!forward(pass)) return;
  TGFKitPtr kit;
  std::shared_ptr<StatusReporter> status;
  {
    const std::lock_guard lock(mutex_);
    kit = kit_;
    status = status_;
  }
  if (kit && !tellRanging(*kit, beacons, region)) return;
  if (status) status->rangedBeacons(beacons);
}

bool TGFManager::tellRanging(const TGFKit& kit, std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) {
  auto ranged = kit.getIBeaconsForCLBeacons(beacons);
  auto found = kit.getIBeaconRegionForCLBeaconRegion(region);
  const auto tell = [&](TGFManagerDelegate& delegate) {
    delegate.geofoldDidRangeBeaconsInRegion(*this, ranged, found);
  };
  if (!tellDelegate(tell)) return false;
  auto info = eventInfo(TGFManagerEvent::beaconsRanged, std::move(found));
  info.set(TGFManagerNotificationBeaconsKey, std::move(ranged));
  postNotificationWithUserInfo(TGFManagerDidRangeBeaconsInRegionNotification, std::move(info));
  return true;
}

void TGFManager::locationManagerRangingBeaconsDidFailForRegionWithError(CLLocationManager* manager,
                                                                        const CLBeaconRegionPtr& region,
                                                                        const Error& error) {
  TGFLogger::log(platform_, TGFLogLevel::error, "Ranging Beacons Failed with Error: %@", error);
  forward([&](LocationDelegate& delegate) {
    delegate.locationManagerRangingBeaconsDidFailForRegionWithError(manager, region, error);
  });
}

void TGFManager::locationManagerDidFailWithError(CLLocationManager* manager, const Error& error) {
  if (!forward([&](LocationDelegate& delegate) { delegate.locationManagerDidFailWithError(manager, error); })) return;
  tellDelegate([&](TGFManagerDelegate& delegate) { delegate.geofoldDidFailWithError(*this, error); });
}

// --- Callbacks that only forward ---

void TGFManager::locationManagerDidUpdateLocations(CLLocationManager* manager,
                                                   std::span<const platform::CLLocation> locations) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidUpdateLocations(manager, locations); });
}

void TGFManager::locationManagerDidUpdateHeading(CLLocationManager* manager, const platform::CLHeading& heading) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidUpdateHeading(manager, heading); });
}

bool TGFManager::locationManagerShouldDisplayHeadingCalibration(CLLocationManager* manager) {
  auto* delegate = locationManagerDelegate_.load();
  return delegate && delegate->locationManagerShouldDisplayHeadingCalibration(manager);
}

void TGFManager::locationManagerMonitoringDidFailForRegionWithError(CLLocationManager* manager,
                                                                    const CLRegionPtr& region, const Error& error) {
  forward([&](LocationDelegate& delegate) {
    delegate.locationManagerMonitoringDidFailForRegionWithError(manager, region, error);
  });
}

void TGFManager::locationManagerDidChangeAuthorizationStatus(CLLocationManager* manager,
                                                             platform::CLAuthorizationStatus status) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidChangeAuthorizationStatus(manager, status); });
}

void TGFManager::locationManagerDidStartMonitoringForRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidStartMonitoringForRegion(manager, region); });
}

void TGFManager::locationManagerDidPauseLocationUpdates(CLLocationManager* manager) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidPauseLocationUpdates(manager); });
}

void TGFManager::locationManagerDidResumeLocationUpdates(CLLocationManager* manager) {
  forward([&](LocationDelegate& delegate) { delegate.locationManagerDidResumeLocationUpdates(manager); });
}

void TGFManager::locationManagerDidFinishDeferredUpdatesWithError(CLLocationManager* manager, const Error& error) {
  forward(
      [&](LocationDelegate& delegate) { delegate.locationManagerDidFinishDeferredUpdatesWithError(manager, error); });
}

}  // namespace wayloom
