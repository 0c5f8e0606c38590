#include "wayloom/positioning/TWLManager.hpp"

#include <utility>

#include "wayloom/maps/TWLConfig.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/platform/CLLocationManager.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"

#include "positioning/ListenerList.hpp"

namespace wayloom {
namespace {

constexpr double kDistanceFilter = 10.0;  // metres
constexpr auto kMenuPoll = std::chrono::milliseconds(50);

// The engine's part of the map layer's settings; what is not configured is left out.
platform::Json engineConfiguration(const TWLConfig& config) {
  auto configuration = platform::Json::object();
  if (const auto url = config.GFKitURL()) configuration["GFKitURL"] = *url;
  if (const auto token = config.GFAPIToken()) configuration["GFAPIToken"] = *token;
  if (const auto url = config.GFAnalyticsURL()) configuration["GFAnalyticsURL"] = *url;
  return configuration;
}

}  // namespace

std::unique_ptr<TWLManager> TWLManager::manager(platform::Platform& platform) {
  return managerWithDelegate(platform, nullptr);
}

std::unique_ptr<TWLManager> TWLManager::managerWithDelegate(platform::Platform& platform,
                                                            TWLManagerDelegate* delegate) {
  return std::make_unique<TWLManager>(platform, delegate);
}

TWLManager::TWLManager(platform::Platform& platform, TWLManagerDelegate* delegate, TGFManagerServices services)
    : platform_(platform),
      delegate_(delegate),
      listeners_(std::make_shared<ListenerList<TWLManagerDelegate>>()),
      gfManager_(
          std::make_unique<TGFManager>(platform, this, engineConfiguration(TWLConfig(platform)), std::move(services))) {
  gfManager_->setLocationManagerDelegate(this);
  gfManager_->start();
  locationTracker_ = &TWLLocationTracker::sharedLocationTracker(platform);
}

TWLManager::~TWLManager() { shutDown(); }

void TWLManager::shutDown() {
  scope_.close();
  gfManager_->stop();
  stopStandardUpdates();
  gfManager_->shutDown();
}

void TWLManager::start() { gfManager_->start(); }

void TWLManager::stop() { gfManager_->stop(); }

void TWLManager::startStandardUpdates() {
  auto& locationManager = gfManager_->locationManager();
  locationManager.setDesiredAccuracy(platform::kCLLocationAccuracyBestForNavigation);
  locationManager.setDistanceFilter(kDistanceFilter);
  locationManager.startUpdatingLocation();
}

void TWLManager::stopStandardUpdates() { gfManager_->locationManager().stopUpdatingLocation(); }

void TWLManager::addListener(const std::shared_ptr<TWLManagerDelegate>& listener) {
  const platform::TaskScope::Guard guard(scope_);
  if (!guard || !listener) return;
  const auto listeners = listeners_;
  listeners->add(listener, [&](TWLManagerDelegate& added) {
    added.locationManagerDidUpdateMapLocation(*this,
                                              TWLLocationUtils::currentMapLocation(platform_, *locationTracker_));
  });
}

void TWLManager::addListener(TWLManagerDelegate& listener) {
  addListener(std::shared_ptr<TWLManagerDelegate>(std::shared_ptr<void>(), &listener));
}

void TWLManager::removeListener(TWLManagerDelegate& listener) { listeners_->remove(&listener); }

std::vector<std::shared_ptr<TWLManagerDelegate>> TWLManager::listeners() const { return listeners_->all(); }

void TWLManager::updateLocation() {
  const platform::TaskScope::Guard guard(scope_);
  if (!guard) return;
  TWLMapLocationPtr location = TWLLocationUtils::currentMapLocation(platform_, *locationTracker_);
  if (location) {
    const auto listeners = listeners_;
    listeners->walk([&](TWLManagerDelegate& listener) {
      if (guard) listener.locationManagerDidUpdateMapLocation(*this, location);
    });
    if (!guard) return;
    delegate_.tell(
        [&](TWLManagerDelegate& delegate) { delegate.locationManagerDidUpdateMapLocation(*this, location); });
    if (!guard) return;
  }
  const std::lock_guard lock(mutex_);
  currentMapLocation_.swap(location);
}

void TWLManager::updateMaps() { TWLUpdateManager::sharedUpdateManager(platform_).update(); }

std::vector<TWLMapConfigPtr> TWLManager::maps() {
  auto& updates = TWLUpdateManager::sharedUpdateManager(platform_);
  while (!updates.menuReady()) platform_.tasks().sleep(kMenuPoll);
  return TWLMapConfigRepo::sharedRepo(platform_).maps();
}

TWLMapLocationPtr TWLManager::currentMapLocation() const {
  const std::lock_guard lock(mutex_);
  return currentMapLocation_;
}

std::optional<std::string> TWLManager::mapId() const {
  const std::lock_guard lock(mutex_);
  return mapId_;
}

void TWLManager::setMapId(std::optional<std::string> mapId) {
  const std::lock_guard lock(mutex_);
  mapId_.swap(mapId);
}

void TWLManager::geofoldDidSync(TGFManager&) {}

void TWLManager::geofoldDidFailWithError(TGFManager&, const platform::Error&) {}

void TWLManager::geofoldDidRangeBeaconsInRegion(TGFManager&, const TGFBeaconList& beacons,
                                                const TGFBeaconRegionPtr& region) {
  locationTracker_->didRangeBeaconsInRegionInRegion(beacons, region);
  updateLocation();
}

void TWLManager::locationManagerDidUpdateLocations(platform::CLLocationManager* manager,
                                                   std::span<const platform::CLLocation> locations) {
  locationTracker_->locationManagerDidUpdateLocations(manager, locations);
  updateLocation();
}

}  // namespace wayloom
