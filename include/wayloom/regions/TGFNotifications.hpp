// What the region engine posts on the notification centre, and what the user information of each holds.
//
// Each key's value has one type:
//   TGFManagerNotificationEventKey                    int (a TGFManagerEvent)
//   TGFManagerNotificationRegionKey                   TGFRegionPtr
//   TGFManagerNotificationRegionStateKey              int (a platform::CLRegionState)
//   TGFManagerNotificationBeaconsKey                  TGFBeaconList
//   TGFManagerNotificationAnalyticsEventTypeKey       std::string
//   TGFManagerNotificationAnalyticsEventDetailsKey    platform::Json, an object
#pragma once

namespace wayloom {

inline constexpr char TGFManagerDidDetermineStateForRegionNotification[] = "TGFManagerDidDetermineStateForRegion";
inline constexpr char TGFManagerDidEnterRegionNotification[] = "TGFManagerDidEnterRegion";
inline constexpr char TGFManagerDidExitRegionNotification[] = "TGFManagerDidExitRegion";
inline constexpr char TGFManagerDidRangeBeaconsInRegionNotification[] = "TGFManagerDidRangeBeaconsInRegion";
inline constexpr char TGFManagerDidTriggerAnalyticsEvent[] = "TGFManagerDidTriggerAnalyticsEvent";

inline constexpr char TGFManagerNotificationEventKey[] = "TGFEvent";
inline constexpr char TGFManagerNotificationRegionKey[] = "TGFRegion";
inline constexpr char TGFManagerNotificationRegionStateKey[] = "TGFRegionState";
inline constexpr char TGFManagerNotificationBeaconsKey[] = "TGFIBeacons";
inline constexpr char TGFManagerNotificationAnalyticsEventDetailsKey[] = "TGFAnalyticsEventDetails";
inline constexpr char TGFManagerNotificationAnalyticsEventTypeKey[] = "TGFAnalyticsEventType";

enum class TGFManagerEvent : int { stateDetermined = 1, regionEntered = 2, regionExited = 3, beaconsRanged = 4 };

}  // namespace wayloom
