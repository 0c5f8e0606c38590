// Two kinds of time that can't be mixed up.
//
// CalendarTime is what is stored, sent and compared with a server's dates. It jumps when somebody sets the clock.
// MonotonicTime only ever moves forward, one second a second; ages inside the process are differences of it.
#pragma once

#include <chrono>
#include <cstdint>

namespace wayloom::platform {

using Duration = std::chrono::nanoseconds;

struct CalendarTimeline {
  using rep = Duration::rep;
  using period = Duration::period;
  using duration = Duration;
  static constexpr bool is_steady = false;
};
struct MonotonicTimeline {
  using rep = Duration::rep;
  using period = Duration::period;
  using duration = Duration;
  static constexpr bool is_steady = true;
};

// Nanoseconds since 1970-01-01 00:00:00 UTC, leap seconds not counted.
using CalendarTime = std::chrono::time_point<CalendarTimeline>;
// Nanoseconds since an origin that means nothing by itself.
using MonotonicTime = std::chrono::time_point<MonotonicTimeline>;

// Seconds as a duration, rounded to the nanosecond. Saturates beyond about 292 years; NaN is zero.
Duration durationFromSeconds(double seconds);
// The double nearest to the duration in seconds.
double secondsOf(Duration duration);

// Seconds since 1970 to calendar time and back; saturates as above. Reading back what was made from a double with at
// most nine decimals gives the same double.
CalendarTime calendarTimeFromSeconds(double secondsSince1970);
double secondsSince1970(CalendarTime time);

class CalendarClock {
 public:
  virtual ~CalendarClock() = default;
  virtual CalendarTime now() const = 0;  // any thread
};

class MonotonicClock {
 public:
  virtual ~MonotonicClock() = default;
  virtual MonotonicTime now() const = 0;  // any thread
};

}  // namespace wayloom::platform
