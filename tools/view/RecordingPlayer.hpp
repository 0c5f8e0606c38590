#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/Replayer.hpp"

namespace wayloom::tools {

// Lets a recording's time pass along with real time, at any speed. One thread.
class RecordingPlayer {
 public:
  // `speed` is recorded seconds a second, more than 0. The listener is not owned.
  RecordingPlayer(sim::ReplayOptions options, sim::RecordingReader reader, double speed, sim::ReplayListener& listener);

  // Makes the world by delivering the first event; false when there is none.
  bool begin();
  // Lets everything happen that is due by now; when that takes long, time lags behind rather than the caller.
  void advance();

  void setPaused(bool paused);
  bool hasEnded() const { return next_ == nullptr; }
  const std::optional<sim::RecordingError>& error() const { return reader_.error(); }
  sim::Replayer& replayer() { return replayer_; }

 private:
  using Clock = std::chrono::steady_clock;

  platform::MonotonicTime target() const;
  void takeStock();

  sim::Replayer replayer_;
  sim::RecordingReader reader_;
  double speed_;
  const sim::RecordedEvent* next_ = nullptr;
  bool isPaused_ = false;
  Clock::time_point since_;          // when the virtual clock showed...
  platform::MonotonicTime reached_;  // ...this
};

}  // namespace wayloom::tools
