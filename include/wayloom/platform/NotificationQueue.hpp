#pragma once

#include "wayloom/platform/NotificationCenter.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {

// Posts notifications as soon as possible but not at once: on the main thread, at the end of the main loop's current
// pass, in the order of enqueueing. It never merges two of them. Any thread may enqueue.
class NotificationQueue {
 public:
  NotificationQueue(NotificationCenter& center, TaskScheduler& tasks);

  void enqueue(Notification notification);

 private:
  NotificationCenter& center_;
  TaskScheduler& tasks_;
  TaskScope scope_;
};

}  // namespace wayloom::platform
