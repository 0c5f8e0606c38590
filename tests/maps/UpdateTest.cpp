// Updates in the simulated world: what is fetched, in which order it lands, and what a document may not do.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "maps/MapFileNames.hpp"
#include "tests/maps/UpdateVenue.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using test::filesIn;
using test::mapDocument;
using test::Paths;
using test::UpdateVenue;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Key;
using testing::Not;
using testing::Pair;
using Strings = std::vector<std::string>;

constexpr double kNow = 5'000;

// One process after another over one Documents directory.
struct Device {
  explicit Device(const UpdateVenue& venueToUse, double now = kNow) : venue(venueToUse) { restart(now); }

  void restart(double now) {
    world.reset();
    sim::SimOptions options;
    options.venue = venue.path();
    options.documents = documents.path();
    options.start = platform::calendarTimeFromSeconds(now);
    options.log = [this](sim::LogChannel, std::string_view line) { log.emplace_back(line); };
    world = std::make_unique<sim::SimPlatform>(options);
    world->server().setRequestObserver([this](const platform::HttpRequest& request) {
      const auto place = request.url.rfind("/maps/");
      if (place != request.url.npos) requests.push_back(request.method + request.url.substr(place + 5));
    });
  }
  TWLMapConfigRepo& repo() { return TWLMapConfigRepo::sharedRepo(world->platform()); }
  // What was asked for.
  Strings update() {
    log.clear();
    requests.clear();
    TWLUpdateManager::sharedUpdateManager(world->platform()).update();
    world->time().runReady();
    return requests;
  }
  double version(const std::string& mapId) {
    const auto map = repo().forMapId(mapId);
    return map ? map->latitude() : -1;
  }
  std::string maps() const { return documents.path() + "/maps"; }

  const UpdateVenue& venue;
  sim::TestFolder documents;
  std::unique_ptr<sim::SimPlatform> world;
  Strings log;
  Strings requests;
};

// The place of a line in the log, which must be there.
std::size_t at(const Strings& log, const std::string& line) {
  const auto place = std::find(log.begin(), log.end(), line);
  EXPECT_NE(place, log.end()) << line;
  return static_cast<std::size_t>(place - log.begin());
}

