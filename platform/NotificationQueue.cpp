#include "wayloom/platform/NotificationQueue.hpp"

#include <utility>

namespace wayloom::platform {

NotificationQueue::NotificationQueue(NotificationCenter& center, TaskScheduler& tasks)
    : center_(center), tasks_(tasks) {}

void NotificationQueue::enqueue(Notification notification) {
  tasks_.atEndOfPass(scope_.bind([this, notification = std::move(notification)] { center_.post(notification); }));
}

}  // namespace wayloom::platform
