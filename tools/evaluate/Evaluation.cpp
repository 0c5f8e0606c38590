#include "tools/evaluate/Evaluation.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace wayloom::tools {
namespace {

// Two places closer than this are one: a reported position is a beacon's own place but for rounding.
constexpr double kSamePlacePixels = 0.01;

std::optional<double> share(int part, int whole, double scale = 1.0) {
  return whole > 0 ? std::optional(scale * part / whole) : std::nullopt;
}

double pixelDistance(const PlanPoint& a, const PlanPoint& b) { return std::hypot(a.x - b.x, a.y - b.y); }

int closestBeacon(const std::vector<MappedBeacon>& beacons, const PlanPoint& place, double limitPixels) {
  int closest = -1;
  double closestDistance = limitPixels;
  for (std::size_t i = 0; i < beacons.size(); ++i) {
    if (beacons[i].place.mapId != place.mapId) continue;
    const double distance = pixelDistance(beacons[i].place, place);
    if (distance >= closestDistance) continue;
    closest = static_cast<int>(i);
    closestDistance = distance;
  }
  return closest;
}

// Follows the reports of a walk in time order.
class ReportCursor {
 public:
  explicit ReportCursor(const std::vector<ReportedPosition>& reports) : reports_(reports) {}

  void advanceTo(double t) {
    for (; next_ < reports_.size() && reports_[next_].t <= t; ++next_)
      if (reports_[next_].place) lastPlace_ = &*reports_[next_].place;
  }

  // What was said last; null when that was that no position is known, or nothing yet.
  const PlanPoint* place() const {
    return next_ > 0 && reports_[next_ - 1].place ? &*reports_[next_ - 1].place : nullptr;
  }
  // The last place said, however long ago; null when there was none.
  const PlanPoint* lastPlace() const { return lastPlace_; }

 private:
  const std::vector<ReportedPosition>& reports_;
  std::size_t next_ = 0;
  const PlanPoint* lastPlace_ = nullptr;
};

int beaconAt(const std::vector<MappedBeacon>& beacons, const PlanPoint* place) {
  return place != nullptr ? closestBeacon(beacons, *place, kSamePlacePixels) : -1;
}

}  // namespace

std::optional<double> Figures::fixShare() const { return share(fixes, seconds); }
std::optional<double> Figures::hitShare() const { return share(hits, fixes); }
std::optional<double> Figures::rightMapShare() const { return share(onRightMap, fixes); }

std::optional<double> Figures::errorQuantile(double quantile) const {
  if (errors.empty()) return std::nullopt;
  const auto rank = static_cast<std::size_t>(quantile * static_cast<double>(errors.size()));
  return errors[std::min(rank, errors.size() - 1)];
}

std::optional<double> Figures::switchesPerMinute() const { return share(switches, fixes > 0 ? seconds : 0, 60.0); }
std::optional<double> Figures::badSwitchesPerMinute() const {
  return share(badSwitches, fixes > 0 ? seconds : 0, 60.0);
}

void Figures::add(const Figures& other) {
  seconds += other.seconds;
  fixes += other.fixes;
  hits += other.hits;
  onRightMap += other.onRightMap;
  switches += other.switches;
  badSwitches += other.badSwitches;
  const auto middle = static_cast<std::ptrdiff_t>(errors.size());
  errors.insert(errors.end(), other.errors.begin(), other.errors.end());
  std::inplace_merge(errors.begin(), errors.begin() + middle, errors.end());
}

std::vector<EvaluatedSecond> evaluateWalk(const Walk& walk, const std::vector<MappedBeacon>& beacons,
                                          const PlanDistance& distance) {
  std::vector<EvaluatedSecond> seconds;
  ReportCursor now(walk.reported);
  ReportCursor before(walk.reported);
  double lastSecond = -std::numeric_limits<double>::infinity();
  for (const auto& truth : walk.truth) {
    if (std::floor(truth.t) <= lastSecond) continue;
    lastSecond = std::floor(truth.t);
    now.advanceTo(truth.t);
    before.advanceTo(truth.t - 1.0);
    EvaluatedSecond second{.t = truth.t, .truth = truth.place};
    second.nearestBeacon = closestBeacon(beacons, truth.place, std::numeric_limits<double>::infinity());
    second.previousBeacon = beaconAt(beacons, before.lastPlace());
    if (const PlanPoint* place = now.place()) {
      second.reported = *place;
      second.reportedBeacon = beaconAt(beacons, place);
      second.errorMeters = distance(truth.place, *place);
    }
    seconds.push_back(std::move(second));
  }
  return seconds;
}

Figures figuresOf(const std::vector<EvaluatedSecond>& seconds, const std::vector<MappedBeacon>& beacons,
                  const PlanDistance& distance) {
  Figures figures;
  const auto metres = [&](const EvaluatedSecond& second, int index) {
    return distance(second.truth, beacons[static_cast<std::size_t>(index)].place);
  };
  for (const auto& second : seconds) {
    ++figures.seconds;
    if (!second.reported) continue;
    ++figures.fixes;
    figures.errors.push_back(second.errorMeters);
    if (second.reported->mapId == second.truth.mapId) ++figures.onRightMap;
    const int beacon = second.reportedBeacon;
    if (beacon < 0) continue;
    if (beacon == second.nearestBeacon) ++figures.hits;
    if (second.previousBeacon < 0 || second.previousBeacon == beacon) continue;
    ++figures.switches;
    if (metres(second, beacon) > metres(second, second.previousBeacon)) ++figures.badSwitches;
  }
  std::sort(figures.errors.begin(), figures.errors.end());
  return figures;
}

}  // namespace wayloom::tools
