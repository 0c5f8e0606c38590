#include "wayloom/regions/TGFManager.hpp"

#include <array>
#include <charconv>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/regions/MissingUsageDescription.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/regions/TGFAPIRequest.hpp"
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFNotifications.hpp"
#include "wayloom/regions/TGFPartner.hpp"

namespace wayloom {

using platform::CLBeaconRegionPtr;
using platform::CLRegionPtr;
using platform::Error;
using platform::Json;
using platform::Platform;

namespace {

using namespace std::chrono_literals;
constexpr platform::Duration kSyncInterval = 30s;
constexpr platform::Duration kKitLifetime = 3600s;
constexpr std::string_view kUsageDescription = "NSLocationAlwaysUsageDescription";

std::string sixDecimals(double number) {
  std::array<char, 400> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, std::chars_format::fixed, 6).ptr;
  return {buffer.data(), end};
}

std::string uuidText(const TGFBeaconRegion& region) { return region.uuid() ? region.uuid()->string() : ""; }

}  // namespace

TGFManager::TGFManager(Platform& platform, TGFManagerDelegate* delegate, const std::optional<Json>& configuration,
                       TGFManagerServices services)
    : platform_(checkForLocationAlwaysUsageDescription(platform)),
      services_(std::move(services)),
      config_(buildConfig(configuration)) {
  kitRequest_ = std::make_unique<TGFAPIRequest>(platform_, config_.apiToken());
  buildKitFromCacheForURL(config_.url());
  delegate_.set(delegate);
  locationManager_ = platform_.location().makeLocationManager();
  locationManager_->setDelegate(this);
  if (services_.makeAnalytics) analytics_ = services_.makeAnalytics(platform_, *this);
}

TGFManager::~TGFManager() {
  shutDown();
  locationManager_.reset();  // waits for its callbacks, which look at the scope
}

void TGFManager::shutDown() {
  scope_.close();
  syncTimer_.reset();
  if (analytics_) analytics_->stopLogging();
}

std::unique_ptr<TGFManager> TGFManager::manager(Platform& platform) { return std::make_unique<TGFManager>(platform); }

std::unique_ptr<TGFManager> TGFManager::managerWithDelegate(Platform& platform, TGFManagerDelegate* delegate) {
  return std::make_unique<TGFManager>(platform, delegate);
}

std::unique_ptr<TGFManager> TGFManager::managerWithConfig(Platform& platform, Json configuration) {
  return std::make_unique<TGFManager>(platform, nullptr, std::move(configuration));
}

std::unique_ptr<TGFManager> TGFManager::managerWithDelegateAndConfig(Platform& platform, TGFManagerDelegate* delegate,
                                                                     Json configuration) {
  return std::make_unique<TGFManager>(platform, delegate, std::move(configuration));
}

Platform& TGFManager::checkForLocationAlwaysUsageDescription(Platform& platform) {
  for (const auto* bundle : {&platform.mainBundle(), &platform.resourceBundle()})
    if (platform::member(bundle->infoDictionary(), kUsageDescription)) return platform;
  const auto information = platform.mainBundle().pathForResource("Info", "plist");
  platform.systemLog().write(information ? *information + " has no " + std::string(kUsageDescription)
                                         : "The main bundle has no Info.plist");
  throw MissingUsageDescription();
}

TGFConfiguration& TGFManager::buildConfig(const std::optional<Json>& configuration) {
  auto& config = TGFConfiguration::sharedConfiguration(platform_);
  if (configuration) config.configureWithDictionary(*configuration);
  return config;
}

// --- Control ---

void TGFManager::start() {
  const platform::TaskScope::Guard guard(scope_);
  if (!guard || syncTimer_) return;
  {
    const std::lock_guard lock(registrationMutex_);
    started_ = true;  // before the download, which may end on its own queue before this function does
  }
  performSync();
  syncTimer_ = platform_.tasks().startTimer(platform_.tasks().mainQueue(), kSyncInterval, kSyncInterval,
                                            scope_.bind([this] { timedSync(); }));
  if (analytics_) analytics_->startLogging();
}

void TGFManager::stop() {
  const platform::TaskScope::Guard guard(scope_);
  if (!guard) return;
  {
    const std::lock_guard lock(registrationMutex_);
    started_ = false;
  }
  syncTimer_.reset();
  if (checkCLAuthorized()) {
    const std::lock_guard lock(registrationMutex_);
    clearCLMonitoredRegions();
    clearCLRangedRegions();
  }
  if (!guard) return;
  if (analytics_) analytics_->stopLogging();
}

