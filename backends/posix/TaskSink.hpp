#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "wayloom/platform/Tasks.hpp"

namespace wayloom::posix {

// The inside of a queue. Timers refer to it weakly, so that a queue may go before its timers.
class TaskSink {
 public:
  virtual ~TaskSink() = default;
  // Any thread. After the shut-down the task is destroyed, on the calling thread and under no lock.
  virtual void post(platform::Task task) = 0;
};

// Every queue that this scheduler hands out is one of these.
class SinkQueue : public platform::TaskQueue {
 public:
  explicit SinkQueue(std::shared_ptr<TaskSink> sink) : sink_(std::move(sink)) {}
  void async(platform::Task task) override { sink_->post(std::move(task)); }
  std::function<void(platform::Task)> poster() override {
    return [weak = std::weak_ptr(sink_)](platform::Task task) {
      if (const auto sink = weak.lock()) sink->post(std::move(task));
    };
  }
  const std::shared_ptr<TaskSink>& sink() const { return sink_; }

 private:
  std::shared_ptr<TaskSink> sink_;
};

}  // namespace wayloom::posix
