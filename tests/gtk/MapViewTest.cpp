// The map view with the real page on a real display: what a person sees, presses and taps.
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <webkit/webkit.h>

#include "wayloom/gtk/GtkPlatform.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLMapView.hpp"
#include "wayloom/platform/RangerLocationServices.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"

#include "tests/gtk/Screen.hpp"
#include "tests/sim/SimVenue.hpp"

namespace wayloom::gtk {
namespace {

using platform::CBCentralManagerState;
using testing::ElementsAre;
using testing::HasSubstr;

// "hall" is 200 m by 100 m; "crop" shows a part of its image, and counts metres from within it.
constexpr char kMaps[] = R"({
  "hall":   {"name": "Hall", "file_path": "hall.svg", "latitude": 50, "longitude": 8, "pixels_per_meter": 5,
             "map_pixel_width": 1000, "map_pixel_height": 500, "geolocation_enabled": true, "map_corner_offset_y": 500},
  "crop":   {"name": "<b>Crop & \"co\"</b>", "file_path": "crop.svg", "latitude": 60, "longitude": 8, "pixels_per_meter": 10,
             "map_pixel_width": 2000, "map_pixel_height": 1000, "crop_width": 1200, "crop_height": 900,
             "overlay_pixel_offset_x": 300, "overlay_pixel_offset_y": 120, "map_corner_offset_y": 1000,
             "geolocation_enabled": true},
  "photo":  {"file_path": "photo.png", "pixels_per_meter": 5, "map_pixel_width": 10, "map_pixel_height": 10}
})";
constexpr char kPlan[] =
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
  CBCentralManagerState state() const override { return CBCentralManagerState::poweredOff; }
  void setStateCallback(StateCallback) override {}
};

struct GtkMapViewTest : testing::Test {
  GtkMapViewTest() {
    folder.write("bundle/Info.plist",
                 sim::propertyList("<key>NSLocationAlwaysUsageDescription</key><string>x</string>"));
    folder.write("bundle/map_config.json", kMaps);
    for (const char* name : {"bundle/hall.svg", "bundle/crop.svg"}) folder.write(name, kPlan);
    const auto loop = std::make_shared<posix::MainLoop>();
    location = std::make_shared<platform::RangerLocationServices>(*loop, clock);
    auto services = makeServices({.mainBundle = folder.path() + "/bundle",
                                  .libraryBundle = WAYLOOM_RESOURCES,
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
  std::shared_ptr<platform::RangerLocationServices> location;
  std::unique_ptr<platform::Platform> platform;
  std::unique_ptr<TWLManager> manager;
  std::shared_ptr<Witness> witness = std::make_shared<Witness>();
  std::unique_ptr<TWLMapView> view;
  std::unique_ptr<Window> window;
};

TEST_F(GtkMapViewTest, ShowsThePlanAndMovesTheDot) {
  fix(50.0003, 8.0005);
  EXPECT_FALSE(gtk_widget_get_visible(widgetOf(view->locateButton())) && view->mapLoaded());
  view->loadMap(map("hall"));
  EXPECT_FALSE(gtk_widget_get_visible(widgetOf(view->locateButton())));
  EXPECT_TRUE(gtk_widget_get_visible(widgetOf(view->activityIndicator())));
  ASSERT_TRUE(waitUntil([&] { return witness->loads == 1; }));
  EXPECT_TRUE(gtk_widget_get_visible(widgetOf(view->locateButton())));
  EXPECT_FALSE(gtk_widget_get_visible(widgetOf(view->activityIndicator())));
  EXPECT_LT(gtk_widget_get_opacity(widgetOf(view->webView())), 0.5);
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_opacity(widgetOf(view->webView())) == 1; }));

