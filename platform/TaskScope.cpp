#include "wayloom/platform/TaskScope.hpp"

#include <atomic>
#include <cstdint>
#include <utility>

namespace wayloom::platform {

// One word: whether the scope is closed, and how many guards are inside it.
struct TaskScope::State {
  static constexpr std::uint32_t closedBit = 1U << 31;

  std::atomic<std::uint32_t> word{0};

  bool enter() {
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while ((seen & closedBit) == 0)
      if (word.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire, std::memory_order_relaxed)) return true;
    return false;
  }

  bool closed() const { return (word.load(std::memory_order_acquire) & closedBit) != 0; }

  void leave() {
    if ((word.fetch_sub(1, std::memory_order_acq_rel) & closedBit) != 0) word.notify_all();
  }

  // Waits until at most `own` guards are left inside.
  void close(std::uint32_t own) {
    std::uint32_t seen = word.fetch_or(closedBit, std::memory_order_acq_rel) | closedBit;
    while ((seen & ~closedBit) > own) {
      word.wait(seen, std::memory_order_acquire);
      seen = word.load(std::memory_order_acquire);
    }
  }
};

namespace {

// The guards that this thread is inside of, innermost first: how a destructor knows that it runs in its own task.
thread_local const TaskScope::Guard* innermostGuard = nullptr;

}  // namespace

TaskScope::TaskScope() : state_(std::make_shared<State>()) {}

void TaskScope::close() {
  std::uint32_t own = 0;
  for (const Guard* guard = innermostGuard; guard != nullptr; guard = guard->outer_)
    if (guard->state_ == state_) ++own;
  state_->close(own);
}

TaskScope::Guard::Guard(std::shared_ptr<State> state) : state_(std::move(state)) {
  if (!state_ || !state_->enter()) {
    state_.reset();
    return;
  }
  outer_ = std::exchange(innermostGuard, this);
}

TaskScope::Guard::operator bool() const { return state_ && !state_->closed(); }

TaskScope::Guard::~Guard() {
  if (!state_) return;
  innermostGuard = outer_;
  state_->leave();
}

}  // namespace wayloom::platform
