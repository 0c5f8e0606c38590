#include "wayloom/view/TWLMapView.hpp"

#include <cmath>
#include <stdexcept>
#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/view/LocationManagerNotSet.hpp"

#include "view/BluetoothWatch.hpp"
#include "view/MapPageLoad.hpp"
#include "view/PageText.hpp"

namespace wayloom {
namespace {

constexpr double kButtonSize = 44.0;  // points
constexpr double kButtonInset = 60.0;
constexpr double kButtonCornerRadius = 22.0;
constexpr auto kFadeIn = std::chrono::milliseconds(500);

constexpr int kNoSuchFile = 404;

constexpr const char* kSettingsButton = "Go to settings...";
constexpr const char* kSwitchButton = "Show map";

// A map without a name for people goes by its id.
std::string nameOf(const TWLMapConfigPtr& map) { return map ? map->name().value_or(map->mapId()) : std::string(); }

platform::WidgetFactory& widgetsOf(platform::Platform& platform) {
  if (auto* widgets = platform.widgets()) return *widgets;
  throw std::logic_error("a map view needs a Platform with widgets");
}

}  // namespace

TWLMapView::TWLMapView(platform::Platform& platform)
    : platform_(platform),
      mainThread_(std::this_thread::get_id()),
      container_(widgetsOf(platform).makeContainerView()) {
  container_->setBackground({.white = 0.75});
  addWidgets();
  hidePage();
  container_->setLayoutCallback([this](double width, double height) { layOut(width, height); });
  container_->setWindowCallback([this](bool inWindow) { inWindow ? startTrackingLocation() : stopTrackingLocation(); });
  startMonitoringBluetoothState();
}

TWLMapView::~TWLMapView() {
  scope_.close();
  container_->setLayoutCallback({});
  container_->setWindowCallback({});
  webView_->setDelegate(nullptr);
  stopTrackingLocation();
}

void TWLMapView::addWidgets() {
  auto& widgets = *platform_.widgets();
  webView_ = widgets.makeWebView();
  webView_->setDelegate(this);
  webView_->setDirectionalLock(false);
  webView_->setBackground({.white = 0.86});
  container_->add(*webView_);
  activityIndicator_ = widgets.makeActivityIndicator();
  container_->add(*activityIndicator_);
  locateButton_ = widgets.makeButton();
  locateButton_->setCornerRadius(kButtonCornerRadius);
  locateButton_->setBackground({.white = 1.0, .alpha = 0.9});
  auto image = platform_.resourceBundle().pathForResource("TWLLocationIcon", "png");
  if (!image) image = platform_.resourceBundle().pathForResource("TWLLocationIcon", "svg");
  locateButton_->setImage(image);
  locateButton_->setLabel("Show my location");
  locateButton_->setPressedCallback([this] { locateButtonPressed(); });
  container_->add(*locateButton_);
}

void TWLMapView::layOut(double width, double height) {
  webView_->setFrame({0, 0, width, height});
  activityIndicator_->setFrame({0, 0, width, height});
  locateButton_->setFrame({width - kButtonInset, height - kButtonInset, kButtonSize, kButtonSize});
}

void TWLMapView::setLocationManager(TWLManager* manager) {
  if (manager == locationManager_) return;
  const bool wasTracking = isTracking_;
  stopTrackingLocation();
  locationManager_ = manager;
  if (wasTracking && locationManager_ != nullptr) startTrackingLocation();
}

void TWLMapView::startTrackingLocation() {
  if (locationManager_ == nullptr) throw LocationManagerNotSet();
  isTracking_ = true;
  locationManager_->addListener(*this);
  locationManager_->startGeolocation();
}

void TWLMapView::stopTrackingLocation() {
  if (!std::exchange(isTracking_, false)) return;
  locationManager_->stopGeolocation();
  locationManager_->removeListener(*this);
}

void TWLMapView::loadMap(const TWLMapConfigPtr& map) {
  if (!map || map == this->map()) return;
  hidePage();
  webView_->setScalesPageToFit(true);
  activityIndicator_->start();
  load_.reset();
  load_ = std::make_unique<MapPageLoad>(
      platform_, map,
      [this, map] {
        beginPage(map);
        return currentLocation();
      },
      [this](const MapPageLoad::Result& page) {
        if (page.address)
          webView_->load({.address = *page.address, .timeout = pageTimeout_});
        else
          webViewDidFailLoadWithError({"Wayl", kNoSuchFile, page.refusal});
      });
}

void TWLMapView::hidePage() {
  locateButton_->setAlpha(0.0);
  locateButton_->setHidden(true);
  webView_->setAlpha(0.0);
  webView_->setHidden(true);
}

// On the background queue.
void TWLMapView::beginPage(const TWLMapConfigPtr& map) {
  auto location = TWLLocationUtils::currentMapLocation(platform_);
  const std::lock_guard lock(mutex_);
  map_ = map;
  mapLoaded_ = false;
  currentLocation_ = std::move(location);
}

TWLMapConfigPtr TWLMapView::map() const {
  const std::lock_guard lock(mutex_);
  return map_;
}

bool TWLMapView::mapLoaded() const {
  const std::lock_guard lock(mutex_);
  return mapLoaded_;
}

TWLMapLocationPtr TWLMapView::currentLocation() const {
  const std::lock_guard lock(mutex_);
  return currentLocation_;
}

std::optional<platform::CalendarTime> TWLMapView::lastTrackingUpdate() const {
  const std::lock_guard lock(mutex_);
  return lastTrackingUpdate_;
}

// What becomes of the page before a load that still waits is nobody's business any more.
void TWLMapView::webViewDidFinishLoad() {
  if (load_ && load_->isWaiting()) return;
  activityIndicator_->stop();
  for (auto* widget :
       {static_cast<platform::Widget*>(locateButton_.get()), static_cast<platform::Widget*>(webView_.get())}) {
    widget->setAlpha(0.0);
    widget->setHidden(false);
    widget->animateAlpha(1.0, kFadeIn);
  }
  {
    const std::lock_guard lock(mutex_);
    mapLoaded_ = true;
  }
  if (const auto delegate = delegate_) delegate->mapViewDidFinishLoad(*this);
}

void TWLMapView::webViewDidFailLoadWithError(const platform::Error& error) {
  if (load_ && load_->isWaiting()) return;
  platform_.systemLog().write("QMBYMapView failed to load: " + error.description);
  activityIndicator_->stop();
  if (const auto delegate = delegate_) delegate->mapViewDidFailLoadWithError(*this, error);
}

// Unlike after a failed load, the same map may be loaded again.
void TWLMapView::webViewDidLoseItsPage(const platform::Error& error) {
  if (load_ && load_->isWaiting()) return;
  hidePage();
  {
    const std::lock_guard lock(mutex_);
    map_ = nullptr;
    mapLoaded_ = false;
  }
  webViewDidFailLoadWithError(error);
}

bool TWLMapView::webViewShouldStartLoadWithRequest(const std::string& url) {
  if (!url.starts_with("quembly:")) return true;
  if (const auto text = platform::withoutPercentEscapes(url)) handleCallback(*text);
  return false;
}

void TWLMapView::handleCallback(std::string_view text) {
  const auto pixels = tappedPoint(text);
  const auto shown = map();
  const auto map = shown ? TWLMapConfigRepo::sharedRepo(platform_).forMapId(shown->mapId()) : nullptr;
  if (!pixels || !map) return;
  const auto offset = map->scaledOverlayPixelOffset();
  const Point metres{(pixels->x - offset.x) / map->standardPixelsPerMeter(),
                     (pixels->y - offset.y) / map->standardPixelsPerMeter()};
  if (!std::isfinite(metres.x) || !std::isfinite(metres.y)) return;
  if (const auto delegate = delegate_) delegate->mapViewTappedAt(*this, metres);
}

void TWLMapView::locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr& location) {
  const platform::TaskScope::Guard guard(scope_);
  if (!guard) return;
  {
    const std::lock_guard lock(mutex_);
    currentLocation_ = location;
  }
  if (std::this_thread::get_id() == mainThread_)
    placeDot();
  else
    platform_.tasks().mainQueue().async(scope_.bind([this] { placeDot(); }));
}

