// The map view's decisions, on widgets without a screen.
#include <atomic>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <thread>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/sim/SimBluetooth.hpp"
#include "wayloom/view/LocationManagerNotSet.hpp"
#include "wayloom/view/TWLMapView.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using platform::CBCentralManagerState;
using platform::CLAuthorizationStatus;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Two maps that take fixes, one far north of the other, and one with a plain image.
constexpr char kMaps[] = R"({
  "hall":   {"name": "Hall", "file_path": "plans/hall.svg", "latitude": 50, "longitude": 8, "pixels_per_meter": 10,
             "map_pixel_width": 2001, "map_pixel_height": 1000, "crop_width": 1500.9, "geolocation_enabled": true,
             "map_corner_offset_y": 1000, "overlay_pixel_offset_x": 100, "overlay_pixel_offset_y": 40},
  "garden": {"name": "Garden", "file_path": "garden.svg", "latitude": 60, "longitude": 8, "pixels_per_meter": 5,
             "map_pixel_width": 500, "map_pixel_height": 500, "map_corner_offset_y": 500, "geolocation_enabled": true},
  "photo":  {"file_path": "plans/photo.png", "pixels_per_meter": 5},
  "flat":   {"file_path": "flat.svg", "pixels_per_meter": 0}
})";
constexpr char kHallAddress[] =
    "file:///documents/maps/map.html?dot-x=%&dot-y=%&map-width=1000&map-height=500&crop-width=750&crop-height=500"
    "&map-file=hall.svg&uncertainty-radius=%";

std::string filled(std::string text, const std::vector<std::string>& values) {
  for (const auto& value : values) text.replace(text.find('%'), 1, value);
  return text;
}

struct Witness : TWLMapViewDelegate {
  void mapViewDidFinishLoad(TWLMapView&) override { note("loaded"); }
  void mapViewDidFailLoadWithError(TWLMapView&, const platform::Error& error) override {
    note("failed: " + error.description);
  }
  void mapViewTappedAt(TWLMapView&, Point metres) override {
    taps.push_back(metres);
    note("tapped");
  }
  void note(std::string word) {
    words.push_back(std::move(word));
    if (andThen) andThen();
  }
  std::vector<std::string> told() { return std::exchange(words, {}); }

  std::vector<std::string> words;
  std::vector<Point> taps;
  std::function<void()> andThen;
};

struct MapViewTest : testing::Test {
  MapViewTest() {
    bluetooth = std::make_shared<sim::SimBluetooth>(world.time.scheduler());
    auto services = world.services();
    services.bluetooth = bluetooth;
    world.instance = std::make_unique<platform::Platform>(services);
    world.files->writeFile("/app/Wayloom.plist", "{}");
    world.files->writeFile("/library/TWLLocationIcon.svg", "<svg/>");
    repo().loadFromJSON(kMaps);
    manager = std::make_unique<TWLManager>(world);
    makeView();
  }

  void makeView() {
    view = std::make_unique<TWLMapView>(world);
    view->setDelegate(witness);
    view->setLocationManager(manager.get());
    sim::SimWidgetFactory::enterWindow(view->view(), 400, 300);
  }
  TWLMapConfigRepo& repo() { return TWLMapConfigRepo::sharedRepo(world); }
  void installMaps() { TWLUpdateManager::sharedUpdateManager(world).update(); }
  void show(const char* mapId) {
    view->loadMap(repo().forMapId(mapId));
    world.time.runReady();
  }
  // A position some metres north and east of a map's reference point; 1 degree of latitude is 111 km.
  void fix(double latitude, double accuracy = 3.0) {
    world.location->deliverFix({{latitude, 8.0001}, accuracy, world.time.calendarClock()->now()});
    world.time.runReady();
  }
  void pressLocate() {
    button().press();
    world.time.runReady();
  }

  sim::SimWebView& web() { return dynamic_cast<sim::SimWebView&>(view->webView()); }
  sim::SimButton& button() { return dynamic_cast<sim::SimButton&>(view->locateButton()); }
  sim::SimActivityIndicator& spinner() { return dynamic_cast<sim::SimActivityIndicator&>(view->activityIndicator()); }
  std::vector<std::string> addresses() {
    std::vector<std::string> all;
    for (const auto& load : web().loads()) all.push_back(load.address);
    return all;
  }
  std::vector<std::string> scripts() {
    auto all = web().scripts();
    web().forgetScripts();
    return all;
  }
  std::string alertTitle() { return world.widgets->alert() ? world.widgets->alert()->title : ""; }

