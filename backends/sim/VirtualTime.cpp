#include "wayloom/sim/VirtualTime.hpp"

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/TimerHeap.hpp"

namespace wayloom::sim {

using platform::Duration;
using platform::MonotonicTime;
using platform::Task;

class VirtualTime::World : public platform::TaskScheduler, public std::enable_shared_from_this<World> {
 public:
  explicit World(platform::CalendarTime start)
      : calendarOffset_(start.time_since_epoch()), main_(*this), background_(*this) {}

  platform::TaskQueue& mainQueue() override { return main_; }
  platform::TaskQueue& backgroundQueue() override { return background_; }
  std::unique_ptr<platform::TaskQueue> makeSerialQueue(std::string) override {
    return std::make_unique<SerialQueue>(*this);
  }

  std::unique_ptr<platform::Timer> startTimer(platform::TaskQueue& queue, Duration delay,
                                              std::optional<Duration> interval, Task task) override {
    auto entry = std::make_shared<platform::TimerEntry>();
    entry->deadline = now_ + std::max(delay, Duration::zero());
    entry->sequence = timerCount_++;
    entry->interval = interval;
    entry->queue = &queue;
    entry->task = std::move(task);
    timers_.push(entry);
    return std::make_unique<TimerHandle>(std::move(entry));
  }

  void atEndOfPass(Task task) override { endOfPass_.push_back(std::move(task)); }

  void sleep(Duration duration) override { advanceTo(now_ + std::max(duration, Duration::zero())); }

  std::unique_ptr<platform::ConditionLock> makeConditionLock() override {
    return std::make_unique<VirtualConditionLock>(*this);
  }

  MonotonicTime monotonicNow() const { return now_; }
  platform::CalendarTime calendarNow() const {
    return platform::CalendarTime(calendarOffset_ + now_.time_since_epoch());
  }
  void stepCalendar(Duration step) { calendarOffset_ += step; }

  void runReady() {
    while (true) {
      while (auto timer = timers_.popDue(now_)) fire(timer);
      if (ready_.empty() && endOfPass_.empty()) return;
      runPass();
    }
  }

  void advanceTo(MonotonicTime time) {
    runReady();
    while (const auto deadline = timers_.nextDeadline()) {
      if (*deadline > time) break;
      now_ = std::max(now_, *deadline);
      runReady();
    }
    now_ = std::max(now_, time);
  }

  void shutDown() {
    ended_ = true;
    timers_.clear();
    std::exchange(ready_, {}).clear();
    std::exchange(endOfPass_, {}).clear();
  }

 private:
  // A task in the common list; `queue` lets a serial queue that was destroyed take its tasks with it.
  struct ReadyTask {
    Task task;
    const void* queue;
  };

  class Queue : public platform::TaskQueue {
   public:
    explicit Queue(World& world) : world_(world) {}
    void async(Task task) override { world_.post(std::move(task), this); }

   protected:
    World& world_;
  };

  class SerialQueue : public Queue {
   public:
    explicit SerialQueue(World& world) : Queue(world), keepAlive_(world.weak_from_this()) {}
    ~SerialQueue() override {
      if (const auto world = keepAlive_.lock()) world->drop(this);
    }
    void async(Task task) override {
      if (const auto world = keepAlive_.lock()) world->post(std::move(task), this);
    }

   private:
    std::weak_ptr<World> keepAlive_;
  };

  class TimerHandle : public platform::Timer {
   public:
    explicit TimerHandle(std::shared_ptr<platform::TimerEntry> entry) : entry_(std::move(entry)) {}
    ~TimerHandle() override { entry_->cancelled = true; }

   private:
    std::shared_ptr<platform::TimerEntry> entry_;
  };

  // With one thread a held lock can only be somebody further up the call stack, who can't give it up meanwhile.
  class VirtualConditionLock : public platform::ConditionLock {
   public:
    explicit VirtualConditionLock(World& world) : world_(world) {}

