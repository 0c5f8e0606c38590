#include "backends/posix/BlockedThreads.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "backends/posix/TaskSink.hpp"
#include "backends/posix/TimerTable.hpp"
#include "backends/posix/WorkerPool.hpp"

namespace wayloom::posix {

// The mutex inside is held for moments only, so that the shut-down can take it whoever holds the lock.
class PosixConditionLock final : public platform::ConditionLock {
 public:
  explicit PosixConditionLock(std::shared_ptr<BlockedThreads> registry) : registry_(std::move(registry)) {
    const std::lock_guard lock(registry_->mutex_);
    abandoned_ = registry_->closed_;
    registry_->locks_.push_back(this);
  }

  ~PosixConditionLock() override {
    const std::lock_guard lock(registry_->mutex_);
    std::erase(registry_->locks_, this);
  }

  void lock() override {
    std::unique_lock lock(mutex_);
    acquire(lock);
  }

  void unlock() override {
    const std::lock_guard lock(mutex_);
    held_ = false;
    unlocked_.notify_one();
  }

  void wait() override {
    std::unique_lock lock(mutex_);
    held_ = false;
    unlocked_.notify_one();
    const auto before = signals_;
    block(lock, signalled_, [&] { return signals_ != before || abandoned_; });
    acquire(lock);
    if (signals_ == before) throw platform::AbandonedWait("the scheduler shuts down");
  }

  void signalAll() override {
    const std::lock_guard lock(mutex_);
    ++signals_;
    signalled_.notify_all();
  }

  void abandon() {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
    signalled_.notify_all();
  }

 private:
  void acquire(std::unique_lock<std::mutex>& lock) {
    block(lock, unlocked_, [&] { return !held_; });
    held_ = true;
  }

  // Lets another pool thread take this one's place while it blocks.
  template <class Done>
  void block(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, Done done) {
    if (done()) return;
    lock.unlock();
    const WorkerPool::BlockedSection blocked;
    lock.lock();
    condition.wait(lock, done);
  }

  const std::shared_ptr<BlockedThreads> registry_;
  std::mutex mutex_;
  std::condition_variable unlocked_;
  std::condition_variable signalled_;
  bool held_ = false;
  bool abandoned_ = false;
  std::uint64_t signals_ = 0;
};

// By a timer, and so on the timers' clock, which counts suspended time: no condition variable waits on that.
void BlockedThreads::sleep(TimerTable& timers, platform::Duration duration) {
  struct Waker final : TaskSink {
    void post(platform::Task task) override { task(); }
  };
  const WorkerPool::BlockedSection blocked;
  const auto waker = std::make_shared<Waker>();
  bool isOver = false;
  const auto timer = timers.start(waker, duration, std::nullopt, [&] {
    const std::lock_guard lock(mutex_);
    isOver = true;
    changed_.notify_all();
  });
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return isOver || closed_; });
  lock.unlock();  // before the timer goes
  if (!isOver) throw platform::AbandonedWait("the scheduler shuts down");
}

std::unique_ptr<platform::ConditionLock> BlockedThreads::makeConditionLock() {
  return std::make_unique<PosixConditionLock>(shared_from_this());
}

void BlockedThreads::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
  for (auto* conditionLock : locks_) conditionLock->abandon();
}

}  // namespace wayloom::posix
