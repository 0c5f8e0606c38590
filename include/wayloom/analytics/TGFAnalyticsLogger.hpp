#pragma once

#include <array>
#include <memory>

#include "wayloom/platform/NotificationCenter.hpp"

namespace wayloom {

namespace platform {
class Platform;
}
class TGFAnalytics;

// Writes down what the region manager's notifications tell, from its construction until its destruction, in a
// TGFAnalytics of its own; on the thread that posts them. A notification that lacks what it should hold is passed over.
class TGFAnalyticsLogger {
 public:
  explicit TGFAnalyticsLogger(platform::Platform& platform);
  ~TGFAnalyticsLogger();
  TGFAnalyticsLogger(const TGFAnalyticsLogger&) = delete;
  TGFAnalyticsLogger& operator=(const TGFAnalyticsLogger&) = delete;

  // The constructor registers and the destructor unregisters. Not while a notification is being handled elsewhere.
  void registerForGFNotifications();
  void unregisterForGFNotifications();

  void didEnterRegion(const platform::Notification& notification);
  void didExitRegion(const platform::Notification& notification);
  void didRangeBeaconsInRegion(const platform::Notification& notification);
  void didTriggerAnalyticsEvent(const platform::Notification& notification);

  TGFAnalytics& analytics() { return *analytics_; }

 private:
  platform::Platform& platform_;
  std::unique_ptr<TGFAnalytics> analytics_;
  std::array<std::unique_ptr<platform::NotificationCenter::Observation>, 4> observations_;
};

}  // namespace wayloom
