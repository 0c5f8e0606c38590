#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// What the task core knows of one timer. A timer is in the heap only while it waits for its due time: not while its
// callback waits in a queue or runs, so that the ticks which fall due meanwhile are missed ones.
struct TimerEntry {
  static constexpr std::size_t notWaiting = static_cast<std::size_t>(-1);

  MonotonicTime due;
  std::optional<Duration> interval;
  std::uint64_t sequence = 0;
  std::size_t position = notWaiting;  // the heap's own

  bool waiting() const { return position != notWaiting; }

  // With an interval: steps from the previous due time over every tick that is not after `now`.
  void stepPast(MonotonicTime now);
};

// The waiting timers in the order of (due, sequence). Neither owns its entries nor locks. All changes take
// logarithmic time.
class TimerHeap {
 public:
  // A new timer: sequence numbers are given out in the order of these calls.
  void start(TimerEntry& entry);
  // A repeating timer whose callback has ended, after stepPast().
  void resume(TimerEntry& entry);
  void remove(TimerEntry& entry);

  TimerEntry* first() const { return entries_.empty() ? nullptr : entries_.front(); }
  // Removes and returns the first entry if it is due, else null.
  TimerEntry* takeDue(MonotonicTime now);

  const std::vector<TimerEntry*>& entries() const { return entries_; }

 private:
  void place(std::size_t position, TimerEntry* entry);
  void siftUp(std::size_t position);
  void siftDown(std::size_t position);

  std::vector<TimerEntry*> entries_;
  std::uint64_t nextSequence_ = 0;
};

// The time `delay` after `now`; the end of time when that is beyond it.
MonotonicTime deadlineAfter(MonotonicTime now, Duration delay);

// Of any two durations; the nearest end of time when the result is beyond it.
Duration saturatedSum(Duration left, Duration right);
Duration saturatedDifference(Duration left, Duration right);

}  // namespace wayloom::platform
