// The contract that every task scheduler keeps is tested on a TaskWorld: a scheduler and what drives its main loop.
// A backend with a main loop of its own instantiates TaskCoreContract for it.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::tests {

class TaskWorld {
 public:
  virtual ~TaskWorld() = default;
  virtual platform::TaskScheduler& tasks() = 0;
  virtual platform::MonotonicTime now() const = 0;
  // Drives the main loop on the calling thread until `done` holds, which is looked at between passes.
  virtual void runUntil(const std::function<bool()>& done) = 0;
};

struct TaskWorldKind {
  std::string name;
  std::function<std::unique_ptr<TaskWorld>()> make;
  friend void PrintTo(const TaskWorldKind& kind, std::ostream* out) { *out << kind.name; }
};

class TaskCoreContract : public testing::TestWithParam<TaskWorldKind> {
 protected:
  platform::TaskScheduler& tasks() { return world->tasks(); }

  std::unique_ptr<TaskWorld> world = GetParam().make();
};

}  // namespace wayloom::tests
