// Every public class that calls somebody may end inside each of its calls, and at the hand of another thread during
// each.
#include <future>
#include <ostream>
#include <thread>
#include <tuple>
#include <utility>

#include "wayloom/analytics/TGFAPIAnalyticsUploader.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/regions/TGFAPIRequest.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/status/TPLAPIRequest.hpp"
#include "wayloom/view/TWLMapView.hpp"

#include "tests/lives/LifeWorld.hpp"

namespace wayloom {
namespace {

using platform::CLBeacon;
using platform::Json;
using test::LastCall;
using test::LifeWorld;

constexpr auto kKitUrl = "https://kits.example/7";
constexpr auto kMapsUrl = "https://maps.example/maps.json";
constexpr auto kKit = R"({"kit": {"status_url": "u", "status_token": "t", "ibeacons": [
  {"identifier": "a", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 1, "minor": 1,
   "attributes": {"map_id": "hall"}}]}})";
constexpr auto kMaps = R"({"hall": {"file_path": "hall.svg", "latitude": 50, "longitude": 8, "pixels_per_meter": 10,
  "map_pixel_width": 2000, "map_pixel_height": 1000, "map_corner_offset_y": 1000, "geolocation_enabled": true}})";

// Every delegate there is; the one call that is looked at is the last.
struct Everybody : TGFManagerDelegate,
                   platform::CLLocationManagerDelegate,
                   TWLManagerDelegate,
                   TWLMapViewDelegate,
                   StatusReporter,
                   AnalyticsRecorder {
  using Sender = platform::CLLocationManager*;
  Everybody(LastCall& theCall, std::string thePlace) : call(theCall), place(std::move(thePlace)) {}
  void at(std::string_view here) {
    if (here == place && skipped-- <= 0) call();
  }

  void geofoldDidSync(TGFManager& manager) override {
    manager.kit();
    at("synced");
  }
  void geofoldDidEnter(TGFManager&, const TGFRegionPtr&) override { at("entered"); }
  void geofoldDidExit(TGFManager&, const TGFRegionPtr&) override { at("left"); }
  void geofoldDidDetermineStateForRegion(TGFManager&, platform::CLRegionState, const TGFRegionPtr&) override {
    at("state");
  }
  void geofoldDidRangeBeaconsInRegion(TGFManager&, const TGFBeaconList&, const TGFBeaconRegionPtr&) override {
    at("ranged");
  }
  void geofoldDidFailWithError(TGFManager&, const platform::Error&) override { at("failed"); }

  void locationManagerDidUpdateLocations(Sender, std::span<const platform::CLLocation>) override { at("raw fix"); }
  void locationManagerDidDetermineStateForRegion(Sender, platform::CLRegionState,
                                                 const platform::CLRegionPtr&) override {
    at("raw state");
  }
  void locationManagerDidRangeBeaconsInRegion(Sender, std::span<const CLBeacon>,
                                              const platform::CLBeaconRegionPtr&) override {
    at("raw ranged");
  }
  void locationManagerDidEnterRegion(Sender, const platform::CLRegionPtr&) override { at("raw entered"); }
  void locationManagerDidExitRegion(Sender, const platform::CLRegionPtr&) override { at("raw left"); }
  void locationManagerDidFailWithError(Sender, const platform::Error&) override { at("raw failed"); }
  void locationManagerDidChangeAuthorizationStatus(Sender, platform::CLAuthorizationStatus) override {
    at("raw authorization");
  }
  void locationManagerDidStartMonitoringForRegion(Sender, const platform::CLRegionPtr&) override {
    at("raw monitoring");
  }

  void locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr&) override { at("position"); }
  void mapViewDidFinishLoad(TWLMapView&) override { at("page loaded"); }
  void mapViewDidFailLoadWithError(TWLMapView&, const platform::Error&) override { at("page failed"); }
  void mapViewTappedAt(TWLMapView&, Point) override { at("tapped"); }
  void rangedBeacon(const CLBeacon&) override { at("reported"); }
  void startLogging() override {}
  void stopLogging() override {}
  void uploadAnalyticsToServer() override { at("upload asked for"); }

  LastCall& call;
  const std::string place;
  int skipped = 0;  // calls before the one that counts
};

