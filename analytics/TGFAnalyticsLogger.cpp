#include "wayloom/analytics/TGFAnalyticsLogger.hpp"

#include <string>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

namespace wayloom {

using platform::Notification;

namespace {

const TGFRegion* regionOf(const Notification& notification) {
  const auto* region = notification.userInfo.get<TGFRegionPtr>(TGFManagerNotificationRegionKey);
  return region == nullptr ? nullptr : region->get();
}

}  // namespace

TGFAnalyticsLogger::TGFAnalyticsLogger(platform::Platform& platform)
    : platform_(platform), analytics_(std::make_unique<TGFAnalytics>(platform)) {
  registerForGFNotifications();
}

TGFAnalyticsLogger::~TGFAnalyticsLogger() { unregisterForGFNotifications(); }

void TGFAnalyticsLogger::registerForGFNotifications() {
  const auto observe = [this](const char* name, void (TGFAnalyticsLogger::*handler)(const Notification&)) {
    return platform_.notificationCenter().addObserver(
        name, nullptr, [this, handler](const Notification& notification) { (this->*handler)(notification); });
  };
  observations_ = {observe(TGFManagerDidEnterRegionNotification, &TGFAnalyticsLogger::didEnterRegion),
                   observe(TGFManagerDidExitRegionNotification, &TGFAnalyticsLogger::didExitRegion),
                   observe(TGFManagerDidRangeBeaconsInRegionNotification, &TGFAnalyticsLogger::didRangeBeaconsInRegion),
                   observe(TGFManagerDidTriggerAnalyticsEvent, &TGFAnalyticsLogger::didTriggerAnalyticsEvent)};
}

void TGFAnalyticsLogger::unregisterForGFNotifications() { observations_ = {}; }

void TGFAnalyticsLogger::didEnterRegion(const Notification& notification) {
  if (const auto* region = regionOf(notification)) analytics_->openSessionWithRegion(*region);
}

void TGFAnalyticsLogger::didExitRegion(const Notification& notification) {
  if (const auto* region = regionOf(notification)) analytics_->closeSessionWithRegion(*region);
}

void TGFAnalyticsLogger::didRangeBeaconsInRegion(const Notification& notification) {
  const auto* region = regionOf(notification);
  const auto* beacons = notification.userInfo.get<TGFBeaconList>(TGFManagerNotificationBeaconsKey);
  if (region != nullptr && beacons != nullptr) analytics_->updateSessionWithRegionAndBeacons(*region, *beacons);
}

void TGFAnalyticsLogger::didTriggerAnalyticsEvent(const Notification& notification) {
  const auto* type = notification.userInfo.get<std::string>(TGFManagerNotificationAnalyticsEventTypeKey);
  const auto* details = notification.userInfo.get<platform::Json>(TGFManagerNotificationAnalyticsEventDetailsKey);
  if (type != nullptr && details != nullptr) analytics_->addEventWithDetails(*type, *details);
}

}  // namespace wayloom
