#include "wayloom/status/TPLStatusUploader.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/status/TPLDevice.hpp"

#include "storage/UtcText.hpp"

namespace wayloom {

using platform::Json;

TPLStatusUploader::TPLStatusUploader(platform::Platform& platform, std::optional<std::string> url,
                                     std::optional<std::string> token)
    : platform_(platform),
      url_(url && platform::isWellFormedUrl(*url) ? std::move(url) : std::nullopt),
      api_(platform, std::move(token)) {}

bool TPLStatusUploader::haveURL() const {
  if (!url_) platform_.systemLog().write("No TPLStatusURL set, skipping upload");
  return url_.has_value();
}

std::optional<platform::Error> TPLStatusUploader::sendEvents(const Sessions& sessions) {
  if (hasNothingFor(sessions)) return std::nullopt;
  return api_.postSyncBody(url_, jsonForEvents(sessions));
}

std::unique_ptr<platform::HttpTask> TPLStatusUploader::startSending(const Sessions& sessions,
                                                                    platform::TaskQueue& queue,
                                                                    TPLAPIRequest::PostHandler handler) {
  if (hasNothingFor(sessions)) return nullptr;
  return api_.startPost(url_, jsonForEvents(sessions), queue, std::move(handler));
}

void TPLStatusUploader::asyncSendEventsHandler(const Sessions& sessions, TPLAPIRequest::Handler handler) {
  if (hasNothingFor(sessions)) return handler(std::nullopt, std::nullopt);
  api_.postBodyHandler(url_, jsonForEvents(sessions), std::move(handler));
}

std::string TPLStatusUploader::jsonForEvents(const Sessions& sessions) const {
  return buildBodyWithEvents(sessions).dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json TPLStatusUploader::buildBodyWithEvents(const Sessions& sessions) const {
  Json body = buildSessionEvents(sessions);
  body["app_id"] = TPLDevice::getUUID(platform_);
  return body;
}

Json TPLStatusUploader::buildSessionEvents(const Sessions& sessions) const {
  Json events = Json::array();
  for (const auto& session : sessions) {
    Json event = {{"uuid", session.uuid}, {"major", session.major}, {"minor", session.minor}};
    if (session.lastDetectedAt) event["last_seen"] = storage::utcText(*session.lastDetectedAt);
    events.push_back(std::move(event));
  }
  Json body = Json::object();
  body["beacon_status_events"] = std::move(events);
  return body;
}

}  // namespace wayloom
