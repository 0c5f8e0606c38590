// The task scheduler on real time: the main loop's thread, a small pool of threads behind the background queue and the
// serial queues, and timers on CLOCK_BOOTTIME, so that a device that was suspended catches up when it wakes.
//
// A program with no loop of its own:
//   auto loop = std::make_shared<posix::MainLoop>();
//   loop->run();  // until stop()
//
// A guest in somebody else's loop: call runDue() on one and the same thread whenever wakeDescriptor() is readable.
//   poll({loop->wakeDescriptor(), POLLIN}) ... loop->runDue();
//
// Threads are started when there is work for them. A pool thread in sleep() or a ConditionLock is made up for by
// another one, up to 64 in all, so that tasks may wait for one another.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::posix {

class MainLoop final : public platform::TaskScheduler {
 public:
  // With `poolThreads` 0, as many as there are processors, between 2 and 4. Throws std::system_error when the system
  // gives no descriptors.
  explicit MainLoop(unsigned poolThreads = 0);

  // Destroys what has not begun and waits for the tasks under way on other threads; those that sleep or wait are ended
  // by AbandonedWait. One of its own tasks may destroy it, which is then not waited for, and run() returns. Serial
  // queues and timers may outlive it; nothing of theirs runs any more.
  ~MainLoop() override;

  // Any thread.
  platform::TaskQueue& mainQueue() override;
  platform::TaskQueue& backgroundQueue() override;
  std::unique_ptr<platform::TaskQueue> makeSerialQueue(std::string name) override;
  std::unique_ptr<platform::Timer> startTimer(platform::TaskQueue& queue, platform::Duration delay,
                                              std::optional<platform::Duration> interval, platform::Task task) override;
  void atEndOfPass(platform::Task task) override;
  void sleep(platform::Duration duration) override;
  std::unique_ptr<platform::ConditionLock> makeConditionLock() override;

  // Runs passes on the calling thread, which is the main thread from then on, and sleeps in between.
  void run();
  // Any thread: run() returns at the end of its pass; if it is not under way, the next one returns after one pass.
  void stop();

  // Readable, for poll() and the like, while there is something for runDue() to do. Owned by the loop: only to be
  // polled.
  int wakeDescriptor() const;
  // For loops that can't watch a descriptor: zero when something is ready or due, nothing when the loop is idle until
  // somebody posts. Any thread.
  std::optional<platform::Duration> timeToNextDeadline() const;
  // One pass: runs what is ready or due on the main queue and then the end-of-pass tasks. Called from within a task, it
  // does nothing; what was posted meanwhile waits for the next pass.
  void runDue();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace wayloom::posix
