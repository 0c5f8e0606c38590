#include "backends/sim/VirtualConditionLock.hpp"

#include <stdexcept>
#include <utility>

#include "backends/sim/VirtualScheduler.hpp"

namespace wayloom::sim {

VirtualConditionLock::VirtualConditionLock(std::shared_ptr<VirtualScheduler> scheduler)
    : scheduler_(std::move(scheduler)) {}

void VirtualConditionLock::lock() {
  if (std::exchange(locked_, true)) throw std::logic_error("the lock is held by a task that is held up");
}

void VirtualConditionLock::unlock() { locked_ = false; }

void VirtualConditionLock::wait() {
  struct Relock {
    bool& locked;
    ~Relock() { locked = true; }
  } const relock{locked_};
  locked_ = false;
  const auto before = signals_;
  scheduler_->advanceUntil([&] { return signals_ != before; });
}

void VirtualConditionLock::signalAll() { ++signals_; }

}  // namespace wayloom::sim
