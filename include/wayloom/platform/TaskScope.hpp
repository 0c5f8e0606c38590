#pragma once

#include <memory>
#include <utility>

#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {

// The life of an object, for what may come back to it: tasks, timers, answers, notifications, other threads' calls. It
// keeps the rule that every class of the library keeps: nothing touches an object any more after it was destroyed in a
// call that it made itself, and a destructor waits for whoever is inside the object on another thread, save its own
// thread. Make the scope the last member, so that it goes first, or close() it at the begin of the destructor.
//
//   queue.async(scope_.bind([this] { merge(); }));      // comes back only while the object lives
//
//   const TaskScope::Guard guard(scope_);               // on the stack of a function that tells others
//   if (!guard) return;                                 // too late, or about to end
//   delegate_.tell([&](Delegate& delegate) { delegate.didMerge(*this); });
//   if (!guard) return;                                 // that call, or another thread, ends the object
//
// Any thread. Several guards of one scope, and several bound calls, may be inside at the same time.
class TaskScope {
 public:
  TaskScope();
  ~TaskScope() { close(); }
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;

  // The callable, tied to this life: it does nothing once the scope is closed, and is waited for while it runs.
  template <class Call>
  auto bind(Call call) const;

  // Ends the life: guards and bound calls are false and do nothing from now on; it waits for those of other threads
  // that are inside, and not for those that the caller itself is inside of. Again and again does no harm.
  void close();

  struct State;
  class Guard {
   public:
    explicit Guard(const TaskScope& scope) : Guard(scope.state_) {}
    explicit Guard(const std::weak_ptr<State>& scope) : Guard(scope.lock()) {}
    explicit Guard(std::shared_ptr<State> scope);
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    // Whether the scope is still open. Guards are left in reverse order, as local variables do.
    explicit operator bool() const;

   private:
    friend class TaskScope;
    std::shared_ptr<State> state_;  // null when the scope was closed before
    const Guard* outer_ = nullptr;  // the guard around this one on the same thread
  };
  std::weak_ptr<State> weak() const { return state_; }

 private:
  std::shared_ptr<State> state_;
};

template <class Call>
auto TaskScope::bind(Call call) const {
  return [state = state_, call = std::move(call)](auto&&... arguments) mutable {
    if (const Guard guard(state); guard) call(std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace wayloom::platform
