#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "wayloom/maps/TWLMapConfig.hpp"
#include "wayloom/maps/TWLMapLocation.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// The way from a map to the address of its page: waits, off the main thread, until maps are installed. Destroying it
// ends that, and no callback follows. Main thread.
class MapPageLoad {
 public:
  // On the background queue, once maps are installed: takes the map over and gives the position to begin with.
  using Begin = std::function<TWLMapLocationPtr()>;
  // What the web view is to load; nothing, and why, for a map that no file can belong to.
  struct Result {
    std::optional<std::string> address;
    std::string refusal;
  };
  // On the main queue, then.
  using Ready = std::function<void(const Result&)>;

  MapPageLoad(platform::Platform& platform, TWLMapConfigPtr map, Begin begin, Ready ready);

  // Until `ready` is called.
  bool isWaiting() const { return timer_ != nullptr; }

 private:
  void look();

  platform::Platform& platform_;
  TWLMapConfigPtr map_;
  Begin begin_;
  Ready ready_;
  std::atomic<bool> isReady_ = false;
  platform::TaskScope scope_;
  std::unique_ptr<platform::Timer> timer_;
};

}  // namespace wayloom
