#pragma once

#include <memory>

#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::gtk {

// Has GTK's main loop, GLib's default main context, drive the library's main loop: while it lives, what is due on the
// main queue runs in GTK's thread. What a task throws ends the process. Main thread.
class MainLoopSource {
 public:
  explicit MainLoopSource(const std::shared_ptr<posix::MainLoop>& loop);
  ~MainLoopSource();
  MainLoopSource(const MainLoopSource&) = delete;
  MainLoopSource& operator=(const MainLoopSource&) = delete;

 private:
  unsigned source_;
};

}  // namespace wayloom::gtk
