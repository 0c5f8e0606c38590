#include "wayloom/platform/Time.hpp"

#include <cmath>
#include <limits>

namespace wayloom::platform {

Duration durationFromSeconds(double seconds) {
  if (std::isnan(seconds)) return Duration::zero();
  const long double nanoseconds = std::roundl(static_cast<long double>(seconds) * 1e9L);
  if (nanoseconds >= static_cast<long double>(std::numeric_limits<std::int64_t>::max())) return Duration::max();
  if (nanoseconds <= static_cast<long double>(std::numeric_limits<std::int64_t>::min())) return Duration::min();
  return Duration(static_cast<std::int64_t>(nanoseconds));
}

// Through long double, whose 64-bit mantissa holds every nanosecond count exactly: one rounding, not two.
double secondsOf(Duration duration) { return static_cast<double>(static_cast<long double>(duration.count()) / 1e9L); }

CalendarTime calendarTimeFromSeconds(double seconds) { return CalendarTime(durationFromSeconds(seconds)); }

double secondsSince1970(CalendarTime time) { return secondsOf(time.time_since_epoch()); }

}  // namespace wayloom::platform
