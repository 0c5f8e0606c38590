#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// What a scheduler knows of one timer; shared between the heap and whoever holds the timer.
struct TimerEntry {
  MonotonicTime deadline;
  std::uint64_t sequence = 0;  // order of creation: decides between equal deadlines
  std::optional<Duration> interval;
  TaskQueue* queue = nullptr;
  Task task;
  bool cancelled = false;

  // Steps to the first tick after `now`, skipping those that were missed.
  void stepPast(MonotonicTime now) {
    const auto missed = (now - deadline) / *interval;
    deadline += *interval * (missed + 1);
  }
};

// Timers by (deadline, sequence). Not thread-safe.
class TimerHeap {
 public:
  using Entry = std::shared_ptr<TimerEntry>;

  void push(Entry entry) {
    entries_.push_back(std::move(entry));
    std::push_heap(entries_.begin(), entries_.end(), later);
  }

  std::optional<MonotonicTime> nextDeadline() {
    dropCancelled();
    if (entries_.empty()) return std::nullopt;
    return entries_.front()->deadline;
  }

  // The first timer due at `now`, taken out of the heap; null when none is.
  Entry popDue(MonotonicTime now) {
    dropCancelled();
    if (entries_.empty() || entries_.front()->deadline > now) return nullptr;
    return pop();
  }

  void clear() { entries_.clear(); }

 private:
  static bool later(const Entry& a, const Entry& b) {
    return std::pair(a->deadline, a->sequence) > std::pair(b->deadline, b->sequence);
  }

  Entry pop() {
    std::pop_heap(entries_.begin(), entries_.end(), later);
    Entry entry = std::move(entries_.back());
    entries_.pop_back();
    return entry;
  }

  void dropCancelled() {
    while (!entries_.empty() && entries_.front()->cancelled) pop();
  }

  std::vector<Entry> entries_;
};

}  // namespace wayloom::platform
