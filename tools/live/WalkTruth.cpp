#include "tools/live/WalkTruth.hpp"

#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace wayloom::tools {

WalkTruth::WalkTruth(sim::Walk walk) {
  for (std::size_t i = 0; i < walk.waypoints.size(); ++i) {
    const auto& [place, pause, speed] = walk.waypoints[i];
    const auto at =
        fmt::format("waypoint {} of {}: {} {:.1f},{:.1f}", i + 1, walk.waypoints.size(), place.mapId, place.x, place.y);
    marks_.push_back({place, "at " + at});
    if (pause > 0.0) marks_.push_back({place, fmt::format("leaving after {:.0f} s, from {}", pause, at)});
  }
}

std::string WalkTruth::nextPlace() const { return isOver() ? std::string() : marks_[next_].meaning; }

sim::RecordedEvent WalkTruth::truthAt(double t, const sim::MapPoint& place) {
  sim::RecordedEvent event;
  event.type = sim::RecordedType::truth;
  event.t = std::round(t * 1000.0) / 1000.0;
  event.time = platform::calendarTimeFromSeconds(event.t);
  const auto rounded = [](double pixels) { return std::round(pixels * 1000.0) / 1000.0; };
  event.truth = {
      .mapId = place.mapId, .geographic = false, .coordinate = {}, .x = rounded(place.x), .y = rounded(place.y)};
  return event;
}

std::vector<sim::RecordedEvent> WalkTruth::mark(double t) {
  std::vector<sim::RecordedEvent> truth;
  if (isOver()) return truth;
  const auto& to = marks_[next_].place;
  if (next_ > 0) {
    const auto& from = marks_[next_ - 1].place;
    if (from.mapId == to.mapId)
      for (int second = 0; lastTime_ + second < t; ++second) {
        const double at = lastTime_ + second;
        const double share = (at - lastTime_) / (t - lastTime_);
        truth.push_back(truthAt(at, {to.mapId, from.x + share * (to.x - from.x), from.y + share * (to.y - from.y)}));
      }
    else
      truth.push_back(truthAt(lastTime_, from));
  }
  if (next_ + 1 == marks_.size()) truth.push_back(truthAt(t, to));
  lastTime_ = t;
  ++next_;
  return truth;
}

}  // namespace wayloom::tools