  test::TestPlatform world;
  std::shared_ptr<sim::SimBluetooth> bluetooth;
  std::shared_ptr<Witness> witness = std::make_shared<Witness>();
  std::unique_ptr<TWLManager> manager;
  std::unique_ptr<TWLMapView> view;
};

TEST_F(MapViewTest, PutsItsWidgetsWhereTheyBelong) {
  auto& container = dynamic_cast<sim::SimContainerView&>(view->view());
  EXPECT_THAT(container.widgets, ElementsAre(&view->webView(), &view->activityIndicator(), &view->locateButton()));
  EXPECT_EQ(container.background, (platform::Grey{.white = 0.75}));
  EXPECT_EQ(web().background(), (platform::Grey{.white = 0.86}));
  EXPECT_EQ(button().background(), (platform::Grey{.white = 1.0, .alpha = 0.9}));
  EXPECT_EQ(button().cornerRadius, 22.0);
  EXPECT_EQ(button().image, "/library/TWLLocationIcon.svg");
  EXPECT_TRUE(web().isHidden() && button().isHidden()) << "before the first map";
  container.layOut(1000, 700);
  EXPECT_EQ(web().frame(), (platform::Rect{0, 0, 1000, 700}));
  EXPECT_EQ(spinner().frame(), (platform::Rect{0, 0, 1000, 700}));
  EXPECT_EQ(button().frame(), (platform::Rect{940, 640, 44, 44}));
}

TEST_F(MapViewTest, LoadsThePageOnceMapsAreInstalled) {
  view->setPageTimeout(7s);
  show("hall");
  EXPECT_TRUE(web().isHidden() && button().isHidden() && spinner().isRunning);
  EXPECT_EQ(web().scalesPageToFit, true);
  EXPECT_EQ(web().directionalLock, false);
  world.wait(5.05);
  EXPECT_THAT(web().loads(), IsEmpty());
  installMaps();
  world.time.runReady();
  EXPECT_THAT(web().loads(), IsEmpty());  // looked at ten times a second
  world.systemLog->take();
  world.wait(0.06);
  EXPECT_THAT(addresses(), ElementsAre(filled(kHallAddress, {"", "", ""})));
  EXPECT_EQ(web().loads()[0].timeout, 7s);
  const auto address = addresses()[0];
  EXPECT_THAT(world.systemLog->take(), Contains("Loading map from /documents/maps/map.html with query string " +
                                                address.substr(address.find('?'))));
  EXPECT_TRUE(view->mapLoaded());
  EXPECT_EQ(view->map(), repo().forMapId("hall"));
  EXPECT_THAT(witness->told(), ElementsAre("loaded"));
  EXPECT_FALSE(web().isHidden() || button().isHidden() || spinner().isRunning);
  EXPECT_EQ(web().fadeDuration(), 500ms);
  EXPECT_EQ(button().fadeDuration(), 500ms);
  EXPECT_EQ(web().alpha(), 1.0);
}

TEST_F(MapViewTest, ThePageBeginsWithTheDotOfItsOwnMapOnly) {
  installMaps();
  fix(50.0003, 4.5);
  show("hall");
  // 7.17 m east and 33.37 m north of the lower left corner, five pixels a metre.
  EXPECT_EQ(addresses().back(), filled(kHallAddress, {"35", "333", "22"}));
  show("garden");
  EXPECT_THAT(addresses().back(), HasSubstr("?dot-x=&dot-y=&"));
  EXPECT_THAT(addresses().back(), HasSubstr("&uncertainty-radius="));
  EXPECT_TRUE(addresses().back().ends_with("="));
}

TEST_F(MapViewTest, ShowsAnImageBareAndCopesWithOddMaps) {
  installMaps();
  world.time.runReady();
  world.systemLog->take();
  show("photo");
  EXPECT_THAT(addresses(), ElementsAre("/documents/maps/photo.png"));
  EXPECT_EQ(web().loads()[0].timeout, 5s);
  EXPECT_THAT(world.systemLog->take(), Not(Contains(HasSubstr("Loading map"))));
  show("flat");
  EXPECT_THAT(addresses().back(), HasSubstr("map-width=0&map-height=0&crop-width=0&crop-height=0&map-file=flat.svg"));
  view->loadMap(nullptr);
  EXPECT_EQ(view->map(), repo().forMapId("flat"));

  auto unlisted = std::make_shared<TWLMapConfig>(*repo().forMapId("hall"));
  unlisted->setMapId("hall&dot-x=1 \"<b>%41#");
  view->loadMap(unlisted);
  world.time.runReady();
  EXPECT_THAT(addresses().back(), HasSubstr("map-width=1000&map-height=500"));
  EXPECT_THAT(witness->told(), Contains("loaded"));

  for (const char* mapId : {"../../secret", "..", ""}) {
    auto hostile = std::make_shared<TWLMapConfig>();
    hostile->setMapId(mapId);
    hostile->setFilePath("a.png");
    const auto loads = web().loads().size();
    witness->told();
    view->loadMap(hostile);
    world.time.runReady();
    EXPECT_EQ(web().loads().size(), loads) << mapId;
    EXPECT_THAT(witness->told(), ElementsAre(HasSubstr("failed"))) << mapId;
    EXPECT_FALSE(spinner().isRunning);
  }
}

