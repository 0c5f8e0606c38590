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
  wayloom::posix::MainLoop loop;
  CurlHttpClient client;
  for (auto _ : state)
    if (wayloom::platform::sendSynchronously(client, loop, {.url = server.url()}).status != 200)
      state.SkipWithError("failed");
  state.SetItemsProcessed(state.iterations());
}

// Places for the requests under way; one is free again when its response has come.
class Slots {
 public:
  explicit Slots(std::size_t count) : tasks_(count), available_(static_cast<std::ptrdiff_t>(count)) {
    for (std::size_t i = 0; i < count; ++i) free_.push_back(i);
  }
  std::size_t take() {
    available_.acquire();
    const std::lock_guard lock(mutex_);
    const auto slot = free_.back();
    free_.pop_back();
    return slot;
  }
  void giveBack(std::size_t slot) {
    {
      const std::lock_guard lock(mutex_);
      free_.push_back(slot);
    }
    available_.release();
  }
  std::unique_ptr<wayloom::platform::HttpTask>& task(std::size_t slot) { return tasks_[slot]; }

 private:
  std::vector<std::unique_ptr<wayloom::platform::HttpTask>> tasks_;
  std::vector<std::size_t> free_;
  std::mutex mutex_;
  std::counting_semaphore<> available_;
};

// `range` requests are always under way.
void manyAtOnce(benchmark::State& state) {
  RawServer server(answerAll);
  wayloom::posix::MainLoop loop;
  const auto queue = loop.makeSerialQueue("responses");
  CurlHttpClient client;
  const auto count = static_cast<std::size_t>(state.range(0));
  Slots slots(count);
  for (auto _ : state) {
    const auto slot = slots.take();
    slots.task(slot).reset();
    slots.task(slot) = client.send({.url = server.url()}, *queue, [&slots, slot](const HttpResponse& response) {
      if (response.status != 200) std::abort();
      slots.giveBack(slot);
    });
  }
  for (std::size_t i = 0; i < count; ++i) slots.take();
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(bareEasyHandle)->UseRealTime();
BENCHMARK(oneAtATime)->UseRealTime();
BENCHMARK(manyAtOnce)->Arg(6)->Arg(64)->UseRealTime();

}  // namespace
