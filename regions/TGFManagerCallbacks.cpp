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

void TGFManager::postNotificationWithUserInfo(const char* name, UserInfo userInfo) {
  platform_.notificationQueue().enqueue({name, this, std::move(userInfo)});
}

// --- Callbacks that do more than forward ---

void TGFManager::locationManagerDidEnterRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  if (!tell(locationManagerDelegate_,
            [&](LocationDelegate& delegate) { delegate.locationManagerDidEnterRegion(manager, region); }))
    return;
  const auto entered = getTGFRegionForCLRegion(region);
  if (!entered || !tell(delegate_, [&](TGFManagerDelegate& delegate) { delegate.geofoldDidEnter(*this, entered); }))
    return;
  postNotificationWithUserInfo(TGFManagerDidEnterRegionNotification,
                               eventInfo(TGFManagerEvent::regionEntered, entered));
}

void TGFManager::locationManagerDidExitRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  if (!tell(locationManagerDelegate_,
            [&](LocationDelegate& delegate) { delegate.locationManagerDidExitRegion(manager, region); }))
    return;
  const auto left = getTGFRegionForCLRegion(region);
  if (!left || !tell(delegate_, [&](TGFManagerDelegate& delegate) { delegate.geofoldDidExit(*this, left); })) return;
  postNotificationWithUserInfo(TGFManagerDidExitRegionNotification, eventInfo(TGFManagerEvent::regionExited, left));
}

void TGFManager::locationManagerDidDetermineStateForRegion(CLLocationManager* manager, CLRegionState state,
                                                           const CLRegionPtr& region) {
  const auto pass = [&](LocationDelegate& delegate) {
    delegate.locationManagerDidDetermineStateForRegion(manager, state, region);
  };
  if (!tell(locationManagerDelegate_, pass)) return;
  const auto known = getTGFRegionForCLRegion(region);
  if (!known) return;
  const auto call = [&](TGFManagerDelegate& delegate) {
    delegate.geofoldDidDetermineStateForRegion(*this, state, known);
  };
  if (!tell(delegate_, call)) return;
  auto info = eventInfo(TGFManagerEvent::stateDetermined, known);
  info.set(TGFManagerNotificationRegionStateKey, static_cast<int>(state));
  postNotificationWithUserInfo(TGFManagerDidDetermineStateForRegionNotification, std::move(info));
}

void TGFManager::locationManagerDidRangeBeaconsInRegion(CLLocationManager* manager, std::span<const CLBeacon> beacons,
                                                        const CLBeaconRegionPtr& region) {
  const auto pass = [&](LocationDelegate& delegate) {
    delegate.locationManagerDidRangeBeaconsInRegion(manager, beacons, region);
  };
  if (!tell(locationManagerDelegate_, pass)) return;
  const auto known = kit();
  if (known && known->knowsRegion(*region) && !tellRanging(*known, beacons, region)) return;
  tell(status_, [&](StatusReporter& status) { status.rangedBeacons(beacons); });
}

bool TGFManager::tellRanging(const TGFKit& kit, std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) {
  auto ranged = kit.getIBeaconsForCLBeacons(beacons);
  auto found = kit.getIBeaconRegionForCLBeaconRegion(region);
  const auto call = [&](TGFManagerDelegate& delegate) {
    delegate.geofoldDidRangeBeaconsInRegion(*this, ranged, found);
  };
  if (!tell(delegate_, call)) return false;
  auto info = eventInfo(TGFManagerEvent::beaconsRanged, std::move(found));
  info.set(TGFManagerNotificationBeaconsKey, std::move(ranged));
  postNotificationWithUserInfo(TGFManagerDidRangeBeaconsInRegionNotification, std::move(info));
  return true;
}

void TGFManager::locationManagerRangingBeaconsDidFailForRegionWithError(CLLocationManager* manager,
                                                                        const CLBeaconRegionPtr& region,
                                                                        const Error& error) {
  TGFLogger::log(platform_, TGFLogLevel::error, "Ranging Beacons Failed with Error: %@", error);
  tell(locationManagerDelegate_, [&](LocationDelegate& delegate) {
    delegate.locationManagerRangingBeaconsDidFailForRegionWithError(manager, region, error);
  });
}

void TGFManager::locationManagerDidFailWithError(CLLocationManager* manager, const Error& error) {
  if (!tell(locationManagerDelegate_,
            [&](LocationDelegate& delegate) { delegate.locationManagerDidFailWithError(manager, error); }))
    return;
  tell(delegate_, [&](TGFManagerDelegate& delegate) { delegate.geofoldDidFailWithError(*this, error); });
}

// --- Callbacks that only forward ---

void TGFManager::locationManagerDidUpdateLocations(CLLocationManager* manager,
                                                   std::span<const platform::CLLocation> locations) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidUpdateLocations(manager, locations); });
}

void TGFManager::locationManagerDidUpdateHeading(CLLocationManager* manager, const platform::CLHeading& heading) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidUpdateHeading(manager, heading); });
}

bool TGFManager::locationManagerShouldDisplayHeadingCalibration(CLLocationManager* manager) {
  bool should = false;
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { should = delegate.locationManagerShouldDisplayHeadingCalibration(manager); });
  return should;
}

void TGFManager::locationManagerMonitoringDidFailForRegionWithError(CLLocationManager* manager,
                                                                    const CLRegionPtr& region, const Error& error) {
  tell(locationManagerDelegate_, [&](LocationDelegate& delegate) {
    delegate.locationManagerMonitoringDidFailForRegionWithError(manager, region, error);
  });
}

void TGFManager::locationManagerDidChangeAuthorizationStatus(CLLocationManager* manager,
                                                             platform::CLAuthorizationStatus status) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidChangeAuthorizationStatus(manager, status); });
}

void TGFManager::locationManagerDidStartMonitoringForRegion(CLLocationManager* manager, const CLRegionPtr& region) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidStartMonitoringForRegion(manager, region); });
}

void TGFManager::locationManagerDidPauseLocationUpdates(CLLocationManager* manager) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidPauseLocationUpdates(manager); });
}

void TGFManager::locationManagerDidResumeLocationUpdates(CLLocationManager* manager) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidResumeLocationUpdates(manager); });
}

void TGFManager::locationManagerDidFinishDeferredUpdatesWithError(CLLocationManager* manager, const Error& error) {
  tell(locationManagerDelegate_,
       [&](LocationDelegate& delegate) { delegate.locationManagerDidFinishDeferredUpdatesWithError(manager, error); });
}

}  // namespace wayloom
