#pragma once

#include <memory>

#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {

// Ties tasks to the life of the object that posts them. A task bound by a scope does nothing once the scope is gone;
// the scope's destructor waits for a bound task that is running on another thread, and returns at once when the
// destruction happens inside the bound task itself. Make it the last member of a class, so that it goes first.
//
//   queue.async(scope_.bind([this] { merge(); }));
//
// Any thread may call bind() and run what it returns. Bound tasks of one scope may run at the same time.
class TaskScope {
 public:
  TaskScope();
  ~TaskScope();
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;

  Task bind(Task task) const;

  // What the destructor does, earlier. Tasks bound afterwards do nothing.
  void close();

  // For callbacks of other shapes: `if (const TaskScope::Guard guard(weak); guard) ...` runs the body only while the
  // scope lives and keeps its destructor waiting meanwhile. Leave guards in reverse order, as local variables do.
  struct State;
  class Guard {
   public:
    explicit Guard(const std::weak_ptr<State>& scope);
    explicit Guard(std::shared_ptr<State> scope);
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    explicit operator bool() const { return state_ != nullptr; }

   private:
    friend class TaskScope;
    std::shared_ptr<State> state_;  // null when the scope was closed
    const Guard* outer_ = nullptr;  // the guard around this one on the same thread
  };
  std::weak_ptr<State> weak() const { return state_; }

 private:
  std::shared_ptr<State> state_;
};

}  // namespace wayloom::platform
