// A map view with the real page, in a window on a real display.
#pragma once

#include <cmath>
#include <cstdlib>
#include <gmock/gmock.h>
#include <webkit/webkit.h>

#include "wayloom/gtk/GtkPlatform.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"
#include "wayloom/view/TWLMapView.hpp"

#include "tests/gtk/Screen.hpp"
#include "tests/sim/SimVenue.hpp"

namespace wayloom::gtk {

// "hall" is 200 m by 100 m; "crop" shows a part of its image, and counts metres from within it.
inline constexpr char kMaps[] = R"({
  "hall":   {"name": "Hall", "file_path": "hall.svg", "latitude": 50, "longitude": 8, "pixels_per_meter": 5,
             "map_pixel_width": 1000, "map_pixel_height": 500, "geolocation_enabled": true, "map_corner_offset_y": 500},
  "crop":   {"name": "<b>Crop & \"co\"</b>", "file_path": "crop.svg", "latitude": 60, "longitude": 8, "pixels_per_meter": 10,
             "map_pixel_width": 2000, "map_pixel_height": 1000, "crop_width": 1200, "crop_height": 900,
             "overlay_pixel_offset_x": 300, "overlay_pixel_offset_y": 120, "map_corner_offset_y": 1000,
             "geolocation_enabled": true},
  "photo":  {"file_path": "photo.png", "pixels_per_meter": 5, "map_pixel_width": 10, "map_pixel_height": 10}
})";
inline constexpr char kPlan[] =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="2000" height="1000"><path d="M0 0h2000v1000z"/></svg>)";

struct Witness : TWLMapViewDelegate {
  void mapViewDidFinishLoad(TWLMapView&) override { ++loads; }
  void mapViewDidFailLoadWithError(TWLMapView&, const platform::Error& error) override { failure = error.description; }
  void mapViewTappedAt(TWLMapView&, Point metres) override { taps.push_back(metres); }

  int loads = 0;
  std::string failure;
  std::vector<Point> taps;
};

struct Radio : platform::CBCentralManager {
  platform::CBCentralManagerState state() const override { return platform::CBCentralManagerState::poweredOff; }
  void setStateCallback(StateCallback) override {}
};

struct GtkMapViewTest : testing::Test {
  GtkMapViewTest() {
    folder.write("bundle/Info.plist",
                 sim::propertyList("<key>NSLocationAlwaysUsageDescription</key><string>x</string>"));
    folder.write("bundle/map_config.json", kMaps);
    for (const char* name : {"bundle/hall.svg", "bundle/crop.svg"}) folder.write(name, kPlan);
    const auto loop = std::make_shared<posix::MainLoop>();
    location = std::make_shared<ranging::RangerLocationServices>(*loop, clock);
    auto services = makeServices({.mainBundle = folder.path() + "/bundle",
                                  .resourceBundle = WAYLOOM_RESOURCES,
                                  .documents = folder.path() + "/documents",
                                  .loop = loop,
                                  .location = location,
                                  .bluetooth = std::make_shared<Radio>()},
                                 {.openSettingsPage = [this] { ++settingsOpened; }});
    services.systemLog = services.console = std::make_shared<sim::CallbackLogSink>([](std::string_view) {});
    platform = std::make_unique<platform::Platform>(services);
    manager = std::make_unique<TWLManager>(*platform);
    view = std::make_unique<TWLMapView>(*platform);
    view->setDelegate(witness);
    view->setLocationManager(manager.get());
    window = std::make_unique<Window>(widgetOf(*view));
    manager->updateMaps();
  }

