// What a person sees, presses and taps.
#include <csignal>

#include "tests/gtk/MapViewFixture.hpp"

namespace wayloom::gtk {
namespace {

TEST_F(GtkMapViewTest, ShowsThePlanAndMovesTheDot) {
  fix(50.0003, 8.0005);
  EXPECT_FALSE(gtk_widget_get_visible(widgetOf(view->locateButton()))) << "before the first map";
  EXPECT_EQ(gtk_widget_get_opacity(widgetOf(view->webView())), 0.0);
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
    Point offset{};  // of the overlay, standard pixels
  };
  for (const auto& place :
       {Place{"hall", 50.0003, 8.0005}, Place{"hall", 50.0007, 8.0019}, Place{"crop", 60.0004, 8.0009, {150, 60}}}) {
    ASSERT_TRUE(show(std::make_shared<TWLMapConfig>(*map(place.map))));
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
      EXPECT_NEAR(witness->taps[0].x, (tapped.x - place.offset.x) / 5.0, 0.1);
      EXPECT_NEAR(witness->taps[0].y, (tapped.y - place.offset.y) / 5.0, 0.1);
      EXPECT_EQ(witness->taps.size(), 1U);
    }
  }
}

TEST_F(GtkMapViewTest, TheKeyboardGoesThroughThePageToTheLocateButtonAndBack) {
  ASSERT_TRUE(show("hall"));
  auto* web = widgetOf(view->webView());
  auto* button = widgetOf(view->locateButton());
  const auto tabsUntil = [&](const char* key, GtkWidget* wanted) {
    for (int tabs = 1; tabs <= 10; ++tabs) {
      EXPECT_EQ(std::system(("xdotool key " + std::string(key)).c_str()), 0);
      runFor(0.4);
      if (gtk_root_get_focus(GTK_ROOT(window->native())) == wanted) return tabs;
    }
    return 0;
  };
  gtk_widget_grab_focus(web);
  runFor(0.2);
  EXPECT_EQ(tabsUntil("Tab", button), 5) << "the map, its three buttons, then this one";
  EXPECT_EQ(std::system("xdotool key space"), 0);
  ASSERT_TRUE(waitUntil([] { return dialog() != nullptr; }, 5));
  gtk_dialog_response(dialog(), GTK_RESPONSE_CANCEL);
  EXPECT_GT(tabsUntil("Tab", web), 0);
  gtk_widget_grab_focus(button);
  EXPECT_GT(tabsUntil("shift+Tab", web), 0);
  EXPECT_GT(tabsUntil("shift+Tab", button), 0);
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

// What a map document may hold: none of it becomes a script, an address elsewhere, or more than text. The page's title
// is the name of the plan that it shows.
TEST_F(GtkMapViewTest, HostileMapsStayData) {
  const auto load = [&](const std::string& id) {
    auto hostile = std::make_shared<TWLMapConfig>(*map("hall"));
    hostile->setMapId(id);
    hostile->setName("<script>document.title='owned'</script>");
    witness->failure.clear();
    const int loads = witness->loads;
    view->loadMap(hostile);
    EXPECT_TRUE(waitUntil([&] { return witness->loads > loads || !witness->failure.empty(); })) << id;
    return witness->loads > loads;
  };
  for (const std::string id :
       {R"(a&map-file=b.svg"><script>document.title='owned'</script>)", "..%2f..%2fsecret", ".x"})
    EXPECT_FALSE(load(id)) << id;
  const std::vector<std::string> ids = {R"(');document.title='owned';(')",
                                        "%22%3E%3Cscript%3E",
                                        "javascript:document.title='owned'",
                                        "a?b#c",
                                        "\u202e\u2028x",
                                        "a:b",
                                        "50% off#escaped",
                                        "a b",
                                        "a%20b",
                                        "a%2520b"};
  for (const auto& id : ids) folder.write("documents/maps/" + id + ".svg", kPlan);
  for (const auto& id : ids) {
    ASSERT_TRUE(load(id)) << id << ": " << witness->failure;
    EXPECT_EQ(page("document.title"), id);
    EXPECT_EQ(page("document.scripts.length + typeof setDotPosition"), "4function") << id;
    EXPECT_EQ(page("location.pathname.endsWith('/maps/map.html')"), "true") << id;
  }
  ASSERT_TRUE(load(R"(a&map-file=a b.svg&x="><img src=x onerror=document.title='owned'>)"));
  EXPECT_EQ(page("document.title"), "Map") << "the first of two entries counts, and there is no such plan";
  TWLMapPolygon polygon;
  polygon.addPoint({1e300, -1e300});
  view->highlightPolygon(polygon);
  view->handleCallback("\"');alert(1)");
  fix(50.0003, 8.0005);
  EXPECT_EQ(page("document.title"), "Map");
  view->stringByEvaluatingJavaScriptFromString("setDotPosition(90, 60, 3, false)");
  EXPECT_TRUE(dot()) << "and the page still works";
}

}  // namespace
}  // namespace wayloom::gtk
