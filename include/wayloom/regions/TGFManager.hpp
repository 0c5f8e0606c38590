// The region engine's front object: keeps the kit up to date, has the platform monitor and range its regions, and tells
// the host in the kit's own terms what happens.
//
//   TGFManager manager(platform, &delegate, Json{{"GFKitURL", "https://..."}, {"GFAPIToken", "..."}});
//   manager.start();
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "wayloom/platform/CLLocationManager.hpp"
#include "wayloom/platform/CLLocationManagerDelegate.hpp"
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

// Made, driven and destroyed on the main thread, where the platform's callbacks, the sync timer and notifications
// arrive. The end of a kit download runs on the download's own serial queue: there the kit is replaced, the regions are
// registered, and the sync handler and the delegate are called. kit(), and what it returns, is safe on any thread.
//
// Destruction is safe at any time, from within the delegate's calls too; no call follows it. Neither delegate is owned:
// keep them as long as the manager.
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

  void sync() { performSync(); }
  // The handler is kept, and called at the end of every later sync too.
  void syncWithCompletionHandler(SyncHandler handler);

  void logLevel(int level);
  static std::string getVersion() { return "1.0.3"; }
  void setPartnerIdentifier(std::string identifier);

  TGFManagerDelegate* delegate() const { return delegate_; }
  void setDelegate(TGFManagerDelegate* delegate) { delegate_ = delegate; }
  // Gets every callback of the platform's location manager first, unchanged.
  platform::CLLocationManagerDelegate* locationManagerDelegate() const { return locationManagerDelegate_; }
  void setLocationManagerDelegate(platform::CLLocationManagerDelegate* delegate) {
    locationManagerDelegate_ = delegate;
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
  struct Download;

  void checkForLocationAlwaysUsageDescription() const;
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
  void startStatusMonitoring(const TGFKit& kit);

  // These three are false when the call destroyed this manager.
  template <class Call>
  bool tellDelegate(Call call) {
    auto* delegate = delegate_.load();
    if (!delegate) return true;
    const std::weak_ptr<const bool> life = life_;
    call(*delegate);
    return !life.expired();
  }
  template <class Call>
  bool forward(Call call);
  bool tellRanging(const TGFKit& kit, std::span<const platform::CLBeacon> beacons,
                   const platform::CLBeaconRegionPtr& region);
  void postNotificationWithUserInfo(const char* name, platform::UserInfo userInfo);

  platform::Platform& platform_;
  TGFManagerServices services_;
  TGFConfiguration& config_;
  std::atomic<TGFManagerDelegate*> delegate_ = nullptr;
  std::atomic<platform::CLLocationManagerDelegate*> locationManagerDelegate_ = nullptr;
  std::unique_ptr<platform::CLLocationManager> locationManager_;
  std::unique_ptr<AnalyticsRecorder> analytics_;
  std::unique_ptr<platform::Timer> syncTimer_;

  // Held while regions are registered or cleared, so that a download's end and stop() don't mix.
  std::mutex registrationMutex_;
  bool started_ = false;  // under registrationMutex_

  mutable std::mutex mutex_;  // for what follows; no call leaves this class under it
  TGFKitPtr kit_;
  std::shared_ptr<StatusReporter> status_;
  SyncHandler didSyncBlock_;
  std::optional<platform::MonotonicTime> lastSuccessfulSync_;
  std::list<std::shared_ptr<Download>> downloads_;

  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
  platform::TaskScope scope_;
};

}  // namespace wayloom
