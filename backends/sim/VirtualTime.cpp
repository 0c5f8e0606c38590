#include "wayloom/sim/VirtualTime.hpp"

#include <utility>

#include "backends/sim/VirtualScheduler.hpp"

namespace wayloom::sim {

namespace {

struct VirtualCalendarClock final : platform::CalendarClock {
  explicit VirtualCalendarClock(std::shared_ptr<const VirtualClock> source) : clock(std::move(source)) {}
  platform::CalendarTime now() const override { return clock->calendarNow(); }
  std::shared_ptr<const VirtualClock> clock;
};

struct VirtualMonotonicClock final : platform::MonotonicClock {
  explicit VirtualMonotonicClock(std::shared_ptr<const VirtualClock> source) : clock(std::move(source)) {}
  platform::MonotonicTime now() const override { return clock->now; }
  std::shared_ptr<const VirtualClock> clock;
};

}  // namespace

VirtualTime::VirtualTime(platform::CalendarTime start)
    : scheduler_(std::make_shared<VirtualScheduler>(start)),
      calendarClock_(std::make_shared<VirtualCalendarClock>(scheduler_->clock())),
      monotonicClock_(std::make_shared<VirtualMonotonicClock>(scheduler_->clock())) {}

VirtualTime::~VirtualTime() { scheduler_->shutDown(); }

std::shared_ptr<platform::TaskScheduler> VirtualTime::scheduler() const { return scheduler_; }

std::shared_ptr<platform::CalendarClock> VirtualTime::calendarClock() const { return calendarClock_; }

std::shared_ptr<platform::MonotonicClock> VirtualTime::monotonicClock() const { return monotonicClock_; }

platform::MonotonicTime VirtualTime::now() const { return scheduler_->clock()->now; }

platform::CalendarTime VirtualTime::calendarNow() const { return scheduler_->clock()->calendarNow(); }

platform::MonotonicTime VirtualTime::monotonicAt(platform::CalendarTime time) const {
  const auto zero = scheduler_->clock()->calendarAtZero.time_since_epoch();
  return platform::MonotonicTime(platform::saturatedDifference(time.time_since_epoch(), zero));
}

std::optional<platform::MonotonicTime> VirtualTime::nextDeadline() const { return scheduler_->nextDeadline(); }

// The scheduler is held on to while it runs, since a task may destroy this object.
void VirtualTime::runReady() { std::shared_ptr(scheduler_)->runReady(); }

void VirtualTime::advanceTo(platform::MonotonicTime time) { std::shared_ptr(scheduler_)->advanceTo(time); }

void VirtualTime::advanceBy(platform::Duration duration) {
  std::shared_ptr(scheduler_)->advanceTo(platform::deadlineAfter(now(), duration));
}

void VirtualTime::stepCalendar(platform::Duration step) {
  auto& zero = scheduler_->clock()->calendarAtZero;
  zero = platform::CalendarTime(platform::saturatedSum(zero.time_since_epoch(), step));
}

}  // namespace wayloom::sim
