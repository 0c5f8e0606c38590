#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::posix {

class PosixConditionLock;
class TimerTable;

// Those who sleep or wait in the scheduler's name, so that its shut-down can end that.
class BlockedThreads : public std::enable_shared_from_this<BlockedThreads> {
 public:
  // The timers are those of another thread.
  void sleep(TimerTable& timers, platform::Duration duration);
  std::unique_ptr<platform::ConditionLock> makeConditionLock();

  // Ends every sleep and wait, now and from now on, with AbandonedWait.
  void close();

 private:
  friend class PosixConditionLock;

  std::mutex mutex_;
  std::condition_variable changed_;  // closed_, or a sleep that is over
  std::vector<PosixConditionLock*> locks_;
  bool closed_ = false;
};

}  // namespace wayloom::posix
