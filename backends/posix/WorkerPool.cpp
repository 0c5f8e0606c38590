#include "backends/posix/WorkerPool.hpp"

#include <system_error>
#include <utility>

namespace wayloom::posix {

thread_local WorkerPool* WorkerPool::current_ = nullptr;

void runPoolTask(const platform::Task& task) {
  try {
    task();
  } catch (const platform::AbandonedWait&) {
  }
}

void WorkerPool::Work::run() {
  if (job)
    job->run();
  else
    runPoolTask(task);
}

void WorkerPool::Work::drop() {
  if (job) job->drop();
}

WorkerPool::WorkerPool(unsigned threads) : threads_(threads) {}

void WorkerPool::post(platform::Task task) { post(Work{std::move(task), nullptr}); }

void WorkerPool::post(std::shared_ptr<PoolJob> job) { post(Work{nullptr, std::move(job)}); }

void WorkerPool::post(Work work) {
  std::unique_lock lock(mutex_);
  if (closed_) {
    lock.unlock();
    return work.drop();
  }
  pending_.push(std::move(work));
  provideThread();
}

// Sees to it that somebody comes for the pending work, as far as there may be threads.
void WorkerPool::provideThread() {
  if (pending_.empty()) return;
  if (idle_ > 0) changed_.notify_one();
  if (pending_.size() <= idle_ || started_.size() - blocked_ >= threads_ || started_.size() >= mostThreads) return;
  try {
    started_.emplace_back([self = shared_from_this()] { self->work(); });
  } catch (const std::system_error&) {
    if (started_.empty()) throw;  // otherwise the threads that there are will come to it
  }
}

void WorkerPool::work() {
  current_ = this;
  std::unique_lock lock(mutex_);
  while (!closed_) {
    if (pending_.empty()) {
      ++idle_;
      changed_.wait(lock);
      --idle_;
      continue;
    }
    Work next = pending_.pop();
    lock.unlock();
    next.run();
    next = {};
    lock.lock();
  }
}

void WorkerPool::close() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  auto dropped = std::exchange(pending_, {});
  changed_.notify_all();
  lock.unlock();
  while (!dropped.empty()) dropped.pop().drop();
}

void WorkerPool::join() {
  std::unique_lock lock(mutex_);
  auto threads = std::exchange(started_, {});
  lock.unlock();
  for (auto& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id())
      thread.detach();
    else
      thread.join();
  }
}

WorkerPool::BlockedSection::BlockedSection() : pool_(current_) {
  if (pool_ == nullptr) return;
  const std::lock_guard lock(pool_->mutex_);
  ++pool_->blocked_;
  if (!pool_->closed_) pool_->provideThread();
}

WorkerPool::BlockedSection::~BlockedSection() {
  if (pool_ == nullptr) return;
  const std::lock_guard lock(pool_->mutex_);
  --pool_->blocked_;
}

}  // namespace wayloom::posix
