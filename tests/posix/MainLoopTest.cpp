#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <poll.h>
#include <thread>
#include <vector>

#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::posix {

namespace {

using namespace std::chrono_literals;

bool readable(const MainLoop& loop, int milliseconds = 0) {
  pollfd wake{loop.wakeDescriptor(), POLLIN, 0};
  return poll(&wake, 1, milliseconds) == 1;
}

TEST(MainLoop, TellsItsHostWhenThereIsSomethingToDo) {
  MainLoop loop;
  EXPECT_FALSE(readable(loop));
  EXPECT_EQ(loop.timeToNextDeadline(), std::nullopt);

  int runs = 0;
  loop.mainQueue().async([&] {
    loop.mainQueue().async([&] { ++runs; });
    loop.runDue();  // a loop inside a task: nothing runs, and its host need not spin
    EXPECT_FALSE(readable(loop));
    EXPECT_EQ(runs, 0);
  });
  EXPECT_TRUE(readable(loop));
  EXPECT_EQ(loop.timeToNextDeadline(), 0ns);
  loop.runDue();
  EXPECT_TRUE(readable(loop));
  loop.runDue();
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(readable(loop));

  auto late = loop.startTimer(loop.mainQueue(), 1h, std::nullopt, [&] { ++runs; });
  auto timer = loop.startTimer(loop.mainQueue(), 1ms, std::nullopt, [&] { ++runs; });
  EXPECT_TRUE(readable(loop, -1));
  EXPECT_EQ(loop.timeToNextDeadline(), 0ns);
  loop.runDue();
  EXPECT_EQ(runs, 2);
  EXPECT_FALSE(readable(loop));
  EXPECT_GT(loop.timeToNextDeadline(), 30min);
}

TEST(MainLoop, WakesForPostsAndStopsFromAnyThread) {
  MainLoop loop;
  constexpr int posts = 2000;
  std::vector<int> last(3, -1);
  int count = 0;
  std::vector<std::thread> posters;
  for (std::size_t poster = 0; poster < last.size(); ++poster)
    posters.emplace_back([&, poster] {
      for (int i = 0; i < posts; ++i)
        loop.mainQueue().async([&, poster, i] {
          EXPECT_EQ(last[poster] + 1, i);
          last[poster] = i;
          if (++count == 3 * posts) std::thread([&] { loop.stop(); }).detach();
        });
    });
  loop.run();
  EXPECT_EQ(count, 3 * posts);
  for (auto& poster : posters) poster.join();
  loop.stop();
  loop.run();  // it was stopped in advance
}

TEST(MainLoop, DestroyingAQueueOrTimerWaitsForWhatIsUnderWay) {
  MainLoop loop;
  for (int round = 0; round < 30; ++round) {
    std::atomic<int> inside = 0, begun = 0;
    const auto task = [&] {
      ++inside;
      ++begun;
      std::this_thread::yield();
      --inside;
    };
    auto serial = loop.makeSerialQueue("serial");
    auto timer = loop.startTimer(loop.backgroundQueue(), 0ms, 1ns, task);
    for (int i = 0; i < 100; ++i) serial->async(task);
    while (begun == 0) std::this_thread::yield();
    serial.reset();
    timer.reset();
    const int ended = begun;
    EXPECT_EQ(inside, 0);
    std::this_thread::yield();
    EXPECT_EQ(begun, ended);
  }
}

TEST(MainLoop, ShutDownEndsSleepsAndWaits) {
  auto loop = std::make_unique<MainLoop>(1);
  std::atomic<int> begun = 0, unwound = 0;
  struct Unwinding {
    std::atomic<int>& count;
    ~Unwinding() { ++count; }
  };
  const auto lock = loop->makeConditionLock();
  const auto serial = loop->makeSerialQueue("serial");
  serial->async([&] {
    const Unwinding unwinding{unwound};
    ++begun;
    while (true) loop->sleep(24h * 365);
  });
  serial->async([&] { ADD_FAILURE() << "comes after the sleep"; });
  loop->backgroundQueue().async([&] {
    const Unwinding unwinding{unwound};
    const std::lock_guard held(*lock);
    ++begun;
    while (true) lock->wait();
  });
  while (begun < 2) std::this_thread::yield();
  loop.reset();
  EXPECT_EQ(unwound, 2);
}

TEST(MainLoop, MayBeDestroyedByItsOwnTasks) {
  for (const bool onMain : {true, false}) {
    std::atomic<bool> gone = false;
    auto loop = std::make_shared<MainLoop>();
    MainLoop* const raw = loop.get();
    platform::Task task = [owner = std::move(loop), &gone]() mutable {
      owner->backgroundQueue().async([&gone] { std::this_thread::yield(); });
      owner.reset();
      gone = true;
    };
    (onMain ? raw->mainQueue() : raw->backgroundQueue()).async(task);
    task = nullptr;
    if (onMain) raw->run();
    while (!gone) std::this_thread::yield();
  }
}

}  // namespace

}  // namespace wayloom::posix
