// Queues, timers and waiting. One set of rules for real and for virtual time:
//
//  - a queue runs its tasks in the order in which they were posted;
//  - timers fire in the order of (deadline, order of creation); a repeating timer steps from its previous due time
//    and skips the ticks that it missed;
//  - destroying a Timer cancels it, and no callback follows;
//  - what a task throws leaves the main loop's run(), and ends the process when it comes from another thread. Nothing
//    else changes by it: a repeating timer goes on with its next tick;
//  - nobody keeps the main queue waiting for good: what end-of-pass tasks add comes at the end of the next pass;
//  - timers and sleeps count the time that the machine is suspended, and fall due when it wakes. A delay that leads
//    beyond the end of time (Duration::max() does always) is for good; in virtual time, to the end of time.
//
// Example:
//   auto timer = tasks.startTimer(tasks.mainQueue(), 30s, 30s, [this] { timedSync(); });
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

using Task = std::function<void()>;

class TaskQueue {
 public:
  virtual ~TaskQueue() = default;

  // Runs the task later on this queue. Any thread. After the scheduler's shut-down the task is destroyed unrun.
  virtual void async(Task task) = 0;

  // The same for somebody who may outlive the queue: once the queue is gone, what he posts is destroyed unrun.
  virtual std::function<void(Task)> poster() = 0;
};

// A running timer. Destruction cancels; when it happens on another thread than the timer's queue, it waits for a
// callback that is under way. A repeating timer's ticks that fall due before its callback has ended are missed ones.
class Timer {
 public:
  virtual ~Timer() = default;
};

// Nothing can end this wait or sleep any more: the scheduler shuts down. The schedulers catch it behind the task.
class AbandonedWait : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// A mutex with a condition, through the platform so that virtual time can pass while somebody waits. Not recursive.
class ConditionLock {
 public:
  virtual ~ConditionLock() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
  // The caller holds the lock; it is released meanwhile and held again at the end. Throws AbandonedWait.
  virtual void wait() = 0;
  virtual void signalAll() = 0;  // caller holds the lock
};

class TaskScheduler {
 public:
  virtual ~TaskScheduler() = default;

  // The queue of the thread that drives the main loop. Platform callbacks and notifications arrive on it.
  virtual TaskQueue& mainQueue() = 0;

  // The shared background queue of default priority. Tasks on it may run at the same time as one another.
  virtual TaskQueue& backgroundQueue() = 0;

  // A queue of the caller's own: one task at a time, in order, off the main thread. Destroying it drops what has not
  // begun and waits for a task that is under way, except when that task itself destroys the queue.
  virtual std::unique_ptr<TaskQueue> makeSerialQueue(std::string name) = 0;

  // Runs the task on the queue after `delay` (0 or more), then, with an interval (more than 0), again and again. The
  // queue is one of this scheduler's; once it is destroyed, the timer does nothing. Any thread.
  [[nodiscard]] virtual std::unique_ptr<Timer> startTimer(TaskQueue& queue, Duration delay,
                                                          std::optional<Duration> interval, Task task) = 0;

  // Runs the task on the main thread at the end of the main loop's current pass: after the main-queue tasks that were
  // ready when the pass began, before those posted meanwhile. With no pass under way, and from an end-of-pass task, at
  // the end of the next. Any thread; in order.
  virtual void atEndOfPass(Task task) = 0;

  // Blocks the calling thread. In virtual time everything that falls due meanwhile runs inside the call. Throws
  // AbandonedWait.
  virtual void sleep(Duration duration) = 0;

  virtual std::unique_ptr<ConditionLock> makeConditionLock() = 0;
};

}  // namespace wayloom::platform
