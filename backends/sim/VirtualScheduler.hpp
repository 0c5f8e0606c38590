#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

#include "platform/Fifo.hpp"
#include "platform/TimerHeap.hpp"

namespace wayloom::sim {

// The two clocks of a virtual world.
struct VirtualClock {
  platform::MonotonicTime now;
  platform::CalendarTime calendarAtZero;

  platform::CalendarTime calendarNow() const {
    return platform::CalendarTime(platform::saturatedSum(calendarAtZero.time_since_epoch(), now.time_since_epoch()));
  }
};

// The task scheduler of a virtual world; see VirtualTime.hpp for the rules.
class VirtualScheduler final : public platform::TaskScheduler, public std::enable_shared_from_this<VirtualScheduler> {
 public:
  explicit VirtualScheduler(platform::CalendarTime start);
  ~VirtualScheduler() override;

  platform::TaskQueue& mainQueue() override { return main_; }
  platform::TaskQueue& backgroundQueue() override { return background_; }
  std::unique_ptr<platform::TaskQueue> makeSerialQueue(std::string name) override;
  std::unique_ptr<platform::Timer> startTimer(platform::TaskQueue& queue, platform::Duration delay,
                                              std::optional<platform::Duration> interval, platform::Task task) override;
  void atEndOfPass(platform::Task task) override;
  void sleep(platform::Duration duration) override;
  std::unique_ptr<platform::ConditionLock> makeConditionLock() override;

  const std::shared_ptr<VirtualClock>& clock() const { return clock_; }
  std::optional<platform::MonotonicTime> nextDeadline() const;
  void runReady();
  void advanceTo(platform::MonotonicTime time);
  // Runs what is ready and lets time pass until `done` holds. Throws AbandonedWait when that can't happen.
  void advanceUntil(const std::function<bool()>& done);
  // Destroys everything pending. From now on nothing is accepted and nothing runs.
  void shutDown();

 private:
  // Main and serial queues are exclusive: one task of theirs at a time.
  struct Queue : platform::TaskQueue {
    Queue(VirtualScheduler& owner, bool runsOneAtATime) : scheduler(owner), exclusive(runsOneAtATime) {}
    void async(platform::Task task) override { scheduler.post({this, std::move(task), nullptr}); }
    std::function<void(platform::Task)> poster() override {
      return [this, weak = std::weak_ptr(life)](platform::Task task) {
        if (!weak.expired()) async(std::move(task));
      };
    }
    VirtualScheduler& scheduler;
    const bool exclusive;
    bool underWay = false;  // an exclusive queue's task is
    const std::shared_ptr<int> life = std::make_shared<int>();
  };
  struct SerialQueue;
  struct TimerHandle;

  // A posted task or a timer that fell due. A dropped one stays as an entry that does nothing.
  struct Ready {
    Queue* queue = nullptr;
    platform::Task task;
    TimerHandle* timer = nullptr;
  };
  // A task under way, from the innermost outwards. Queue and timer become null when they are destroyed meanwhile.
  struct Frame;

  void post(Ready ready);
  void provideNextPass();
  void postDueTimers();
  bool runNext();
  bool runEndOfPass();
  void run(Ready ready);
  void runTimer(Frame& frame);
  std::optional<std::size_t> firstRunnable();
  static bool busy(const Queue* queue) { return queue != nullptr && queue->underWay; }
  // Runs `body` inside a main-thread frame when no task is under way.
  void blockCaller(const std::function<void()>& body);
  void forget(TimerHandle& timer);
  void forget(SerialQueue& queue);

  std::shared_ptr<VirtualClock> clock_;
  Queue main_{*this, true};
  Queue background_{*this, false};
  platform::TimerHeap timers_;
  platform::Fifo<Ready> ready_;
  platform::Fifo<platform::Task> endOfPass_;
  Frame* frames_ = nullptr;
  std::size_t mainReady_ = 0;   // entries of the main queue in ready_
  std::size_t mainInPass_ = 0;  // how many of them belong to the pass under way and have not ended
  bool passUnderWay_ = false;
  std::optional<std::size_t> endsInPass_;  // how many end-of-pass tasks it still has, once it has come to them
  bool shutDown_ = false;
};

}  // namespace wayloom::sim
