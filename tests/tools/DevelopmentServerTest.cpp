// The development server over real connections, most of them of our own client.
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/posix/CurlHttpClient.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PlistReader.hpp"

#include "backends/posix/FileDescriptor.hpp"
#include "tests/sim/SimVenue.hpp"
#include "tests/support/ServeProcess.hpp"
#include "tools/serve/DevelopmentServer.hpp"

namespace wayloom::tools {
namespace {

using namespace std::chrono_literals;
using platform::HttpHeaders;
using platform::HttpResponse;
using platform::Json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kModified = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr std::time_t kModifiedSeconds = 784'111'777;

const HttpHeaders kApiToken = {{"AUTHORIZATION", "Token token=\"t k\""}, {"X-GF-AppID", "device"}};
const HttpHeaders kStatusToken = {{"AUTHORIZATION", "Token token=\"s\""}, {"X-PL-AppID", "device"}};

// A connection on which the test says what it likes.
posix::FileDescriptor connectTo(const std::string& url) {
  posix::FileDescriptor connection(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return connection;
}

// Whether headers and body of the one answer are there.
bool isWhole(const std::string& answer) {
  const auto end = answer.find("\r\n\r\n");
  const auto length = answer.find("Content-Length: ");
  return end != answer.npos && (length > end || answer.size() >= end + 4 + std::stoul(answer.substr(length + 16)));
}

std::string say(const posix::FileDescriptor& connection, const std::string& text) {
  EXPECT_EQ(::send(connection.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  std::string answer;
  std::array<char, 4096> bytes{};
  for (ssize_t count = 1; count > 0 && !isWhole(answer);
       answer.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))))
    count = ::recv(connection.get(), bytes.data(), bytes.size(), 0);
  return answer;
}

class DevelopmentServerTest : public testing::Test {
 protected:
  DevelopmentServerTest() {
    const std::string texts =
        "<key>GFKitURL</key><string>https://kit.example/api/kits/7</string><key>GFAPIToken</key><string>t k</string>"
        "<key>GFAnalyticsURL</key><string>https://in.example/v1/events</string><key>floors</key><integer>3</integer>";
    venue_.write("bundle/Geofold.plist", sim::propertyList(texts));
    venue_.write("bundle/Wayloom.plist",
                 sim::propertyList(texts + "<key>WLMapConfigURL</key><string>https://m.example/c.json</string>"));
    venue_.write("bundle/plan.svg", "<svg/>");
    venue_.write("server/kit.json",
                 R"({"kit":{"id":7,"status_url":"https://st.example/v1/events","status_token":"s","ibeacons":[]}})");
    venue_.write("server/maps/map_config.json", "{}");
    venue_.write("server/maps/plans/a b.svg", std::string(50'000, 'x'));
    venue_.write("secret", "secret");
  }

  void start(const std::string& faults = {}, bool pointsStatusHere = false) {
    std::string error;
    server_ = DevelopmentServer::start({.venue = venue_.path(),
                                        .keep = venue_.path() + "/kept",
                                        .pointsStatusHere = pointsStatusHere,
                                        .faults = faults},
                                       error);
    ASSERT_NE(server_, nullptr) << error;
  }
  HttpResponse send(platform::HttpRequest request) {
    return platform::sendSynchronously(client_, tasks_, std::move(request));
  }
  HttpResponse get(const std::string& path, HttpHeaders headers = {}, const std::string& method = "GET") {
    return send({method, server_->url() + path, std::move(headers), "", 20s});
  }
  HttpResponse post(const std::string& path, const HttpHeaders& headers, const std::string& body) {
    return send({"POST", server_->url() + path, headers, body, 20s});
  }
  void date(const std::string& name, std::time_t seconds) const {
    const timespec times[] = {{seconds, 0}, {seconds, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (venue_.path() + "/" + name).c_str(), times, 0), 0);
  }
  std::vector<Json> kept(const std::string& name) const {
    std::ifstream file(venue_.path() + "/kept/" + name);
    std::vector<Json> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(platform::parseJson(line).value.value_or(Json()));
    return lines;
  }

  sim::TestFolder venue_;
  posix::MainLoop tasks_;
  posix::CurlHttpClient client_;
  std::unique_ptr<DevelopmentServer> server_;
};

TEST_F(DevelopmentServerTest, ServesFilesToThoseWhoHaveAnotherVersion) {
  start();
  date("server/kit.json", kModifiedSeconds);
  date("server/maps/map_config.json", kModifiedSeconds);
  auto response = get("/api/kits/7", kApiToken);
  EXPECT_EQ(response.status, 200);
  EXPECT_THAT(response.body, StartsWith(R"({"kit":{"id":7,"status_url":"https://st.example)"));
  EXPECT_EQ(response.header("Last-Modified"), kModified);
  EXPECT_TRUE(response.header("Date"));

  const std::string config = "/maps/map_config.json";
  response = get(config, {{"Accept-Encoding", "identity"}}, "HEAD");
  EXPECT_EQ(response.header("Content-Length"), "2");
  EXPECT_EQ(response.header("Last-Modified"), kModified);
  for (const auto& [since, status] : std::vector<std::pair<std::string, int>>{{kModified, 304},
                                                                              {"Sun, 06 Nov 1994 08:49:38 GMT", 304},
                                                                              {"Sun, 06 Nov 1994 08:49:36 GMT", 200},
                                                                              {"yesterday", 200}})
    EXPECT_EQ(get(config, {{"If-Modified-Since", since}}).status, status) << since;
  response = get(config, {{"If-Modified-Since", kModified}});
  EXPECT_EQ(response.body, "");
  EXPECT_EQ(response.header("Last-Modified"), kModified);
  EXPECT_EQ(get(config, {{"If-Modified-Since", kModified}, {"If-None-Match", "\"x\""}}).status, 200);

  venue_.write("server" + config, "{\"new\":1}");
  EXPECT_EQ(get(config, {{"If-Modified-Since", kModified}}).body, "{\"new\":1}");
  for (const std::time_t future : {std::time(nullptr) + 100'000, std::time_t{13'600'000'000}}) {  // the year 2400
    date("server" + config, future);
    response = get(config);
    EXPECT_EQ(response.header("Last-Modified"), response.header("Date")) << "no date of the future";
  }
  response = get("/maps/plans/a%20b.svg");
  EXPECT_EQ(response.body.size(), 50'000U);
  EXPECT_EQ(response.header("Content-Type"), "image/svg+xml");
}

TEST_F(DevelopmentServerTest, ServesNothingElse) {
  start();
  for (const char* path : {"/", "/maps", "/maps/", "/maps/plans", "/maps/none", "/secret", "/server/kit.json"})
    EXPECT_EQ(get(path).status, 404) << path;
  EXPECT_EQ(get("/v1/events").status, 404);
  EXPECT_EQ(post("/api/kits/7", kApiToken, "{}").status, 404);
  const auto connection = connectTo(server_->url());
  for (const char* target : {"/maps/../../secret", "/maps/%2e%2e/%2e%2e/secret", "/maps/..%2f..%2fsecret",
                             "//maps/../secret", "/maps/map_config.json%00"}) {
    const auto answer = say(connection, std::string("GET ") + target + " HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 404")) << target;
    EXPECT_THAT(answer, testing::Not(HasSubstr("secret\r\n\r\nsecret")));
  }
  EXPECT_THAT(say(connectTo(server_->url()), "nonsense\r\n\r\n"), StartsWith("HTTP/1.1 400"));
}

TEST_F(DevelopmentServerTest, KeepsWhatTheEndpointsReceive) {
  start();
  // The kit's status address has the path of the analytics: it gets another here.
  const auto status = server_->endpoints().statusUrl("");
  EXPECT_EQ(status, "/status");
  EXPECT_EQ(post("/v1/events", kApiToken, R"({"b":[1,2.5,null],"a":"\u00e9"})").status, 200);
  EXPECT_EQ(post("/v1/events", kStatusToken, "{}").status, 401);
  EXPECT_EQ(post("/v1/events?x=1", kApiToken, "{\"a\":\xff").status, 400);
  EXPECT_EQ(post(status, kStatusToken, "{}").status, 200);
  EXPECT_EQ(post("/sdk/v1/events", kApiToken, "{}").status, 200) << "the status logger has the other token";
  EXPECT_EQ(post(status, {}, "{}").status, 401);

  const auto lines = kept("analytics.jsonl");
  ASSERT_EQ(lines.size(), 3U);
  auto first = lines[0];
  EXPECT_NEAR(platform::doubleValue(platform::member(first, "t")), static_cast<double>(std::time(nullptr)), 100.0);
  first.erase("t");
  EXPECT_EQ(first.dump(),
            R"({"status":200,"path":"/v1/events","headers":{"Accept":"*/*","AUTHORIZATION":"Token token=\"t k\"",)"
            R"("X-GF-AppID":"device"},"body":{"b":[1,2.5,null],"a":"é"}})");
  EXPECT_EQ(lines[1]["status"], 401);
  EXPECT_EQ(lines[2]["path"], "/v1/events?x=1");
  EXPECT_EQ(lines[2]["body_text"], "{\"a\":\xEF\xBF\xBD");
  EXPECT_EQ(kept("status.jsonl").size(), 3U);
  const auto mode = std::filesystem::status(venue_.path() + "/kept/status.jsonl").permissions();
  EXPECT_EQ(mode, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  start();  // appends
  EXPECT_EQ(post("/v1/events", kApiToken, "{}").status, 200);
  EXPECT_EQ(kept("analytics.jsonl").size(), 4U);
}

TEST_F(DevelopmentServerTest, AnswersBadlyWhenToldTo) {
  constexpr int kUnsupportedProtocol = 1;
  constexpr int kPartialFile = 18;
  constexpr int kTimedOut = 28;
  constexpr int kGotNothing = 52;
  start("status:fail=503\n/maps/plans:cut=5000\nanalytics:cut=0");
  const auto errorOf = [](const HttpResponse& response) { return response.error ? response.error->code : 0; };

  auto response = post("/status", kStatusToken, "{}");
  EXPECT_EQ(response.status, 503);
  EXPECT_THAT(response.body, HasSubstr("503"));
  EXPECT_EQ(kept("status.jsonl")[0]["status"], 503);
  EXPECT_EQ(kept("status.jsonl")[0]["fault"], "fail=503");
  EXPECT_EQ(get("/maps/map_config.json").body, "{}");
  EXPECT_EQ(errorOf(get("/maps/plans/a%20b.svg", {{"Accept-Encoding", "identity"}})), kPartialFile);
  EXPECT_EQ(errorOf(post("/v1/events", kApiToken, "{}")), kGotNothing);
  EXPECT_EQ(kept("analytics.jsonl").size(), 1U) << "received, though the answer was lost";

  EXPECT_EQ(server_->setFaults("maps:garbage;kit:garbage=all"), "");
  response = get("/maps/plans/a%20b.svg");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body.size(), 50'000U);
  EXPECT_NE(response.body, std::string(50'000, 'x'));
  EXPECT_EQ(errorOf(get("/api/kits/7")), kUnsupportedProtocol) << "this is no HTTP";
  EXPECT_EQ(post("/status", kStatusToken, "{}").status, 200);

  server_->setFaults("kit:hang;maps:slow=300ms,rate=100000,times=1");
  response = send({"GET", server_->url() + "/api/kits/7", {}, "", 200ms});
  EXPECT_EQ(errorOf(response), kTimedOut);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(get("/maps/plans/a%20b.svg", {{"Accept-Encoding", "identity"}}).body.size(), 50'000U);
  EXPECT_GT(std::chrono::steady_clock::now() - begin, 750ms);
}

TEST_F(DevelopmentServerTest, TakesFaultsWhileItRuns) {
  start("hang");
  const auto put = [&](const std::string& rules) {
    const auto connection = connectTo(server_->url());
    return say(connection, "PUT /_faults HTTP/1.1\r\nHost: h\r\nConnection: close\r\nContent-Length: " +
                               std::to_string(rules.size()) + "\r\n\r\n" + rules);
  };
  EXPECT_EQ(get("/_faults").body, "hang\n");
  for (const char* wrong : {"slow", "slow=2", "slow=-1s", "fail=1000", "cut=-1", "rate=0", "times=2", "all:hang",
                            "chance=2,hang", "hang,,", "garbage=some", "status:", "kit:hang;oops"})
    EXPECT_THAT(put(wrong), testing::AllOf(StartsWith("HTTP/1.1 400"), HasSubstr("\""))) << wrong;
  EXPECT_EQ(get("/_faults").body, "hang\n") << "a wrong rule changes nothing";
  EXPECT_THAT(put(""), StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(get("/_faults").body, "");

  // The first rule that applies counts, chances come out the same for one seed, and rules run out.
  const std::string rules = "kit:fail=500,times=2 ; kit:fail=501,chance=0.5\n maps:fail=502";
  std::vector<int> statuses[2];
  for (auto& seen : statuses) {
    start(rules);
    for (int i = 0; i < 40; ++i) seen.push_back(get("/api/kits/7").status);
    EXPECT_EQ(get("/maps/map_config.json").status, 502);
  }
  EXPECT_EQ(statuses[0], statuses[1]);
  EXPECT_EQ(std::count(statuses[0].begin(), statuses[0].begin() + 2, 500), 2);
  EXPECT_EQ(std::count(statuses[0].begin(), statuses[0].end(), 500), 2);
  EXPECT_GT(std::count(statuses[0].begin(), statuses[0].end(), 501), 5);
  EXPECT_GT(std::count(statuses[0].begin(), statuses[0].end(), 200), 5);
}

TEST_F(DevelopmentServerTest, BoundsWhatComesIn) {
  start();
  const std::string token = "Authorization: Token token=\"t k\"\r\n";
  const auto head = [&](const std::string& path, const std::string& more) {
    return "POST " + path + " HTTP/1.1\r\nHost: h\r\n" + token + more + "\r\n";
  };
  // Chunks without an end: each is let in, their sum is not.
  for (const auto& [path, answer] :
       {std::pair("/v1/events", "HTTP/1.1 413"), std::pair("/elsewhere", "HTTP/1.1 404")}) {
    const auto connection = connectTo(server_->url());
    const std::string chunk = "100000\r\n" + std::string(1U << 20U, ' ') + "\r\n";
    std::string request = head(path, "Transfer-Encoding: chunked\r\n");
    for (int i = 0; i < 40; ++i, request = chunk)
      if (::send(connection.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) break;
    EXPECT_THAT(say(connection, ""), StartsWith(answer)) << path;
  }
  EXPECT_THAT(
      say(connectTo(server_->url()), head("/v1/events", "Transfer-Encoding: chunked\r\n") + "2\r\n{}\r\n0\r\n\r\n"),
      StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(kept("analytics.jsonl").size(), 1U) << "only what was whole";
  // Clients that stand still in the middle of a request are in nobody's way.
  std::vector<posix::FileDescriptor> dripping;
  for (int i = 0; i < 300; ++i) {
    dripping.push_back(connectTo(server_->url()));
    ::send(dripping.back().get(), "GET /ki", 7, MSG_NOSIGNAL);
  }
  EXPECT_EQ(get("/maps/map_config.json").status, 200);
}

// A full disk is told, and what it tore stays on a line of its own.
TEST_F(DevelopmentServerTest, KeepsWhatItCan) {
  std::filesystem::create_directory(venue_.path() + "/kept");
  venue_.write("kept/analytics.jsonl", "{\"torn\":");
  std::filesystem::create_symlink("/dev/full", venue_.path() + "/kept/status.jsonl");
  start();
  EXPECT_EQ(post("/v1/events", kApiToken, "{}").status, 200);
  EXPECT_EQ(post("/v1/events", kApiToken, "{}").status, 200);
  const auto lines = kept("analytics.jsonl");
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_TRUE(lines[0].is_null());
  EXPECT_EQ(lines[1]["status"], 200);
  const auto response = post("/status", kStatusToken, "{}");
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.body, "can't be kept: No space left on device\n");
}

TEST_F(DevelopmentServerTest, PointsTheKitsStatusToItself) {
  start({}, true);
  const auto port = server_->url().substr(server_->url().rfind(':'));
  const auto url = [&](const std::string& host) {
    const auto answer = say(connectTo(server_->url()), "GET /api/kits/7 HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    const auto kit = platform::parseJson(answer.substr(answer.find("\r\n\r\n"))).value.value_or(Json());
    return kit["kit"]["status_url"].get<std::string>();
  };
  EXPECT_EQ(url("kiosk.local:80"), "http://kiosk.local:80/status");
  EXPECT_EQ(url("\"evil"), "http://127.0.0.1" + port + "/status");
  venue_.write("server/kit.json", R"({"kit":{"id":8}})");
  EXPECT_THAT(get("/api/kits/7").body, HasSubstr("\"status_token\": \"s\""));
  venue_.write("server/kit.json", "[oops");
  EXPECT_EQ(get("/api/kits/7").body, "[oops");
}

TEST_F(DevelopmentServerTest, WritesABundleThatPointsToIt) {
  const sim::TestFolder folder;
  ServeProcess serve(venue_.path(), {"--write-bundle", folder.path() + "/new/bundle"});
  for (const char* name : {"/new/bundle/Geofold.plist", "/new/bundle/Wayloom.plist"}) {
    const auto list = posix::PlistReader().readDictionary(folder.path() + name);
    ASSERT_TRUE(list) << name;
    EXPECT_EQ((*list)["GFKitURL"], serve.url() + "/api/kits/7");
    EXPECT_EQ((*list)["GFAnalyticsURL"], serve.url() + "/v1/events");
    EXPECT_EQ((*list)["GFAPIToken"], "t k");
    EXPECT_EQ((*list)["floors"], 3);
    EXPECT_EQ(list->contains("WLMapConfigURL"), std::string(name).ends_with("Wayloom.plist"));
  }
  EXPECT_TRUE(std::filesystem::exists(folder.path() + "/new/bundle/plan.svg"));
  const auto list = posix::PlistReader().readDictionary(folder.path() + "/new/bundle/Wayloom.plist");
  EXPECT_EQ(send({.url = (*list)["WLMapConfigURL"].get<std::string>()}).body, "{}");
  for (const char* inside : {"/bundle/../bundle", "/bundle/new/deep"}) {
    ServeProcess own(venue_.path(), {"--write-bundle", venue_.path() + inside});
    EXPECT_EQ(own.url(), "");
    EXPECT_EQ(own.wait(), 1);
  }
  EXPECT_FALSE(std::filesystem::exists(venue_.path() + "/bundle/new"));
}

TEST_F(DevelopmentServerTest, StopsWhateverItsClientsDo) {
  for (const int signal : {SIGTERM, SIGINT}) {
    ServeProcess serve(venue_.path(), {"--fault", "kit:hang", "--fault", "maps:slow=1000s"});
    const auto idle = connectTo(serve.url());
    const auto kept = connectTo(serve.url());
    EXPECT_THAT(say(kept, "GET / HTTP/1.1\r\nHost: h\r\n\r\n"), StartsWith("HTTP/1.1 404"));
    std::vector<posix::FileDescriptor> waiting;
    for (const char* text : {"GET /api/kits/7 HTTP/1.1\r\n\r\n", "GET /maps/map_config.json HTTP/1.1\r\n\r\n",
                             "POST /v1/events HTTP/1.1\r\nContent-Length: 10\r\n\r\n12", "GET"}) {
      waiting.push_back(connectTo(serve.url()));
      ::send(waiting.back().get(), text, std::strlen(text), MSG_NOSIGNAL);
    }
    // Served after those were accepted.
    EXPECT_THAT(say(connectTo(serve.url()), "GET / HTTP/1.1\r\nHost: h\r\n\r\n"), StartsWith("HTTP/1.1 404"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(serve.end(signal), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s) << "an idle connection alone is kept for five";
  }
}

TEST_F(DevelopmentServerTest, SaysWhyItCannotServe) {
  start();
  const auto errorOf = [&](DevelopmentServerOptions options) {
    std::string error;
    options.venue = options.venue.empty() ? venue_.path() : options.venue;
    EXPECT_EQ(DevelopmentServer::start(options, error), nullptr);
    return error;
  };
  const int port = std::stoi(server_->url().substr(server_->url().rfind(':') + 1));
  EXPECT_THAT(errorOf({.port = port}), testing::AllOf(HasSubstr(std::to_string(port)), HasSubstr("in use")));
  EXPECT_THAT(errorOf({.address = "none.invalid"}), HasSubstr("none.invalid"));
  EXPECT_THAT(errorOf({.venue = venue_.path() + "/bundle"}), HasSubstr("no venue folder"));
  EXPECT_THAT(errorOf({.keep = venue_.path() + "/secret/kept"}), HasSubstr("Not a directory"));
  EXPECT_THAT(errorOf({.faults = "slow=later"}), HasSubstr("\"slow=later\""));
  ServeProcess missing(venue_.path() + "/none");
  EXPECT_EQ(missing.wait(), 2);
}

}  // namespace
}  // namespace wayloom::tools
