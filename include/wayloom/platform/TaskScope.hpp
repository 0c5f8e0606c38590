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

  // For callbacks of other shapes: `if (auto guard = TaskScope::Guard(weak)) ...` runs the body only while the scope
  // lives and keeps its destructor waiting meanwhile.
  struct State;
  class Guard {
   public:
    explicit Guard(const std::weak_ptr<State>& scope);
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    explicit operator bool() const { return entered_; }

   private:
    std::shared_ptr<State> state_;
    bool entered_ = false;
  };
  std::weak_ptr<State> weak() const { return state_; }

 private:
  std::shared_ptr<State> state_;
};

}  // namespace wayloom::platform
