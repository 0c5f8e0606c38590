#include "wayloom/status/TPLEventTrackingQueue.hpp"

#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Platform.hpp"

#include "storage/UploadLimits.hpp"

namespace wayloom {
namespace {

constexpr std::size_t kMostUnmarked = 1000;

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

bool TPLEventTrackingQueue::isUploading() const {
  const std::lock_guard lock(mutex_);
  return run_ != Run::none;
}

void TPLEventTrackingQueue::begin() {
  {
    const std::lock_guard lock(mutex_);
    run_ = Run::underWay;
  }
  unmarked_ = db_.markBeaconSessionsAsUploaded(unmarked_);
  if (unmarked_.size() > kMostUnmarked) return endRun();
  sent_.clear();
  sendNext();
}

void TPLEventTrackingQueue::sendNext() {
  auto limits = storage::UploadLimits::ofOneDocument();
  const auto before = std::exchange(sent_, db_.beaconSessionsToBeUploaded(limits, unmarked_));
  // The same once more would mean that marks do not last.
  if (!sent_.empty() && !before.empty() && sent_.front().beaconSessionId == before.front().beaconSessionId)
    return endRun();
  isCut_ = !limits.hasRoom();
  post_ = uploader_.startSending(sent_, *queue_, [this](const auto& error) { end(error); });
  if (!post_) queue_->async(scope_.bind([this] { end(std::nullopt); }));
}

void TPLEventTrackingQueue::end(const std::optional<platform::Error>& error) {
  if (error) {
    platform_.systemLog().write("Failed uploading events: " + error->description + " (" + error->domain + " " +
                                std::to_string(error->code) + ")");
    return endRun();
  }
  {
    const std::lock_guard lock(mutex_);
    lastSuccessfulUpload_ = platform_.monotonicClock().now();
  }
  const auto failed = db_.markBeaconSessionsAsUploaded(sent_);
  unmarked_.insert(unmarked_.end(), failed.begin(), failed.end());
  if (isCut_ && unmarked_.size() <= kMostUnmarked) return queue_->async(scope_.bind([this] { sendNext(); }));
  endRun();
}

void TPLEventTrackingQueue::endRun() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(run_, Run::none) != Run::wantedAgain) return;
  }
  uploadEvents();
}

}  // namespace wayloom
