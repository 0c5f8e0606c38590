#include "platform/TimerHeap.hpp"

#include <algorithm>

namespace wayloom::platform {

namespace {

bool before(const TimerEntry& a, const TimerEntry& b) {
  return a.due != b.due ? a.due < b.due : a.sequence < b.sequence;
}

}  // namespace

MonotonicTime deadlineAfter(MonotonicTime now, Duration delay) {
  delay = std::max(delay, Duration::zero());
  return delay > MonotonicTime::max() - now ? MonotonicTime::max() : now + delay;
}

Duration saturatedSum(Duration left, Duration right) {
  Duration::rep sum = 0;
  if (!__builtin_add_overflow(left.count(), right.count(), &sum)) return Duration(sum);
  return left > Duration::zero() ? Duration::max() : Duration::min();
}

Duration saturatedDifference(Duration left, Duration right) {
  Duration::rep difference = 0;
  if (!__builtin_sub_overflow(left.count(), right.count(), &difference)) return Duration(difference);
  return left > right ? Duration::max() : Duration::min();
}

void TimerEntry::stepPast(MonotonicTime now) {
  if (!interval) return;
  due = deadlineAfter(due, *interval);
  if (due > now) return;
  const auto missed = (now - due) / *interval;
  due = deadlineAfter(due + missed * *interval, *interval);
}

void TimerHeap::start(TimerEntry& entry) {
  entry.sequence = nextSequence_++;
  resume(entry);
}

void TimerHeap::resume(TimerEntry& entry) {
  entries_.push_back(&entry);
  entry.position = entries_.size() - 1;
  siftUp(entry.position);
}

void TimerHeap::remove(TimerEntry& entry) {
  if (!entry.waiting()) return;
  const std::size_t position = entry.position;
  entry.position = TimerEntry::notWaiting;
  TimerEntry* last = entries_.back();
  entries_.pop_back();
  if (last == &entry) return;
  place(position, last);
  siftUp(position);
  siftDown(last->position);
}

TimerEntry* TimerHeap::takeDue(MonotonicTime now) {
  TimerEntry* entry = first();
  if (entry == nullptr || entry->due > now) return nullptr;
  remove(*entry);
  return entry;
}

void TimerHeap::place(std::size_t position, TimerEntry* entry) {
  entries_[position] = entry;
  entry->position = position;
}

void TimerHeap::siftUp(std::size_t position) {
  TimerEntry* entry = entries_[position];
  while (position > 0) {
    const std::size_t parent = (position - 1) / 2;
    if (!before(*entry, *entries_[parent])) break;
    place(position, entries_[parent]);
    position = parent;
  }
  place(position, entry);
}

void TimerHeap::siftDown(std::size_t position) {
  TimerEntry* entry = entries_[position];
  while (true) {
    std::size_t child = 2 * position + 1;
    if (child >= entries_.size()) break;
    if (child + 1 < entries_.size() && before(*entries_[child + 1], *entries_[child])) ++child;
    if (!before(*entries_[child], *entry)) break;
    place(position, entries_[child]);
    position = child;
  }
  place(position, entry);
}

}  // namespace wayloom::platform
