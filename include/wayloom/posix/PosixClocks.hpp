#pragma once

#include "wayloom/platform/Time.hpp"

namespace wayloom::posix {

// The system's real-time clock. Any thread.
class PosixCalendarClock : public platform::CalendarClock {
 public:
  platform::CalendarTime now() const override;
};

// CLOCK_BOOTTIME: goes on while the machine is suspended, so that a device that slept an hour finds its winner an hour
// old. Any thread.
class PosixMonotonicClock : public platform::MonotonicClock {
 public:
  platform::MonotonicTime now() const override;
};

}  // namespace wayloom::posix
