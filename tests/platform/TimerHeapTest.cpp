#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <list>
#include <random>

#include "platform/Fifo.hpp"
#include "platform/TimerHeap.hpp"

namespace wayloom::platform {

namespace {

MonotonicTime at(std::int64_t nanoseconds) { return MonotonicTime(Duration(nanoseconds)); }

// Against a plain search, with few different due times so that many are equal.
TEST(TimerHeap, AgreesWithASearchOfAllTimers) {
  std::mt19937 random(7);
  TimerHeap heap;
  std::list<TimerEntry> waiting;
  for (std::int64_t step = 0; step < 20000; ++step) {
    const auto now = at(step / 10);
    if (random() % 2 == 0) {
      waiting.emplace_back().due = now + Duration(random() % 20);
      heap.start(waiting.back());
    } else if (!waiting.empty() && random() % 3 == 0) {
      const auto victim = std::next(waiting.begin(), static_cast<std::ptrdiff_t>(random() % waiting.size()));
      heap.remove(*victim);
      heap.remove(*victim);  // once more does nothing
      waiting.erase(victim);
    } else {
      const auto first =
          std::ranges::min_element(waiting, {}, [](const auto& e) { return std::pair(e.due, e.sequence); });
      const bool due = first != waiting.end() && first->due <= now;
      ASSERT_EQ(heap.takeDue(now), due ? &*first : nullptr);
      if (due) waiting.erase(first);
    }
  }
}

TEST(TimerHeap, StepsFromThePreviousDueTimeOverMissedTicks) {
  const auto next = [](std::int64_t due, Duration interval, MonotonicTime now) {
    TimerEntry entry;
    entry.due = at(due);
    entry.interval = interval;
    entry.stepPast(now);
    return entry.due;
  };
  EXPECT_EQ(next(100, Duration(10), at(100)), at(110));
  EXPECT_EQ(next(100, Duration(10), at(109)), at(110));
  EXPECT_EQ(next(100, Duration(10), at(110)), at(120));
  EXPECT_EQ(next(100, Duration(10), at(1005)), at(1010));
  EXPECT_EQ(next(100, Duration(1), at(std::int64_t{1} << 62)), at((std::int64_t{1} << 62) + 1));
  EXPECT_EQ(next(100, Duration::max(), at(200)), MonotonicTime::max());
  EXPECT_EQ(deadlineAfter(at(5), Duration(-3)), at(5));
}

TEST(Fifo, AgreesWithADeque) {
  std::mt19937 random(3);
  Fifo<int> fifo;
  std::deque<int> model;
  for (int step = 0; step < 20000; ++step) {
    const auto action = random() % (step / 1000 % 2 == 0 ? 3 : 5);  // grows and shrinks in turn
    if (action < 2) {
      fifo.push(step);
      model.push_back(step);
    } else if (!model.empty()) {
      const auto index = action == 2 ? random() % model.size() : 0;
      ASSERT_EQ(action == 2 ? fifo.take(index) : fifo.pop(), model[index]);
      model.erase(model.begin() + static_cast<std::ptrdiff_t>(index));
    }
    ASSERT_EQ(fifo.size(), model.size());
  }
}

}  // namespace

}  // namespace wayloom::platform
