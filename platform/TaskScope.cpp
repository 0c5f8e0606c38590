#include "wayloom/platform/TaskScope.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace wayloom::platform {

struct TaskScope::State {
  std::mutex mutex;
  std::condition_variable idle;
  bool closed = false;
  std::vector<std::thread::id> running;  // one entry for each bound task under way

  bool enter() {
    const std::lock_guard lock(mutex);
    if (closed) return false;
    running.push_back(std::this_thread::get_id());
    return true;
  }

  void leave() {
    const std::lock_guard lock(mutex);
    running.erase(std::find(running.begin(), running.end(), std::this_thread::get_id()));
    idle.notify_all();
  }

  // Tasks of the calling thread can't end before this returns: they are not waited for.
  void close() {
    std::unique_lock lock(mutex);
    closed = true;
    const auto self = std::this_thread::get_id();
    idle.wait(lock, [&] {
      return std::all_of(running.begin(), running.end(), [&](const auto& thread) { return thread == self; });
    });
  }
};

TaskScope::TaskScope() : state_(std::make_shared<State>()) {}

TaskScope::~TaskScope() { close(); }

Task TaskScope::bind(Task task) const {
  return [scope = weak(), task = std::move(task)] {
    if (const Guard guard{scope}) task();
  };
}

void TaskScope::close() { state_->close(); }

TaskScope::Guard::Guard(const std::weak_ptr<State>& scope) : state_(scope.lock()) {
  entered_ = state_ != nullptr && state_->enter();
}

TaskScope::Guard::~Guard() {
  if (entered_) state_->leave();
}

}  // namespace wayloom::platform
