// The region engine's front object: keeps the kit up to date, has the platform monitor and range its regions, and tells
// the host in the kit's own terms what happens.
//
//   TGFManager manager(platform, &delegate, Json{{"GFKitURL", "https://..."}, {"GFAPIToken", "..."}});
//   manager.start();
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "wayloom/platform/CLLocationManager.hpp"
#include "wayloom/platform/CLLocationManagerDelegate.hpp"
#include "wayloom/platform/DelegateSlot.hpp"
#include "wayloom/platform/Notification.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFKit.hpp"
#include "wayloom/regions/TGFManagerDelegate.hpp"
#include "wayloom/regions/TGFManagerServices.hpp"

namespace wayloom {

class TGFAPIRequest;

// How a sync ended.
enum class BackgroundFetchResult : int { newData = 0, noData = 1, failed = 2 };

// Made and driven on the main thread, where the platform's callbacks, the sync timer and notifications arrive. The end
// of a kit download runs on a serial queue of the manager's own: there the kit is replaced, the regions are registered,
// and the sync handler and the delegate are called, for one download after another. kit(), and what it returns, is safe
// on any thread.
//
// An answer without a kit leaves the kit that is there in force. What happens in a region that the kit doesn't know is
// told to nobody; of its rangings the status reporter alone hears.
//
// Destruction is safe at any time and on any thread, from within each of the calls too; no call follows it, and one
// under way on another thread is waited for. Neither delegate is owned: keep them as long as the manager.
class TGFManager final : public platform::CLLocationManagerDelegate {
 public:
  using SyncHandler = std::function<void(BackgroundFetchResult)>;

  // `configuration` replaces what Geofold.plist says. The kit of the last download is loaded from its file, but comes
  // into effect with the first download after start(). Throws MissingUsageDescription when neither bundle has
  // "NSLocationAlwaysUsageDescription".
  TGFManager(platform::Platform& platform, TGFManagerDelegate* delegate = nullptr,
             const std::optional<platform::Json>& configuration = std::nullopt, TGFManagerServices services = {});
  ~TGFManager() override;
  TGFManager(const TGFManager&) = delete;
  TGFManager& operator=(const TGFManager&) = delete;

  static std::unique_ptr<TGFManager> manager(platform::Platform& platform);
  static std::unique_ptr<TGFManager> managerWithDelegate(platform::Platform& platform, TGFManagerDelegate* delegate);
  static std::unique_ptr<TGFManager> managerWithConfig(platform::Platform& platform, platform::Json configuration);
  static std::unique_ptr<TGFManager> managerWithDelegateAndConfig(platform::Platform& platform,
                                                                  TGFManagerDelegate* delegate,
                                                                  platform::Json configuration);

  // Downloads the kit, now and then every 30 s until it succeeds and every hour after; puts it into effect. Does
  // nothing when started.
  void start();
  // Ends that and takes every region of the application from the platform, those that others registered too.
  void stop();
  // What the destructor does, earlier: for one who has to be whole until the last callback has returned. No call
  // follows; what the manager knows can still be asked.
  void shutDown();

  // Takes every ranged region of the application from the platform; monitoring goes on.
  void stopRangingIBeacons();
  // Ends the status reporter, until the next kit is put into effect. Waits for a call of it on another thread.
  void stopStatusMonitoring() { status_.set(nullptr); }

  void sync() { performSync(); }
  // The handler is kept, and called at the end of every later sync too.
  void syncWithCompletionHandler(SyncHandler handler);

  void logLevel(int level);
  static std::string getVersion() { return "1.0.3"; }
  void setPartnerIdentifier(std::string identifier);

  // When a delegate has been set, the one before is not called any more, and no call of it is under way on another
  // thread. Any thread.
  TGFManagerDelegate* delegate() const { return delegate_.get(); }
  void setDelegate(TGFManagerDelegate* delegate) { delegate_.set(delegate); }
  // Gets every callback of the platform's location manager first, unchanged.
  platform::CLLocationManagerDelegate* locationManagerDelegate() const { return locationManagerDelegate_.get(); }
  void setLocationManagerDelegate(platform::CLLocationManagerDelegate* delegate) {
    locationManagerDelegate_.set(delegate);
  }
  platform::CLLocationManager& locationManager() { return *locationManager_; }
  TGFKitPtr kit() const;  // null before there is one

  TGFRegionPtr getRegionForIdentifier(std::string_view identifier) const;
  // What the kit says of a region of the platform's; null when it doesn't know it.
  TGFRegionPtr getTGFRegionForCLRegion(const platform::CLRegionPtr& region) const;
  bool isRangingRegion(const platform::CLRegion& region) const;
  std::string getLat() const;  // degrees of the last known location with six decimals; "0.000000" without one
  std::string getLng() const;