TEST_F(MapViewTest, TheSameMapObjectIsLoadedOnceAndTheNewestMapWins) {
  const auto hall = repo().forMapId("hall");
  view->loadMap(hall);
  view->loadMap(repo().forMapId("garden"));
  view->loadMap(hall);
  web().finishLoad();  // of an earlier page: nobody's business
  EXPECT_FALSE(view->mapLoaded());
  world.widgets->setFinishesLoads(false);
  installMaps();
  world.wait(1.0);
  EXPECT_EQ(web().loads().size(), 1U);
  web().failLoad({"WebKit", 7, "no such page"});
  EXPECT_THAT(witness->told(), ElementsAre("failed: no such page"));
  EXPECT_THAT(world.systemLog->take(), Contains("QMBYMapView failed to load: no such page"));
  EXPECT_TRUE(web().isHidden() && !spinner().isRunning && !view->mapLoaded());
  show("hall");
  EXPECT_EQ(web().loads().size(), 1U);

  auto again = std::make_shared<TWLMapConfig>(*hall);
  view->loadMap(again);
  world.time.runReady();
  EXPECT_EQ(web().loads().size(), 2U);
  web().finishLoad();
  EXPECT_TRUE(view->mapLoaded());
  web().losePage({"WebKit", 9, "the process died"});
  EXPECT_TRUE(web().isHidden() && !view->mapLoaded());
  EXPECT_THAT(witness->told(), ElementsAre("loaded", "failed: the process died"));
  view->loadMap(again);  // unlike after a failure, it can be had again
  world.time.runReady();
  EXPECT_EQ(web().loads().size(), 3U);
}

TEST_F(MapViewTest, MovesOrHidesTheDotWhileAPageIsThere) {
  installMaps();
  fix(50.0003);
  EXPECT_EQ(view->currentLocation()->mapId(), "hall");  // kept before any page
  world.widgets->setFinishesLoads(false);
  show("hall");
  fix(50.0004);
  EXPECT_THAT(scripts(), IsEmpty());
  web().finishLoad();
  EXPECT_THAT(scripts(), IsEmpty());  // the page drew it from its address
  fix(50.0005, 2.5);
  EXPECT_THAT(scripts(), ElementsAre("setDotPosition(35,221,12, true)"));
  EXPECT_EQ(view->lastTrackingUpdate(), world.time.calendarNow());
  view->showDotAndRecenter();
  EXPECT_THAT(scripts(), ElementsAre("setDotPositionAutomatic(35,221,12)"));
  fix(60.0003);
  EXPECT_THAT(scripts(), ElementsAre("hideDot()"));
  EXPECT_EQ(web().loads().size(), 1U);
  manager->addListener(*view);  // told the current position at once
  world.wait(200);
  EXPECT_THAT(scripts(), ElementsAre("hideDot()"));
  manager->addListener(*view);  // which is too old by now
  EXPECT_THAT(scripts(), ElementsAre("hideDot()"));
  EXPECT_EQ(view->currentLocation(), nullptr);
  view->showDot();
  EXPECT_THAT(scripts(), IsEmpty());
}

