#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/sim/SeededRandom.hpp"
#include "wayloom/sim/VenueFrame.hpp"

namespace wayloom::sim {

struct Waypoint {
  MapPoint place;
  double pause = 0.0;             // seconds spent there
  std::optional<double> speed{};  // metres a second on the leg that leads here
};

// Somebody's way through a venue; docs/radio.md has the document format.
struct Walk {
  double start = 0.0;  // seconds since 1970
  double speed = 1.2;  // metres a second
  std::vector<Waypoint> waypoints;

  // Reads a walk document; nothing, and the reason in `error`, when it has no usable waypoint or an impossible number.
  static std::optional<Walk> fromJson(const platform::Json& document, std::string& error);

  // A walk between randomly chosen places, straight from one to the next, pausing at each.
  static Walk random(const std::vector<MapPoint>& places, std::size_t stops, SeededRandom& random);
};

// Where somebody is at one moment, and which way they face.
struct Pose {
  MapPoint place;
  GroundPoint ground;
  double elevation = 0.0;   // of the floor under them, metres
  double facingEast = 0.0;  // unit vector with facingNorth
  double facingNorth = 1.0;
};

// A walk laid out in time and space. Immutable; refers to the frame that it was made with.
class WalkPath {
 public:
  // The walk has at least one waypoint; `elevationOf` gives the height of a map's floor in metres.
  WalkPath(const Walk& walk, const VenueFrame& frame, const std::function<double(const std::string&)>& elevationOf);

  double duration() const { return duration_; }  // seconds
  Pose poseAt(double seconds) const;             // since the start; clamped to the walk

 private:
  // A stretch between two waypoints, or a pause at one (then both ends are the same).
  struct Stretch {
    double begin = 0.0;
    double end = 0.0;
    MapPoint from{};
    MapPoint to{};
    GroundPoint groundFrom{};
    GroundPoint groundTo{};
    double elevationFrom = 0.0;
    double elevationTo = 0.0;
    double facingEast = 0.0;
    double facingNorth = 1.0;
  };

  void append(Stretch stretch, double length);

  const VenueFrame& frame_;
  std::vector<Stretch> stretches_;
  double duration_ = 0.0;
};

}  // namespace wayloom::sim
