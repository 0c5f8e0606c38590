// A host whose life is short: records sessions, events and sightings as fast as it can and uploads them meanwhile,
// until somebody kills it. After each call that recorded something it says so on standard output:
//
//   enter N, range N, exit N, event N, status N
//
// Usage: BUNDLE DOCUMENTS STATUS_URL STATUS_TOKEN FIRST      records from number FIRST on
//        BUNDLE DOCUMENTS STATUS_URL STATUS_TOKEN drain      uploads what is due, and ends
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFNotifications.hpp"
#include "wayloom/status/TPLStatusManager.hpp"

#include "tests/killed/Numbered.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using platform::Json;

constexpr auto kStepInterval = 2ms;
constexpr auto kUploadInterval = 15ms;

// At once, for a kill leaves nothing that is buffered.
void say(const char* what, int number) {
  const auto line = std::string(what) + " " + std::to_string(number) + "\n";
  if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) std::exit(1);
}

class Recorder {
 public:
  Recorder(platform::Platform& platform, const Json& statusConfig, int first)
      : platform_(platform), analytics_(platform), status_(platform, statusConfig), next_(first) {
    analytics_.startLogging();
    auto& tasks = platform.tasks();
    stepTimer_ = tasks.startTimer(tasks.mainQueue(), 0ms, kStepInterval, [this] { step(); });
    uploadTimer_ = tasks.startTimer(tasks.mainQueue(), 0ms, kUploadInterval, [this] {
      analytics_.uploadAnalyticsToServer();
      status_.uploadEvents();
    });
  }

 private:
  void step() {
    const int number = next_++;
    const auto uuid = numberedUuid(number);
    const auto region = std::make_shared<const TGFBeaconRegion>(Json{{"uuid", uuid}, {"major", 1}, {"minor", nullptr}});
    post(TGFManagerDidEnterRegionNotification, region, {});
    say("enter", number);
    std::vector<platform::CLBeacon> heard;
    TGFBeaconList beacons;
    for (std::uint16_t minor = 0; minor < kBeaconsOfARegion; ++minor) {
      heard.push_back({.proximityUUID = *platform::UUID::parse(uuid), .major = 1, .minor = minor});
      beacons.push_back(std::make_shared<const TGFBeacon>(heard.back(), std::make_shared<const BeaconMatch>()));
    }
    // The first ranging inserts, the second updates.
    for (int ranging = 0; ranging < 2; ++ranging) post(TGFManagerDidRangeBeaconsInRegionNotification, region, beacons);
    say("range", number);
    if (staysOpen(number)) return;
    post(TGFManagerDidExitRegionNotification, region, {});
    say("exit", number);
    recordEvent(number);
    status_.rangedBeacons(heard);
    say("status", number);
  }

  void post(const char* name, const TGFRegionPtr& region, const TGFBeaconList& beacons) {
    platform::Notification notification{name, this, {}};
    notification.userInfo.set(TGFManagerNotificationRegionKey, region);
    notification.userInfo.set(TGFManagerNotificationBeaconsKey, beacons);
    platform_.notificationCenter().post(notification);
  }

  void recordEvent(int number) {
    platform::Notification notification{TGFManagerDidTriggerAnalyticsEvent, this, {}};
    notification.userInfo.set(TGFManagerNotificationAnalyticsEventTypeKey, std::string("step"));
    notification.userInfo.set(TGFManagerNotificationAnalyticsEventDetailsKey, Json{{"n", number}});
    platform_.notificationCenter().post(notification);
    say("event", number);
  }

  platform::Platform& platform_;
  TGFAnalytics analytics_;
  TPLStatusManager status_;
  int next_;
  std::unique_ptr<platform::Timer> stepTimer_;
  std::unique_ptr<platform::Timer> uploadTimer_;
};

// The next run, as far as it is about what the last one left.
class Drain {
 public:
  Drain(platform::Platform& platform, posix::MainLoop& loop, const Json& statusConfig)
      : loop_(loop), analytics_(platform), status_(platform, statusConfig) {
    auto& tasks = platform.tasks();
    timer_ = tasks.startTimer(tasks.mainQueue(), 0ms, kUploadInterval, [this] { check(); });
  }

 private:
  void check() {
    const bool isDue = !analytics_.beaconRegionsToBeUploaded().empty() || !analytics_.eventsToBeUploaded().empty();
    if (!isDue && status_.db().beaconSessionsToBeUploaded().empty()) return loop_.stop();
    if (isDue) analytics_.uploadAnalyticsToServer();
    status_.uploadEvents();
  }

  posix::MainLoop& loop_;
  TGFAnalytics analytics_;
  TPLStatusManager status_;
  std::unique_ptr<platform::Timer> timer_;
};

int run(char** arguments) {
  auto loop = std::make_shared<posix::MainLoop>();
  posix::PlatformOptions options;
  options.mainBundle = arguments[1];
  options.documents = arguments[2];
  options.loop = loop;
  const auto platform = posix::makePlatform(options);
  const Json statusConfig = {{"url", arguments[3]}, {"token", arguments[4]}};
  if (std::string_view(arguments[5]) == "drain") {
    Drain drain(*platform, *loop, statusConfig);
    loop->run();
  } else {
    Recorder recorder(*platform, statusConfig, std::atoi(arguments[5]));
    loop->run();
  }
  return 0;
}

}  // namespace
}  // namespace wayloom

int main(int count, char** arguments) { return count == 6 ? wayloom::run(arguments) : 2; }
