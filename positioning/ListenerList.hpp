#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace wayloom {

// Objects that are called one after another, in the order of adding, while the list is locked. A listener may add and
// remove listeners, itself included, while it is called: one that was removed is not called any more, one that was
// added is not called in that walk. When remove() returns, no call of the listener is under way on another thread.
template <class Listener>
class ListenerList {
 public:
  // A listener that is there already stays once, as it is.
  void add(std::shared_ptr<Listener> listener) {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    for (const auto& other : listeners_)
      if (other == listener) return;
    listeners_.push_back(std::move(listener));
  }

  void remove(const Listener* listener) {
    std::shared_ptr<Listener> removed;  // destroyed, if it was the last reference, when the lock is released
    const std::lock_guard lock(mutex_);
    for (auto& other : listeners_)
      if (other.get() == listener) removed = std::exchange(other, nullptr);
    if (walks_ == 0) std::erase(listeners_, nullptr);
  }

  // Removes everybody, for good: what is added later is not called. A walk under way ends.
  void close() {
    std::vector<std::shared_ptr<Listener>> removed;
    const std::lock_guard lock(mutex_);
    closed_ = true;
    removed = listeners_;
    for (auto& listener : listeners_) listener = nullptr;
    if (walks_ == 0) listeners_.clear();
  }

  bool closed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
  }

  template <class Call>
  void walk(Call call) {
    const std::lock_guard lock(mutex_);
    ++walks_;
    const std::size_t count = listeners_.size();
    for (std::size_t i = 0; i < count; ++i)
      if (const auto listener = listeners_[i]) call(*listener);
    if (--walks_ == 0) std::erase(listeners_, nullptr);
  }

 private:
  mutable std::recursive_mutex mutex_;
  std::vector<std::shared_ptr<Listener>> listeners_;  // null: removed during a walk
  int walks_ = 0;                                     // nested in one another, on the thread that holds the lock
  bool closed_ = false;
};

}  // namespace wayloom
