#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::tools {

// The main loop of a command that runs until the user ends it, with Ctrl-C or a signal.
class LiveLoop {
 public:
  // Before the process has other threads: they inherit what it does to signals.
  LiveLoop();
  ~LiveLoop();
  LiveLoop(const LiveLoop&) = delete;
  LiveLoop& operator=(const LiveLoop&) = delete;

  const std::shared_ptr<posix::MainLoop>& tasks() const { return tasks_; }

  // Hands over what is typed, or an empty text at the end of it.
  void setInputHandler(std::function<void(std::string_view)> handler) { inputHandler_ = std::move(handler); }

  // Until a signal, stop(), or the time is over.
  void run(std::optional<double> seconds);
  void stop() { isStopped_ = true; }

 private:
  void readInput();

  std::shared_ptr<posix::MainLoop> tasks_ = std::make_shared<posix::MainLoop>();
  std::function<void(std::string_view)> inputHandler_;
  int signals_;
  bool isStopped_ = false;
};

}  // namespace wayloom::tools
