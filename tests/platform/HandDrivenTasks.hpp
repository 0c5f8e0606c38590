// A scheduler and clock that move only when told: every queue is one queue, in order of posting.
#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {

class HandDrivenTasks : public TaskScheduler, public MonotonicClock, private TaskQueue {
 public:
  MonotonicTime now() const override { return now_; }

  void run() {
    while (!tasks_.empty()) {
      const auto task = std::move(tasks_.front());
      tasks_.pop_front();
      task();
    }
  }

  // Fires what falls due meanwhile, in order, and runs what that posts.
  void pass(Duration duration) {
    run();
    const auto end = now_ + duration;
    while (const auto timer = nextTimer(end)) {
      now_ = std::max(now_, timer->due);
      timer->due += timer->interval;
      timer->task();
      run();
    }
    now_ = end;
  }

  // Time that passes while nothing runs.
  void suspend(Duration duration) { now_ += duration; }

  std::size_t timerCount() {
    std::erase_if(timers_, [](const auto& timer) { return timer.expired(); });
    return timers_.size();
  }

  TaskQueue& mainQueue() override { return *this; }
  TaskQueue& backgroundQueue() override { return *this; }
  std::unique_ptr<TaskQueue> makeSerialQueue(std::string) override { return nullptr; }
  std::unique_ptr<Timer> startTimer(TaskQueue&, Duration delay, std::optional<Duration> interval, Task task) override {
    auto state = std::make_shared<TimerState>(now_ + delay, interval.value(), std::move(task));
    timers_.push_back(state);
    return std::make_unique<Handle>(std::move(state));
  }
  void atEndOfPass(Task task) override { async(std::move(task)); }
  void sleep(Duration duration) override { pass(duration); }
  std::unique_ptr<ConditionLock> makeConditionLock() override { return nullptr; }

 private:
  struct TimerState {
    TimerState(MonotonicTime first, Duration every, Task what) : due(first), interval(every), task(std::move(what)) {}
    MonotonicTime due;
    Duration interval;
    Task task;
  };
  struct Handle : Timer {
    explicit Handle(std::shared_ptr<TimerState> timer) : state(std::move(timer)) {}
    std::shared_ptr<TimerState> state;
  };

  void async(Task task) override { tasks_.push_back(std::move(task)); }
  std::function<void(Task)> poster() override {
    return [this](Task task) { async(std::move(task)); };
  }

  std::shared_ptr<TimerState> nextTimer(MonotonicTime end) const {
    std::shared_ptr<TimerState> next;
    for (const auto& weak : timers_) {
      auto timer = weak.lock();
      if (timer && timer->due <= end && (!next || timer->due < next->due)) next = std::move(timer);
    }
    return next;
  }

  MonotonicTime now_;
  std::deque<Task> tasks_;
  std::vector<std::weak_ptr<TimerState>> timers_;
};

}  // namespace wayloom::platform
