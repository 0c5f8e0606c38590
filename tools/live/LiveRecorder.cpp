#include "tools/live/LiveRecorder.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

namespace wayloom::tools {
namespace {

// A leg this long is written without its truth rather than kept: about 300 MB.
constexpr std::size_t kMostHeld = 1'000'000;

}  // namespace

LiveRecorder::LiveRecorder(std::ostream& stream)
    : startMoment_(posix::PosixMonotonicClock().now()),
      start_(platform::secondsSince1970(posix::PosixCalendarClock().now())),
      writer_(stream) {
  writer_.header({{"source", "wayloom record"}});
}

double LiveRecorder::timeOf(platform::MonotonicTime moment) const {
  return std::round((start_ + platform::secondsOf(moment - startMoment_)) * 1000.0) / 1000.0;
}

double LiveRecorder::now() const { return timeOf(posix::PosixMonotonicClock().now()); }

void LiveRecorder::write(sim::RecordedEvent event) {
  if (isHolding_ && held_.size() < kMostHeld) return held_.push_back(std::move(event));
  if (isHolding_) release({});
  put(event);
}

void LiveRecorder::release(const std::vector<sim::RecordedEvent>& more) {
  isHolding_ = false;
  held_.insert(held_.end(), more.begin(), more.end());
  std::stable_sort(held_.begin(), held_.end(), [](const auto& a, const auto& b) { return a.t < b.t; });
  for (auto& event : held_) put(event);
  held_.clear();
  flush();
}

void LiveRecorder::put(sim::RecordedEvent& event) {
  event.t = last_ = std::max(last_, event.t);
  event.time = platform::calendarTimeFromSeconds(event.t);
  writer_.write(event);
  ++count_;
}

}  // namespace wayloom::tools
