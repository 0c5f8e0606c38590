#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/status/TPLEventTrackingQueue.hpp"

namespace wayloom {

// Uploads that were under way when their status manager went, as it does whenever a kit is put into effect: each ends
// and marks its rows, and the next manager of the same server goes on with it. One for each Platform, which ends them.
class UnfinishedUploads {
 public:
  static UnfinishedUploads& of(platform::Platform& platform);

  // The one of that server, or a new one.
  std::unique_ptr<TPLEventTrackingQueue> takeOrMake(platform::Platform& platform, const platform::Json& config);
  // Nothing is kept of one that is at rest.
  void keep(std::unique_ptr<TPLEventTrackingQueue> uploads, platform::Json config);

 private:
  struct Kept {
    platform::Json config;
    std::unique_ptr<TPLEventTrackingQueue> uploads;
  };

  std::mutex mutex_;
  std::vector<Kept> kept_;
};

}  // namespace wayloom
