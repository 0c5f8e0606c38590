#pragma once

#include <memory>

#include "wayloom/platform/Tasks.hpp"

#include "ranging/BeaconRanger.hpp"

namespace wayloom::ranging {

// Drives a beacon ranger on the main queue: ticks once a second while it has something to do, and delivers each
// region's ranging in a task of its own, so that what one ranging sets off on other queues can run before the next.
// Main thread.
class RangingDriver {
 public:
  RangingDriver(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock, BeaconRangerDelegate& delegate)
      : tasks_(tasks), clock_(clock), ranger_(delegate) {}

  // Whom tasks keep alive while they run; they do nothing once it has gone. Must own the driver and the delegate.
  void setOwner(std::weak_ptr<void> owner) { owner_ = std::move(owner); }
  // Nothing is told any more.
  void end();

  void startRanging(platform::CLBeaconRegionPtr region);
  void stopRanging(const std::string& identifier) { ranger_.stopRanging(identifier); }
  void startMonitoring(platform::CLBeaconRegionPtr region);
  void stopMonitoring(const std::string& identifier) { ranger_.stopMonitoring(identifier); }
  void requestState(const platform::CLBeaconRegionPtr& region) { ranger_.requestState(region, clock_.now()); }

  void receive(const IBeaconFrame& frame, platform::MonotonicTime receivedAt);
  // Whether the scanner works, and whether the application may hear it: without that, frames and rangings are dropped.
  void setScanning(bool scanning);
  void setAllowed(bool allowed);
  void setExitSilence(platform::Duration silence) { ranger_.setExitSilence(silence); }

 private:
  void updateTimer();
  void tick();
  void deliverNext();

  platform::TaskScheduler& tasks_;
  const platform::MonotonicClock& clock_;
  BeaconRanger ranger_;
  std::weak_ptr<void> owner_;
  std::unique_ptr<platform::Timer> timer_;
  bool isScanning_ = true;
  bool isAllowed_ = true;
  bool isDelivering_ = false;  // of the last tick
  bool hasEnded_ = false;
};

}  // namespace wayloom::ranging
