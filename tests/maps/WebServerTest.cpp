// Updates over the network, from servers that are not ours.
#include <fstream>
#include <gmock/gmock.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"

#include "tests/maps/Nginx.hpp"
#include "tests/maps/UpdateVenue.hpp"
#include "tests/posix/RawServer.hpp"
#include "tests/support/ServeProcess.hpp"

namespace wayloom {
namespace {

using test::filesIn;
using test::Paths;
using test::UpdateVenue;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using Outcome = MapUpdateStep::Outcome;
using Outcomes = std::map<std::string, Outcome>;

// A host application with its files, over the real network.
struct Host {
  explicit Host(const UpdateVenue& venue, const std::string& url, platform::Duration timeout = std::chrono::seconds(5))
      : loop(std::make_shared<posix::MainLoop>()) {
    auto services =
        posix::makeServices({.mainBundle = venue.path() + "/bundle", .documents = documents.path(), .loop = loop});
    services.systemLog = std::make_shared<sim::CallbackLogSink>([this](std::string_view line) { log.write(line); });
    services.http = std::make_shared<HurriedClient>(services.http, timeout);
    platform = std::make_unique<platform::Platform>(std::move(services));
    repo().setUpdateUrl(url);
  }

  TWLMapConfigRepo& repo() { return TWLMapConfigRepo::sharedRepo(*platform); }
  std::string maps() const { return documents.path() + "/maps"; }

  // What became of each map and, under "", of the document.
  Outcomes update() {
    outcomes.clear();
    repo().setUpdateObserver([this](const MapUpdateStep& step) {
      if (step.kind == MapUpdateStep::Kind::ended) return loop->stop();
      outcomes[step.mapId] = step.outcome;
    });
    TWLUpdateManager::sharedUpdateManager(*platform).update();
    loop->run();
    return outcomes;
  }

  struct HurriedClient : platform::HttpClient {
    HurriedClient(std::shared_ptr<platform::HttpClient> clientToUse, platform::Duration timeoutOfEach)
        : client(std::move(clientToUse)), timeout(timeoutOfEach) {}
    std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                             Handler handler) override {
      request.timeout = timeout;
      return client->send(std::move(request), queue, std::move(handler));
    }
    std::shared_ptr<platform::HttpClient> client;
    platform::Duration timeout;
  };
  struct Log {
    void write(std::string_view line) {
      const std::lock_guard lock(mutex);
      lines.emplace_back(line);
    }
    std::vector<std::string> take() {
      const std::lock_guard lock(mutex);
      return std::exchange(lines, {});
    }
    std::mutex mutex;
    std::vector<std::string> lines;
  };