void TGFManager::stopRangingIBeacons() {
  const std::lock_guard lock(registrationMutex_);
  clearCLRangedRegions();
}

void TGFManager::syncWithCompletionHandler(SyncHandler handler) {
  {
    const std::lock_guard lock(mutex_);
    didSyncBlock_ = std::move(handler);
  }
  performSync();
}

void TGFManager::logLevel(int level) { TGFLogger::setLevel(platform_, level); }

void TGFManager::setPartnerIdentifier(std::string identifier) {
  TGFPartner::shared(platform_).setIdentifier(std::move(identifier));
}

TGFKitPtr TGFManager::kit() const {
  const std::lock_guard lock(mutex_);
  return kit_;
}

TGFRegionPtr TGFManager::getRegionForIdentifier(std::string_view identifier) const {
  const auto current = kit();
  return current ? current->getRegionForIdentifier(identifier) : nullptr;
}

TGFRegionPtr TGFManager::getTGFRegionForCLRegion(const CLRegionPtr& region) const {
  const auto current = kit();
  if (!current) return nullptr;
  const auto beaconRegion = std::dynamic_pointer_cast<const platform::CLBeaconRegion>(region);
  if (!beaconRegion) return current->getRegionForIdentifier(region->identifier());
  return current->knowsRegion(*beaconRegion) ? current->getIBeaconRegionForCLBeaconRegion(beaconRegion) : nullptr;
}

bool TGFManager::isRangingRegion(const platform::CLRegion& region) const {
  for (const auto& ranged : locationManager_->rangedRegions()) {
    TGFLogger::log(platform_, TGFLogLevel::debug, "Checking ranging for %@", ranged->identifier());
    if (ranged->identifier() == region.identifier()) return true;
  }
  return false;
}

std::string TGFManager::getLat() const {
  const auto location = locationManager_->location();
  return sixDecimals(location ? location->coordinate.latitude : 0.0);
}

std::string TGFManager::getLng() const {
  const auto location = locationManager_->location();
  return sixDecimals(location ? location->coordinate.longitude : 0.0);
}

// --- The kit ---

void TGFManager::buildKitFromCacheForURL(const std::optional<std::string>& url) {
  const auto bytes = kitRequest_->readFromDisk(url);
  if (!bytes) return TGFLogger::log(platform_, TGFLogLevel::warning, "Unable to load kit from cache file");
  TGFLogger::log(platform_, TGFLogLevel::debug, "Loading kit from cache file");
  if (auto document = kitRequest_->parseResponse(bytes)) buildKitFromResponse(std::move(*document));
}

void TGFManager::performSync() {
  kitRequest_->setApiToken(config_.apiToken());
  kitRequest_->getHandler(config_.url(),
                          scope_.bind([this](const std::optional<Error>& error, std::optional<Json> response) {
                            finishSync(error, std::move(response));
                          }));
}

void TGFManager::timedSync() {
  if (syncIsDue()) performSync();
  if (analytics_) analytics_->uploadAnalyticsToServer();
}

bool TGFManager::syncIsDue() const {
  const std::lock_guard lock(mutex_);
  return !lastSuccessfulSync_ || platform_.monotonicClock().now() - *lastSuccessfulSync_ > kKitLifetime;
}

void TGFManager::finishSync(const std::optional<Error>& error, std::optional<Json> response) {
  const platform::TaskScope::Guard guard(scope_);
  if (response) buildKitFromResponse(std::move(*response));
  if (!guard) return;

  SyncHandler handler;
  {
    const std::lock_guard lock(mutex_);
    if (!error) lastSuccessfulSync_ = platform_.monotonicClock().now();
    handler = didSyncBlock_;
  }
  if (handler) handler(error ? BackgroundFetchResult::failed : BackgroundFetchResult::newData);
  if (!guard) return;
  tell(delegate_, [&](TGFManagerDelegate& delegate) {
    if (error)
      delegate.geofoldDidFailWithError(*this, *error);
    else
      delegate.geofoldDidSync(*this);
  });
}

void TGFManager::buildKitFromResponse(Json response) {
  const auto kit = response.is_object() ? response.find("kit") : response.end();
  if (kit == response.end() || !kit->is_object())
    return TGFLogger::log(platform_, TGFLogLevel::error, "Ignored a kit response without a kit");
  buildKitFrom(std::move(*kit));
}