  TWLMapConfigPtr map(const char* id) { return TWLMapConfigRepo::sharedRepo(*platform).forMapId(id); }
  bool show(const TWLMapConfigPtr& shown) {
    const int before = witness->loads;
    view->loadMap(shown);
    return waitUntil([&] { return witness->loads > before && gtk_widget_get_opacity(widgetOf(view->webView())) == 1; });
  }
  bool show(const char* id) { return show(map(id)); }
  void fix(double latitude, double longitude, double accuracy = 3.0) {
    location->deliverFix({{latitude, longitude}, accuracy, platform->calendarClock().now()});
  }
  // Where the dot was told to be, standard pixels.
  Point dotPixel() {
    const auto pixels = view->currentLocation()->pixelCoords();
    return {std::trunc(pixels.x), std::trunc(pixels.y)};
  }
  std::string page(const std::string& script) {
    return view->stringByEvaluatingJavaScriptFromString(script).value_or("(nothing)");
  }
  // The middle of the page's dot, in pixels of the window, when it has come to rest; nothing while it is hidden.
  std::optional<Point> dot() {
    runFor(0.3);  // scripts are not waited for, and the dot glides
    std::string before, now = "-";
    waitUntil([&] {
      before = std::exchange(now, page("(() => { const r = $('#marker')[0].getBoundingClientRect();"
                                       "return getComputedStyle($('#marker')[0]).visibility == 'hidden' ? '' :"
                                       " (r.x + r.width / 2) + ',' + (r.y + r.height / 2) })()"));
      if (now != before) runFor(0.2);
      return now == before;
    });
    const auto comma = now.find(',');
    if (comma == now.npos) return std::nullopt;
    return Point{std::stod(now), std::stod(now.substr(comma + 1))};
  }
  // All pixels of the page.
  std::string picture() {
    GdkTexture* texture = nullptr;
    webkit_web_view_get_snapshot(
        WEBKIT_WEB_VIEW(widgetOf(view->webView())), WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE,
        nullptr,
        [](GObject* web, GAsyncResult* result, gpointer taken) {
          *static_cast<GdkTexture**>(taken) =
              webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(web), result, nullptr);
        },
        &texture);
    EXPECT_TRUE(waitUntil([&] { return texture != nullptr; }));
    const auto width = static_cast<std::size_t>(gdk_texture_get_width(texture));
    std::string pixels(width * 4 * static_cast<std::size_t>(gdk_texture_get_height(texture)), ' ');
    gdk_texture_download(texture, reinterpret_cast<guchar*>(pixels.data()), width * 4);
    g_object_unref(texture);
    return pixels;
  }
  void click(Point at) {
    const auto command = "xdotool mousemove " + std::to_string(std::lround(at.x)) + " " +
                         std::to_string(std::lround(at.y)) + " sleep 0.05 click 1";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  void pressLocate() { g_signal_emit_by_name(widgetOf(view->locateButton()), "clicked"); }

  // The alert on show, with its texts; null when there is none.
  static GtkDialog* dialog() {
    auto* windows = gtk_window_get_toplevels();
    for (guint i = 0; i < g_list_model_get_n_items(windows); ++i) {
      g_autoptr(GObject) object = G_OBJECT(g_list_model_get_item(windows, i));
      if (GTK_IS_MESSAGE_DIALOG(object) && gtk_widget_get_visible(GTK_WIDGET(object))) return GTK_DIALOG(object);
    }
    return nullptr;
  }
  static std::string dialogText() {
    if (dialog() == nullptr) return "";
    g_autofree char *title = nullptr, *message = nullptr;
    g_object_get(dialog(), "text", &title, "secondary-text", &message, nullptr);
    return std::string(title) + "|" + message;
  }

  sim::TestFolder folder;
  posix::PosixMonotonicClock clock;
  int settingsOpened = 0;
  std::shared_ptr<ranging::RangerLocationServices> location;
  std::unique_ptr<platform::Platform> platform;
  std::unique_ptr<TWLManager> manager;
  std::shared_ptr<Witness> witness = std::make_shared<Witness>();
  std::unique_ptr<TWLMapView> view;
  std::unique_ptr<Window> window;
};

}  // namespace wayloom::gtk
