#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"
#include "wayloom/status/TPLStatusUploader.hpp"

namespace wayloom {

// Uploads the beacon sessions that are due, on a serial queue of its own, one upload at a time. Its sessions are always
// those of the file. Destruction cancels an upload that is under way; its rows stay due.
class TPLEventTrackingQueue {
 public:
  // "url" and "token" of the status server.
  TPLEventTrackingQueue(platform::Platform& platform, const platform::Json& config);
  ~TPLEventTrackingQueue();

  // Asks for an upload and returns. Calls that come before it has begun are one with it; those that come while it is
  // under way are together one more after it. Any thread.
  void uploadEvents();

  // When an upload last ended without an error, having nothing to send included. Any thread.
  std::optional<platform::MonotonicTime> lastSuccessfulUpload() const;

 private:
  using Sessions = std::vector<TPLBeaconSession>;
  enum class Run : std::uint8_t { none, wanted, underWay, wantedAgain };

  void begin();
  void end(const Sessions& sessions, const std::optional<platform::Error>& error);

  platform::Platform& platform_;
  TPLStatusDatabase db_;
  TPLStatusUploader uploader_;
  std::unique_ptr<platform::TaskQueue> queue_;

  mutable std::mutex mutex_;  // for the two below
  Run run_ = Run::none;
  std::optional<platform::MonotonicTime> lastSuccessfulUpload_;

  std::unique_ptr<platform::HttpTask> post_;  // used on the queue, and gone before it
  platform::TaskScope scope_;
};

}  // namespace wayloom