TEST(MapUpdate, FetchesWhatIsNewerAndPutsImagesBeforeTheDocument) {
  UpdateVenue venue;
  venue.publish({{"lobby", "plans/l 1.svg"}, {"hall", "h.png"}}, 2'000);
  Device device(venue);
  EXPECT_THAT(device.update(),
              ElementsAre("HEAD/map_config.json", "GET/map_config.json", "GET/plans/l%201.svg", "GET/h.png"));
  EXPECT_THAT(filesIn(device.maps()),
              ElementsAre(Pair("hall.png", "h.png 2000"), Pair("lobby.svg", "plans/l 1.svg 2000")));
  EXPECT_EQ(test::dateOf(device.maps() + "/lobby.svg"), 2'000);
  EXPECT_EQ(device.version("hall"), 2'000);
  EXPECT_LT(at(device.log, "last update time is 1000"), at(device.log, "last update time will now be 5000"));
  EXPECT_EQ(device.log.back(), "Saved file to " + device.documents.path() + "/map_config_updated.json");
  EXPECT_THAT(filesIn(device.documents.path() + "/map_downloads"), IsEmpty());
  EXPECT_THAT(filesIn(device.documents.path()), Not(Contains(Key("map_update_to_complete"))));

  EXPECT_THAT(device.update(), ElementsAre("HEAD/map_config.json", "HEAD/plans/l%201.svg", "HEAD/h.png"));
  venue.put("server/maps/h.png", "newer", 2'001);
  EXPECT_THAT(device.update(), Contains("GET/h.png").Times(1));
  EXPECT_THAT(filesIn(device.maps()), Contains(Pair("hall.png", "newer")));

  device.restart(6'000);
  EXPECT_EQ(device.version("hall"), 2'000) << "of the saved document";
  venue.publish({{"hall", "h.png"}, {"attic", "a"}}, 5'500);
  device.update();
  EXPECT_THAT(device.repo().mapIds(), ElementsAre("hall", "attic"));
  EXPECT_THAT(filesIn(device.maps()), IsSupersetOf({std::pair<const std::string, std::string>("attic.", "a 5500"),
                                                    {"hall.png", "h.png 5500"}}));
}

TEST(MapUpdate, ComparesWholeSecondsOfDates) {
  UpdateVenue venue;
  venue.put("bundle/map_config.json", mapDocument({{"lobby", "l.svg"}}, 0), 1'999.75);
  venue.publish({{"lobby", "l.svg"}}, 1'999);
  Device equal(venue);
  EXPECT_THAT(equal.update(), ElementsAre("HEAD/map_config.json", "GET/l.svg"));
  EXPECT_EQ(equal.version("lobby"), 0);
  EXPECT_EQ(equal.repo().lastUpdateTime(), 5'000) << "moves although there was no new document";
  venue.publish({{"lobby", "l.svg"}}, 2'000);
  EXPECT_THAT(equal.update(), Contains("GET/l.svg"));
  EXPECT_EQ(equal.version("lobby"), 0) << "not newer than the last update";

  Device newer(venue);
  newer.update();
  EXPECT_EQ(newer.version("lobby"), 2'000);
}

TEST(MapUpdate, BuiltInImagesComeFirstAndOnlyNewerOnesReplaceThem) {
  UpdateVenue venue;
  venue.publish({{"lobby", "lobby.svg"}}, 2'000);
  venue.put("bundle/lobby.svg", "built in", 3'000);
  Device device(venue);
  device.update();
  EXPECT_THAT(filesIn(device.maps()), ElementsAre(Pair("lobby.svg", "built in")));
  venue.put("server/maps/lobby.svg", "of the server", 3'001);
  EXPECT_THAT(device.update(), Contains("GET/lobby.svg"));
  EXPECT_THAT(filesIn(device.maps()), ElementsAre(Pair("lobby.svg", "of the server")));
  EXPECT_THAT(device.update(), Contains("GET/lobby.svg")) << "each run begins with the built-in image";
  device.world->server().setNetworkUp(false);
  device.update();
  EXPECT_THAT(filesIn(device.maps()), ElementsAre(Pair("lobby.svg", "built in")));
  EXPECT_THAT(device.log, Contains("Error: The network is down (HTTP 6)"));
  EXPECT_EQ(device.repo().lastUpdateTime(), 5'000);
}

TEST(MapUpdate, WithoutMapsNeverEnds) {
  UpdateVenue venue;
  Device device(venue);
  for (const char* useless : {"", "{}", "{\"a\": {}", "[]", "<html>"}) {
    venue.put("server/maps/map_config.json", useless, 2'000);
    EXPECT_THAT(device.update(), ElementsAre("HEAD/map_config.json", "GET/map_config.json")) << useless;
    EXPECT_EQ(device.repo().lastUpdateTime(), 1'000);
    EXPECT_THAT(device.repo().mapIds(), ElementsAre("lobby"));
    EXPECT_THAT(filesIn(device.documents.path()), Not(Contains(Key("map_config_updated.json"))));
  }
}

TEST(MapUpdate, RefusesNamesThatLeadElsewhereAndGoesOn) {
  UpdateVenue venue;
  const std::string longName(4'096, 'x');
  const Paths hostile = {{"/etc/passwd", "a.svg"},
                         {"../up", "a.svg"},
                         {"..", "a.svg"},
                         {"a/b", "a.svg"},
                         {std::string("n\0l", 3), "a.svg"},
                         {longName, "a.svg"},
                         {"", "a.svg"},
                         {".hidden", "a.svg"},
                         {"map", "pages/map.html"},
                         {"maps", "evil.js"},
                         {"url", "http://evil.example/x.svg"},
                         {"climbs", "../../kit.json"},
                         {"climbs escaped", "%2e%2E/kit.json"},
                         {"climbs late", "plans/../../kit.json"},
                         {"climbs behind an escape", "plans%2F..%2F../kit.json"},
                         {"directory", "plans/.."},
                         {"zero", std::string("a\0.svg", 6)},
                         {"extension", "a.s\nvg"},
                         {"long", longName + ".svg"},
                         {"none", ""}};
  Paths all = hostile;
  all.emplace_back("good", "good.svg");
  venue.put("server/maps/map_config.json", mapDocument(all, 2'000), 2'000);
  venue.put("server/maps/a.svg", "hostile", 2'000);
  venue.put("server/maps/good.svg", "good", 2'000);
  venue.put("bundle/sub/x.svg", "built in", 2'000);
  Device device(venue);
  EXPECT_THAT(device.update(), ElementsAre("HEAD/map_config.json", "GET/map_config.json", "GET/good.svg"));
  EXPECT_THAT(filesIn(device.maps()), ElementsAre(Pair("good.svg", "good")));
  EXPECT_EQ(std::count_if(device.log.begin(), device.log.end(),
                          [](const std::string& line) { return line.starts_with("Refused map "); }),
            static_cast<std::ptrdiff_t>(hostile.size()));
  EXPECT_THAT(device.log, Contains("Refused map n?l: no file can be named after its id"));
  EXPECT_EQ(device.repo().mapIds().size(), all.size()) << "their geometry counts";
  device.update();  // with them in the catalogue, built-in images are looked for
  EXPECT_THAT(device.log, Contains("Refused the built-in image of map /etc/passwd: no file can be named after its id"));
  Strings names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(device.documents.path()))
    if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
  EXPECT_THAT(names, testing::UnorderedElementsAre("good.svg", "map_config_updated.json", "user_defaults.json"));
}

TEST(MapUpdate, TellsItsProgressAndBoundsWhatIsUnderWay) {
  UpdateVenue venue;
  Paths maps;
  for (int i = 0; i < 40; ++i) maps.emplace_back("m" + std::to_string(i), "m" + std::to_string(i) + ".svg");
  venue.publish(maps, 2'000);
  venue.remove("server/maps/m3.svg");
  Device device(venue);
  device.world->server().setLatency(std::chrono::milliseconds(100));
  std::vector<MapUpdateStep> steps;
  device.repo().setUpdateObserver([&](const MapUpdateStep& step) { steps.push_back(step); });
  device.update();
  device.world->time().advanceBy(std::chrono::milliseconds(200));
  EXPECT_EQ(device.requests.size(), 2U + 16U);
  device.world->time().advanceBy(std::chrono::milliseconds(300));
  ASSERT_EQ(steps.size(), 42U);
  EXPECT_EQ(steps.front().kind, MapUpdateStep::Kind::document);
  EXPECT_EQ(steps.front().total, 40U);
  EXPECT_EQ(steps[4].mapId, "m3");
  EXPECT_EQ(steps[4].outcome, MapUpdateStep::Outcome::failed) << "an empty 404 is no image";
  EXPECT_EQ(steps[4].done, 4U);
  EXPECT_EQ(steps[5].bytes, std::string("m4.svg 2000").size());
  EXPECT_EQ(steps.back().kind, MapUpdateStep::Kind::ended);
  EXPECT_EQ(steps.back().outcome, MapUpdateStep::Outcome::downloaded);
  EXPECT_EQ(filesIn(device.maps()).size(), 39U);
}

TEST(MapUpdate, OfTwoAtATimeTheLaterBegunKeepsItsDocument) {
  UpdateVenue venue;
  venue.publish({{"lobby", "l.svg"}}, 2'000);
  Device device(venue);
  device.world->server().setLatency(std::chrono::milliseconds(100));
  device.repo().update();
  device.world->time().advanceBy(std::chrono::milliseconds(250));  // its image is under way, and slow
  venue.put("server/maps/map_config.json", mapDocument({{"lobby", "l.svg"}}, 3'000), 3'000);
  device.world->server().setLatency({});
  device.repo().update();
  device.world->time().runReady();
  EXPECT_EQ(device.version("lobby"), 3'000);
  device.world->time().advanceBy(std::chrono::seconds(1));
  EXPECT_EQ(device.version("lobby"), 3'000);
  device.restart(6'000);
  EXPECT_EQ(device.version("lobby"), 3'000);
}

TEST(MapUpdate, FilePathsAreJoinedToTheDocumentsDirectory) {
  constexpr const char* kDocument = "https://h:8/d/maps.json?v=1/2";
  const struct {
    const char* document;
    const char* filePath;
    const char* url;
  } cases[] = {
      {kDocument, "plans/l 1.svg", "https://h:8/d/plans/l%201.svg"},
      {kDocument, "/plans//l.svg", "https://h:8/d/plans/l.svg"},
      {kDocument, "//evil.example/l.svg", "https://h:8/d/evil.example/l.svg"},
      {kDocument, "./a/../b/%2e/l.svg", "https://h:8/d/b/l.svg"},
      {kDocument, "a/b/%2E%2e/l.svg", "https://h:8/d/a/l.svg"},
      {"https://h:8/d/maps/", "l.svg", "https://h:8/d/l.svg"},
      {"https://h:8/maps//", "l.svg", "https://h:8/l.svg"},
      {"https://h:8/", "l.svg", "https://h:8/l.svg"},
      {"https://h:8", "evil.example/l.svg", "https://h:8/evil.example/l.svg"},
      {"https://h:8?v=1", "l.svg", "https://h:8/l.svg"},
      {"h", "l.svg", "h/l.svg"},
  };
  for (const auto& each : cases) {
    const auto result = mapFile("lobby", each.filePath, each.document);
    ASSERT_TRUE(result.file) << each.filePath << ": " << result.refusal;
    EXPECT_EQ(result.file->url, each.url);
    EXPECT_EQ(result.file->localName, "lobby.svg");
  }
}

// The server does not send again what the device once had.
TEST(MapUpdate, ADocumentThatCouldNotBeSavedIsSavedLater) {
  UpdateVenue venue;
  venue.publish({{"lobby", "l.svg"}}, 2'000);
  Device device(venue);
  const auto saved = device.documents.path() + "/map_config_updated.json";
  std::filesystem::create_directories(saved + "/in the way");
  for (int round = 0; round < 2; ++round) {
    device.update();
    EXPECT_EQ(device.version("lobby"), 2'000);
    EXPECT_THAT(filesIn(device.documents.path()), Contains(Key("map_update_to_complete"))) << round;
  }
  std::filesystem::remove_all(saved);
  EXPECT_THAT(device.update(), Not(Contains("GET/map_config.json")));
  EXPECT_THAT(filesIn(device.documents.path()), Not(Contains(Key("map_update_to_complete"))));
  device.restart(6'000);
  EXPECT_EQ(device.version("lobby"), 2'000);
}

TEST(MapUpdate, RemovesWhatStandsInTheWayAndWhatWasCutOff) {
  UpdateVenue venue;
  venue.publish({{"lobby", "l.svg"}, {"hall", "h.svg"}}, 2'000);
  venue.put("bundle/lobby.svg", "built in", 1'000);
  Device device(venue);
  for (const char* name : {"lobby.svg", "hall.svg"}) device.documents.write("maps/" + std::string(name) + "/x", "x");
  const std::string remains[] = {"maps/.unfinished-1-1", "map_downloads/.unfinished-7-2", ".unfinished-3-3"};
  for (const auto& name : remains) device.documents.write(name, "cut o");
  const int atWork = ::open((device.documents.path() + "/" + remains[0]).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(atWork, LOCK_EX), 0);
  device.restart(kNow);
  device.update();
  EXPECT_THAT(filesIn(device.maps()),
              AllOf(Contains(Pair("lobby.svg", "l.svg 2000")), Contains(Pair("hall.svg", "h.svg 2000")),
                    Contains(Key(".unfinished-1-1"))));
  for (const auto& name : {remains[1], remains[2]})
    EXPECT_FALSE(std::filesystem::exists(device.documents.path() + "/" + name)) << name;
  ::close(atWork);
}

// Destroyed in each of the calls that it makes, with downloads under way.
TEST(MapUpdate, TheObserverMayEndTheCatalogue) {
  UpdateVenue venue;
  Paths maps = {{"../refused", "x.svg"}};
  for (int i = 0; i < 20; ++i) maps.emplace_back("m" + std::to_string(i), "m" + std::to_string(i) + ".svg");
  venue.publish(maps, 2'000);
  venue.remove("server/maps/m3.svg");
  std::size_t last = 0;
  for (bool hasEnded = false; !hasEnded; ++last) {
    Device device(venue);
    device.world->server().setLatency(std::chrono::milliseconds(10));
    auto repo = std::make_unique<TWLMapConfigRepo>(device.world->platform());
    std::size_t steps = 0;
    repo->setUpdateObserver([&](const MapUpdateStep& step) {
      EXPECT_NE(repo, nullptr);
      hasEnded = step.kind == MapUpdateStep::Kind::ended;
      if (steps++ == last) repo.reset();
    });
    repo->update();
    device.world->time().advanceBy(std::chrono::seconds(1));
    EXPECT_EQ(steps, last + 1);
    EXPECT_EQ(repo, nullptr);
  }
  EXPECT_EQ(last, maps.size() + 2);
}

// A server's less usual answers, and file errors.
struct MapUpdateAnswers : testing::Test {
  test::TestPlatform world;

  MapUpdateAnswers() {
    world.files->writeFile("/library/Wayloom.plist", R"({"WLMapConfigURL": "http://s/d/maps.json?v=2/3"})");
    world.files->writeFile("/app/map_config.json", mapDocument({{"a", "a.svg"}, {"b", "b.svg"}}));
    world.files->setModificationDate("/app/map_config.json", platform::calendarTimeFromSeconds(900'000'000));
  }
  void answer(const std::string& methodAndUrl, const std::string& body, int status, const char* date) {
    platform::HttpResponse response{.status = status, .headers = {}, .body = body, .error = {}};
    if (date != nullptr) response.headers.emplace_back("Last-Modified", date);
    world.http->answer(methodAndUrl, response);
  }
  Strings update() {
    world.systemLog->take();
    TWLMapConfigRepo::sharedRepo(world).update();
    world.time.runReady();
    return world.systemLog->take();
  }
};

constexpr char kOld[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr char kNew[] = "Sat, 08 Sep 2001 20:00:00 GMT";

TEST_F(MapUpdateAnswers, AreTakenAsTheyCome) {
  EXPECT_THAT(update(), Contains("Error: no route (HTTP 7)"));
  answer("HEAD http://s/d/maps.json?v=2/3", "", 200, nullptr);
  EXPECT_THAT(update(), Contains("Error: Server didn't include a 'Last-Modified' header. (Wayl 0)"));
  EXPECT_EQ(world.defaults->integerForKey(MAP_CONFIG_UPDATE_TIME_KEY), 0);

  answer("HEAD http://s/d/maps.json?v=2/3", "", 200, kOld);
  answer("GET http://s/d/a.svg", "<h1>404</h1>", 404, nullptr);
  EXPECT_THAT(update(), AllOf(Contains("Error downloading map: no route (HTTP 7)"),
                              Contains("last update time will now be 1000000000")));
  EXPECT_EQ(world.files->readFile("/documents/maps/a.svg"), "<h1>404</h1>") << "the status is not looked at";
  EXPECT_EQ(world.files->readFile("/documents/maps/b.svg"), std::nullopt);

  world.files->setModificationDate("/documents/maps/a.svg", platform::calendarTimeFromSeconds(1'000));
  answer("HEAD http://s/d/a.svg", "", 200, nullptr);
  EXPECT_THAT(update(), Contains("Error downloading map: Server didn't include a 'Last-Modified' header. (Wayl 0)"));
  answer("HEAD http://s/d/a.svg", "", 200, kOld);
  answer("GET http://s/d/a.svg", "", 200, kNew);
  EXPECT_THAT(update(), Contains("Error downloading map: nothing came from http://s/d/a.svg"));
  answer("GET http://s/d/a.svg", "plan", 200, kNew);
  update();
  EXPECT_EQ(world.files->readFile("/documents/maps/a.svg"), "plan");
  EXPECT_EQ(world.files->modificationDate("/documents/maps/a.svg"), TWLMapConfigRepo::dateFrom(kNew));
}

TEST_F(MapUpdateAnswers, HandlersGetDateBodyAndError) {
  TWLMapConfigRepo repo(world);
  using Got = std::tuple<bool, std::optional<std::string>, std::optional<std::string>>;
  std::vector<Got> got;
  const auto handler = [&](TWLMapConfigRepo::Date date, std::optional<std::string> body,
                           std::optional<platform::Error> error) {
    got.emplace_back(date.has_value(), std::move(body), error ? std::optional(error->domain) : std::nullopt);
  };
  answer("HEAD u", "", 200, kNew);
  answer("GET u", "body", 500, nullptr);
  const auto before = platform::calendarTimeFromSeconds(0);
  const auto same = TWLMapConfigRepo::dateFrom(kNew);
  const auto conditional = repo.loadFromUrlIfNewerThanCompletionHandler("u", before, handler);
  world.time.runReady();
  const auto equal = repo.loadFromUrlIfNewerThanCompletionHandler("u", same, handler);
  world.time.runReady();
  const auto dateless = repo.loadFromUrlIfNewerThanCompletionHandler("u", std::nullopt, handler);
  world.time.runReady();
  const auto failing = repo.loadFromUrlCompletionHandler("nowhere", handler);
  world.time.runReady();
  auto abandoned = repo.loadFromUrlIfNewerThanCompletionHandler("u", before, handler);
  abandoned.reset();
  world.time.runReady();
  const std::optional<std::string> none;
  EXPECT_THAT(got, ElementsAre(Got(false, "body", none), Got(true, none, none), Got(true, none, none),
                               Got(false, none, "HTTP")));
}

TEST(TWLManagerMaps, WaitsForTheMenu) {
  UpdateVenue venue;
  Device device(venue);
  auto& platform = device.world->platform();
  TWLManager manager(platform);
  device.world->time().runReady();
  auto timer = platform.tasks().startTimer(platform.tasks().backgroundQueue(), std::chrono::milliseconds(1'010),
                                           std::nullopt, [&] { manager.updateMaps(); });
  const auto before = device.world->time().now();
  const auto maps = manager.maps();
  ASSERT_EQ(maps.size(), 1U);
  EXPECT_EQ(maps.front()->mapId(), "lobby");
  EXPECT_EQ(device.world->time().now() - before, std::chrono::milliseconds(1'050));
}

}  // namespace
}  // namespace wayloom