  // What the platform reports; called by the location manager.
  void locationManagerDidUpdateLocations(platform::CLLocationManager*, std::span<const platform::CLLocation>) override;
  void locationManagerDidUpdateHeading(platform::CLLocationManager*, const platform::CLHeading&) override;
  bool locationManagerShouldDisplayHeadingCalibration(platform::CLLocationManager*) override;
  void locationManagerDidDetermineStateForRegion(platform::CLLocationManager*, platform::CLRegionState,
                                                 const platform::CLRegionPtr&) override;
  void locationManagerDidRangeBeaconsInRegion(platform::CLLocationManager*, std::span<const platform::CLBeacon>,
                                              const platform::CLBeaconRegionPtr&) override;
  void locationManagerRangingBeaconsDidFailForRegionWithError(platform::CLLocationManager*,
                                                              const platform::CLBeaconRegionPtr&,
                                                              const platform::Error&) override;
  void locationManagerDidEnterRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override;
  void locationManagerDidExitRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override;
  void locationManagerDidFailWithError(platform::CLLocationManager*, const platform::Error&) override;
  void locationManagerMonitoringDidFailForRegionWithError(platform::CLLocationManager*, const platform::CLRegionPtr&,
                                                          const platform::Error&) override;
  void locationManagerDidChangeAuthorizationStatus(platform::CLLocationManager*,
                                                   platform::CLAuthorizationStatus) override;
  void locationManagerDidStartMonitoringForRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override;
  void locationManagerDidPauseLocationUpdates(platform::CLLocationManager*) override;
  void locationManagerDidResumeLocationUpdates(platform::CLLocationManager*) override;
  void locationManagerDidFinishDeferredUpdatesWithError(platform::CLLocationManager*, const platform::Error&) override;

 private:
  // The platform, if it has one; throws otherwise.
  static platform::Platform& checkForLocationAlwaysUsageDescription(platform::Platform& platform);
  TGFConfiguration& buildConfig(const std::optional<platform::Json>& configuration);
  void buildKitFromCacheForURL(const std::optional<std::string>& url);

  void performSync();
  void timedSync();
  bool syncIsDue() const;
  void finishSync(const std::optional<platform::Error>& error, std::optional<platform::Json> response);
  void buildKitFromResponse(platform::Json response);
  void buildKitFrom(platform::Json document);
  void putIntoEffect();

  bool checkCLAuthorized();
  void startMonitoringFences(const TGFKit& kit);
  void startMonitoringIBeacons(const TGFKit& kit);
  void startRangingIBeacons(const TGFKit& kit);
  void clearCLMonitoredRegions();
  void clearCLRangedRegions();
  void startStatusMonitoring(const TGFKitPtr& kit);

  // Both are false when this manager ends meanwhile.
  template <class Target, class Call>
  bool tell(const platform::DelegateSlot<Target>& slot, const Call& call) {
    const platform::TaskScope::Guard guard(scope_);
    if (guard) slot.tell(call);
    return static_cast<bool>(guard);
  }
  bool tellRanging(const TGFKit& kit, std::span<const platform::CLBeacon> beacons,
                   const platform::CLBeaconRegionPtr& region);
  void postNotificationWithUserInfo(const char* name, platform::UserInfo userInfo);

  platform::Platform& platform_;
  TGFManagerServices services_;
  TGFConfiguration& config_;
  platform::DelegateSlot<TGFManagerDelegate> delegate_;
  platform::DelegateSlot<platform::CLLocationManagerDelegate> locationManagerDelegate_;
  platform::DelegateSlot<StatusReporter> status_;
  std::unique_ptr<platform::CLLocationManager> locationManager_;
  std::unique_ptr<AnalyticsRecorder> analytics_;
  std::unique_ptr<platform::Timer> syncTimer_;

  // Held while regions are registered or cleared, so that a download's end and stop() don't mix.
  std::mutex registrationMutex_;
  bool started_ = false;  // under registrationMutex_

  mutable std::mutex mutex_;  // for what follows; no call leaves this class under it
  TGFKitPtr kit_;
  SyncHandler didSyncBlock_;
  std::optional<platform::MonotonicTime> lastSuccessfulSync_;

  std::unique_ptr<TGFAPIRequest> kitRequest_;  // for all downloads, so that their ends don't overlap
  platform::TaskScope scope_;
};

}  // namespace wayloom
