#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wayloom/platform/Time.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

namespace storage {

// Bounds the rows that are made for beacons which the kit does not list one by one: anybody can send a thousand made-up
// identities a second. What is left out is counted, and the system log says so, at most once an hour.
class NewRowLimit {
 public:
  // `atOnce` rows, and as many again within each `refill`.
  NewRowLimit(platform::Platform& platform, std::string name, double atOnce, platform::Duration refill);

  // Whether one more may be made.
  bool take();

 private:
  platform::Platform& platform_;
  const std::string name_;
  const double atOnce_;
  const double perSecond_;
  double left_;
  platform::MonotonicTime countedAt_;
  std::uint64_t leftOut_ = 0;
  std::optional<platform::MonotonicTime> saidAt_;
};

}  // namespace storage
}  // namespace wayloom
