#pragma once

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "wayloom/platform/Tasks.hpp"

#include "backends/posix/TaskSink.hpp"
#include "platform/Fifo.hpp"

namespace wayloom::posix {

// Work that a pool thread does as a whole. Exactly one of the two is called, under no lock.
class PoolJob {
 public:
  virtual ~PoolJob() = default;
  virtual void run() = 0;
  virtual void drop() = 0;  // the pool is closed
};

// A few threads and one list of work in the order of posting. Threads start when there is work for them.
class WorkerPool final : public TaskSink, public std::enable_shared_from_this<WorkerPool> {
 public:
  explicit WorkerPool(unsigned threads);

  void post(platform::Task task) override;
  void post(std::shared_ptr<PoolJob> job);

  // Drops the pending work and all that comes later.
  void close();
  // After close(): waits for the threads, but not for the calling one, which ends when its task does.
  void join();
  bool closed() const { return closed_; }

  // While it lives, the calling thread counts as blocked and another one may take its place. Does nothing on threads
  // that belong to no pool.
  class BlockedSection {
   public:
    BlockedSection();
    ~BlockedSection();
    BlockedSection(const BlockedSection&) = delete;
    BlockedSection& operator=(const BlockedSection&) = delete;

   private:
    WorkerPool* pool_;
  };

 private:
  static constexpr unsigned mostThreads = 64;

  struct Work {
    platform::Task task;
    std::shared_ptr<PoolJob> job;
    void run();
    void drop();
  };

  void post(Work work);
  void provideThread();
  void work();

  static thread_local WorkerPool* current_;

  const unsigned threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  platform::Fifo<Work> pending_;
  std::list<std::thread> started_;
  unsigned idle_ = 0;
  unsigned blocked_ = 0;
  std::atomic<bool> closed_ = false;
};

// Runs a task of a pool thread. A wait that the shut-down ends takes its task with it.
void runPoolTask(const platform::Task& task);

}  // namespace wayloom::posix
