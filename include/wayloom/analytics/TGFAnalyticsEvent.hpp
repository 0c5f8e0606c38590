#pragma once

#include <string>

#include "wayloom/platform/Json.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

// How a host adds an event of its own to what is recorded:
//
//   TGFAnalyticsEvent::postEventWithDetails(platform, "door", {{"opened_by", "staff"}});
class TGFAnalyticsEvent {
 public:
  // Posts TGFManagerDidTriggerAnalyticsEvent at the end of the main loop's current pass; whoever logs then, records it.
  // The details are an object of texts and numbers. Any thread.
  static void postEventWithDetails(platform::Platform& platform, std::string type, platform::Json details);
};

}  // namespace wayloom