void TWLMapView::placeDot() {
  if (!mapLoaded()) return;
  const auto location = currentLocation();
  const auto shown = map();
  if (!location || location->mapId() != shown->mapId()) return hideDot();
  showDot();
  const std::lock_guard lock(mutex_);
  lastTrackingUpdate_ = platform_.calendarClock().now();
}

void TWLMapView::hideDot() { webView_->runScript("hideDot()"); }

void TWLMapView::showDot() { runDotScript("setDotPosition", ", true)"); }

void TWLMapView::showDotAndRecenter() { runDotScript("setDotPositionAutomatic", ")"); }

void TWLMapView::runDotScript(const char* function, const char* ending) {
  const auto location = currentLocation();
  if (!location) return;
  const auto pixels = location->pixelCoords();
  std::string script = function;
  script += "(" + std::to_string(truncated(pixels.x)) + "," + std::to_string(truncated(pixels.y)) + "," +
            std::to_string(location->uncertaintyRadiusPixels()) + ending;
  webView_->runScript(script);
}

void TWLMapView::highlightPolygon(const TWLMapPolygon& polygon) {
  const auto shown = map();
  std::vector<Point> pixels;
  for (const auto& point : polygon.points())
    pixels.push_back(
        TWLLocationUtils::mapLocationForGeolocationForMapId(platform_, {point.x, point.y}, shown ? shown->mapId() : "")
            ->pixelCoords());
  webView_->runScript(highlightScript(pixels));
}

