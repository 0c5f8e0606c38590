#include "wayloom/status/TPLEventTrackingQueue.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"

namespace wayloom {
namespace {

std::optional<std::string> textOf(const platform::Json& config, std::string_view key) {
  return platform::stringValue(platform::member(config, key));
}

}  // namespace

TPLEventTrackingQueue::TPLEventTrackingQueue(platform::Platform& platform, const platform::Json& config)
    : platform_(platform),
      db_(platform),
      uploader_(platform, textOf(config, "url"), textOf(config, "token")),
      queue_(platform.tasks().makeSerialQueue("wayloom.pulsekeep.events")) {}

TPLEventTrackingQueue::~TPLEventTrackingQueue() {
  scope_.close();
  post_.reset();
}

std::optional<platform::MonotonicTime> TPLEventTrackingQueue::lastSuccessfulUpload() const {
  const std::lock_guard lock(mutex_);
  return lastSuccessfulUpload_;
}

void TPLEventTrackingQueue::uploadEvents() {
  {
    const std::lock_guard lock(mutex_);
    if (run_ == Run::underWay) run_ = Run::wantedAgain;
    if (run_ != Run::none) return;
    run_ = Run::wanted;
  }
  queue_->async(scope_.bind([this] { begin(); }));
}

void TPLEventTrackingQueue::begin() {
  {
    const std::lock_guard lock(mutex_);
    run_ = Run::underWay;
  }
  auto sessions = std::make_shared<const Sessions>(db_.beaconSessionsToBeUploaded());
  post_ = uploader_.startSending(*sessions, *queue_, [this, sessions](const auto& error) { end(*sessions, error); });
  if (!post_) end(*sessions, std::nullopt);
}

void TPLEventTrackingQueue::end(const Sessions& sessions, const std::optional<platform::Error>& error) {
  if (error) {
    platform_.systemLog().write("Failed uploading events: " + error->description + " (" + error->domain + " " +
                                std::to_string(error->code) + ")");
  } else {
    const std::lock_guard lock(mutex_);
    lastSuccessfulUpload_ = platform_.monotonicClock().now();
  }
  if (!error) db_.markBeaconSessionsAsUploaded(sessions);
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(run_, Run::none) != Run::wantedAgain) return;
  }
  uploadEvents();
}

}  // namespace wayloom
