#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <random>

#include "wayloom/posix/CurlHttpClient.hpp"
#include "wayloom/posix/MainLoop.hpp"

#include "tests/posix/HttpServer.hpp"
#include "tests/posix/RawServer.hpp"

namespace wayloom::posix {
namespace {

using namespace std::chrono_literals;
using platform::HttpClient;
using platform::HttpHeaders;
using platform::HttpRequest;
using platform::HttpResponse;
using testing::HasSubstr;
using testing::Pair;

// CURLcodes.
constexpr int kUnsupportedProtocol = 1;
constexpr int kMalformedUrl = 3;
constexpr int kCannotConnect = 7;
constexpr int kPartialFile = 18;
constexpr int kTimedOut = 28;
constexpr int kBadArgument = 43;
constexpr int kTooManyRedirects = 47;
constexpr int kReceiveError = 56;
constexpr int kCertificate = 60;
constexpr int kTooLarge = 63;

HttpRequest get(const std::string& url, platform::Duration timeout = 5s) { return {.url = url, .timeout = timeout}; }

class CurlHttpClientTest : public testing::Test {
 protected:
  // Waits for the response of one asynchronous request.
  HttpResponse fetch(HttpRequest request) {
    std::promise<HttpResponse> promise;
    const auto task = client_.send(std::move(request), *queue_,
                                   [&](HttpResponse response) { promise.set_value(std::move(response)); });
    return promise.get_future().get();
  }
  int errorCode(HttpRequest request) {
    const auto response = fetch(std::move(request));
    EXPECT_EQ(response.status, 0);
    if (!response.error) return 0;
    EXPECT_EQ(response.error->domain, "HTTP");
    EXPECT_NE(response.error->description, "");
    return response.error->code;
  }

  MainLoop loop_;
  std::unique_ptr<platform::TaskQueue> queue_ = loop_.makeSerialQueue("responses");
  CurlHttpClient client_{{.maximumBody = 1'000'000}};
};

TEST_F(CurlHttpClientTest, SendsRequestsAsGiven) {
  httplib::Headers seen;
  std::string seenBody;
  HttpServer<httplib::Server> server;
  const auto note = [&](const httplib::Request& request, httplib::Response& response) {
    seen = request.headers;
    seenBody = request.body;
    response.set_header("Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT");
    response.set_content("answer", "text/plain");
  };
  server->Get("/a", note).Post("/a", note);
  server.start();
  const HttpHeaders headers = {{"AUTHORIZATION", "Token token=\"t k\""}, {"X-GF-AppID", "id"}};

  auto response = fetch({"GET", server.url("/a?x=1"), headers, "", 5s});
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "answer");
  EXPECT_EQ(response.header("last-modified"), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_FALSE(response.header("absent"));
  EXPECT_THAT(seen, testing::IsSupersetOf({Pair("AUTHORIZATION", "Token token=\"t k\""), Pair("X-GF-AppID", "id")}));
  std::string wire;
  RawServer raw([&](RawServer&, int connection) {
    wire = RawServer::receive(connection);
    RawServer::send(connection, "HTTP/1.1 204 No Content\r\n\r\n");
  });
  EXPECT_EQ(fetch({"GET", raw.url(), {{"X-Empty", ""}, {"x-LAST", "1"}}, "", 5s}).status, 204);
  EXPECT_THAT(wire, testing::AllOf(HasSubstr("X-Empty:"), HasSubstr("x-LAST: 1\r\n")));

  response = fetch({"HEAD", server.url("/a"), headers, "", 5s});
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "");
  EXPECT_TRUE(response.header("Last-Modified"));

