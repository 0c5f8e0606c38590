#include "tools/serve/ConnectionThreads.hpp"

#include <system_error>
#include <utility>

namespace wayloom::tools {

void ConnectionThreads::enqueue(std::function<void()> connection) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(connection));
  if (waiting_.size() > idle_ && threads_.size() < limit_) try {
      threads_.emplace_back([this] { run(); });
    } catch (const std::system_error&) {
      // The system gives no more: the connection waits for one of those that are there.
    }
  changed_.notify_one();
}

void ConnectionThreads::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    changed_.wait(lock, [this] { return isShutDown_ || !waiting_.empty(); });
    --idle_;
    if (waiting_.empty()) return;
    const auto connection = std::exchange(waiting_.front(), {});
    waiting_.pop_front();
    lock.unlock();
    connection();
    lock.lock();
  }
}

void ConnectionThreads::shutdown() {
  {
    const std::lock_guard lock(mutex_);
    isShutDown_ = true;
  }
  changed_.notify_all();
  for (auto& thread : threads_) thread.join();
}

}  // namespace wayloom::tools
