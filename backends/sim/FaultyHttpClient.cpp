#include "wayloom/sim/FaultyHttpClient.hpp"

#include <optional>
#include <utility>

#include "wayloom/platform/TaskScope.hpp"

#include "backends/sim/SpoiledBytes.hpp"

namespace wayloom::sim {
namespace {

using platform::Duration;
using platform::HttpRequest;
using platform::HttpResponse;

constexpr std::uint64_t kRequestFaults = 101;
constexpr int kTimedOut = 28;  // of libcurl

// The request under way, and the wait for its late answer.
struct FaultyTask : platform::HttpTask {
  std::unique_ptr<platform::HttpTask> inner;
  std::unique_ptr<platform::Timer> timer;
  platform::TaskScope scope;
};

}  // namespace

FaultyHttpClient::FaultyHttpClient(std::shared_ptr<platform::HttpClient> client,
                                   std::shared_ptr<platform::TaskScheduler> tasks, HttpFaults faults,
                                   std::uint64_t seed)
    : client_(std::move(client)), tasks_(std::move(tasks)), faults_(faults), random_(seed, kRequestFaults) {}

std::unique_ptr<platform::HttpTask> FaultyHttpClient::send(HttpRequest request, platform::TaskQueue& queue,
                                                           Handler handler) {
  auto task = std::make_unique<FaultyTask>();
  const auto delay = drawDelay();
  task->inner =
      client_->send(std::move(request), queue,
                    [this, &queue, delay, task = task.get(), handler = std::move(handler)](HttpResponse response) {
                      response = spoil(std::move(response));
                      if (delay == Duration::zero()) return handler(std::move(response));
                      task->timer = tasks_->startTimer(
                          queue, delay, std::nullopt,
                          task->scope.bind([handler, response = std::move(response)] { handler(response); }));
                    });
  return task;
}

Duration FaultyHttpClient::drawDelay() {
  if (!random_.chance(faults_.delay)) return Duration::zero();
  return platform::durationFromSeconds(platform::secondsOf(faults_.longestDelay) * random_.uniform());
}

HttpResponse FaultyHttpClient::spoil(HttpResponse response) {
  if (random_.chance(faults_.fail)) {
    HttpResponse failure;
    failure.error = platform::Error{"HTTP", kTimedOut, "Timeout was reached"};
    return failure;
  }
  if (random_.chance(faults_.cut)) cutBytes(response.body, random_);
  if (random_.chance(faults_.garbage)) garbleBytes(response.body, random_);
  return response;
}

}  // namespace wayloom::sim
