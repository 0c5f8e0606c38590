#include "ranging/RangingDriver.hpp"

#include <algorithm>
#include <utility>

namespace wayloom::ranging {

void RangingDriver::end() {
  hasEnded_ = true;
  timer_.reset();
}

void RangingDriver::startRanging(platform::CLBeaconRegionPtr region) {
  ranger_.startRanging(std::move(region), clock_.now());
  updateTimer();
}

void RangingDriver::startMonitoring(platform::CLBeaconRegionPtr region) {
  ranger_.startMonitoring(std::move(region), clock_.now());
  updateTimer();
}

void RangingDriver::receive(const IBeaconFrame& frame, platform::MonotonicTime receivedAt) {
  if (!isAllowed_) return;
  ranger_.receive(frame, receivedAt);
  if (!timer_) updateTimer();
}

void RangingDriver::setScanning(bool scanning) {
  isScanning_ = scanning;
  ranger_.setScanning(isScanning_ && isAllowed_, clock_.now());
}

void RangingDriver::setAllowed(bool allowed) {
  isAllowed_ = allowed;
  setScanning(isScanning_);
}

// There is a timer while there is something to range or to monitor, and something has been heard.
void RangingDriver::updateTimer() {
  const auto next = ranger_.nextTick();
  if (!next || hasEnded_) return timer_.reset();
  if (timer_) return;
  const auto untilTick = std::max(*next - clock_.now(), platform::Duration::zero());
  timer_ = tasks_.startTimer(tasks_.mainQueue(), untilTick, BeaconRanger::kTickInterval, [this, weak = owner_] {
    if (const auto owner = weak.lock()) tick();
  });
}

void RangingDriver::tick() {
  ranger_.tick(clock_.now());
  updateTimer();
  if (!isDelivering_) deliverNext();
}

// One region now, the next in a task of its own.
void RangingDriver::deliverNext() {
  isDelivering_ = !hasEnded_ && isAllowed_ && ranger_.deliverNextRanging();
  if (!isDelivering_ || hasEnded_) return;
  tasks_.mainQueue().async([this, weak = owner_] {
    if (const auto owner = weak.lock()) deliverNext();
  });
}

}  // namespace wayloom::ranging
