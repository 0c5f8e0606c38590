#include "wayloom/sim/WalkPath.hpp"

#include <algorithm>
#include <cmath>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom::sim {
namespace {

using platform::doubleValue;
using platform::Json;
using platform::member;

// Beyond a day, or slower than a snail, a walk is a mistake in its document.
constexpr double kLongestPause = 86400.0;
constexpr double kSlowestSpeed = 0.01;
constexpr double kFastestSpeed = 100.0;

bool usableSpeed(double speed) { return speed >= kSlowestSpeed && speed <= kFastestSpeed; }

std::optional<Waypoint> waypointFrom(const Json& value) {
  const auto mapId = platform::stringValue(member(value, "map_id"));
  const double x = doubleValue(member(value, "x"));
  const double y = doubleValue(member(value, "y"));
  if (!mapId || !std::isfinite(x) || !std::isfinite(y)) return std::nullopt;
  Waypoint waypoint{.place = {*mapId, x, y}, .pause = doubleValue(member(value, "pause_s")), .speed = {}};
  if (!(waypoint.pause >= 0.0 && waypoint.pause <= kLongestPause)) return std::nullopt;
  if (const Json* speed = member(value, "speed_m_s")) {
    waypoint.speed = doubleValue(speed);
    if (!usableSpeed(*waypoint.speed)) return std::nullopt;
  }
  return waypoint;
}

}  // namespace

std::optional<Walk> Walk::fromJson(const Json& document, std::string& error) {
  Walk walk;
  walk.start = doubleValue(member(document, "start"));
  if (const Json* speed = member(document, "speed_m_s")) walk.speed = doubleValue(speed);
  if (!std::isfinite(walk.start) || !usableSpeed(walk.speed)) {
    error = "\"start\" or \"speed_m_s\" is out of range";
    return std::nullopt;
  }
  const Json* waypoints = member(document, "waypoints");
  if (waypoints == nullptr || !waypoints->is_array() || waypoints->empty()) {
    error = "there are no \"waypoints\"";
    return std::nullopt;
  }
  for (const auto& value : *waypoints) {
    auto waypoint = waypointFrom(value);
    if (!waypoint) {
      error = "waypoint " + std::to_string(walk.waypoints.size() + 1) + " needs map_id, x, y and sensible times";
      return std::nullopt;
    }
    walk.waypoints.push_back(std::move(*waypoint));
  }
  return walk;
}

Walk Walk::random(const std::vector<MapPoint>& places, std::size_t stops, SeededRandom& random) {
  Walk walk;
  for (std::size_t i = 0; i < stops && !places.empty(); ++i) {
    MapPoint place = places[random.index(places.size())];
    // A little beside the place: nobody stands exactly under a beacon.
    place.x += random.uniform(-5.0, 5.0);
    place.y += random.uniform(-5.0, 5.0);
    walk.waypoints.push_back({.place = std::move(place), .pause = random.uniform(4.0, 20.0), .speed = {}});
  }
  return walk;
}

WalkPath::WalkPath(const Walk& walk, const VenueFrame& frame,
                   const std::function<double(const std::string&)>& elevationOf)
    : frame_(frame) {
  for (std::size_t i = 0; i < walk.waypoints.size(); ++i) {
    const auto& waypoint = walk.waypoints[i];
    const auto& before = walk.waypoints[i > 0 ? i - 1 : 0];
    Stretch leg;
    leg.from = before.place;
    leg.to = waypoint.place;
    leg.groundFrom = frame.groundPoint(leg.from);
    leg.groundTo = frame.groundPoint(leg.to);
    leg.elevationFrom = elevationOf(leg.from.mapId);
    leg.elevationTo = elevationOf(leg.to.mapId);
    const double length = distanceBetween(leg.groundFrom, leg.groundTo);
    leg.end = length / waypoint.speed.value_or(walk.speed);
    append(leg, length);
    Stretch pause = leg;
    pause.from = leg.to;
    pause.groundFrom = leg.groundTo;
    pause.elevationFrom = leg.elevationTo;
    pause.end = waypoint.pause;
    append(pause, 0.0);
  }
}

void WalkPath::append(Stretch stretch, double length) {
  if (length > 0.0) {
    stretch.facingEast = (stretch.groundTo.east - stretch.groundFrom.east) / length;
    stretch.facingNorth = (stretch.groundTo.north - stretch.groundFrom.north) / length;
  } else if (!stretches_.empty()) {
    stretch.facingEast = stretches_.back().facingEast;
    stretch.facingNorth = stretches_.back().facingNorth;
  }
  stretch.begin = duration_;
  stretch.end += duration_;
  duration_ = stretch.end;
  stretches_.push_back(std::move(stretch));
}

Pose WalkPath::poseAt(double seconds) const {
  // At a moment that two stretches share, the later one holds: a door is passed in no time.
  auto it = std::upper_bound(stretches_.begin(), stretches_.end(), seconds,
                             [](double time, const Stretch& stretch) { return time < stretch.begin; });
  if (it != stretches_.begin()) --it;
  const Stretch& stretch = *it;
  const double length = stretch.end - stretch.begin;
  const double share = length > 0.0 ? std::clamp((seconds - stretch.begin) / length, 0.0, 1.0) : 1.0;
  Pose pose;
  pose.ground = {std::lerp(stretch.groundFrom.east, stretch.groundTo.east, share),
                 std::lerp(stretch.groundFrom.north, stretch.groundTo.north, share)};
  pose.elevation = std::lerp(stretch.elevationFrom, stretch.elevationTo, share);
  pose.place = frame_.mapPoint(pose.ground, share < 0.5 ? stretch.from.mapId : stretch.to.mapId);
  pose.facingEast = stretch.facingEast;
  pose.facingNorth = stretch.facingNorth;
  return pose;
}

}  // namespace wayloom::sim
