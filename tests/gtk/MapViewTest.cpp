// What a person sees, presses and taps.
#include <csignal>

#include "tests/gtk/MapViewFixture.hpp"

namespace wayloom::gtk {
namespace {

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