TEST_F(MapViewTest, TheLocateButtonFindsOrExplains) {
  installMaps();
  show("hall");
  pressLocate();
  EXPECT_EQ(
      world.widgets->alert(),
      (platform::AlertContent{"No Map For Your Location.", "You are currently not at a venue with a map.", "OK", {}}));
  world.widgets->pressAlertButton("OK");
  EXPECT_EQ(alertTitle(), "");
  bluetooth->setState(CBCentralManagerState::poweredOff);
  pressLocate();  // before the state has been told
  EXPECT_EQ(alertTitle(), "No Map For Your Location.");
  pressLocate();
  EXPECT_EQ(
      world.widgets->alert(),
      (platform::AlertContent{"Bluetooth Disabled", "Indoor location requires bluetooth to be turned on.", "Ok", {}}));
  EXPECT_THAT(scripts(), ElementsAre("hideDot()", "hideDot()", "hideDot()"));

  fix(50.0003);
  scripts();
  pressLocate();
  EXPECT_THAT(scripts(), ElementsAre(HasSubstr("setDotPositionAutomatic(")));
  fix(60.0003);
  scripts();
  pressLocate();
  EXPECT_EQ(world.widgets->alert(),
            (platform::AlertContent{"Switch Maps?", "You're in Garden but you're currently viewing the map for Hall",
                                    "Cancel", "Show map"}));
  EXPECT_THAT(scripts(), ElementsAre("hideDot()"));
  world.widgets->pressAlertButton("Cancel");
  world.time.runReady();
  EXPECT_EQ(view->map()->mapId(), "hall");
  pressLocate();
  world.widgets->pressAlertButton("Show map");
  world.time.runReady();
  EXPECT_EQ(view->map()->mapId(), "garden");
  EXPECT_EQ(alertTitle(), "");
}

TEST_F(MapViewTest, WithoutPermissionTheLocateButtonLeadsToTheSettings) {
  installMaps();
  fix(50.0003);
  show("hall");
  world.location->setAuthorizationStatus(CLAuthorizationStatus::denied);
  pressLocate();
  ASSERT_TRUE(world.widgets->alert());
  EXPECT_EQ(world.widgets->alert()->title, "Location Permission");
  EXPECT_THAT(world.widgets->alert()->message, testing::EndsWith("Would you like to change this?"));
  EXPECT_EQ(world.widgets->alert()->otherButton, "Go to settings...");
  world.widgets->pressAlertButton("Go to settings...");
  EXPECT_EQ(world.widgets->settingsOpened, 1);
  world.widgets->settingsPage = false;
  pressLocate();
  EXPECT_THAT(world.widgets->alert()->message, HasSubstr("go to Settings -> Privacy -> Location"));
  EXPECT_EQ(world.widgets->alert()->cancelButton, "Ok");
  EXPECT_FALSE(world.widgets->alert()->otherButton);
  EXPECT_THAT(scripts(), IsEmpty());
}

TEST_F(MapViewTest, TapsComeBackInMetresAndNonsenseDoesNot) {
  EXPECT_FALSE(web().navigate("quembly:1,2"));  // before there is a map
  installMaps();
  show("hall");
  EXPECT_TRUE(web().navigate("file:///documents/maps/map.html"));
  EXPECT_TRUE(web().navigate("Quembly:1,2"));
  for (const char* url : {"quembly:tapped:60,30", "quembly:%22tapped%22:%2260,30%22", "quembly:a:b:+60.0%20,3e1,7"})
    EXPECT_FALSE(web().navigate(url));
  EXPECT_THAT(witness->taps, ElementsAre(Point{2.0, 2.0}, Point{2.0, 2.0}, Point{2.0, 2.0}));  // 5 pixels a metre
  const std::string megabyte(1U << 20U, '7');
  for (const std::string& url :
       {std::string("quembly:"), std::string("quembly:tapped:60;30"), std::string("quembly:tapped:60,"),
        std::string("quembly:60,30:"), std::string("quembly:x,y"), std::string("quembly:nan,inf"),
        std::string("quembly:1e300,1"), std::string("quembly:1%,2"), std::string("quembly:%FF:1,2"),
        std::string("quembly:1abc,2"), "quembly:" + megabyte, "quembly:" + megabyte + "," + megabyte,
        "quembly:" + std::string(1U << 20U, ':'), std::string("quembly:<script>alert(1)</script>,\"'")})
    EXPECT_FALSE(web().navigate(url)) << url.substr(0, 60);
  EXPECT_EQ(witness->taps.size(), 3U);
  show("flat");  // has no scale
  view->handleCallback("1,2");
  repo().loadFromJSON(R"({"other": {}})");
  view->handleCallback("1,2");  // the shown map is not in the catalogue any more
  EXPECT_EQ(witness->taps.size(), 3U);
}

