#pragma once

#include <ostream>
#include <vector>

#include "wayloom/platform/Time.hpp"
#include "wayloom/sim/RecordedEvent.hpp"
#include "wayloom/sim/RecordingWriter.hpp"

namespace wayloom::tools {

// Writes events of a live device in time order. Times are the calendar's at the start plus what has passed since, so
// that setting the clock meanwhile does not tear the recording.
class LiveRecorder {
 public:
  // The stream must outlive it.
  explicit LiveRecorder(std::ostream& stream);

  double timeOf(platform::MonotonicTime moment) const;  // seconds since 1970, to the millisecond
  double now() const;

  // Events come nearly in order: a report may be a little older than a fix that was written before it. Such a one is
  // given the time of the one before.
  void write(sim::RecordedEvent event);

  // From now on until release(), events wait in memory. What is released with them is merged in by time.
  void hold() { isHolding_ = true; }
  void release(const std::vector<sim::RecordedEvent>& more);

  void flush() { writer_.flush(); }
  std::size_t count() const { return count_; }

 private:
  void put(sim::RecordedEvent& event);

  platform::MonotonicTime startMoment_;
  double start_;
  sim::RecordingWriter writer_;
  bool isHolding_ = false;
  std::vector<sim::RecordedEvent> held_;
  double last_ = 0.0;
  std::size_t count_ = 0;
};

}  // namespace wayloom::tools
