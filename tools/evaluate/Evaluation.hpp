// How well reported positions fit the truth of a recorded walk, second by second.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace wayloom::tools {

// A place on a map, in standard pixels (5 a metre).
struct PlanPoint {
  std::string mapId;
  double x = 0.0;
  double y = 0.0;
};

// Where the device really was.
struct TruthPoint {
  double t = 0.0;  // seconds since 1970
  PlanPoint place;
};

// What the library said; no place: it said that it knows none.
struct ReportedPosition {
  double t = 0.0;
  std::optional<PlanPoint> place{};
  double uncertaintyMeters = 0.0;
};

// A beacon of the kit that stands on a map.
struct MappedBeacon {
  std::string label;
  PlanPoint place;
};

// One recording, replayed. Both lists are in time order.
struct Walk {
  std::vector<TruthPoint> truth;
  std::vector<ReportedPosition> reported;
};

// Metres between two places; across maps too.
using PlanDistance = std::function<double(const PlanPoint&, const PlanPoint&)>;

// One second with known truth. Indices point into the venue's mapped beacons; -1: none.
struct EvaluatedSecond {
  double t = 0.0;
  PlanPoint truth;
  std::optional<PlanPoint> reported{};
  int nearestBeacon = -1;   // the one nearest to the truth, on the truth's map
  int reportedBeacon = -1;  // the one whose place was reported
  int previousBeacon = -1;  // the one last reported a second earlier, whether or not the truth was known then
  double errorMeters = 0.0;
};

// The figures over any number of evaluated seconds. Shares are 0 to 1.
struct Figures {
  int seconds = 0;             // with known truth
  int fixes = 0;               // of those, with a position
  int hits = 0;                // of the fixes, those at the beacon nearest to the truth
  int onRightMap = 0;          // of the fixes
  int switches = 0;            // changes of the reported beacon that happened within these seconds
  int badSwitches = 0;         // of those, to a beacon farther from the truth than the one left
  std::vector<double> errors;  // metres, one a fix, sorted

  // Nothing where there is nothing to take the figure from.
  std::optional<double> fixShare() const;
  std::optional<double> hitShare() const;
  std::optional<double> rightMapShare() const;
  std::optional<double> errorQuantile(double share) const;  // metres
  std::optional<double> switchesPerMinute() const;
  std::optional<double> badSwitchesPerMinute() const;

  void add(const Figures& other);
};

// Compares a walk with its truth: for each second (the first truth point in it) the latest report at or before it.
std::vector<EvaluatedSecond> evaluateWalk(const Walk& walk, const std::vector<MappedBeacon>& beacons,
                                          const PlanDistance& distance);

Figures figuresOf(const std::vector<EvaluatedSecond>& seconds, const std::vector<MappedBeacon>& beacons,
                  const PlanDistance& distance);

}  // namespace wayloom::tools