TEST_F(MapViewTest, HighlightsAPolygonInPixelsOfTheShownMap) {
  installMaps();
  show("hall");
  TWLMapPolygon polygon;
  for (const auto& point : {Point{50.0, 8.0}, Point{50.0005, 8.0}}) polygon.addPoint(point);
  view->highlightPolygon(polygon);
  EXPECT_THAT(scripts(), ElementsAre("highlightPolygon(\"0.0,500.0 0.0,221.9 \");"));
  polygon.addPoint({std::numeric_limits<double>::quiet_NaN(), 1e300});
  view->highlightPolygon(polygon);
  EXPECT_THAT(scripts(), ElementsAre(HasSubstr("0.0,221.9 ")));
  web().evaluator = [](const std::string& script) { return "ran " + script; };
  EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString("f()"), "ran f()");
}

TEST_F(MapViewTest, TracksWhileItIsInAWindow) {
  installMaps();
  show("hall");
  auto& container = dynamic_cast<sim::SimContainerView&>(view->view());
  std::optional<ranging::FixRequest> wanted;
  world.location->setFixRequestObserver([&](const auto& request) { wanted = request; });
  container.moveToWindow(false);
  fix(50.0003);
  EXPECT_FALSE(wanted);
  EXPECT_EQ(view->currentLocation(), nullptr);
  container.moveToWindow(true);
  world.time.runReady();
  EXPECT_TRUE(wanted);
  EXPECT_THAT(scripts(), ElementsAre(HasSubstr("setDotPosition(")));
  view->setLocationManager(nullptr);
  fix(50.0004);
  EXPECT_THAT(scripts(), IsEmpty());
  EXPECT_THROW(view->startTrackingLocation(), LocationManagerNotSet);
  EXPECT_STREQ(LocationManagerNotSet().what(), "QMBYMapView locationManager property not set");
  auto services = world.services();
  services.widgets = nullptr;
  platform::Platform headless(services);
  EXPECT_THROW(TWLMapView{headless}, std::logic_error);
}

TEST_F(MapViewTest, CanBeDestroyedAtAnyTime) {
  show("hall");
  view.reset();  // while it waits
  installMaps();
  world.wait(1.0);
  for (const char* word : {"loaded", "tapped", "failed"}) {
    makeView();
    world.widgets->setFinishesLoads(false);
    witness->andThen = [&] { view.reset(); };
    show("hall");
    const std::string event = word;
    if (event == "tapped") web().navigate("quembly:1,2");
    if (event == "loaded") web().finishLoad();
    if (event == "failed") web().losePage({"WebKit", 1, "x"});
    EXPECT_EQ(view, nullptr) << word;
  }
  witness->andThen = {};
  makeView();
  show("hall");
  pressLocate();
  EXPECT_EQ(alertTitle(), "No Map For Your Location.");
  view.reset();
  EXPECT_EQ(alertTitle(), "");
  bluetooth->setState(CBCentralManagerState::poweredOff);
  fix(50.0003);
}

// Maps are loaded, given up and shown, and positions told, from several real threads.
TEST(MapViewThreads, BackgroundWorkAndPositionsMeetTheView) {
  test::TestPlatform world;
  const auto loop = std::make_shared<posix::MainLoop>(3);
  auto services = world.services();
  services.tasks = loop;
  services.widgets = std::make_shared<sim::SimWidgetFactory>(loop);
  services.location = std::make_shared<ranging::RangerLocationServices>(*loop, *services.monotonicClock);
  platform::Platform platform(services);
  auto& repo = TWLMapConfigRepo::sharedRepo(platform);
  repo.loadFromJSON(kMaps);
  TWLManager manager(platform);
  TWLUpdateManager::sharedUpdateManager(platform).update();

  std::atomic<bool> ended = false;
  std::thread positions([&] {
    while (!ended) {
      manager.locationTracker().setLocationFromCoreLocation(
          platform::CLLocation{{50.0003, 8.0001}, 3.0, services.calendarClock->now()});
      manager.updateLocation();
      std::this_thread::sleep_for(1ms);
    }
  });
  std::size_t scripts = 0;
  for (int round = 0; round < 40; ++round) {
    TWLMapView view(platform);
    view.setLocationManager(&manager);
    sim::SimWidgetFactory::enterWindow(view.view(), 400, 300);
    view.loadMap(repo.forMapId("garden"));
    if (round % 4 == 0) continue;
    view.loadMap(repo.forMapId("hall"));
    const auto& web = dynamic_cast<sim::SimWebView&>(view.webView());
    for (int pass = 0; pass < 400 && web.scripts().empty(); ++pass) {
      loop->runDue();
      std::this_thread::sleep_for(500us);
    }
    scripts += web.scripts().size();
  }
  ended = true;
  positions.join();
  EXPECT_GT(scripts, 20U);
}

}  // namespace
}  // namespace wayloom
