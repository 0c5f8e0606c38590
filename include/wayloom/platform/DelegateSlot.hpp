#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "wayloom/platform/TaskScope.hpp"

namespace wayloom::platform {

// Whom an object tells: a delegate that it doesn't own, or an observer's function that it does. Any thread.
//
// One guarantee for all: when set() returns, the one before is not called any more, and no call of it is under way on
// another thread. Inside its own call set() returns at once. So nobody sets while holding what that call waits for.
template <class Target>
class DelegateSlot {
 public:
  DelegateSlot() = default;
  explicit DelegateSlot(Target* target) { set(target); }

  void set(Target* target) { set(std::shared_ptr<Target>(std::shared_ptr<void>(), target)); }  // not owned; or null
  void set(std::shared_ptr<Target> target) {
    auto entry = target ? std::make_shared<Entry>() : nullptr;
    if (entry) entry->target = std::move(target);
    {
      const std::lock_guard lock(mutex_);
      entry_.swap(entry);
    }
    if (entry) entry->scope.close();
  }

  Target* get() const {
    const std::lock_guard lock(mutex_);
    return entry_ ? entry_->target.get() : nullptr;
  }

  // Calls with the target, under no lock; does nothing when there is none. The call may destroy the slot.
  template <class Call>
  void tell(const Call& call) const {
    std::unique_lock lock(mutex_);
    auto entry = entry_;
    lock.unlock();
    if (!entry) return;
    const TaskScope::Guard guard(entry->scope);
    if (!guard) return;
    call(*entry->target);
    entry.reset();  // what an owned target holds ends before set() returns
  }

 private:
  struct Entry {
    std::shared_ptr<Target> target;
    TaskScope scope;
  };

  mutable std::mutex mutex_;
  std::shared_ptr<Entry> entry_;
};

}  // namespace wayloom::platform
