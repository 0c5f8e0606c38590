#pragma once

#include <functional>
#include <optional>
#include <string>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/regions/TGFAPIRequest.hpp"

namespace wayloom {

// Makes one document of the records that a TGFAnalytics lists, and posts it to the analytics server of the engine's
// configuration. One thread at a time; destruction cancels a post that is under way, and no handler follows.
class TGFAPIAnalyticsUploader {
 public:
  // Whether the server answered, no matter what. Called once, on a queue of the request's own; without an analytics
  // URL, or for records that make no document, at once.
  using Handler = std::function<void(bool uploaded)>;

  explicit TGFAPIAnalyticsUploader(platform::Platform& platform);

  const std::optional<std::string>& url() const { return url_; }
  TGFAPIRequest& api() { return api_; }

  void uploadBeaconRegionsAndGeoRegionsAndEvents(const platform::Json& beaconRegions, const platform::Json& geoRegions,
                                                 const platform::Json& events, Handler handler);
  void uploadBody(std::string body, Handler handler);

  // The whole document, and its parts: an array for each type of event, and "geofold_kit_events". Fixed members stand
  // above event types of the same name, and an event's own time above a detail called "triggered_at".
  platform::Json buildBodyWithBeaconRegionsAndGeoRegionsAndEvents(const platform::Json& beaconRegions,
                                                                  const platform::Json& geoRegions,
                                                                  const platform::Json& events) const;
  platform::Json buildAnalyticsEvents(const platform::Json& events) const;
  platform::Json buildGeofoldEventsForBeaconRegionsAndGeoRegions(const platform::Json& beaconRegions,
                                                                 const platform::Json& geoRegions) const;
  // The last component of the kit URL's path.
  std::optional<std::string> getKitID() const;
  std::optional<std::string> getPartnerId() const;

 private:
  platform::Platform& platform_;
  const std::optional<std::string> url_;
  TGFAPIRequest api_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
