#include "wayloom/analytics/TGFAPIAnalyticsUploader.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFDevice.hpp"
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFPartner.hpp"

namespace wayloom {

using platform::Json;
using platform::member;

TGFAPIAnalyticsUploader::TGFAPIAnalyticsUploader(platform::Platform& platform)
    : platform_(platform),
      url_(TGFConfiguration::sharedConfiguration(platform).analyticsURL()),
      api_(platform, TGFConfiguration::sharedConfiguration(platform).apiToken()) {}

void TGFAPIAnalyticsUploader::uploadBeaconRegionsAndGeoRegionsAndEvents(const Json& beaconRegions,
                                                                        const Json& geoRegions, const Json& events,
                                                                        Handler handler) {
  if (!url_) return uploadBody({}, std::move(handler));
  const auto body = buildBodyWithBeaconRegionsAndGeoRegionsAndEvents(beaconRegions, geoRegions, events);
  uploadBody(body.dump(-1, ' ', false, Json::error_handler_t::replace), std::move(handler));
}

void TGFAPIAnalyticsUploader::uploadBody(std::string body, Handler handler) {
  const platform::TaskScope::Guard guard(scope_);  // the handler may be called at once
  if (!url_) {
    TGFLogger::log(platform_, TGFLogLevel::info, "No GFAnalyticsURL set in Geofold.plist, skipping upload");
    return handler(false);
  }
  api_.postBodyHandler(url_, std::move(body), [handler = std::move(handler)](const TGFAPIRequest::Bytes& answer) {
    handler(answer.has_value());
  });
}

Json TGFAPIAnalyticsUploader::buildBodyWithBeaconRegionsAndGeoRegionsAndEvents(const Json& beaconRegions,
                                                                               const Json& geoRegions,
                                                                               const Json& events) const {
  Json body = buildAnalyticsEvents(events);
  body.update(buildGeofoldEventsForBeaconRegionsAndGeoRegions(beaconRegions, geoRegions));
  body["app_id"] = TGFDevice::getUUID(platform_);
  if (const auto partner = getPartnerId()) body["partner_id"] = *partner;
  return body;
}

Json TGFAPIAnalyticsUploader::buildAnalyticsEvents(const Json& events) const {
  Json byType = Json::object();
  for (const auto& event : events) {
    const auto type = platform::stringValue(member(event, "event_type"));
    if (!type) continue;
    auto& list = byType.emplace(*type, Json::array()).first.value();
    const auto* details = member(event, "event_details");
    Json told = details != nullptr && details->is_object() ? *details : Json::object();
    if (const auto* time = member(event, "triggered_at")) told["triggered_at"] = *time;
    list.push_back(std::move(told));
  }
  return byType;
}

Json TGFAPIAnalyticsUploader::buildGeofoldEventsForBeaconRegionsAndGeoRegions(const Json& beaconRegions,
                                                                              const Json& geoRegions) const {
  Json kitEvents = Json::object();
  if (const auto kit = getKitID()) kitEvents["kit_id"] = *kit;
  kitEvents["region_sessions"] = beaconRegions;
  kitEvents["geo_region_sessions"] = geoRegions;
  Json all = Json::object();
  all["geofold_kit_events"] = Json::array({std::move(kitEvents)});
  return all;
}

std::optional<std::string> TGFAPIAnalyticsUploader::getKitID() const {
  const auto url = TGFConfiguration::sharedConfiguration(platform_).url();
  auto components = url ? platform::urlPathComponents(*url) : std::vector<std::string>();
  return components.empty() ? std::nullopt : std::optional(std::move(components.back()));
}

std::optional<std::string> TGFAPIAnalyticsUploader::getPartnerId() const {
  auto identifier = TGFPartner::shared(platform_).getIdentifier();
  return identifier.empty() ? std::nullopt : std::optional(std::move(identifier));
}

}  // namespace wayloom
