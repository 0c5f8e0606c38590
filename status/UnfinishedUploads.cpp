#include "status/UnfinishedUploads.hpp"

#include <algorithm>
#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

UnfinishedUploads& UnfinishedUploads::of(platform::Platform& platform) {
  return platform.shared<UnfinishedUploads>([] { return std::make_unique<UnfinishedUploads>(); });
}

std::unique_ptr<TPLEventTrackingQueue> UnfinishedUploads::takeOrMake(platform::Platform& platform,
                                                                     const platform::Json& config) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find(kept_, config, &Kept::config);
    if (found != kept_.end()) {
      auto uploads = std::move(found->uploads);
      kept_.erase(found);
      return uploads;
    }
  }
  return std::make_unique<TPLEventTrackingQueue>(platform, config);
}

void UnfinishedUploads::keep(std::unique_ptr<TPLEventTrackingQueue> uploads, platform::Json config) {
  std::vector<Kept> ended;  // outlives the lock
  const std::lock_guard lock(mutex_);
  kept_.push_back({std::move(config), std::move(uploads)});
  const auto atRest =
      std::stable_partition(kept_.begin(), kept_.end(), [](const Kept& kept) { return kept.uploads->isUploading(); });
  std::move(atRest, kept_.end(), std::back_inserter(ended));
  kept_.erase(atRest, kept_.end());
}

}  // namespace wayloom
