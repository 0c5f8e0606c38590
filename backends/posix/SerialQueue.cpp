#include "backends/posix/SerialQueue.hpp"

#include <utility>

namespace wayloom::posix {

void SerialSink::post(platform::Task task) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    pending_.push(std::move(task));
    if (std::exchange(scheduled_, true)) return;
  }
  pool_->post(shared_from_this());
}

void SerialSink::run() {
  platform::Task task;
  for (int i = 0; i < tasksAtATime; ++i) {
    if (pool_->closed()) return drop();
    if (!takeNext(task)) return;
    const platform::TaskScope::Guard guard(scope_.weak());
    if (!guard) return;
    runPoolTask(task);
    task = nullptr;
  }
  pool_->post(shared_from_this());
}

bool SerialSink::takeNext(platform::Task& task) {
  const std::lock_guard lock(mutex_);
  scheduled_ = !pending_.empty();
  if (scheduled_) task = pending_.pop();
  return scheduled_;
}

void SerialSink::drop() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  const auto dropped = std::exchange(pending_, {});
  lock.unlock();
}

void SerialSink::close() {
  drop();
  scope_.close();
}

SerialQueue::SerialQueue(const std::shared_ptr<WorkerPool>& pool)
    : SinkQueue(std::make_shared<SerialSink>(pool)), serial_(std::static_pointer_cast<SerialSink>(sink())) {}

SerialQueue::~SerialQueue() { serial_->close(); }

}  // namespace wayloom::posix
