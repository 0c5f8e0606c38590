#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

#include "backends/posix/Descriptors.hpp"
#include "backends/posix/TaskSink.hpp"
#include "platform/TimerHeap.hpp"

namespace wayloom::posix {

struct TimerRecord;

// The timers that one thread watches. Any thread.
class TimerTable : public std::enable_shared_from_this<TimerTable> {
 public:
  std::unique_ptr<platform::Timer> start(std::weak_ptr<TaskSink> sink, platform::Duration delay,
                                         std::optional<platform::Duration> interval, platform::Task task);

  // Readable when a timer is due, now and then without one.
  const TimerDescriptor& descriptor() const { return descriptor_; }
  std::optional<platform::MonotonicTime> firstDue() const;

  // Posts the callbacks of the timers that are due to their queues, in order, and makes the descriptor unreadable.
  void postDue();

  // From now on no timer falls due.
  void close();

 private:
  friend struct TimerRecord;
  friend class PosixTimer;
  void resume(TimerRecord& record);
  void cancel(TimerRecord& record);
  std::shared_ptr<TimerRecord> takeDue(platform::MonotonicTime now);
  void armIfEarlier();

  mutable std::mutex mutex_;
  platform::TimerHeap heap_;
  TimerDescriptor descriptor_;
  std::optional<platform::MonotonicTime> armed_;
  bool closed_ = false;
};

}  // namespace wayloom::posix
