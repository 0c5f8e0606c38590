#include "wayloom/posix/PosixClocks.hpp"

#include <ctime>

namespace wayloom::posix {

namespace {

platform::Duration read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

platform::CalendarTime PosixCalendarClock::now() const { return platform::CalendarTime(read(CLOCK_REALTIME)); }

platform::MonotonicTime PosixMonotonicClock::now() const { return platform::MonotonicTime(read(CLOCK_BOOTTIME)); }

}  // namespace wayloom::posix