  const std::string body("{\"a\":\0\xff}", 8);
  response = fetch({"POST", server.url("/a"), headers, body, 5s});
  EXPECT_EQ(response.body, "answer");
  EXPECT_EQ(seenBody, body);
  EXPECT_EQ(seen.count("Content-Type") + seen.count("Expect"), 0U);
  fetch({"POST", server.url("/a"), {{"Content-Type", "application/json"}}, "", 5s});
  EXPECT_THAT(seen, testing::Contains(Pair("Content-Type", "application/json")));
  EXPECT_EQ(seenBody, "");
  // What an earlier request set is gone from the reused handle, and a status is no error.
  response = fetch(get(server.url("/missing")));
  EXPECT_EQ(response.status, 404);
  EXPECT_FALSE(response.error);
  EXPECT_EQ(fetch(get(server.url("/a"))).body, "answer");
  EXPECT_EQ(seen.count("AUTHORIZATION") + seen.count("Content-Length"), 0U);
}

TEST_F(CurlHttpClientTest, FollowsRedirectsOfReadsOnly) {
  httplib::Headers seen;
  HttpServer<httplib::Server> other;
  other->Get("/end", [&](const httplib::Request& request, httplib::Response& response) {
    seen = request.headers;
    response.set_content("end", "text/plain");
  });
  other.start();
  HttpServer<httplib::Server> server;
  const auto redirect = [&](const std::string& target) {
    return [target](const httplib::Request&, httplib::Response& response) {
      response.set_header("X-First", "1");
      response.set_redirect(target);
    };
  };
  server->Get("/a", redirect("/b")).Get("/b", redirect(other.url("/end"))).Get("/loop", redirect("/loop"));
  server->Get("/c", redirect("/end")).Get("/end", [&](const httplib::Request& request, httplib::Response&) {
    seen = request.headers;
  });
  server->Get("/file", redirect("file:///etc/hostname")).Post("/a", redirect("/b"));
  server.start();

  const auto response = fetch({"GET", server.url("/a"), {{"AUTHORIZATION", "secret"}, {"X-Other", "o"}}, "", 5s});
  EXPECT_EQ(response.body, "end");
  EXPECT_FALSE(response.header("X-First"));
  EXPECT_EQ(seen.count("X-Other") + seen.count("AUTHORIZATION"), 0U) << "another server sees neither";
  EXPECT_EQ(fetch({"HEAD", server.url("/c"), {{"X-Other", "o"}}, "", 5s}).status, 200);
  EXPECT_EQ(seen.count("X-Other"), 1U) << "the same server does";
  EXPECT_EQ(fetch({"POST", server.url("/a"), {}, "x", 5s}).status, 302);
  EXPECT_EQ(errorCode(get(server.url("/loop"))), kTooManyRedirects);
  EXPECT_EQ(errorCode(get(server.url("/file"))), kUnsupportedProtocol);
}

TEST_F(CurlHttpClientTest, RefusesWhatCannotBeSent) {
  for (const auto& url : {std::string(), std::string("maps/x.svg"), std::string("http://"), std::string("http://a b/"),
                          std::string("http://h/\r\nX: y"), std::string("http://127.0.0.1/\0x", 19)})
    EXPECT_EQ(errorCode(get(url)), kMalformedUrl) << url;
  EXPECT_EQ(errorCode(get("file:///etc/hostname")), kUnsupportedProtocol);
  EXPECT_EQ(errorCode(get("ftp://127.0.0.1/")), kUnsupportedProtocol);
  EXPECT_EQ(errorCode({"DELETE", "http://127.0.0.1/", {}, "", 1s}), kBadArgument);
  for (const auto& header :
       {std::pair<std::string, std::string>("X", "a\r\nY: b"), {"X Y", "a"}, {"", "a"}, {"X:", "a"}})
    EXPECT_EQ(errorCode({"GET", "http://127.0.0.1/", {header}, "", 1s}), kBadArgument) << header.first;
  EXPECT_EQ(errorCode(get("http://127.0.0.1:1/")), kCannotConnect);
  EXPECT_EQ(platform::sendSynchronously(client_, loop_, get("")).error->code, kMalformedUrl);
}

TEST_F(CurlHttpClientTest, TimesOutWhenNothingMoves) {
  const auto silent = answering("", true);
  EXPECT_EQ(errorCode(get(silent->url(), 150ms)), kTimedOut);
  const auto stalled = answering("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbegin", true);
  EXPECT_EQ(errorCode(get(stalled->url(), 150ms)), kTimedOut);
  // One that takes longer as a whole but keeps moving is let through, up to ten times the time-out.
  const auto trickling = [](int pieces) {
    return [pieces](RawServer& server, int connection) {
      RawServer::receive(connection);
      RawServer::send(connection, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(pieces) + "\r\n\r\n");
      for (int i = 0; i < pieces && !server.isStopping(); ++i) {
        std::this_thread::sleep_for(40ms);
        RawServer::send(connection, "x");
      }
    };
  };
  RawServer slow(trickling(15));
  EXPECT_EQ(fetch(get(slow.url(), 400ms)).body.size(), 15U);
  RawServer endless(trickling(200));
  EXPECT_EQ(errorCode(get(endless.url(), 150ms)), kTimedOut);
}

TEST_F(CurlHttpClientTest, BoundsAndChecksBodies) {
  const auto announced = answering("HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nx", true);
  EXPECT_EQ(errorCode(get(announced->url())), kTooLarge);
  const std::string lot(1'500'000, 'x');
  const auto unannounced = answering("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + lot);
  EXPECT_EQ(errorCode(get(unannounced->url())), kTooLarge);
  std::string headers = "HTTP/1.1 200 OK\r\n";
  for (int i = 0; i < 40; ++i) headers += "X-" + std::to_string(i) + ": " + std::string(50'000, 'h') + "\r\n";
  const auto manyHeaders = answering(headers + "Content-Length: 0\r\n\r\n");
  EXPECT_THAT(errorCode(get(manyHeaders->url())), testing::AnyOf(kTooLarge, kReceiveError));  // newer libcurls: theirs
  for (const auto& [answer, code] : std::vector<std::pair<std::string, int>>{
           {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut", kPartialFile},
           {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n5\r\nhe", kPartialFile},
           {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\njunk", 61},
           {"", 52},
           {"nonsense\r\n\r\n", 1}}) {
    const auto server = answering(answer);
    EXPECT_EQ(errorCode(get(server->url())), code) << answer;
  }
  // A small answer that unpacks to more than the limit.
  HttpServer<httplib::Server> server;
  server->Get("/packed", [&](const httplib::Request& request, httplib::Response& response) {
    EXPECT_THAT(request.get_header_value("Accept-Encoding"), HasSubstr("gzip"));
    response.set_content(request.has_param("all") ? lot : lot.substr(0, 900'000), "text/plain");
  });
  server.start();
  EXPECT_EQ(fetch(get(server.url("/packed"))).body.size(), 900'000U);
  EXPECT_EQ(errorCode(get(server.url("/packed?all=1"))), kTooLarge);
}

TEST_F(CurlHttpClientTest, ChecksCertificates) {
  const auto directory = std::filesystem::path(testing::TempDir()) / ("tls-" + std::to_string(::getpid()));
  std::filesystem::create_directories(directory);
  const auto key = (directory / "key.pem").string();
  const auto certificate = (directory / "certificate.pem").string();
  const auto command = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -keyout " +
                       key + " -out " + certificate +
                       " -subj /CN=localhost -addext subjectAltName=DNS:localhost 2>/dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  HttpServer<httplib::Server> plain;
  plain->Get("/",
             [](const httplib::Request&, httplib::Response& response) { response.set_content("p", "text/plain"); });
  plain.start();
  HttpServer<httplib::SSLServer> server(certificate.c_str(), key.c_str());
  server->Get("/a", [](const httplib::Request&, httplib::Response& r) { r.set_content("secure", "text/plain"); });
  server->Get("/down", [&](const httplib::Request&, httplib::Response& r) { r.set_redirect(plain.url("/")); });
  server.start();

  EXPECT_EQ(errorCode(get(server.url("/a", "https", "localhost"))), kCertificate);
  CurlHttpClient trusting({.certificateAuthorities = certificate});
  const auto ask = [&](const std::string& path, const std::string& host) {
    return platform::sendSynchronously(trusting, loop_, get(server.url(path, "https", host)));
  };
  EXPECT_EQ(ask("/a", "localhost").body, "secure");
  EXPECT_EQ(ask("/a", "127.0.0.1").error->code, kCertificate);
  EXPECT_EQ(ask("/down", "localhost").error->code, kUnsupportedProtocol);
  std::filesystem::remove_all(directory);
}

TEST_F(CurlHttpClientTest, ManyRequestsShareAFewConnections) {
  std::atomic<int> atOnce = 0;
  std::atomic<int> most = 0;
  HttpServer<httplib::Server> server;
  server->Get("/a", [&](const httplib::Request& request, httplib::Response& response) {
    most = std::max<int>(most, ++atOnce);
    if (request.has_param("slow")) std::this_thread::sleep_for(1200ms);
    --atOnce;
    response.set_content(request.get_param_value("n"), "text/plain");
  });
  server.start();
  constexpr int kRequests = 60;
  constexpr int kConnections = 16;
  std::vector<std::unique_ptr<platform::HttpTask>> tasks;
  std::vector<std::string> bodies(kRequests);
  std::promise<void> done;
  std::atomic<int> left = kRequests;
  for (int i = 0; i < kRequests; ++i) {
    // The later ones wait for the first ones for longer than their time-out, which only counts from their turn; ten
    // times of it count from the sending.
    auto url = server.url("/a?n=" + std::to_string(i) + (i < kConnections ? "&slow=1" : ""));
    tasks.push_back(client_.send(get(url, i < kConnections ? 30s : 1s), *queue_, [&, i](HttpResponse response) {
      bodies[static_cast<std::size_t>(i)] = response.error ? response.error->description : response.body;
      if (--left == 0) done.set_value();
    }));
  }
  done.get_future().wait();
  for (int i = 0; i < kRequests; ++i) EXPECT_EQ(bodies[static_cast<std::size_t>(i)], std::to_string(i));
  EXPECT_LE(most, kConnections);
}

TEST_F(CurlHttpClientTest, CancelledRequestsNeverCallBack) {
  HttpServer<httplib::Server> server;
  server->Get("/a",
              [](const httplib::Request&, httplib::Response& response) { response.set_content("a", "text/plain"); });
  server.start();
  std::mt19937 random(1);
  for (int i = 0; i < 150; ++i) {
    auto gone = std::make_shared<std::atomic<bool>>(false);
    std::promise<void> entered;
    auto task = client_.send(get(server.url("/a")), *queue_, [&, gone](const HttpResponse&) {
      EXPECT_FALSE(*gone);
      entered.set_value();
      std::this_thread::sleep_for(100us);
      EXPECT_FALSE(*gone) << "the destructor waits for a running callback";
    });
    // At once, at some moment, and while the callback runs.
    if (i % 3 == 1) std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
    if (i % 3 == 2) entered.get_future().wait();
    task.reset();
    *gone = true;
  }

  // From inside the callback itself, and with a queue that goes right after the request.
  std::promise<void> done;
  std::unique_ptr<platform::HttpTask> self;
  std::mutex sending;
  {
    const std::lock_guard lock(sending);
    self = client_.send(get(server.url("/a")), *queue_, [&](const HttpResponse&) {
      { const std::lock_guard wait(sending); }
      self.reset();
      done.set_value();
    });
  }
  done.get_future().wait();
  for (int i = 0; i < 50; ++i) {
    auto own = loop_.makeSerialQueue("own");
    auto task = client_.send(get(server.url("/a")), *own, [](const HttpResponse&) {});
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 1000));
    task.reset();
  }
}

TEST_F(CurlHttpClientTest, CancellingFreesTheConnection) {
  const auto silent = answering("", true);
  for (int i = 0; i < 30; ++i) {
    auto task = client_.send(get(silent->url(), 60s), *queue_, [](const HttpResponse&) { ADD_FAILURE(); });
    while (silent->connections() <= i) std::this_thread::yield();
  }
}

TEST_F(CurlHttpClientTest, WaitingRequestsEndInTimeAndLeaveNothingBehind) {
  const auto silent = answering("", true);
  const auto send = [&](std::string body, platform::Duration timeout, HttpClient::Handler handler) {
    return client_.send({"POST", silent->url(), {}, std::move(body), timeout}, *queue_, std::move(handler));
  };
  std::vector<std::unique_ptr<platform::HttpTask>> underWay;
  for (int i = 0; i < 16; ++i) underWay.push_back(send("", 60s, [](const HttpResponse&) {}));
  while (silent->connections() < 16) std::this_thread::yield();

  // Of those behind them the last one ends for its own time, which began when it was sent.
  std::promise<HttpResponse> ended;
  const auto begin = std::chrono::steady_clock::now();
  const auto patient = send("", 60s, [](const HttpResponse&) { ADD_FAILURE(); });
  const auto hasty = send("", 20ms, [&](HttpResponse response) { ended.set_value(std::move(response)); });
  EXPECT_EQ(ended.get_future().get().error->code, kTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);

  const auto memory = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  const auto before = memory();
  for (int i = 0; i < 200; ++i)
    send(std::string(100'000, 'x'), 60s, [](const HttpResponse&) { ADD_FAILURE(); }).reset();
  const auto isGone = [&] { return memory() < before + 1'000'000; };
  for (int i = 0; i < 1000 && !isGone(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(isGone()) << memory() - before;
}

TEST_F(CurlHttpClientTest, AQueueMayGoBeforeItsRequests) {
  RawServer late([](RawServer&, int connection) {
    RawServer::receive(connection);
    std::this_thread::sleep_for(1ms);
    RawServer::send(connection, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  });
  for (int i = 0; i < 50; ++i) {
    auto own = loop_.makeSerialQueue("own");
    const auto captured = std::make_shared<int>();
    const auto task = client_.send(get(late.url()), *own, [captured](const HttpResponse&) {});
    std::this_thread::sleep_for(std::chrono::microseconds(i * 50));
    own.reset();
    if (i == 49)
      while (captured.use_count() > 1) std::this_thread::yield();  // the answer finds nobody
  }
}

TEST_F(CurlHttpClientTest, SynchronousRequestsKeepNoWorker) {
  const auto silent = answering("", true);
  std::vector<std::unique_ptr<platform::TaskQueue>> queues;
  std::promise<void> others;
  std::atomic<int> ended = 0;
  for (int i = 0; i < 8; ++i) {
    queues.push_back(loop_.makeSerialQueue("silent"));
    queues.back()->async([&] {
      EXPECT_TRUE(platform::sendSynchronously(client_, loop_, get(silent->url(), 500ms)).error);
      ++ended;
    });
  }
  queue_->async([&] { others.set_value(); });
  others.get_future().wait();
  EXPECT_EQ(ended, 0) << "the others need not wait for the silent server";
  while (ended < 8) std::this_thread::yield();
}

TEST_F(CurlHttpClientTest, DestructionEndsWhatIsUnderWayAtOnce) {
  const auto silent = answering("", true);
  auto client = std::make_unique<CurlHttpClient>();
  std::vector<std::unique_ptr<platform::HttpTask>> tasks;
  std::atomic<int> ended = 0;
  std::promise<void> allEnded;
  constexpr int kRequests = 20;
  for (int i = 0; i < kRequests; ++i)
    tasks.push_back(client->send(get(silent->url(), 60s), *queue_, [&](const HttpResponse& response) {
      EXPECT_TRUE(response.error);
      if (++ended == kRequests) allEnded.set_value();
    }));
  const auto other = answering("", true);
  auto synchronous = std::async(std::launch::async, [&, self = client.get()] {
    return platform::sendSynchronously(*self, loop_, get(other->url(), 60s));
  });
  while (silent->connections() < 6 || other->connections() < 1) std::this_thread::yield();
  const auto begin = std::chrono::steady_clock::now();
  client.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);  // on any machine; the servers would hang for a minute
  EXPECT_TRUE(synchronous.get().error);
  allEnded.get_future().wait();
}

TEST_F(CurlHttpClientTest, AHandlerMayOwnTheClient) {
  HttpServer<httplib::Server> server;
  server->Get("/a",
              [](const httplib::Request&, httplib::Response& response) { response.set_content("a", "text/plain"); });
  server.start();
  for (int i = 0; i < 20; ++i) {
    struct Owner {
      CurlHttpClient client;
      std::unique_ptr<platform::HttpTask> task;
    };
    auto owner = std::make_shared<Owner>();
    auto own = loop_.makeSerialQueue("own");
    std::promise<void> done;
    owner->task = owner->client.send(get(server.url("/a")), *own, [owner, &done](const HttpResponse&) mutable {
      owner.reset();
      done.set_value();
    });
    owner.reset();
    done.get_future().wait();
  }
}

}  // namespace
}  // namespace wayloom::posix
