#include "wayloom/status/TGFStatusLogger.hpp"

#include <utility>
#include <vector>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

namespace wayloom {

using platform::Notification;
using platform::NotificationCenter;

namespace {

// Observations that outlive who made them.
struct KeptObservations {
  std::mutex mutex;
  std::vector<std::unique_ptr<NotificationCenter::Observation>> all;
};

std::string numberText(const std::optional<std::int64_t>& number) { return number ? std::to_string(*number) : "null"; }

std::string uuidText(const TGFBeacon& beacon) {
  const auto& uuid = beacon.uuid();
  return uuid ? uuid->string() : "";
}

// As much of an answer as fits on a line.
std::string shown(const TGFAPIRequest::Bytes& answer) {
  std::string text = answer.value_or("(null)").substr(0, 200);
  for (char& character : text)
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) character = ' ';
  return text;
}

std::string bodyFor(const TGFBeacon& beacon) {
  return R"({"beacon_status_events":[{"uuid":")" + uuidText(beacon) + R"(","major":)" + numberText(beacon.major()) +
         R"(,"minor":)" + numberText(beacon.minor()) + "}]}";
}

}  // namespace

TGFStatusLogger::TGFStatusLogger(platform::Platform& platform, std::string endpoint)
    : platform_(platform), endpoint_(std::move(endpoint)), queue_(platform.tasks().makeSerialQueue("TGFStatusLogger")) {
  registerForGFNotifications();
}

TGFStatusLogger::~TGFStatusLogger() {
  unregisterForGFNotifications();
  scope_.close();
  request_.reset();
}

void TGFStatusLogger::registerForGFNotifications() {
  auto& center = platform_.notificationCenter();
  entries_ = center.addObserver(TGFManagerDidEnterRegionNotification, nullptr,
                                [this](const Notification& notification) { didEnterRegion(notification); });
  auto rangings = center.addObserver(TGFManagerDidRangeBeaconsInRegionNotification, nullptr,
                                     [this, life = scope_.weak()](const Notification& notification) {
                                       if (const platform::TaskScope::Guard guard(life); guard)
                                         didRangeBeaconsInRegion(notification);
                                     });
  auto& kept = platform_.shared<KeptObservations>([] { return std::make_unique<KeptObservations>(); });
  const std::lock_guard lock(kept.mutex);
  kept.all.push_back(std::move(rangings));
}

void TGFStatusLogger::unregisterForGFNotifications() { entries_.reset(); }

void TGFStatusLogger::didEnterRegion(const Notification&) { platform_.systemLog().write("Status enter"); }

void TGFStatusLogger::didRangeBeaconsInRegion(const Notification& notification) {
  platform_.systemLog().write("Status range");
  const auto* region = notification.userInfo.get<TGFRegionPtr>(TGFManagerNotificationRegionKey);
  const auto* beacons = notification.userInfo.get<TGFBeaconList>(TGFManagerNotificationBeaconsKey);
  if (beacons != nullptr) postStatusWithRegionOrBeacons(region == nullptr ? nullptr : *region, *beacons);
}

void TGFStatusLogger::postStatusWithRegionOrBeacons(const TGFRegionPtr&, const TGFBeaconList& beacons) {
  const std::lock_guard lock(mutex_);
  for (const auto& beacon : beacons) {
    if (waiting_.size() >= kMostWaiting) break;
    auto name = uuidText(*beacon) + " " + numberText(beacon->major()) + " " + numberText(beacon->minor());
    waiting_.push_back({std::move(name), bodyFor(*beacon)});
  }
  if (!waiting_.empty() && !std::exchange(posting_, true)) queue_->async(scope_.bind([this] { postNext(); }));
}

// On the queue. The request of the last post goes here, where its handler has returned.
void TGFStatusLogger::postNext() {
  Status status;
  auto request =
      std::make_unique<TGFAPIRequest>(platform_, TGFConfiguration::sharedConfiguration(platform_).apiToken());
  auto& started = *request;
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) {
      posting_ = false;
      return;
    }
    status = std::move(waiting_.front());
    waiting_.pop_front();
    request_.swap(request);
  }
  platform_.systemLog().write("Posting a status for " + status.beacon);
  started.postBodyHandler(endpoint_, std::move(status.body),
                          [this](const TGFAPIRequest::Bytes& answer) { ended(answer); });
}

void TGFStatusLogger::ended(const TGFAPIRequest::Bytes& answer) {
  platform_.systemLog().write("Post returned status " + shown(answer));
  queue_->async(scope_.bind([this] { postNext(); }));
}

}  // namespace wayloom