  const auto shown = view->currentLocation();
  EXPECT_EQ(page("location.search"), "?dot-x=" + std::to_string(static_cast<int>(shown->pixelCoords().x)) +
                                         "&dot-y=" + std::to_string(static_cast<int>(shown->pixelCoords().y)) +
                                         "&map-width=1000&map-height=500&crop-width=1000&crop-height=500"
                                         "&map-file=hall.svg&uncertainty-radius=15");
  const auto first = dot();
  ASSERT_TRUE(first);
  fix(50.0003, 8.0015);
  const auto second = dot();
  ASSERT_TRUE(second);
  EXPECT_GT(second->x, first->x + 50);
  EXPECT_NEAR(second->y, first->y, 1.0);
  fix(60.0003, 8.0015);  // on another map
  EXPECT_FALSE(dot());
  fix(50.0003, 8.0005);
  EXPECT_TRUE(dot());
  view->hideDot();
  EXPECT_FALSE(dot());
  view->showDot();
  EXPECT_TRUE(dot());

  TWLMapPolygon area;
  for (const auto& point : {Point{50.0002, 8.0002}, Point{50.0004, 8.0002}, Point{50.0004, 8.0008}})
    area.addPoint(point);
  const auto before = picture();
  EXPECT_TRUE(picture() == before);
  view->highlightPolygon(area);
  EXPECT_TRUE(waitUntil([&] { return picture() != before; }, 3));

  pressLocate();
  const auto middle = dot();
  ASSERT_TRUE(middle);
  EXPECT_NEAR(middle->x, 400, 60);
  EXPECT_EQ(dialog(), nullptr);
}

TEST_F(GtkMapViewTest, ATapComesBackInMetres) {
  struct Place {
    const char* map;
    double latitude, longitude;
  };
  for (const auto& place :
       {Place{"hall", 50.0003, 8.0005}, Place{"hall", 50.0007, 8.0019}, Place{"crop", 60.0004, 8.0009}}) {
    ASSERT_TRUE(show(std::make_shared<TWLMapConfig>(*map(place.map))));
    const auto offset = view->map()->scaledOverlayPixelOffset();
    fix(place.latitude, place.longitude + 0.0003);
    const auto otherPixel = dotPixel();
    const auto other = dot();
    fix(place.latitude, place.longitude);
    const auto pixel = dotPixel();
    for (const bool isNear : {false, true}) {
      if (isNear) pressLocate();
      const auto at = dot();
      ASSERT_TRUE(at && other);
      // The mouse goes to whole pixels of the screen.
      const double scale = isNear ? 4.0 : (other->x - at->x) / (otherPixel.x - pixel.x);
      const Point tapped{pixel.x + (std::round(at->x) - at->x) / scale, pixel.y + (std::round(at->y) - at->y) / scale};
      witness->taps.clear();
      click(*at);
      ASSERT_TRUE(waitUntil([&] { return !witness->taps.empty(); }, 5)) << at->x << " " << at->y;
      EXPECT_NEAR(witness->taps[0].x, (tapped.x - offset.x) / 5.0, 0.1);
      EXPECT_NEAR(witness->taps[0].y, (tapped.y - offset.y) / 5.0, 0.1);
      EXPECT_EQ(witness->taps.size(), 1U);
    }
  }
}

