// The view that shows a venue's floor plan with a dot at the device's position:
//
//   TWLMapView view(*platform);
//   view.setLocationManager(&manager);
//   gtk_window_set_child(window, gtk::widgetOf(view));  // or by the means of another backend
//   manager.updateMaps();                               // maps are shown once an update run has installed them
//   view.loadMap(TWLMapConfigRepo::sharedRepo(*platform).forMapId("ground-floor"));
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "wayloom/maps/TWLMapConfig.hpp"
#include "wayloom/maps/TWLMapPolygon.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/platform/WidgetFactory.hpp"
#include "wayloom/positioning/TWLManagerDelegate.hpp"
#include "wayloom/view/TWLMapViewDelegate.hpp"

namespace wayloom::platform {
class CBCentralManager;
class Platform;
enum class CBCentralManagerState : int;
}  // namespace wayloom::platform

namespace wayloom {

class BluetoothWatch;
class MapPageLoad;
class TWLManager;

// Hosts the map page in a web view, moves its dot by script calls, offers a button to find oneself, and turns taps on
// the page into metres. It listens to the navigation manager while it is in a window.
//
// Main thread, where it must also be made; the accessors of map, location and state work on any thread. The Platform,
// which must have widgets, must outlive it. It may be destroyed at any time, also by its own callbacks.
class TWLMapView final : public TWLManagerDelegate, public platform::WebViewDelegate {
 public:
  // Throws std::logic_error when the Platform has no widgets.
  explicit TWLMapView(platform::Platform& platform);
  ~TWLMapView() override;
  TWLMapView(const TWLMapView&) = delete;
  TWLMapView& operator=(const TWLMapView&) = delete;

  const std::shared_ptr<TWLMapViewDelegate>& delegate() const { return delegate_; }
  void setDelegate(std::shared_ptr<TWLMapViewDelegate> delegate) { delegate_ = std::move(delegate); }
  // Where positions come from: not owned, and must be set before the view comes into a window. Set null, or destroy
  // the view, before the manager goes. A view that is tracking changes over at once.
  TWLManager* locationManager() const { return locationManager_; }
  void setLocationManager(TWLManager* manager);

  // Shows the map once the update coordinator says that maps are installed; an earlier map that still waits for that,
  // or is being loaded, is given up. The very object that is shown already is not loaded again, even if that failed.
  void loadMap(const TWLMapConfigPtr& map);
  // How long a page may take until it begins to arrive, 5 s unless set. Of the next map on.
  void setPageTimeout(platform::Duration timeout) { pageTimeout_ = timeout; }
  // The map that is shown, or whose page is being loaded; null before the first.
  TWLMapConfigPtr map() const;
  bool mapLoaded() const;
  // The last position told or looked up; null when that was none.
  TWLMapLocationPtr currentLocation() const;
  // When a position last moved the dot.
  std::optional<platform::CalendarTime> lastTrackingUpdate() const;

  // Draws a line or area of the earth over the shown map.
  void highlightPolygon(const TWLMapPolygon& polygon);
  void hideDot();
  // At the current location; without one, nothing happens.
  void showDot();
  void showDotAndRecenter();

  // What coming into a window and leaving it do. Throws LocationManagerNotSet.
  void startTrackingLocation();
  void stopTrackingLocation();

  void locateButtonPressed();
  void alertUserToSwitchMaps();
  void alertUserAboutLocationSettings();
  void alertUserAboutBluetooth();
  void startMonitoringBluetoothState();
  platform::CBCentralManagerState bluetoothState() const;  // the last one told
  platform::CBCentralManager& bluetoothManager() const;    // the Platform's
  // Kept for the host, and cancelled with the view: nothing here schedules one.
  const std::unique_ptr<platform::Timer>& trackLocationTimer() const { return trackLocationTimer_; }
  void setTrackLocationTimer(std::unique_ptr<platform::Timer> timer) { trackLocationTimer_ = std::move(timer); }

  // What a page said with a "quembly:" address, without percent escapes; anything but a tap is ignored.
  void handleCallback(std::string_view text);
  // Runs a script in the page and waits for the result, as WebView::evaluateScript() does. Everything that the view
  // itself tells the page goes without waiting.
  std::optional<std::string> stringByEvaluatingJavaScriptFromString(const std::string& script);

  // The widgets, owned by the view.
  platform::ContainerView& view() { return *container_; }
  platform::WebView& webView() { return *webView_; }
  platform::ActivityIndicator& activityIndicator() { return *activityIndicator_; }
  platform::Button& locateButton() { return *locateButton_; }

  // Any thread; drawn on the main thread.
  void locationManagerDidUpdateMapLocation(TWLManager& manager, const TWLMapLocationPtr& location) override;

  void webViewDidFinishLoad() override;
  void webViewDidFailLoadWithError(const platform::Error& error) override;
  void webViewDidLoseItsPage(const platform::Error& error) override;
  bool webViewShouldStartLoadWithRequest(const std::string& url) override;

 private:
  void addWidgets();
  void layOut(double width, double height);
  void hidePage();
  void beginPage(const TWLMapConfigPtr& map);
  void placeDot();
  void runDotScript(const char* function, const char* ending);
  void lookUpLocation();
  void showAlert(const platform::AlertContent& content);
  void alertButtonPressed(const std::string& title);

  platform::Platform& platform_;
  const std::thread::id mainThread_;
  std::shared_ptr<TWLMapViewDelegate> delegate_;
  TWLManager* locationManager_ = nullptr;
  bool isTracking_ = false;
  platform::Duration pageTimeout_ = std::chrono::seconds(5);
  std::unique_ptr<BluetoothWatch> bluetooth_;

  mutable std::mutex mutex_;  // guards the four below
  TWLMapConfigPtr map_;
  bool mapLoaded_ = false;
  TWLMapLocationPtr currentLocation_;
  std::optional<platform::CalendarTime> lastTrackingUpdate_;

  std::unique_ptr<platform::ContainerView> container_;
  std::unique_ptr<platform::WebView> webView_;
  std::unique_ptr<platform::ActivityIndicator> activityIndicator_;
  std::unique_ptr<platform::Button> locateButton_;
  std::unique_ptr<platform::Alert> alert_;
  std::unique_ptr<MapPageLoad> load_;
  std::unique_ptr<platform::Timer> trackLocationTimer_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
