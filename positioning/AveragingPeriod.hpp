#pragma once

#include <atomic>
#include <cmath>
#include <memory>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

// How long a beacon's samples count: one setting for all beacons of a Platform. Any thread.
struct AveragingPeriod {
  static AveragingPeriod& shared(platform::Platform& platform) {
    return platform.shared<AveragingPeriod>([] { return std::make_unique<AveragingPeriod>(); });
  }

  // No sample is younger than a length that is no number.
  platform::Duration window() const {
    const double length = seconds.load(std::memory_order_relaxed);
    return std::isnan(length) ? platform::Duration::min() : platform::durationFromSeconds(length);
  }

  std::atomic<double> seconds = 5.0;
};

}  // namespace wayloom