TEST_F(GtkMapViewTest, AlertsAskAndAreAnswered) {
  ASSERT_TRUE(show("hall"));
  pressLocate();
  EXPECT_EQ(dialogText(), "Bluetooth Disabled|Indoor location requires bluetooth to be turned on.");
  gtk_dialog_response(dialog(), GTK_RESPONSE_CANCEL);
  EXPECT_EQ(dialog(), nullptr);

  fix(60.0003, 8.0005);
  pressLocate();
  pressLocate();  // a second one takes the place of the first
  const std::string text = "Switch Maps?|You're in <b>Crop & \"co\"</b> but you're currently viewing the map for Hall";
  EXPECT_EQ(dialogText(), text);
  gtk_window_close(GTK_WINDOW(dialog()));
  ASSERT_TRUE(waitUntil([&] { return dialog() == nullptr; }));
  runFor(0.2);
  EXPECT_EQ(view->map(), map("hall"));
  pressLocate();
  gtk_dialog_response(dialog(), 1);
  ASSERT_TRUE(waitUntil([&] { return witness->loads == 2; }));
  EXPECT_EQ(view->map(), map("crop"));

  location->setAuthorizationStatus(platform::CLAuthorizationStatus::denied);
  pressLocate();
  EXPECT_THAT(dialogText(), testing::StartsWith("Location Permission|"));
  gtk_dialog_response(dialog(), 1);
  EXPECT_EQ(settingsOpened, 1);

  location->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
  auto endless = std::make_shared<TWLMapConfig>(*map("crop"));
  endless->setName(std::string(1U << 20U, 'n'));
  endless->setMapId("hall2");
  ASSERT_TRUE(show(endless));
  pressLocate();
  EXPECT_LT(dialogText().size(), 2000U);
  view.reset();
  EXPECT_EQ(dialog(), nullptr);
}

TEST_F(GtkMapViewTest, ShowsAnImageBareAndOutlivesFailures) {
  ASSERT_TRUE(show("hall"));
  GdkPixbuf* image = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 10, 10);
  gdk_pixbuf_fill(image, 0xff0000ff);
  ASSERT_TRUE(gdk_pixbuf_save(image, (folder.path() + "/documents/maps/photo.png").c_str(), "png", nullptr, nullptr));
  g_object_unref(image);
  ASSERT_TRUE(show("photo"));
  EXPECT_EQ(page("document.images[0].naturalWidth + location.search"), "10");

  auto missing = std::make_shared<TWLMapConfig>();
  missing->setMapId("missing");
  missing->setFilePath("missing.png");
  view->loadMap(missing);
  ASSERT_TRUE(waitUntil([&] { return !witness->failure.empty(); }));
  EXPECT_EQ(gtk_widget_get_opacity(widgetOf(view->webView())), 0.0);
  EXPECT_FALSE(gtk_widget_get_visible(widgetOf(view->activityIndicator())));

  ASSERT_TRUE(show("hall"));
  witness->failure.clear();
  for (const int process : descendants("WebKitWebProcess")) ::kill(process, SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return !witness->failure.empty(); }));
  fix(50.0003, 8.0005);
  ASSERT_TRUE(show("hall"));
  EXPECT_TRUE(dot());

  window.reset();  // before the view, and the view before its page is there
  view->loadMap(map("crop"));
  runFor(0.05);
  view.reset();
  runFor(0.3);
}

// What a map document may hold: none of it becomes a script, an address elsewhere, or more than text.
TEST_F(GtkMapViewTest, HostileMapsStayData) {
  for (const std::string id :
       {R"(a&map-file=b.svg"><script>document.title='owned'</script>)", R"(');document.title='owned';(')",
        "%22%3E%3Cscript%3E", "javascript:document.title='owned'", "..%2f..%2fsecret", "a?b#c", "\u202e\u2028x",
        "a:b"}) {
    auto hostile = std::make_shared<TWLMapConfig>(*map("hall"));
    hostile->setMapId(id);
    hostile->setName("<script>document.title='owned'</script>");
    witness->failure.clear();
    const int loads = witness->loads;
    view->loadMap(hostile);
    ASSERT_TRUE(waitUntil([&] { return witness->loads > loads || !witness->failure.empty(); })) << id;
    if (witness->loads == loads) continue;
    EXPECT_EQ(page("document.title + document.scripts.length + location.pathname.endsWith('/maps/map.html')"),
              "Map4true")
        << id;
    EXPECT_EQ(page("typeof setDotPosition"), "function") << id;
  }
  TWLMapPolygon polygon;
  polygon.addPoint({1e300, -1e300});
  view->highlightPolygon(polygon);
  view->handleCallback("\"');alert(1)");
  fix(50.0003, 8.0005);
  EXPECT_EQ(page("document.title"), "Map");
}

}  // namespace
}  // namespace wayloom::gtk