    void lock() override {
      world_.runUntil([this] { return !held_; }, "a lock that is never given up");
      held_ = true;
    }
    void unlock() override { held_ = false; }
    void wait() override {
      const auto generation = generation_;
      held_ = false;
      world_.runUntil([&] { return generation_ != generation && !held_; }, "a condition that nobody signals");
      held_ = true;
    }
    void signalAll() override { ++generation_; }

   private:
    World& world_;
    bool held_ = false;
    std::uint64_t generation_ = 0;
  };

  void post(Task task, const void* queue) {
    if (!ended_) ready_.push_back({std::move(task), queue});
  }

  void drop(const void* queue) {
    std::erase_if(ready_, [&](const ReadyTask& ready) { return ready.queue == queue; });
  }

  void fire(const std::shared_ptr<platform::TimerEntry>& timer) {
    timer->queue->async([timer] {
      if (!timer->cancelled) timer->task();
    });
    if (!timer->interval) return;
    timer->stepPast(now_);
    timers_.push(timer);
  }

  void runOne() {
    const ReadyTask next = std::move(ready_.front());
    ready_.pop_front();
    next.task();
  }

  void runPass() {
    for (auto count = ready_.size(); count > 0 && !ready_.empty(); --count) runOne();
    for (auto count = endOfPass_.size(); count > 0 && !endOfPass_.empty(); --count) {
      const Task task = std::move(endOfPass_.front());
      endOfPass_.pop_front();
      task();
    }
  }

  template <class Condition>
  void runUntil(Condition condition, const char* what) {
    while (!condition()) {
      while (auto timer = timers_.popDue(now_)) fire(timer);
      if (!ready_.empty() || !endOfPass_.empty()) {
        runPass();
      } else if (const auto deadline = timers_.nextDeadline()) {
        now_ = *deadline;
      } else {
        throw std::logic_error(std::string("virtual time waits for ") + what);
      }
    }
  }

  Duration calendarOffset_;
  MonotonicTime now_{};
  std::uint64_t timerCount_ = 0;
  bool ended_ = false;
  Queue main_;
  Queue background_;
  std::deque<ReadyTask> ready_;
  std::deque<Task> endOfPass_;
  platform::TimerHeap timers_;
};

namespace {

template <class World>
class VirtualCalendarClock : public platform::CalendarClock {
 public:
  explicit VirtualCalendarClock(std::shared_ptr<const World> world) : world_(std::move(world)) {}
  platform::CalendarTime now() const override { return world_->calendarNow(); }

 private:
  std::shared_ptr<const World> world_;
};

template <class World>
class VirtualMonotonicClock : public platform::MonotonicClock {
 public:
  explicit VirtualMonotonicClock(std::shared_ptr<const World> world) : world_(std::move(world)) {}
  MonotonicTime now() const override { return world_->monotonicNow(); }

 private:
  std::shared_ptr<const World> world_;
};

}  // namespace

VirtualTime::VirtualTime(platform::CalendarTime start) : world_(std::make_shared<World>(start)) {}
VirtualTime::~VirtualTime() { world_->shutDown(); }

std::shared_ptr<platform::TaskScheduler> VirtualTime::scheduler() const { return world_; }

std::shared_ptr<platform::CalendarClock> VirtualTime::calendarClock() const {
  return std::make_shared<VirtualCalendarClock<World>>(world_);
}

std::shared_ptr<platform::MonotonicClock> VirtualTime::monotonicClock() const {
  return std::make_shared<VirtualMonotonicClock<World>>(world_);
}

MonotonicTime VirtualTime::now() const { return world_->monotonicNow(); }
void VirtualTime::runReady() { world_->runReady(); }
void VirtualTime::advanceTo(MonotonicTime time) { world_->advanceTo(time); }
void VirtualTime::advanceBy(Duration duration) { world_->sleep(duration); }
void VirtualTime::stepCalendar(Duration step) { world_->stepCalendar(step); }

}  // namespace wayloom::sim
