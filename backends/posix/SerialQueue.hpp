#pragma once

#include <memory>
#include <mutex>

#include "wayloom/platform/TaskScope.hpp"

#include "backends/posix/TaskSink.hpp"
#include "backends/posix/WorkerPool.hpp"
#include "platform/Fifo.hpp"

namespace wayloom::posix {

// One task at a time, in order, on the threads of a pool.
class SerialSink final : public TaskSink, public PoolJob, public std::enable_shared_from_this<SerialSink> {
 public:
  explicit SerialSink(std::shared_ptr<WorkerPool> pool) : pool_(std::move(pool)) {}

  void post(platform::Task task) override;
  void run() override;
  void drop() override;

  // Drops what has not begun and waits for a task under way on another thread. Later posts are dropped.
  void close();

 private:
  // After so many tasks the queue goes to the end of the pool's list, so that it can't starve others.
  static constexpr int tasksAtATime = 64;

  bool takeNext(platform::Task& task);

  const std::shared_ptr<WorkerPool> pool_;
  platform::TaskScope scope_;  // around each task
  std::mutex mutex_;
  platform::Fifo<platform::Task> pending_;
  bool scheduled_ = false;  // in the pool's list, or running
  bool closed_ = false;
};

class SerialQueue final : public SinkQueue {
 public:
  explicit SerialQueue(const std::shared_ptr<WorkerPool>& pool);
  ~SerialQueue() override;

 private:
  std::shared_ptr<SerialSink> serial_;
};

}  // namespace wayloom::posix
