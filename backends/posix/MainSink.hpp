#pragma once

#include <cstddef>
#include <memory>
#include <mutex>

#include "backends/posix/Descriptors.hpp"
#include "backends/posix/TaskSink.hpp"
#include "backends/posix/TimerTable.hpp"
#include "platform/Fifo.hpp"

namespace wayloom::posix {

// The main queue and its passes. post(), atEndOfPass(), stop() and close() on any thread, the rest on the main one.
class MainSink final : public TaskSink {
 public:
  void post(platform::Task task) override;
  void atEndOfPass(platform::Task task);

  void run();
  void stop();
  void runDue();
  void close();

  bool hasReady() const;
  int descriptor() const { return either_.get(); }
  const std::shared_ptr<TimerTable>& timers() const { return timers_; }

 private:
  class Awake;
  using Tasks = platform::Fifo<platform::Task>;

  void runPass();
  bool moreToRun() const;
  bool takeStop();
  void runThose(Tasks& tasks);
  platform::Task take(Tasks& tasks);
  // Caller holds the lock.
  void signalIfAsleep();
  bool nothingReady() const { return ready_.empty() && endOfPass_.empty(); }

  const std::shared_ptr<TimerTable> timers_ = std::make_shared<TimerTable>();
  EventDescriptor event_;
  EitherDescriptor either_{event_, timers_->descriptor()};

  mutable std::mutex mutex_;
  Tasks ready_;
  Tasks endOfPass_;
  bool awake_ = false;      // the main thread will look at what is posted before it goes to sleep
  bool signalled_ = false;  // event_ is
  bool stopping_ = false;
  bool closed_ = false;
};

}  // namespace wayloom::posix
