#include "tools/view/RecordingPlayer.hpp"

#include <algorithm>
#include <utility>

namespace wayloom::tools {
namespace {

constexpr auto kLongestTurn = std::chrono::milliseconds(8);  // of a frame's 16

}  // namespace

RecordingPlayer::RecordingPlayer(sim::ReplayOptions options, sim::RecordingReader reader, double speed,
                                 sim::ReplayListener& listener)
    : replayer_(std::move(options), listener), reader_(std::move(reader)), speed_(speed) {}

bool RecordingPlayer::begin() {
  next_ = reader_.next();
  while (next_ != nullptr && next_->type == sim::RecordedType::header) next_ = reader_.next();
  if (next_ == nullptr) return false;
  replayer_.deliver(*next_);
  next_ = reader_.next();
  takeStock();
  return true;
}

void RecordingPlayer::takeStock() {
  since_ = Clock::now();
  reached_ = replayer_.world()->time().now();
}

platform::MonotonicTime RecordingPlayer::target() const {
  const std::chrono::duration<double> passed = Clock::now() - since_;
  return reached_ + platform::durationFromSeconds(isPaused_ ? 0.0 : passed.count() * speed_);
}

void RecordingPlayer::advance() {
  auto& time = replayer_.world()->time();
  const auto end = Clock::now() + kLongestTurn;
  const auto due = target();
  while (next_ != nullptr && time.monotonicAt(next_->time) <= due) {
    replayer_.deliver(*next_);
    next_ = reader_.next();
    if (Clock::now() >= end) return takeStock();
  }
  if (next_ != nullptr) time.advanceTo(due);
  time.runReady();
}

void RecordingPlayer::setPaused(bool paused) {
  if (replayer_.world() == nullptr || paused == isPaused_) return;
  takeStock();
  isPaused_ = paused;
}

}  // namespace wayloom::tools
