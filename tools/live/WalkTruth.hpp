// Turns key presses at the waypoints of a prepared walk into the truth of a recording.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/sim/RecordedEvent.hpp"
#include "wayloom/sim/WalkPath.hpp"

namespace wayloom::tools {

// Where the operator was, second by second, from one mark to the next: on a straight line between two waypoints of one
// map, on the spot during a pause, unknown on the way to another map. At a waypoint with a pause there are two marks,
// on arriving and on leaving.
class WalkTruth {
 public:
  explicit WalkTruth(sim::Walk walk);

  // The operator is where nextPlace() says, at `t` seconds since 1970. The truth since the last mark, in time order,
  // without that mark itself.
  std::vector<sim::RecordedEvent> mark(double t);

  bool isOver() const { return next_ == marks_.size(); }
  // What the next mark stands for, to tell the operator; empty when the walk is over.
  std::string nextPlace() const;

 private:
  struct Mark {
    sim::MapPoint place;
    std::string meaning;
  };

  static sim::RecordedEvent truthAt(double t, const sim::MapPoint& place);

  std::vector<Mark> marks_;
  std::size_t next_ = 0;
  double lastTime_ = 0.0;  // of the mark before
};

}  // namespace wayloom::tools
