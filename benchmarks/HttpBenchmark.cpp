// GET requests a second over loopback: CurlHttpClient, one request at a time and many at once, side by side with a bare
// libcurl easy handle that is used again and again on the calling thread.
#include <atomic>
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <semaphore>
#include <vector>

#include "wayloom/posix/CurlHttpClient.hpp"
#include "wayloom/posix/MainLoop.hpp"

#include "tests/posix/RawServer.hpp"

namespace {

using wayloom::platform::HttpResponse;
using wayloom::posix::CurlHttpClient;
using wayloom::posix::RawServer;

// Answers every read with one small response; requests are short enough to arrive in one piece.
void answerAll(RawServer&, int connection) {
  while (!RawServer::receive(connection).empty())
    RawServer::send(connection, "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\nhello, world");
}

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

void bareEasyHandle(benchmark::State& state) {
  RawServer server(answerAll);
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, server.url().c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, discard);
  for (auto _ : state)
    if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("failed");
  curl_easy_cleanup(easy);
  state.SetItemsProcessed(state.iterations());
}

void oneAtATime(benchmark::State& state) {
  RawServer server(answerAll);
  CurlHttpClient client;
  for (auto _ : state)
    if (client.sendSynchronously({.url = server.url()}).status != 200) state.SkipWithError("failed");
  state.SetItemsProcessed(state.iterations());
}

// `range` requests are always under way.
void manyAtOnce(benchmark::State& state) {
  RawServer server(answerAll);
  wayloom::posix::MainLoop loop;
  const auto queue = loop.makeSerialQueue("responses");
  CurlHttpClient client;
  std::counting_semaphore<> free(state.range(0));
  std::vector<std::unique_ptr<wayloom::platform::HttpTask>> tasks(static_cast<std::size_t>(state.range(0)) * 2);
  std::size_t next = 0;
  for (auto _ : state) {
    free.acquire();
    auto& task = tasks[next++ % tasks.size()];
    task.reset();
    task = client.send({.url = server.url()}, *queue, [&](const HttpResponse&) { free.release(); });
  }
  for (std::int64_t i = 0; i < state.range(0); ++i) free.acquire();
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(bareEasyHandle)->UseRealTime();
BENCHMARK(oneAtATime)->UseRealTime();
BENCHMARK(manyAtOnce)->Arg(6)->Arg(64)->UseRealTime();

}  // namespace
