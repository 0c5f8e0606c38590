#include "wayloom/analytics/TGFAnalyticsEvent.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

namespace wayloom {

void TGFAnalyticsEvent::postEventWithDetails(platform::Platform& platform, std::string type, platform::Json details) {
  platform::UserInfo info;
  info.set(TGFManagerNotificationAnalyticsEventTypeKey, std::move(type));
  info.set(TGFManagerNotificationAnalyticsEventDetailsKey, std::move(details));
  platform.notificationQueue().enqueue({TGFManagerDidTriggerAnalyticsEvent, nullptr, std::move(info)});
}

}  // namespace wayloom
