// The engine's HTTP client: what it sends, what it keeps, and what it hands on when a request fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Url.hpp"
#include "wayloom/regions/TGFAPIRequest.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::Error;
using platform::HttpResponse;
using platform::Json;
using testing::ElementsAre;
using testing::Pair;

constexpr auto kUrl = "https://kits.example/api/kits/42?x=1";
constexpr auto kFile = "/documents/geofold-api-kits-42.data";

struct Answer {
  std::optional<Error> error;
  std::optional<Json> document;
};

class Request : public testing::Test {
 protected:
  Request() : request(std::in_place, world, "secret") { TGFLogger::setLevel(world, 3); }

  void serve(std::string body) {
    HttpResponse response;
    response.status = 500;  // the status takes no part
    response.body = std::move(body);
    world.http->answer(std::string("GET ") + kUrl, response);
  }
  void goOffline() {
    HttpResponse response;
    response.error = Error{"HTTP", 7, "no route"};
    world.http->answer(std::string("GET ") + kUrl, response);
  }
  Answer get(const std::optional<std::string>& url = kUrl) {
    std::optional<Answer> answer;
    request->getHandler(url, [&](std::optional<Error> error, std::optional<Json> document) {
      answer = {std::move(error), std::move(document)};
    });
    EXPECT_FALSE(answer) << "the handler must not run inside the call";
    world.time.runReady();
    return answer.value();
  }

  test::TestPlatform world;
  std::optional<TGFAPIRequest> request;
};

TEST_F(Request, SendsItsHeaders) {
  get();
  HttpResponse pong;
  pong.status = 500;
  pong.body = "pong";
  world.http->answer("POST https://a.example/", pong);
  EXPECT_EQ(request->postBody("https://a.example/", "ping"), "pong");
  EXPECT_EQ(request->postBody("https://b.example/", "ping"), std::nullopt);
  EXPECT_EQ(request->postBody(std::nullopt, "ping"), std::nullopt);
  HttpResponse tooLarge;
  tooLarge.error = Error{"HTTP", platform::kHttpAnswerTooLarge, "too large"};
  world.http->answer("POST https://c.example/", tooLarge);
  EXPECT_EQ(request->postBody("https://c.example/", "ping"), "") << "delivered all the same";

  const auto sent = world.http->takeRequests();
  ASSERT_EQ(sent.size(), 5U);
  EXPECT_EQ(sent[0].method + " " + sent[0].url, std::string("GET ") + kUrl);
  const auto token = Pair("AUTHORIZATION", "Token token=\"secret\"");
  const auto device = Pair("X-GF-AppID", "00000000-0000-0000-0000-000000000000");
  const auto version = Pair("X-GF-FrameworkVersion", "1.0.3");
  EXPECT_THAT(sent[0].headers, ElementsAre(token, device, version));
  EXPECT_THAT(sent[1].headers, ElementsAre(token, device, version, Pair("Content-Type", "application/json"),
                                           Pair("Accept", "application/json")));
  EXPECT_EQ(sent[1].body, "ping");
}

TEST_F(Request, AnEarlierAnswerStandsInForAFailure) {
  goOffline();
  auto answer = get();
  EXPECT_EQ(answer.error, (Error{"HTTP", 7, "no route"}));
  EXPECT_FALSE(answer.document);
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Error] API Request Failed with Error: no route (HTTP 7)"));

  serve(R"({"kit": 1})");
  answer = get();
  EXPECT_FALSE(answer.error);
  EXPECT_EQ(answer.document, Json({{"kit", 1}}));
  EXPECT_EQ(world.files->readFile(kFile), R"({"kit": 1})");

  serve("");
  answer = get();
  EXPECT_EQ(answer.error, (Error{"Geofold", 204, "No Data"}));
  EXPECT_EQ(answer.document, Json({{"kit", 1}}));

  TGFLogger::setLevel(world, 6);
  world.console->take();
  goOffline();
  EXPECT_EQ(get().document, Json({{"kit", 1}}));
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Error] API Request Failed with Error: no route (HTTP 7)",
                                                 std::string("Geofold[Info] API Data Loaded from Cache: ") + kFile));
  EXPECT_FALSE(get(std::nullopt).document);
}

TEST_F(Request, WhatIsNoDocumentIsKeptButNotHandedOn) {
  for (const auto* body : {"<html>", "{\"kit\": ", "7", "\"kit\"", "\xFF"}) {
    serve(body);
    const auto answer = get();
    EXPECT_FALSE(answer.error) << body;
    EXPECT_FALSE(answer.document) << body;
    EXPECT_EQ(world.files->readFile(kFile), body);
    const auto lines = world.console->take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], testing::StartsWith("Geofold[Error] API JSON Error:"));
  }
  EXPECT_FALSE(request->parseResponse(std::nullopt));
}

TEST_F(Request, AFailingDiskIsLoggedAndTheAnswerDelivered) {
  class FullDisk : public test::MemoryFiles {
   public:
    using MemoryFiles::MemoryFiles;
    std::optional<Error> writeFileAtomically(const std::string&, std::string_view) override {
      return Error{"Files", 28, "disk full"};
    }
  };
  auto services = world.services();
  services.files = std::make_shared<FullDisk>(world.time.calendarClock());
  platform::Platform full(services);
  TGFLogger::setLevel(full, 3);
  serve("[1]");
  std::optional<Json> document;
  TGFAPIRequest failing(full, "secret");
  failing.getHandler(kUrl, [&](std::optional<Error>, std::optional<Json> answer) { document = std::move(answer); });
  world.time.runReady();
  EXPECT_EQ(document, Json::array({1}));
  EXPECT_THAT(world.console->take(),
              ElementsAre("Geofold[Error] API Data Write to Cache Failed with Error: disk full (Files 28)"));
}

