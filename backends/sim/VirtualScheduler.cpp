#include "backends/sim/VirtualScheduler.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "wayloom/sim/VirtualTime.hpp"

#include "backends/sim/VirtualConditionLock.hpp"

namespace wayloom::sim {

using platform::Duration;
using platform::MonotonicTime;
using platform::Task;

struct VirtualScheduler::SerialQueue final : Queue {
  explicit SerialQueue(std::shared_ptr<VirtualScheduler> owner) : Queue(*owner, true), keepAlive(std::move(owner)) {}
  ~SerialQueue() override { scheduler.forget(*this); }
  std::shared_ptr<VirtualScheduler> keepAlive;
};

struct VirtualScheduler::TimerHandle final : platform::Timer, platform::TimerEntry {
  ~TimerHandle() override { scheduler->forget(*this); }
  std::shared_ptr<VirtualScheduler> scheduler;
  Queue* queue = nullptr;
  Task task;
};

struct VirtualScheduler::Frame {
  Frame(VirtualScheduler& owner, Queue* taskQueue, TimerHandle* firedTimer)
      : scheduler(owner), queue(taskQueue), timer(firedTimer), outer(std::exchange(owner.frames_, this)) {
    if (queue != nullptr) queue->underWay = queue->exclusive;
  }
  ~Frame() {
    if (queue != nullptr) queue->underWay = false;
    scheduler.frames_ = outer;
  }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  VirtualScheduler& scheduler;
  Queue* queue;
  TimerHandle* timer;
  Frame* outer;
};

VirtualScheduler::VirtualScheduler(platform::CalendarTime start)
    : clock_(std::make_shared<VirtualClock>(VirtualClock{MonotonicTime(), start})) {}

VirtualScheduler::~VirtualScheduler() { shutDown(); }

std::unique_ptr<platform::TaskQueue> VirtualScheduler::makeSerialQueue(std::string) {
  return std::make_unique<SerialQueue>(shared_from_this());
}

std::unique_ptr<platform::Timer> VirtualScheduler::startTimer(platform::TaskQueue& queue, Duration delay,
                                                              std::optional<Duration> interval, Task task) {
  if (interval && *interval <= Duration::zero()) throw std::invalid_argument("a timer's interval must be positive");
  auto timer = std::make_unique<TimerHandle>();
  timer->scheduler = shared_from_this();
  timer->queue = &dynamic_cast<Queue&>(queue);
  timer->task = std::move(task);
  timer->due = platform::deadlineAfter(clock_->now, delay);
  timer->interval = interval;
  if (!shutDown_) timers_.start(*timer);
  return timer;
}

void VirtualScheduler::atEndOfPass(Task task) {
  if (shutDown_) return;
  endOfPass_.push(std::move(task));
  provideNextPass();
}

// Sees to it that a pass begins when nothing else would make it begin.
void VirtualScheduler::provideNextPass() {
  if (!passUnderWay_ && mainReady_ == 0 && !endOfPass_.empty()) post({&main_, nullptr, nullptr});
}

void VirtualScheduler::sleep(Duration duration) {
  blockCaller([&] { advanceTo(platform::deadlineAfter(clock_->now, duration)); });
}

std::unique_ptr<platform::ConditionLock> VirtualScheduler::makeConditionLock() {
  return std::make_unique<VirtualConditionLock>(shared_from_this());
}

std::optional<MonotonicTime> VirtualScheduler::nextDeadline() const {
  const platform::TimerEntry* first = timers_.first();
  return first != nullptr ? std::optional(first->due) : std::nullopt;
}

void VirtualScheduler::runReady() {
  while (runNext()) {
  }
}

void VirtualScheduler::advanceTo(MonotonicTime time) {
  runReady();
  while (timers_.first() != nullptr && timers_.first()->due <= time) {
    clock_->now = std::max(clock_->now, timers_.first()->due);
    runReady();
  }
  clock_->now = std::max(clock_->now, time);
}

void VirtualScheduler::advanceUntil(const std::function<bool()>& done) {
  const MonotonicTime limit = platform::deadlineAfter(clock_->now, VirtualTime::longestWait);
  blockCaller([&] {
    while (!done()) {
      if (runNext()) continue;
      if (timers_.first() == nullptr) throw platform::AbandonedWait("a wait that nothing can end any more");
      if (timers_.first()->due > limit) throw platform::AbandonedWait("a wait that nothing ended for a day");
      clock_->now = std::max(clock_->now, timers_.first()->due);
    }
  });
}

void VirtualScheduler::shutDown() {
  shutDown_ = true;
  while (timers_.first() != nullptr) timers_.remove(*timers_.first());
  const auto ready = std::exchange(ready_, {});
  const auto endOfPass = std::exchange(endOfPass_, {});
  endsInPass_.reset();
  mainReady_ = 0;
}

void VirtualScheduler::post(Ready ready) {
  if (shutDown_) return;
  if (ready.queue == &main_) ++mainReady_;
  ready_.push(std::move(ready));
}

void VirtualScheduler::postDueTimers() {
  while (auto* entry = timers_.takeDue(clock_->now)) {
    auto* timer = static_cast<TimerHandle*>(entry);
    post({timer->queue, nullptr, timer});
  }
}

bool VirtualScheduler::runNext() {
  if (passUnderWay_ && mainInPass_ == 0 && runEndOfPass()) return true;
  postDueTimers();
  const auto index = firstRunnable();
  if (!index) return false;
  run(*index == 0 ? ready_.pop() : ready_.take(*index));
  return true;
}

bool VirtualScheduler::runEndOfPass() {
  if (!endsInPass_) endsInPass_ = endOfPass_.size();
  if (*endsInPass_ == 0) {
    passUnderWay_ = false;
    endsInPass_.reset();
    provideNextPass();
    return false;
  }
  if (busy(&main_)) return false;
  --*endsInPass_;
  const Task task = endOfPass_.pop();
  const Frame frame(*this, &main_, nullptr);
  task();
  return true;
}

void VirtualScheduler::run(Ready ready) {
  const bool isMain = ready.queue == &main_;
  if (isMain && !std::exchange(passUnderWay_, true)) mainInPass_ = mainReady_;
  if (isMain) --mainReady_;
  Frame frame(*this, ready.queue, ready.timer);
  try {
    if (ready.timer != nullptr)
      runTimer(frame);
    else if (ready.task)
      std::exchange(ready.task, nullptr)();
  } catch (...) {
    if (isMain) --mainInPass_;
    throw;
  }
  if (isMain) --mainInPass_;
}

// The task is taken out of the timer while it runs, since it may destroy the timer.
void VirtualScheduler::runTimer(Frame& frame) {
  Task task = std::move(frame.timer->task);
  const auto goOn = [&] {
    if (frame.timer == nullptr || frame.queue == nullptr || shutDown_ || !frame.timer->interval) return;
    frame.timer->task = std::move(task);
    frame.timer->stepPast(clock_->now);
    timers_.resume(*frame.timer);
  };
  try {
    task();
  } catch (...) {
    goOn();
    throw;
  }
  goOn();
}

std::optional<std::size_t> VirtualScheduler::firstRunnable() {
  for (std::size_t i = 0; i < ready_.size(); ++i)
    if (!busy(ready_[i].queue)) return i;
  return std::nullopt;
}

void VirtualScheduler::blockCaller(const std::function<void()>& body) {
  if (frames_ != nullptr) return body();
  const Frame mainThread(*this, &main_, nullptr);
  body();
}

void VirtualScheduler::forget(TimerHandle& timer) {
  timers_.remove(timer);
  for (Frame* frame = frames_; frame != nullptr; frame = frame->outer)
    if (frame->timer == &timer) frame->timer = nullptr;
  for (std::size_t i = 0; i < ready_.size(); ++i)
    if (ready_[i].timer == &timer) ready_[i].timer = nullptr;
}

void VirtualScheduler::forget(SerialQueue& queue) {
  std::vector<Task> dropped;  // destroyed when all is in order again: that may run anything
  for (std::size_t i = 0; i < ready_.size(); ++i)
    if (ready_[i].queue == &queue) dropped.push_back(std::move(std::exchange(ready_[i], {}).task));
  for (Frame* frame = frames_; frame != nullptr; frame = frame->outer)
    if (frame->queue == &queue) frame->queue = nullptr;
  const auto waiting = timers_.entries();
  for (auto* entry : waiting)
    if (static_cast<TimerHandle*>(entry)->queue == &queue) timers_.remove(*entry);
}

}  // namespace wayloom::sim
