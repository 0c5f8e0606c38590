#include "backends/posix/MainSink.hpp"

#include <utility>

namespace wayloom::posix {

// While it lives, posts need not wake the main thread. `entered` is false when the thread was awake already.
class MainSink::Awake {
 public:
  explicit Awake(MainSink& sink) : sink_(sink) {
    const std::lock_guard lock(sink_.mutex_);
    entered = !std::exchange(sink_.awake_, true);
    if (std::exchange(sink_.signalled_, false)) sink_.event_.clear();
  }

  ~Awake() {
    if (!entered) return;
    const std::lock_guard lock(sink_.mutex_);
    sink_.awake_ = false;
    if (!sink_.nothingReady()) sink_.signalIfAsleep();
  }

  Awake(const Awake&) = delete;
  Awake& operator=(const Awake&) = delete;

  bool entered;

 private:
  MainSink& sink_;
};

void MainSink::post(platform::Task task) {
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  ready_.push(std::move(task));
  signalIfAsleep();
}

void MainSink::atEndOfPass(platform::Task task) {
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  endOfPass_.push(std::move(task));
  signalIfAsleep();
}

void MainSink::run() {
  while (true) {
    {
      const Awake awake(*this);
      do runPass();
      while (moreToRun());
    }
    if (takeStop()) return;
    either_.wait();
  }
}

void MainSink::stop() {
  const std::lock_guard lock(mutex_);
  stopping_ = true;
  signalIfAsleep();
}

void MainSink::runDue() {
  const Awake awake(*this);
  if (awake.entered)
    runPass();
  else
    timers_->postDue();  // or the descriptor would stay readable for the loop that a task runs
}

void MainSink::close() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  stopping_ = true;
  signalIfAsleep();
  const auto ready = std::exchange(ready_, {});
  const auto endOfPass = std::exchange(endOfPass_, {});
  lock.unlock();
}

bool MainSink::hasReady() const {
  const std::lock_guard lock(mutex_);
  return !nothingReady();
}

bool MainSink::moreToRun() const {
  const std::lock_guard lock(mutex_);
  return !stopping_ && !nothingReady();
}

bool MainSink::takeStop() {
  const std::lock_guard lock(mutex_);
  return std::exchange(stopping_, false);
}

void MainSink::runPass() {
  timers_->postDue();
  // What they add waits for the next pass, or some of them could keep the rest waiting for good.
  runThose(ready_);
  runThose(endOfPass_);
}

void MainSink::runThose(Tasks& tasks) {
  std::unique_lock lock(mutex_);
  const std::size_t count = tasks.size();
  lock.unlock();
  for (std::size_t i = 0; i < count; ++i)
    if (const auto task = take(tasks)) task();
}

platform::Task MainSink::take(Tasks& tasks) {
  const std::lock_guard lock(mutex_);
  return tasks.empty() ? nullptr : tasks.pop();
}

void MainSink::signalIfAsleep() {
  if (awake_ || std::exchange(signalled_, true)) return;
  event_.signal();
}

}  // namespace wayloom::posix
