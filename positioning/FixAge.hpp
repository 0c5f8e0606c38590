#pragma once

#include <chrono>
#include <cstdint>

#include "wayloom/platform/Time.hpp"

namespace wayloom {

// How far a fix's timestamp lies from now, either way, in whole seconds: fractions are dropped.
inline std::int64_t fixAge(platform::CalendarTime timestamp, platform::CalendarTime now) {
  std::int64_t nanoseconds = 0;
  if (__builtin_sub_overflow(timestamp.time_since_epoch().count(), now.time_since_epoch().count(), &nanoseconds))
    return INT64_MAX;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(platform::Duration(nanoseconds)).count();
  return seconds < 0 ? -seconds : seconds;
}

}  // namespace wayloom
