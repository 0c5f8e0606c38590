// What scheduling costs in virtual and in real time, next to a plain std::function call and a bare std::thread
// hand-over through a mutex and a condition variable.
#include <benchmark/benchmark.h>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/sim/VirtualTime.hpp"

namespace {

using namespace std::chrono_literals;
using namespace wayloom;

constexpr int batch = 1000;

void count(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * batch); }

void plainCalls(benchmark::State& state) {
  int calls = 0;
  std::deque<std::function<void()>> tasks;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) tasks.emplace_back([&] { ++calls; });
    for (; !tasks.empty(); tasks.pop_front()) tasks.front()();
  }
  benchmark::DoNotOptimize(calls);
  count(state);
}
BENCHMARK(plainCalls);

void virtualTasks(benchmark::State& state) {
  sim::VirtualTime time{platform::CalendarTime()};
  const auto tasks = time.scheduler();
  int calls = 0;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) tasks->mainQueue().async([&] { ++calls; });
    time.runReady();
  }
  count(state);
}
BENCHMARK(virtualTasks);

void virtualBoundTasks(benchmark::State& state) {
  sim::VirtualTime time{platform::CalendarTime()};
  const auto tasks = time.scheduler();
  const platform::TaskScope scope;
  int calls = 0;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) tasks->mainQueue().async(scope.bind([&] { ++calls; }));
    time.runReady();
  }
  count(state);
}
BENCHMARK(virtualBoundTasks);

// What a replayed ranging asks of the scheduler: time goes on by a second, a timer ticks, the main queue delivers, a
// serial queue works, a notification goes out at the end of the pass.
void virtualRangings(benchmark::State& state) {
  sim::VirtualTime time{platform::CalendarTime()};
  const auto tasks = time.scheduler();
  const auto serial = tasks->makeSerialQueue("tracker");
  const platform::TaskScope scope;
  int calls = 0;
  const auto timer = tasks->startTimer(tasks->mainQueue(), 1s, 1s, [&] { ++calls; });
  const auto slow = tasks->startTimer(tasks->mainQueue(), 30s, 30s, [&] { ++calls; });
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      time.advanceBy(1s);
      tasks->mainQueue().async([&] {
        serial->async(scope.bind([&] { ++calls; }));
        tasks->atEndOfPass([&] { ++calls; });
      });
      time.runReady();
    }
  }
  count(state);
}
BENCHMARK(virtualRangings);

void virtualTimers(benchmark::State& state) {
  sim::VirtualTime time{platform::CalendarTime()};
  const auto tasks = time.scheduler();
  std::vector<std::unique_ptr<platform::Timer>> timers(batch);
  for (auto _ : state) {
    for (std::size_t i = 0; i < batch; ++i)
      timers[i] =
          tasks->startTimer(tasks->mainQueue(), std::chrono::milliseconds(i * 7919 % 1000), std::nullopt, [] {});
    time.advanceBy(1s);
  }
  count(state);
}
BENCHMARK(virtualTimers);

void realMainTasks(benchmark::State& state) {
  posix::MainLoop loop;
  int calls = 0;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) loop.mainQueue().async([&] { ++calls; });
    loop.runDue();
  }
  count(state);
}
BENCHMARK(realMainTasks);

void realTimers(benchmark::State& state) {
  posix::MainLoop loop;
  std::vector<std::unique_ptr<platform::Timer>> timers(batch);
  for (auto _ : state) {
    int calls = 0;
    for (auto& timer : timers) timer = loop.startTimer(loop.mainQueue(), 0ms, std::nullopt, [&] { ++calls; });
    while (calls < batch) loop.runDue();
  }
  count(state);
}
BENCHMARK(realTimers);

void realSerialTasks(benchmark::State& state) {
  posix::MainLoop loop;
  const auto serial = loop.makeSerialQueue("serial");
  int calls = 0;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) serial->async([&] { ++calls; });
    serial->async([&] { loop.stop(); });
    loop.run();
  }
  count(state);
}
BENCHMARK(realSerialTasks)->UseRealTime();

// From the main thread to another one and back, one at a time: each hand-over wakes a thread.
void realRoundTrips(benchmark::State& state) {
  posix::MainLoop loop;
  const auto serial = loop.makeSerialQueue("serial");
  for (auto _ : state) {
    serial->async([&] { loop.mainQueue().async([&] { loop.stop(); }); });
    loop.run();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(realRoundTrips)->UseRealTime();

void bareThreadRoundTrips(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable changed;
  int turn = 0;
  std::thread other([&] {
    for (std::unique_lock lock(mutex); turn != 2; changed.wait(lock, [&] { return turn != 0; }))
      if (turn == 1) {
        turn = 0;
        changed.notify_one();
      }
  });
  const auto hand = [&](int to) {
    std::unique_lock lock(mutex);
    turn = to;
    changed.notify_one();
    if (to == 1) changed.wait(lock, [&] { return turn == 0; });
  };
  for (auto _ : state) hand(1);
  hand(2);
  other.join();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bareThreadRoundTrips)->UseRealTime();

}  // namespace
