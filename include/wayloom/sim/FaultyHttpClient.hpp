#pragma once

#include <cstdint>
#include <memory>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/sim/SeededRandom.hpp"

namespace wayloom::sim {

// How often what goes wrong, as shares of the requests, 0 to 1.
struct HttpFaults {
  double fail = 0.0;     // an error instead of the answer
  double delay = 0.0;    // the answer comes late, by up to longestDelay
  double cut = 0.0;      // the body ends early, and nobody says so
  double garbage = 0.0;  // some bytes of the body are others
  platform::Duration longestDelay = std::chrono::seconds(10);
};

// A network that goes wrong at random, the same way for the same seed. Decorates another client, which it shares; for
// the thread that drives the scheduler. Both must outlive the requests under way.
class FaultyHttpClient : public platform::HttpClient {
 public:
  FaultyHttpClient(std::shared_ptr<platform::HttpClient> client, std::shared_ptr<platform::TaskScheduler> tasks,
                   HttpFaults faults, std::uint64_t seed);

  [[nodiscard]] std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                                         Handler handler) override;

  void setFaults(const HttpFaults& faults) { faults_ = faults; }

 private:
  platform::Duration drawDelay();
  platform::HttpResponse spoil(platform::HttpResponse response);

  std::shared_ptr<platform::HttpClient> client_;
  std::shared_ptr<platform::TaskScheduler> tasks_;
  HttpFaults faults_;
  SeededRandom random_;
};

}  // namespace wayloom::sim
