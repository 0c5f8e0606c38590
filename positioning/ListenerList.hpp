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
// The list must outlive the walks and additions under way: hold it by shared pointer meanwhile.
template <class Listener>
class ListenerList {
 public:
  // Puts the listener in, unless it is there, and calls it. Given once by a pointer that owns, it is kept alive.
  template <class Call>
  void add(const std::shared_ptr<Listener>& listener, const Call& call) {
    const std::lock_guard lock(mutex_);
    put(listener);
    call(*listener);
  }

  void remove(const Listener* listener) {
    std::shared_ptr<Listener> removed;  // destroyed, if it was the last reference, when the lock is released
    const std::lock_guard lock(mutex_);
    for (auto& other : listeners_)
      if (other.get() == listener) removed = std::exchange(other, nullptr);
    if (walks_ == 0) std::erase(listeners_, nullptr);
  }

  std::vector<std::shared_ptr<Listener>> all() const {
    const std::lock_guard lock(mutex_);
    auto listeners = listeners_;
    std::erase(listeners, nullptr);
    return listeners;
  }

  template <class Call>
  void walk(const Call& call) {
    const std::lock_guard lock(mutex_);
    const Walk walk(*this);
    const std::size_t count = listeners_.size();
    for (std::size_t i = 0; i < count; ++i)
      if (const auto listener = listeners_[i]) call(*listener);
  }

 private:
  // One walk through the list, ended also by what a listener throws.
  class Walk {
   public:
    explicit Walk(ListenerList& list) : list_(list) { ++list_.walks_; }
    ~Walk() {
      if (--list_.walks_ == 0) std::erase(list_.listeners_, nullptr);
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

   private:
    ListenerList& list_;
  };

  void put(const std::shared_ptr<Listener>& listener) {
    for (auto& other : listeners_) {
      if (other != listener) continue;
      if (other.use_count() == 0) other = listener;  // it was given by reference before
      return;
    }
    listeners_.push_back(listener);
  }

  mutable std::recursive_mutex mutex_;
  std::vector<std::shared_ptr<Listener>> listeners_;  // null: removed during a walk
  int walks_ = 0;                                     // nested in one another, on the thread that holds the lock
};

}  // namespace wayloom