// What makes the platform tell something.
platform::CLBeaconRegionPtr region() {
  return std::make_shared<const platform::CLBeaconRegion>(
      *platform::UUID::parse("5A0E1C9E-0000-4B7E-8000-000000000001"), std::nullopt, std::nullopt, "r");
}
void tellEverything(LifeWorld& world) {
  const CLBeacon beacon{region()->proximityUUID(), 1, 1, -60, 2.0};
  world.location->deliverEnter(region());
  world.location->deliverState(platform::CLRegionState::inside, region());
  world.location->deliverRanging({&beacon, 1}, region());
  world.location->deliverFix({{50.0001, 8.0001}, 3.0, world.platform->calendarClock().now()});
  world.location->deliverExit(region());
  world.location->deliverFailure({"Radio", 1, "off"});
  world.location->setAuthorizationStatus(platform::CLAuthorizationStatus::denied);
}

template <class Object>
using Holder = std::shared_ptr<std::unique_ptr<Object>>;

// Keeps the object alone; it ends when the call says so.
template <class Object>
Object& holds(LastCall& call, std::unique_ptr<Object> object) {
  auto* const plain = object.get();
  const Holder<Object> holder = std::make_shared<std::unique_ptr<Object>>(std::move(object));
  call.ends([holder] { holder->reset(); });
  return *plain;
}

template <class Kept, class... Arguments>
Kept& kept(LifeWorld& world, Arguments&&... arguments) {
  auto object = std::make_shared<Kept>(std::forward<Arguments>(arguments)...);
  world.kept.push_back(object);
  return *object;
}

