// A world in which time passes only when it is told to: clocks, queues and timers on one thread.
//
//   sim::VirtualTime time(calendarTimeFromSeconds(1.7e9));
//   auto timer = time.scheduler()->startTimer(time.scheduler()->mainQueue(), 30s, 30s, [] { sync(); });
//   time.advanceBy(1h);  // sync() runs 120 times, in a few microseconds
//
// All queues share one list of ready tasks in the order of posting, so the same calls give the same order always. Main
// and serial queues still run one task at a time: while a task is held up in sleep() or ConditionLock::wait(), tasks of
// its queue wait and everybody else's run inside the call. A caller that is in no task counts as the main thread.
//
// Where one thread can't do what several would:
//  - a task that is held up goes on when the call that it is in returns: a longer sleep in a task that ran meanwhile
//    delays it. What it uses must not be destroyed meanwhile, since nobody can wait for it;
//  - ConditionLock::lock() throws std::logic_error when a task that is held up holds the lock;
//  - ConditionLock::wait() throws AbandonedWait, holding the lock, when nothing is left that could signal, or when
//    nobody signalled for `longestWait`.
#pragma once

#include <memory>
#include <optional>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::sim {

class VirtualScheduler;

// One thread uses this and all that comes from it. What tasks throw comes out of the call that ran them. Destroying it
// destroys the pending tasks unrun; scheduler, clocks, queues and timers may outlive it, and run nothing any more.
class VirtualTime {
 public:
  static constexpr platform::Duration longestWait = std::chrono::hours(24);

  // The calendar clock shows `start`; the monotonic clock shows zero.
  explicit VirtualTime(platform::CalendarTime start);
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  // The same objects at every call, so that references to them hold as long as this object.
  std::shared_ptr<platform::TaskScheduler> scheduler() const;
  std::shared_ptr<platform::CalendarClock> calendarClock() const;
  std::shared_ptr<platform::MonotonicClock> monotonicClock() const;

  platform::MonotonicTime now() const;
  platform::CalendarTime calendarNow() const;
  // When the calendar clock will show `time`, if nobody sets it.
  platform::MonotonicTime monotonicAt(platform::CalendarTime time) const;
  // The due time of the first timer.
  std::optional<platform::MonotonicTime> nextDeadline() const;

  // Runs what is ready or due now, and what that makes ready, until nothing is left.
  void runReady();
  // Runs everything that is ready or due up to and including `time`, each thing at its own time. A time in the past
  // means now.
  void advanceTo(platform::MonotonicTime time);
  void advanceBy(platform::Duration duration);
  // Somebody sets the calendar clock. Monotonic time and timers don't notice.
  void stepCalendar(platform::Duration step);

 private:
  std::shared_ptr<VirtualScheduler> scheduler_;
  std::shared_ptr<platform::CalendarClock> calendarClock_;
  std::shared_ptr<platform::MonotonicClock> monotonicClock_;
};

}  // namespace wayloom::sim