void TGFManager::buildKitFrom(Json document) {
  TGFKitPtr kit = TGFAPIDeserializer::buildKit(platform_, std::make_shared<const Json>(std::move(document)));
  {
    const std::lock_guard lock(mutex_);
    kit_.swap(kit);
  }
  putIntoEffect();
}

// Authorisation is looked at without the lock, since it may call the delegates.
void TGFManager::putIntoEffect() {
  {
    const std::lock_guard lock(registrationMutex_);
    if (!started_) return;
  }
  if (!checkCLAuthorized()) return;
  const auto current = kit();
  {
    const std::lock_guard lock(registrationMutex_);
    if (!started_) return;
    locationManager_->changeInOneStep([&] {
      clearCLMonitoredRegions();
      clearCLRangedRegions();
      startMonitoringFences(*current);
      startMonitoringIBeacons(*current);
      startRangingIBeacons(*current);
    });
  }
  startStatusMonitoring(current);
}

// --- Regions at the platform ---

bool TGFManager::checkCLAuthorized() {
  auto& location = platform_.location();
  const auto available = location.isMonitoringAvailable();
  if (available && !*available) {
    locationManagerDidFailWithError(nullptr, {"Geofold", 522, "Region Monitoring Not Available"});
    return false;
  }
  if (!available && !location.regionMonitoringAvailable()) return false;
  switch (location.authorizationStatus()) {
    case platform::CLAuthorizationStatus::notDetermined:
      locationManager_->requestAlwaysAuthorization();
      return true;
    case platform::CLAuthorizationStatus::authorizedAlways:
      return true;
    default:
      locationManagerDidFailWithError(nullptr, {"Geofold", 523, "Region Monitoring Not Authorized"});
      return false;
  }
}

void TGFManager::startMonitoringFences(const TGFKit& kit) {
  if (!kit.map()) return;
  for (const auto& circle : kit.map()->overlays()) {
    TGFLogger::log(platform_, TGFLogLevel::debug, "Monitoring Geofence Circle %@", circle->name().value_or(""));
    locationManager_->startMonitoringForRegion(circle->region());
    locationManager_->requestStateForRegion(circle->region());
  }
}

void TGFManager::startMonitoringIBeacons(const TGFKit& kit) {
  for (const auto& region : kit.beaconRegions()) {
    if (!region->region()) {
      TGFLogger::log(platform_, TGFLogLevel::warning, "No region can be monitored for the kit's entry %@",
                     region->identifier().value_or(""));
      continue;
    }
    TGFLogger::log(platform_, TGFLogLevel::debug, "Start Monitoring For UUID %@", uuidText(*region));
    locationManager_->startMonitoringForRegion(region->region());
  }
}

void TGFManager::startRangingIBeacons(const TGFKit& kit) {
  for (const auto& region : kit.beaconRegions()) {
    if (!region->region()) continue;
    TGFLogger::log(platform_, TGFLogLevel::debug, "Start Ranging For UUID %@", uuidText(*region));
    locationManager_->startRangingBeaconsInRegion(region->region());
  }
}

void TGFManager::clearCLMonitoredRegions() {
  for (const auto& region : locationManager_->monitoredRegions()) {
    TGFLogger::log(platform_, TGFLogLevel::info, "Stopping monitoring for %@", region->identifier());
    locationManager_->stopMonitoringForRegion(region);
  }
}

void TGFManager::clearCLRangedRegions() {
  for (const auto& region : locationManager_->rangedRegions()) {
    TGFLogger::log(platform_, TGFLogLevel::info, "Stopping ranging for %@", region->identifier());
    locationManager_->stopRangingBeaconsInRegion(region);
  }
}

// The old reporter goes before the new one comes: both would use the same file.
void TGFManager::startStatusMonitoring(const TGFKitPtr& kit) {
  const platform::TaskScope::Guard guard(scope_);
  status_.set(nullptr);
  const auto makeStatus = services_.makeStatus;
  if (!guard || !makeStatus || !kit->statusToken() || !kit->statusURL()) return;
  std::shared_ptr<StatusReporter> status = makeStatus(platform_, *kit->statusURL(), *kit->statusToken());
  if (status) status->setListedBeacons([kit](const platform::BeaconIdentity& beacon) { return kit->lists(beacon); });
  if (guard) status_.set(std::move(status));
}

}  // namespace wayloom
