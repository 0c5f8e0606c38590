// A host that walks in and out of a region some hundred times a second, for tests that spoil its files:
//
//   wayloom_store_driver BUNDLE DOCUMENTS CYCLES
//
// Each cycle enters the region of the kit, ranges three times, raises the event "cycle" with its number, leaves, and,
// when all that has been recorded, prints the number. With 0 cycles, it uploads until nothing is due. Every upload of
// analytics that a timer would start every half minute starts every 20 ms instead.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/analytics/TGFAnalyticsEvent.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/regions/TGFManager.hpp"

namespace {

using namespace wayloom;
using namespace std::chrono_literals;

class Host {
 public:
  Host(const char* bundle, const char* documents) {
    location_ = std::make_shared<ranging::RangerLocationServices>(*loop_, clock_);
    location_->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
    platform_ =
        posix::makePlatform({.mainBundle = bundle, .documents = documents, .loop = loop_, .location = location_});
    TGFManagerServices services;
    services.makeAnalytics = [this](platform::Platform& platform, TGFManager&) {
      auto analytics = std::make_unique<TGFAnalytics>(platform);
      analytics_ = analytics.get();
      return analytics;
    };
    manager_ = std::make_unique<TGFManager>(*platform_, nullptr, std::nullopt, services);
    manager_->start();
    while (!manager_->kit()) std::this_thread::sleep_for(1ms);
    uploads_ = loop_->startTimer(loop_->mainQueue(), 20ms, 20ms, [this] { analytics_->uploadAnalyticsToServer(); });
  }

  void cycle(int number) {
    const auto region = manager_->kit()->beaconRegions().front()->region();
    location_->deliverEnter(region);
    for (int i = 0; i < 3; ++i) {
      std::array<platform::CLBeacon, 5> beacons;
      for (std::uint16_t minor = 0; minor < beacons.size(); ++minor)
        beacons[minor] = {.proximityUUID = region->proximityUUID(), .major = 1, .minor = minor, .rssi = -60};
      location_->deliverRanging(beacons, region);
      loop_->runDue();
    }
    TGFAnalyticsEvent::postEventWithDetails(*platform_, "cycle", {{"number", number}});
    location_->deliverExit(region);
    loop_->runDue();
    std::this_thread::sleep_for(2ms);  // leaves time for uploads
  }

  bool hasDue() {
    return !analytics_->beaconRegionsToBeUploaded().empty() || !analytics_->eventsToBeUploaded().empty();
  }
  void wait() {
    std::this_thread::sleep_for(5ms);
    loop_->runDue();
  }

 private:
  std::shared_ptr<posix::MainLoop> loop_ = std::make_shared<posix::MainLoop>();
  posix::PosixMonotonicClock clock_;
  std::shared_ptr<ranging::RangerLocationServices> location_;
  std::unique_ptr<platform::Platform> platform_;
  std::unique_ptr<TGFManager> manager_;
  TGFAnalytics* analytics_ = nullptr;
  std::unique_ptr<platform::Timer> uploads_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const int cycles = std::atoi(argv[3]);
  Host host(argv[1], argv[2]);
  std::puts("ready");
  std::fflush(stdout);
  for (int number = 1; number <= cycles; ++number) {
    host.cycle(number);
    std::printf("%d\n", number);
    std::fflush(stdout);
  }
  while (cycles == 0 && host.hasDue()) host.wait();
}
