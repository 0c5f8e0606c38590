#include <gmock/gmock.h>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "wayloom/sim/VirtualTime.hpp"

namespace wayloom::sim {

namespace {

using namespace std::chrono_literals;
using platform::Duration;
using testing::ElementsAre;

class VirtualTimeTest : public testing::Test {
 protected:
  platform::Task noting(std::string word) {
    return [this, word = std::move(word)] {
      words.push_back(std::to_string(time.now().time_since_epoch() / 1s) + " " + word);
    };
  }

  VirtualTime time{platform::calendarTimeFromSeconds(1000)};
  std::shared_ptr<platform::TaskScheduler> tasks = time.scheduler();
  platform::TaskQueue& mainQueue = tasks->mainQueue();
  std::vector<std::string> words;
};

TEST_F(VirtualTimeTest, EverythingRunsAtItsOwnTime) {
  const auto calendar = time.calendarClock();
  const auto timer = tasks->startTimer(mainQueue, 10s, 10s, [&] {
    noting("tick")();
    tasks->backgroundQueue().async(noting("work"));
  });
  EXPECT_EQ(time.nextDeadline(), time.now() + 10s);
  time.stepCalendar(-500s);
  time.advanceTo(time.now() + 25s);
  time.advanceTo(time.now() - 5s);  // is now
  EXPECT_THAT(words, ElementsAre("10 tick", "10 work", "20 tick", "20 work"));
  EXPECT_EQ(secondsSince1970(calendar->now()), 525);
  EXPECT_EQ(time.monotonicAt(time.calendarNow() + 7s), time.monotonicClock()->now() + 7s);
}

TEST_F(VirtualTimeTest, AllQueuesShareOneOrder) {
  const auto serial = tasks->makeSerialQueue("serial");
  platform::TaskQueue* const queues[] = {serial.get(), &mainQueue, &tasks->backgroundQueue()};
  for (int i = 0; i < 6; ++i) queues[i % 3]->async(noting(std::to_string(i)));
  time.runReady();
  EXPECT_THAT(words, ElementsAre("0 0", "0 1", "0 2", "0 3", "0 4", "0 5"));
}

TEST_F(VirtualTimeTest, OthersRunWhileTheMainThreadSleeps) {
  const auto mainTimer = tasks->startTimer(mainQueue, 1s, 1s, noting("main"));
  const auto otherTimer = tasks->startTimer(tasks->backgroundQueue(), 2s, 2s, noting("other"));
  mainQueue.async(noting("posted before"));
  tasks->sleep(4s);  // in no task: that is the main thread
  noting("awake")();
  time.advanceBy(1s);
  EXPECT_THAT(words, ElementsAre("2 other", "4 other", "4 awake", "4 posted before", "4 main", "5 main"));
}

TEST_F(VirtualTimeTest, WaitsThatNothingCanEndAreReported) {
  const auto lock = tasks->makeConditionLock();
  const auto expectAbandoned = [&] {
    const std::lock_guard held(*lock);
    EXPECT_THROW(lock->wait(), platform::AbandonedWait);
    EXPECT_THROW(lock->lock(), std::logic_error);  // it is held again
  };
  expectAbandoned();
  const auto timer = tasks->startTimer(tasks->backgroundQueue(), 60s, 60s, [] {});
  const auto start = time.now();
  expectAbandoned();
  EXPECT_LE(time.now() - start, VirtualTime::longestWait);

  mainQueue.async([&] {
    const std::lock_guard held(*lock);
    tasks->sleep(1s);
  });
  tasks->backgroundQueue().async([&] { EXPECT_THROW(lock->lock(), std::logic_error); });
  time.runReady();
}

TEST_F(VirtualTimeTest, WhatATaskThrowsComesOutAndTheRestGoesOn) {
  mainQueue.async([&] {
    tasks->atEndOfPass(noting("end"));
    throw std::runtime_error("bad");
  });
  mainQueue.async(noting("next"));
  EXPECT_THROW(time.runReady(), std::runtime_error);
  time.runReady();
  EXPECT_THAT(words, ElementsAre("0 next", "0 end"));
}

TEST(VirtualTime, MayBeDestroyedByItsOwnTask) {
  auto time = std::make_unique<VirtualTime>(platform::CalendarTime());
  const auto tasks = time->scheduler();
  const auto clock = time->monotonicClock();
  int calls = 0;
  std::unique_ptr<platform::Timer> timer = tasks->startTimer(tasks->mainQueue(), 1s, 1s, [&] {
    ++calls;
    tasks->mainQueue().async([&] { ++calls; });
    time.reset();
  });
  time->advanceBy(1h);
  tasks->mainQueue().async([&] { ++calls; });
  EXPECT_EQ(calls, 1);
}

// Tasks that start, post, sleep and cancel at random: what comes of a seed is the same each time.
std::vector<int> randomTrace(unsigned seed) {
  VirtualTime time{platform::CalendarTime()};
  const auto tasks = time.scheduler();
  std::mt19937 random(seed);
  std::vector<std::unique_ptr<platform::TaskQueue>> serial;
  for (int i = 0; i < 3; ++i) serial.push_back(tasks->makeSerialQueue("serial"));
  std::vector<std::unique_ptr<platform::Timer>> timers(20);
  std::vector<int> trace;
  std::vector<int> underWay(5);
  int next = 0;
  std::function<void()> act = [&] {
    const std::size_t which = random() % 5;
    auto& queue = which < 3 ? *serial[which] : which == 3 ? tasks->mainQueue() : tasks->backgroundQueue();
    const auto task = [&, id = next++, which] {
      EXPECT_EQ(underWay[which], 0);
      if (which < 4) ++underWay[which];
      trace.push_back(id);
      if (random() % 4 == 0) tasks->sleep(Duration(random() % 50));
      if (id < 200) act();
      if (id < 200 && random() % 2 == 0) act();
      if (which < 4) --underWay[which];
    };
    auto& timer = timers[random() % timers.size()];
    if (random() % 3 != 0) return queue.async(task);
    if (random() % 3 == 0) tasks->atEndOfPass([&] { trace.push_back(-1); });
    timer = tasks->startTimer(queue, Duration(random() % 30), std::nullopt, task);
  };
  for (int i = 0; i < 10; ++i) act();
  time.advanceBy(1s);
  return trace;
}

TEST(VirtualTime, EndsAtTheEndOfTime) {
  VirtualTime time(platform::calendarTimeFromSeconds(1.7e9));
  time.scheduler()->sleep(Duration::max());
  EXPECT_EQ(time.now(), platform::MonotonicTime::max());
  EXPECT_EQ(time.calendarNow(), platform::CalendarTime::max());
  time.advanceBy(1h);
  time.stepCalendar(Duration::max());
  EXPECT_EQ(time.calendarNow(), platform::CalendarTime::max());
  EXPECT_EQ(time.monotonicAt(platform::CalendarTime::min()), platform::MonotonicTime::min());
}

TEST(VirtualTime, ASeedGivesTheSameTraceEachTime) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    const auto trace = randomTrace(seed);
    EXPECT_GT(trace.size(), 15U);
    EXPECT_EQ(trace, randomTrace(seed));
  }
}

}  // namespace

}  // namespace wayloom::sim