// Passes on to somebody who outlives it.
struct PassingReporter : StatusReporter {
  explicit PassingReporter(Everybody& somebody) : to(somebody) {}
  void rangedBeacon(const CLBeacon& beacon) override { to.rangedBeacon(beacon); }
  Everybody& to;
};
struct PassingRecorder : AnalyticsRecorder {
  PassingRecorder(Everybody& somebody, bool whileItStarts) : to(somebody), waits(whileItStarts) {}
  void startLogging() override {
    while (waits && !to.call.hasBegun()) std::this_thread::yield();
    if (waits) std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  void stopLogging() override {}
  void uploadAnalyticsToServer() override { to.uploadAnalyticsToServer(); }
  Everybody& to;
  const bool waits;  // so that the manager ends on the queue of the download before start() has returned
};

void regionManager(LifeWorld& world, LastCall& call, const std::string& place) {
  auto& told = kept<Everybody>(world, call, place);
  TGFManagerServices services;
  services.makeAnalytics = [&](auto&, auto&) {
    return std::make_unique<PassingRecorder>(told, place == "synced" && world.isReal());
  };
  services.makeStatus = [&](auto&, auto&, auto&) {
    told.at("reporter made");
    return std::make_unique<PassingReporter>(told);
  };
  if (place != "sync handler failed" && place != "failed") world.answer(std::string("GET ") + kKitUrl, kKit);
  auto& manager = holds(
      call, std::make_unique<TGFManager>(*world.platform, &told, Json{{"GFKitURL", kKitUrl}}, std::move(services)));
  manager.setLocationManagerDelegate(&told);
  if (place.starts_with("sync handler"))
    return manager.syncWithCompletionHandler([&](BackgroundFetchResult result) {
      told.at(result == BackgroundFetchResult::failed ? "sync handler failed" : "sync handler");
    });
  manager.start();
  if (place == "upload asked for" || place == "reporter made" || place == "synced" || place == "raw monitoring") return;
  world.repeat([&world] {
    world.location->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
    tellEverything(world);
  });
}

// A host that derives to see the callbacks, and asks for the engine in each of them.
struct DerivedManager : TWLManager {
  DerivedManager(platform::Platform& platform, Everybody& somebody)
      : TWLManager(platform, nullptr, TGFManagerServices::none()), told(somebody) {}
  ~DerivedManager() override { shutDown(); }
  void geofoldDidSync(TGFManager& manager) override { see("derived synced", manager); }
  void geofoldDidFailWithError(TGFManager& manager, const platform::Error&) override { see("derived failed", manager); }
  void see(const char* what, TGFManager& manager) {
    auto& witness = told;
    EXPECT_EQ(&gfManager(), &manager);
    witness.at(what);
  }
  Everybody& told;
};

void navigationManager(LifeWorld& world, LastCall& call, const std::string& place) {
  world.base.files->writeFile("/app/Wayloom.plist", Json{{"GFKitURL", kKitUrl}}.dump());
  TWLMapConfigRepo::sharedRepo(*world.platform).loadFromJSON(kMaps);
  auto& told = kept<Everybody>(world, call, place.ends_with("listener") ? "position" : place);
  told.skipped = place == "listener" ? 1 : 0;
  std::promise<void> made;  // the engine's first callback waits until the whole object is there
  const auto ready = made.get_future().share();
  for (int i = 0; i < 2 && world.isReal(); ++i) world.tasks().backgroundQueue().async([ready] { ready.wait(); });
  if (place == "derived synced") world.answer(std::string("GET ") + kKitUrl, kKit);
  auto& manager = holds(call, std::make_unique<DerivedManager>(*world.platform, told));
  manager.startGeolocation();
  if (place == "position") manager.setDelegate(&told);
  made.set_value();
  if (place.starts_with("derived")) return;  // from now on the end of its first download may be its own
  world.tasks().mainQueue().async([&, place] {
    if (place.ends_with("listener")) manager.addListener(told);
    if (!call.hasBegun()) world.location->deliverFix({{50.0001, 8.0001}, 3.0, world.platform->calendarClock().now()});
  });
}

void election(LifeWorld& world, LastCall& call, const std::string&) {
  auto& tracker = holds(call, std::make_unique<TWLLocationTracker>(*world.platform));
  tracker.setElectionObserver([&](const ElectionTrace&) { call(); });
  tracker.didRangeBeaconsInRegionInRegion({}, nullptr);
}

template <class Request>
void request(LifeWorld& world, LastCall& call, const std::string& place) {
  world.answer("GET u", "{}");
  auto& client = holds(call, std::make_unique<Request>(*world.platform, "token"));
  if (place == "get")
    client.getHandler("u", [&](auto&&...) { call(); });
  else
    client.postBodyHandler("u", "{}", [&](auto&&...) { call(); });
}

void analyticsUpload(LifeWorld& world, LastCall& call, const std::string& place) {
  Json configuration = {{"GFKitURL", kKitUrl}};
  if (place == "posted") configuration["GFAnalyticsURL"] = "https://a.example/";
  TGFConfiguration::sharedConfiguration(*world.platform).configureWithDictionary(configuration);
  auto& uploader = holds(call, std::make_unique<TGFAPIAnalyticsUploader>(*world.platform));
  world.tasks().mainQueue().async([&] { uploader.uploadBody("{}", [&](bool) { call(); }); });
}

void observation(LifeWorld& world, LastCall& call, const std::string&) {
  holds(call, world.platform->notificationCenter().addObserver("n", nullptr, [&](auto&) { call(); }));
  world.platform->notificationQueue().enqueue({"n", nullptr, {}});
  world.platform->notificationQueue().enqueue({"n", nullptr, {}});
}

void locationManager(LifeWorld& world, LastCall& call, const std::string& place) {
  auto& told = kept<Everybody>(world, call, place);
  auto& manager = holds(call, world.location->makeLocationManager());
  manager.setDelegate(&told);
  manager.startMonitoringForRegion(region());
  manager.startUpdatingLocation();
  world.tasks().mainQueue().async([&] { tellEverything(world); });
}

void mapUpdate(LifeWorld& world, LastCall& call, const std::string& place) {
  const platform::HttpHeaders dated = {{"Last-Modified", "Sun, 06 Nov 2044 08:49:37 GMT"}};
  for (const auto* method : {"GET ", "HEAD "})
    for (const auto& [url, body] : {std::pair{kMapsUrl, kMaps}, {"https://maps.example/hall.svg", "<svg/>"}})
      if (place != "ended in failure") world.answer(std::string(method) + url, body, dated);
  auto& repo = holds(call, std::make_unique<TWLMapConfigRepo>(*world.platform, "{}"));
  repo.setUpdateUrl(kMapsUrl);
  if (place == "downloaded") {
    world.kept.push_back(repo.loadFromUrlCompletionHandler(kMapsUrl, [&](auto&&...) { call(); }));
    return;
  }
  using Kind = MapUpdateStep::Kind;
  const auto kind = place == "document" ? Kind::document : place == "map" ? Kind::map : Kind::ended;
  repo.setUpdateObserver([&call, kind](const MapUpdateStep& step) {
    if (step.kind == kind) call();
  });
  repo.update();
}

void mapView(LifeWorld& world, LastCall& call, const std::string& place) {
  auto& repo = TWLMapConfigRepo::sharedRepo(*world.platform);
  world.base.files->writeFile("/app/Wayloom.plist", "{}");
  repo.loadFromJSON(kMaps);
  TWLUpdateManager::sharedUpdateManager(*world.platform).update();
  auto& view = holds(call, std::make_unique<TWLMapView>(*world.platform));
  auto told = std::make_shared<Everybody>(call, place);
  world.kept.push_back(told);
  view.setDelegate(told);
  auto& page = dynamic_cast<sim::SimWebView&>(view.webView());
  view.loadMap(repo.forMapId("hall"));
  if (place == "page loaded") return;
  world.repeat([&page, &call, place] {
    if (call.hasBegun()) return;
    if (place == "tapped") page.navigate("quembly:tap:10,20");
    if (place == "page failed") page.failLoad({"Page", 1, "none"});
  });
}

struct Case {
  const char* subject;
  void (*begin)(LifeWorld& world, LastCall& call, const std::string& place);
  std::vector<const char*> places;
  bool endsOnMain = false;  // its thread is the main thread, where all its calls are
  friend void PrintTo(const Case& each, std::ostream* out) { *out << each.subject; }
};

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"TGFManager",
       regionManager,
       {"synced", "entered", "left", "state", "ranged", "failed", "raw fix", "raw state", "raw ranged", "raw left",
        "raw failed", "raw authorization", "raw monitoring", "raw entered", "reporter made", "sync handler",
        "sync handler failed", "upload asked for"}},
      {"TWLManager", navigationManager, {"position", "listener", "new listener", "derived synced", "derived failed"}},
      {"TWLLocationTracker", election, {"election"}},
      {"TGFAPIRequest", request<TGFAPIRequest>, {"get", "post"}},
      {"TPLAPIRequest", request<TPLAPIRequest>, {"get", "post"}},
      {"TGFAPIAnalyticsUploader", analyticsUpload, {"posted", "without URL"}},
      {"Observation", observation, {"post"}},
      {"CLLocationManager",
       locationManager,
       {"raw fix", "raw state", "raw ranged", "raw left", "raw failed", "raw authorization", "raw monitoring",
        "raw entered"}},
      {"TWLMapConfigRepo", mapUpdate, {"document", "map", "ended", "ended in failure", "downloaded"}, true},
      {"TWLMapView", mapView, {"page loaded", "page failed", "tapped"}, true}};
  return all;
}

// Whose case, whether on real threads, and whether another thread ends the object.
struct LivesTest : testing::TestWithParam<std::tuple<Case, bool, bool>> {};

TEST_P(LivesTest, MayEndInEachOfItsCalls) {
  const auto& [subject, real, byAnother] = GetParam();
  for (const auto* place : subject.places) {
    if (real && (place == std::string_view("upload asked for") || (byAnother && subject.endsOnMain))) continue;
    SCOPED_TRACE(place);
    LifeWorld world(real);
    LastCall call(world, byAnother);
    subject.begin(world, call, place);
    world.runUntil([&] { return call.isOver(); });
    world.settle();
  }
}

INSTANTIATE_TEST_SUITE_P(Subjects, LivesTest,
                         testing::Combine(testing::ValuesIn(cases()), testing::Bool(), testing::Bool()),
                         [](const auto& kind) {
                           return std::string(std::get<0>(kind.param).subject) +
                                  (std::get<1>(kind.param) ? "Real" : "Virtual") +
                                  (std::get<2>(kind.param) ? "ByAnother" : "ByItself");
                         });

}  // namespace
}  // namespace wayloom
