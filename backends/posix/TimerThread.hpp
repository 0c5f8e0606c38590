#pragma once

#include <memory>
#include <mutex>
#include <thread>

#include "backends/posix/TimerTable.hpp"

namespace wayloom::posix {

// Watches the timers of all queues but the main one, which must go off however busy or idle the main loop is. Its
// thread starts with the first of them. Any thread.
class TimerThread {
 public:
  TimerThread();
  ~TimerThread();
  TimerThread(const TimerThread&) = delete;
  TimerThread& operator=(const TimerThread&) = delete;

  TimerTable& timers();

  // Ends the thread; no timer falls due from now on.
  void close();

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  std::mutex mutex_;
  std::thread thread_;
  bool closed_ = false;
};

}  // namespace wayloom::posix
