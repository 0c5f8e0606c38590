#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/maps/TWLMapsFileManager.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom {

class TWLMapConfigRepo;

// User-defaults key: the build stamp of the build that last installed the map page.
inline constexpr std::string_view MAP_RESOURCES_COPIED = "mapResourcesCopiedDate";

// Brings map page and map images up to date, one run at a time, on the shared background queue. A run
//
//   - installs the map page's resources, the first time that this build of the library runs;
//   - sets menuReady: the list of maps is there;
//   - installs the images that are built into the application, and sets mapReady: a map can be shown;
//   - starts TWLMapConfigRepo::update() and ends. Downloads go on without it.
//
// All operations may be called from any thread. Destruction waits for a run that is under way. The Platform must
// outlive it. Failures are logged; none ends a run.
class TWLUpdateManager {
 public:
  // The Platform's own instance.
  static TWLUpdateManager& sharedUpdateManager(platform::Platform& platform);

  explicit TWLUpdateManager(platform::Platform& platform) : TWLUpdateManager(platform, currentBuild()) {}
  // As a library of another build would have it.
  TWLUpdateManager(platform::Platform& platform, std::string buildDate);
  TWLUpdateManager(const TWLUpdateManager&) = delete;
  TWLUpdateManager& operator=(const TWLUpdateManager&) = delete;

  // Starts a run; does nothing at all while one is under way.
  void update();
  // Returns when no run is under way. Throws platform::AbandonedWait when the scheduler shuts down meanwhile.
  void waitUntilCompleted();
  // Records that this build's page resources are installed, and writes it to disk at once.
  void markMapResourcesCopied();

  // False at first, and again from the start of each run until it has come so far.
  bool menuReady() const { return menuReady_; }
  bool mapReady() const { return mapReady_; }
  // Kept for the host: cleared at the start of a run, set by nobody.
  bool searchReady() const { return searchReady_; }
  void setSearchReady(bool ready) { searchReady_ = ready; }

  bool updateInProgress() const { return updateInProgress_; }
  // When the last run was started; nothing before the first.
  std::optional<platform::CalendarTime> updatedAt() const;
  // Whether the next run installs the page resources.
  bool shouldCopyMapResources() const { return shouldCopyMapResources_; }
  // The build stamp, such as "Jan 30 2015 16:09:32".
  const std::string& buildDate() const { return buildDate_; }

  // Held by a run from its beginning to its end, and signalled then.
  platform::ConditionLock& updateBlockCondition() { return *updateBlockCondition_; }
  // For the host; the library does not use it.
  platform::ConditionLock& dbCondition() { return *dbCondition_; }

 private:
  static std::string currentBuild();

  void run();
  TWLMapsFileManager::Images builtInImages(const std::vector<std::string>& mapIds) const;

  platform::Platform& platform_;
  TWLMapConfigRepo& repo_;  // the Platform's; made before this, so that it is there until the last run has ended
  TWLMapsFileManager files_;
  const std::string buildDate_;
  std::atomic<bool> menuReady_ = false;
  std::atomic<bool> mapReady_ = false;
  std::atomic<bool> searchReady_ = false;
  std::atomic<bool> updateInProgress_ = false;
  std::atomic<bool> shouldCopyMapResources_;
  const std::unique_ptr<platform::ConditionLock> updateBlockCondition_;
  const std::unique_ptr<platform::ConditionLock> dbCondition_;
  mutable std::mutex mutex_;  // guards updatedAt_
  std::optional<platform::CalendarTime> updatedAt_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