TEST_F(Request, NamesCacheFilesAfterThePathAlone) {
  const std::string longName(240, 'a');
  for (const auto& [url, name] : std::vector<std::pair<std::string, std::optional<std::string>>>{
           {"https://h/api/kits/42", "geofold-api-kits-42.data"},
           {"http://user@other:81//api/kits/42/?q=/..#/x", "geofold-api-kits-42.data"},
           {"https://h", "geofold-.data"},
           {"https://h/", "geofold-.data"},
           {"https://h/a%20b", "geofold-a b.data"},
           {"https://h/a%2Fb", "geofold-a-b.data"},
           {"https://h/..%2f..%2fetc", std::nullopt},
           {"https://h/../x", std::nullopt},
           {"https://h/%2e%2e", std::nullopt},
           {"https://h/.", std::nullopt},
           {"https://h/a%00b", std::nullopt},
           {"https://h/a%0Ab", std::nullopt},
           {"https://h/" + longName, "geofold-" + longName + ".data"},
           {"https://h/ab/" + longName, std::nullopt}}) {
    EXPECT_EQ(request->fileNameFrom(url), name) << url;
    EXPECT_EQ(world.console->take().size(), name ? 0U : 1U) << url;
  }
  EXPECT_EQ(request->pathToFileForURL(kUrl), kFile);
}

TEST_F(Request, NoAddressIsAnsweredFromAnothersFile) {
  const auto keep = [&](const std::string& url, const std::string& answer) {
    request->writeToDiskFromURL(answer, url);
  };
  const std::vector<std::string> sharing = {"https://h/a-b/c", "https://h/a/b-c", "https://other/a/b-c",
                                            "https://h/a/b-c?venue=2"};
  world.files->writeFile("/documents/geofold-a-b-c.data", "older");
  EXPECT_EQ(request->readFromDisk(sharing[1]), "older") << "kept by somebody who said not for whom";
  for (const auto& url : sharing) {
    keep(url, "answer to " + url);
    for (const auto& other : sharing)
      EXPECT_EQ(request->readFromDisk(other), other == url ? std::optional("answer to " + url) : std::nullopt)
          << other << " after " << url;
  }
  EXPECT_EQ(world.files->readFile("/documents/geofold-a-b-c.data"), "answer to " + sharing.back());
  EXPECT_EQ(request->readFromDisk(sharing.back() + "#kit"), "answer to " + sharing.back());
  EXPECT_THAT(world.files->listDirectory("/documents").value(), testing::SizeIs(2));
}

TEST_F(Request, AnInterruptedWriteMixesNoAddresses) {
  // Files of a process that ends after so many changes.
  class Dying : public test::MemoryFiles {
   public:
    using MemoryFiles::MemoryFiles;
    std::optional<Error> writeFileAtomically(const std::string& path, std::string_view bytes) override {
      return left-- > 0 ? MemoryFiles::writeFileAtomically(path, bytes) : Error{"Files", 5, "dead"};
    }
    std::optional<Error> removeFile(const std::string& path) override {
      return left-- > 0 ? MemoryFiles::removeFile(path) : Error{"Files", 5, "dead"};
    }
    int left = 2;
  };
  for (int changes = 0; changes <= 3; ++changes) {
    auto services = world.services();
    const auto files = std::make_shared<Dying>(world.time.calendarClock());
    services.files = files;
    platform::Platform dying(services);
    TGFAPIRequest client(dying, "secret");
    client.writeToDiskFromURL("first", "https://h/kit");
    files->left = changes;
    client.writeToDiskFromURL("second", "https://other/kit");
    const auto first = client.readFromDisk("https://h/kit");
    const auto second = client.readFromDisk("https://other/kit");
    EXPECT_EQ(first, changes == 0 ? std::optional<std::string>("first") : std::nullopt) << changes;
    EXPECT_EQ(second, changes == 3 ? std::optional<std::string>("second") : std::nullopt) << changes;
  }
}

TEST_F(Request, ManyAtOnceAreAnsweredInTurnAndForgotten) {
  serve("[1]");
  int calls = 0;
  std::function<void(std::optional<Error>, std::optional<Json>)> handler = [&](auto, auto) {
    if (++calls < 500) request->getHandler(kUrl, handler);
  };
  for (int i = 0; i < 20; ++i) request->getHandler(kUrl, handler);
  world.time.runReady();
  EXPECT_EQ(calls, 500 + 19);
}

TEST_F(Request, DestructionCancels) {
  serve("[1]");
  int calls = 0;
  request->getHandler(kUrl, [&](std::optional<Error>, std::optional<Json>) { ++calls; });
  request.reset();
  world.time.runReady();
  EXPECT_EQ(calls, 0);

  request.emplace(world, "secret");
  request->getHandler(kUrl, [&](std::optional<Error>, std::optional<Json>) {
    ++calls;
    request.reset();
  });
  world.time.runReady();
  EXPECT_EQ(calls, 1);
}

TEST(Url, TellsTextsThatCanBeUrls) {
  for (const auto* fine : {"https://h/a?b=c&d=%20#e", "h", "http://[::1]:80/"})
    EXPECT_TRUE(platform::isWellFormedUrl(fine)) << fine;
  for (const auto* wrong : {"", "http://h/a b", "http://h/%2", "http://h/%zz", "http://h/\xC3\xA4", "<h>", "a\nb"})
    EXPECT_FALSE(platform::isWellFormedUrl(wrong)) << wrong;
}

}  // namespace
}  // namespace wayloom