  sim::TestFolder documents;
  Log log;
  std::shared_ptr<posix::MainLoop> loop;
  Outcomes outcomes;
  std::unique_ptr<platform::Platform> platform;
};

// As if the last update had ended then; by itself it ends now, which files of a test can't be later than.
void setLastUpdate(Host& host, std::int64_t seconds) {
  host.platform->userDefaults().setInteger(MAP_CONFIG_UPDATE_TIME_KEY, seconds);
}

// What every server must get right; `url` is that of the venue's document.
void goThroughTheLifeOfAVenue(const UpdateVenue& venue, const std::string& url) {
  venue.put("bundle/map_config.json", test::mapDocument({{"lobby", "plans/l 1.svg"}}), 1'000);
  venue.publish({{"lobby", "plans/l 1.svg"}, {"hall", "h.png"}}, 1'000);
  Host host(venue, url);
  EXPECT_EQ(host.update(), (Outcomes{{"", Outcome::unchanged}, {"lobby", Outcome::downloaded}}))
      << "the document is as old as the built-in one, and its image is not here";
  venue.publish({{"lobby", "plans/l 1.svg"}, {"hall", "h.png"}}, 2'000);
  setLastUpdate(host, 0);
  const Outcomes all = {{"", Outcome::downloaded}, {"lobby", Outcome::downloaded}, {"hall", Outcome::downloaded}};
  EXPECT_EQ(host.update(), all);
  EXPECT_EQ(test::dateOf(host.maps() + "/hall.png"), 2'000);

  EXPECT_EQ(host.update(),
            (Outcomes{{"", Outcome::unchanged}, {"lobby", Outcome::unchanged}, {"hall", Outcome::unchanged}}));
  venue.put("server/maps/h.png", "one image", 2'100);
  EXPECT_EQ(host.update(),
            (Outcomes{{"", Outcome::unchanged}, {"lobby", Outcome::unchanged}, {"hall", Outcome::downloaded}}));
  setLastUpdate(host, 2'000);
  EXPECT_EQ(host.update().at(""), Outcome::unchanged) << "equal to the cut-off";

  setLastUpdate(host, 2'150);
  venue.put("server/maps/map_config.json", test::mapDocument({{"hall", "h.png"}, {"attic", "a.svg"}}), 2'200);
  venue.put("server/maps/a.svg", "added", 2'200);
  EXPECT_EQ(host.update(),
            (Outcomes{{"", Outcome::downloaded}, {"hall", Outcome::unchanged}, {"attic", Outcome::downloaded}}));
  EXPECT_THAT(host.repo().mapIds(), ElementsAre("hall", "attic"));
  venue.remove("server/maps/a.svg");
  EXPECT_EQ(host.update().at("attic"), Outcome::failed);
  EXPECT_THAT(filesIn(host.maps()),
              AllOf(Contains(Pair("attic.svg", "added")), Contains(Pair("hall.png", "one image"))));
}

TEST(WebServer, NginxIsUnderstood) {
  const UpdateVenue venue;
  const test::Nginx nginx(venue.path() + "/server");
  ASSERT_TRUE(nginx.isListening());
  goThroughTheLifeOfAVenue(venue, nginx.url() + "/maps/map_config.json");
}

TEST(WebServer, OurOwnIsUnderstood) {
  const UpdateVenue venue;
  venue.put("server/kit.json", R"({"kit": {}})", 1'000);
  const ServeProcess server(venue.path());
  ASSERT_FALSE(server.url().empty());
  goThroughTheLifeOfAVenue(venue, server.url() + "/maps/map_config.json");
}

TEST(WebServer, OddAnswersOfNginx) {
  const UpdateVenue venue;
  const test::Nginx nginx(venue.path() + "/server",
                          "location /undated/ { alias " + venue.path() +
                              "/server/maps/; add_header Last-Modified \"\"; }\n"
                              "location /moved/ { rewrite ^/moved/(.*)$ /maps/$1 redirect; }\n"
                              "location = /maps/broken.svg { return 503 \"busy\"; }\n"
                              "location /broken/ { return 503 \"busy\"; }\n");
  ASSERT_TRUE(nginx.isListening());
  venue.publish({{"lobby", "lobby.svg"}, {"broken", "broken.svg"}, {"missing", "missing.svg"}}, 2'000);
  venue.remove("server/maps/missing.svg");

  Host undated(venue, nginx.url() + "/undated/map_config.json");
  EXPECT_EQ(undated.update(), Outcomes({{"", Outcome::failed}}));
  EXPECT_THAT(undated.log.take(), Contains("Error: Server didn't include a 'Last-Modified' header. (Wayl 0)"));
  EXPECT_EQ(Host(venue, nginx.url() + "/broken/map_config.json").update(), Outcomes({{"", Outcome::failed}}));

  Host moved(venue, nginx.url() + "/moved/map_config.json");
  EXPECT_EQ(moved.update().at("lobby"), Outcome::downloaded);
  EXPECT_EQ(test::dateOf(moved.maps() + "/lobby.svg"), 2'000);
  EXPECT_EQ(filesIn(moved.maps()).at("broken.svg"), "busy") << "the status is not looked at";
  EXPECT_THAT(filesIn(moved.maps()).at("missing.svg"), HasSubstr("404"));
  EXPECT_EQ(moved.update(), (Outcomes{{"", Outcome::unchanged},
                                      {"lobby", Outcome::unchanged},
                                      {"broken", Outcome::failed},
                                      {"missing", Outcome::failed}}))
      << "error pages have no date";
}

TEST(WebServer, AHundredMapsOfNginx) {
  const UpdateVenue venue;
  const test::Nginx nginx(venue.path() + "/server");
  ASSERT_TRUE(nginx.isListening());
  Paths maps;
  for (int i = 0; i < 100; ++i) maps.emplace_back("m" + std::to_string(i), "m" + std::to_string(i) + ".svg");
  venue.publish(maps, 2'000);
  Host host(venue, nginx.url() + "/maps/map_config.json");
  host.update();
  EXPECT_EQ(filesIn(host.maps()).size(), 106U) << "with the page";
  for (const auto& [mapId, path] : maps) EXPECT_EQ(filesIn(host.maps()).at(mapId + ".svg"), path + " 2000");
}

// Each request of a connection costs the delay, as over a long way.
std::unique_ptr<posix::RawServer> farServer(std::function<std::string(const std::string& request)> answer,
                                            std::chrono::milliseconds delay) {
  return std::make_unique<posix::RawServer>([answer = std::move(answer), delay](posix::RawServer&, int connection) {
    for (std::string request; !(request = posix::RawServer::receive(connection)).empty();) {
      std::this_thread::sleep_for(delay);
      posix::RawServer::send(connection, answer(request));
    }
  });
}

std::string answerOf(const std::string& body, bool isHead) {
  return "HTTP/1.1 200 OK\r\nLast-Modified: Thu, 01 Jan 1970 00:33:20 GMT\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + (isHead ? "" : body);
}

TEST(WebServer, TwoHundredChangedMapsFarAwayTakeATenth) {
  Paths maps;
  for (int i = 0; i < 200; ++i) maps.emplace_back("m" + std::to_string(i), "m" + std::to_string(i) + ".svg");
  const auto server = farServer(
      [document = test::mapDocument(maps)](const std::string& request) {
        return answerOf(request.find("map_config.json") != request.npos ? document : "new",
                        request.starts_with("HEAD"));
      },
      std::chrono::milliseconds(50));
  const UpdateVenue venue;
  Host host(venue, server->url() + "maps/map_config.json");
  const TWLMapsFileManager files(*host.platform);
  for (const auto& [mapId, path] : maps) {
    std::ofstream(files.mapDirectoryPath() + "/" + path) << "old";
    test::setDate(files.mapDirectoryPath() + "/" + path, 1'500);
  }
  const auto begin = std::chrono::steady_clock::now();
  const auto outcomes = host.update();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(std::count_if(outcomes.begin(), outcomes.end(),
                          [](const auto& outcome) { return outcome.second == Outcome::downloaded; }),
            201);
  EXPECT_LE(server->connections(), 16);
  constexpr double kOneByOne = 402 * 0.05;
  testing::Test::RecordProperty("seconds", std::to_string(took.count()));
  EXPECT_LT(took.count(), kOneByOne / 4) << "far below a tenth as a rule; this machine may be busy";
}

TEST(WebServer, CutBodiesAndSilenceChangeNothing) {
  const UpdateVenue venue;
  const auto cutting = farServer(
      [](const std::string& request) {
        const bool isHead = request.starts_with("HEAD");
        if (request.find("map_config.json") != request.npos)
          return answerOf(test::mapDocument({{"whole", "w.svg"}, {"cut", "c.svg"}}), isHead);
        auto answer = answerOf(std::string(100, 'x'), isHead);
        if (request.find("c.svg") != request.npos && !isHead) answer.resize(answer.size() - 50);
        return answer;
      },
      {});
  Host host(venue, cutting->url() + "map_config.json", std::chrono::milliseconds(300));
  const std::string installed = TWLMapsFileManager(*host.platform).mapDirectoryPath() + "/cut.svg";
  std::ofstream(installed) << "old";
  test::setDate(installed, 1'500);
  EXPECT_EQ(host.update(),
            (Outcomes{{"", Outcome::downloaded}, {"whole", Outcome::downloaded}, {"cut", Outcome::failed}}));
  EXPECT_EQ(filesIn(host.maps()).at("cut.svg"), "old");
  EXPECT_EQ(filesIn(host.maps()).at("whole.svg"), std::string(100, 'x'));

  const posix::RawServer silent([](posix::RawServer& server, int) { server.hang(); });
  Host patient(venue, silent.url() + "map_config.json", std::chrono::milliseconds(100));
  EXPECT_EQ(patient.update(), Outcomes({{"", Outcome::failed}}));
  EXPECT_EQ(patient.repo().lastUpdateTime(), 1'000);
}

}  // namespace
}  // namespace wayloom