std::optional<std::string> TWLMapView::stringByEvaluatingJavaScriptFromString(const std::string& script) {
  return webView_->evaluateScript(script);
}

void TWLMapView::locateButtonPressed() {
  if (platform_.location().authorizationStatus() == platform::CLAuthorizationStatus::denied)
    return alertUserAboutLocationSettings();
  const auto shown = map();
  lookUpLocation();
  const auto location = currentLocation();
  if (location && shown && location->mapId() == shown->mapId()) return showDotAndRecenter();
  hideDot();
  if (location) return alertUserToSwitchMaps();
  if (bluetoothState() == platform::CBCentralManagerState::poweredOff) return alertUserAboutBluetooth();
  showAlert({.title = "No Map For Your Location.",
             .message = "You are currently not at a venue with a map.",
             .cancelButton = "OK",
             .otherButton = {}});
}

void TWLMapView::lookUpLocation() {
  auto location = TWLLocationUtils::currentMapLocation(platform_);
  const std::lock_guard lock(mutex_);
  currentLocation_ = std::move(location);
}

void TWLMapView::alertUserToSwitchMaps() {
  const auto location = currentLocation();
  showAlert({.title = "Switch Maps?",
             .message = "You're in " + nameOf(location ? location->map() : nullptr) +
                        " but you're currently viewing the map for " + nameOf(map()),
             .cancelButton = "Cancel",
             .otherButton = kSwitchButton});
}

void TWLMapView::alertUserAboutLocationSettings() {
  if (platform_.widgets()->hasSettingsPage())
    return showAlert({.title = "Location Permission",
                      .message = "This app has not been granted permission to provide indoor location. Would you like "
                                 "to change this?",
                      .cancelButton = "Cancel",
                      .otherButton = kSettingsButton});
  showAlert({.title = "Location Permission",
             .message = "This app has not been granted permission to provide indoor location. If you would like to "
                        "change this, you need to go to Settings -> Privacy -> Location",
             .cancelButton = "Ok",
             .otherButton = {}});
}

void TWLMapView::alertUserAboutBluetooth() {
  showAlert({.title = "Bluetooth Disabled",
             .message = "Indoor location requires bluetooth to be turned on.",
             .cancelButton = "Ok",
             .otherButton = {}});
}

// One at a time: the newest is about what holds now, so it takes the place of the one before.
void TWLMapView::showAlert(const platform::AlertContent& content) {
  alert_.reset();
  alert_ = platform_.widgets()->showAlert(content, *container_, [this](const std::string& title) {
    const auto closing = std::move(alert_);
    alertButtonPressed(title);
  });
}

void TWLMapView::alertButtonPressed(const std::string& title) {
  if (title == kSettingsButton) return platform_.widgets()->openSettingsPage();
  if (title != kSwitchButton) return;
  if (const auto location = currentLocation()) loadMap(location->map());
}

void TWLMapView::startMonitoringBluetoothState() { bluetooth_ = std::make_unique<BluetoothWatch>(platform_); }

platform::CBCentralManager& TWLMapView::bluetoothManager() const { return platform_.bluetooth(); }

platform::CBCentralManagerState TWLMapView::bluetoothState() const { return bluetooth_->state(); }

}  // namespace wayloom
