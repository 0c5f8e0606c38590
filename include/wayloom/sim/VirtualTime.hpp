// Virtual time: a world of one thread in which an hour passes in milliseconds and the same input gives the same order.
//
//   VirtualTime time(calendarTimeFromSeconds(1.7e9));
//   time.scheduler()->mainQueue().async([] { ... });
//   time.advanceBy(30s);   // runs it, and every timer that falls due on the way
#pragma once

#include <memory>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::sim {

// All queues share one list of ready tasks, run in the order of posting; tasks for the end of a pass run when the tasks
// that were ready at its beginning have run. sleep() and a waiting ConditionLock let virtual time pass inside the call.
// A wait that nothing can end throws std::logic_error. Everything happens on the thread that calls; no other may.
class VirtualTime {
 public:
  explicit VirtualTime(platform::CalendarTime start);
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  // Each outlives this object for whoever keeps it, but then runs nothing any more.
  std::shared_ptr<platform::TaskScheduler> scheduler() const;
  std::shared_ptr<platform::CalendarClock> calendarClock() const;
  std::shared_ptr<platform::MonotonicClock> monotonicClock() const;

  platform::MonotonicTime now() const;

  // Runs everything that is due now.
  void runReady();
  // Lets time pass; what falls due on the way runs at its own moment, what is due at the end runs before it returns.
  void advanceTo(platform::MonotonicTime time);
  void advanceBy(platform::Duration duration);

  // Somebody sets the system clock.
  void stepCalendar(platform::Duration step);

 private:
  class World;
  std::shared_ptr<World> world_;
};

}  // namespace wayloom::sim
