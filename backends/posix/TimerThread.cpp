#include "backends/posix/TimerThread.hpp"

#include <atomic>
#include <utility>

namespace wayloom::posix {

struct TimerThread::Shared {
  const std::shared_ptr<TimerTable> timers = std::make_shared<TimerTable>();
  EventDescriptor stop;
  EitherDescriptor either{stop, timers->descriptor()};
  std::atomic<bool> stopping = false;

  void watch() const {
    while (!stopping) {
      timers->postDue();
      either.wait();
    }
  }
};

TimerThread::TimerThread() : shared_(std::make_shared<Shared>()) {}

TimerThread::~TimerThread() { close(); }

TimerTable& TimerThread::timers() {
  const std::lock_guard lock(mutex_);
  if (!closed_ && !thread_.joinable()) thread_ = std::thread([shared = shared_] { shared->watch(); });
  return *shared_->timers;
}

// A dropped task may take the scheduler's last owner with it, on this very thread.
void TimerThread::close() {
  shared_->timers->close();
  shared_->stopping = true;
  shared_->stop.signal();
  std::unique_lock lock(mutex_);
  closed_ = true;
  auto thread = std::move(thread_);
  lock.unlock();
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id())
    thread.detach();
  else
    thread.join();
}

}  // namespace wayloom::posix
