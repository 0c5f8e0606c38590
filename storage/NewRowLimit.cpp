#include "storage/NewRowLimit.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom::storage {
namespace {

constexpr platform::Duration kBetweenLines = std::chrono::hours(1);

}  // namespace

NewRowLimit::NewRowLimit(platform::Platform& platform, std::string name, double atOnce, platform::Duration refill)
    : platform_(platform),
      name_(std::move(name)),
      atOnce_(atOnce),
      perSecond_(atOnce / platform::secondsOf(refill)),
      left_(atOnce),
      countedAt_(platform.monotonicClock().now()) {}

bool NewRowLimit::take() {
  const auto now = platform_.monotonicClock().now();
  left_ = std::min(atOnce_, left_ + perSecond_ * platform::secondsOf(now - countedAt_));
  countedAt_ = now;
  if (left_ >= 1.0) {
    left_ -= 1.0;
    return true;
  }
  ++leftOut_;
  if (saidAt_ && now - *saidAt_ < kBetweenLines) return false;
  saidAt_ = now;
  platform_.systemLog().write(name_ + " leaves out beacons that the kit does not list: more than " +
                              std::to_string(std::llround(atOnce_)) +
                              " new ones; sightings left out so far: " + std::to_string(leftOut_));
  return false;
}

}  // namespace wayloom::storage
