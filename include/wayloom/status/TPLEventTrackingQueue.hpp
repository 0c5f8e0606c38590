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
// those of the file. A document holds at most 1 000 of them; the next follows as soon as one has been delivered, until
// nothing is due. Destruction cancels an upload that is under way; its rows stay due.
class TPLEventTrackingQueue {
 public:
  // "url" and "token" of the status server.
  TPLEventTrackingQueue(platform::Platform& platform, const platform::Json& config);
  ~TPLEventTrackingQueue();

  // Asks for an upload and returns. Calls that come before it has begun are one with it; those that come while it is
  // under way are together one more after it. Any thread.
  void uploadEvents();
  // Whether an upload has been asked for and has not ended. Any thread.
  bool isUploading() const;

  // When an upload last ended without an error, having nothing to send included. Any thread.
  std::optional<platform::MonotonicTime> lastSuccessfulUpload() const;

  TPLStatusDatabase& db() { return db_; }
  TPLStatusUploader& uploader() { return uploader_; }
  platform::TaskQueue& queue() { return *queue_; }

 private:
  using Sessions = TPLStatusDatabase::Sessions;
  enum class Run : std::uint8_t { none, wanted, underWay, wantedAgain };

  void begin();
  void sendNext();
  void end(const std::optional<platform::Error>& error);
  void endRun();

  platform::Platform& platform_;
  TPLStatusDatabase db_;
  TPLStatusUploader uploader_;
  std::unique_ptr<platform::TaskQueue> queue_;

  mutable std::mutex mutex_;  // for the two below
  Run run_ = Run::none;
  std::optional<platform::MonotonicTime> lastSuccessfulUpload_;

  // Used on the queue.
  Sessions sent_;      // in the document under way
  Sessions unmarked_;  // what was delivered and could not be marked: it is not sent again
  bool isCut_ = false;
  std::unique_ptr<platform::HttpTask> post_;  // gone before the queue
  platform::TaskScope scope_;
};

}  // namespace wayloom
