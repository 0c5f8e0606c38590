#include "wayloom/sim/RadioSimulator.hpp"

#include <algorithm>
#include <cmath>
#include <queue>
#include <tuple>
#include <vector>

namespace wayloom::sim {
namespace {

// Beacons add up to this to every interval, lest two of them collide for ever (Bluetooth Core 5.4, vol. 6,
// part B, 4.4.2.2).
constexpr double kAdvertisingDelay = 0.010;

enum class Source { frame = 0, fix = 1, truth = 2 };  // at one moment, in this order

struct Moment {
  double t;
  Source source;
  std::size_t index;  // of the beacon

  bool operator>(const Moment& other) const {
    return std::tie(t, source, index) > std::tie(other.t, other.source, other.index);
  }
};

// One beacon's sender and the channel from it to the listener.
struct Channel {
  SeededRandom random;
  ShadowingField shadowing;
};

// An error that drifts: an Ornstein-Uhlenbeck process, sampled.
class DriftingError {
 public:
  explicit DriftingError(const FixSource& source)
      : sigma_(source.errorSigma), keep_(std::exp(-source.interval / source.errorCorrelation)) {}

  double next(SeededRandom& random) {
    const double fresh = sigma_ * random.normal();
    value_ = begun_ ? keep_ * value_ + std::sqrt(1.0 - keep_ * keep_) * fresh : fresh;
    begun_ = true;
    return value_;
  }

 private:
  double sigma_;
  double keep_;
  double value_ = 0.0;
  bool begun_ = false;
};

class Simulation {
 public:
  Simulation(const RadioWorld& world, const WalkPath& path, const VenueFrame& frame, std::uint64_t seed,
             const RadioListener& listener)
      : world_(world), path_(path), frame_(frame), listener_(listener), fixRandom_(seed, 0) {
    const auto& propagation = world.propagation();
    for (std::size_t i = 0; i < world.beacons().size(); ++i) {
      channels_.push_back(
          {SeededRandom(seed, 2 * i + 1), ShadowingField(propagation.shadowingSigma, propagation.shadowingCorrelation,
                                                         SeededRandom(seed, 2 * i + 2))});
      moments_.push({channels_[i].random.uniform(0.0, world.beacons()[i].interval), Source::frame, i});
    }
    if (world.fixes()) {
      eastError_.emplace(*world.fixes());
      northError_.emplace(*world.fixes());
      moments_.push({0.0, Source::fix, 0});
    }
    moments_.push({0.0, Source::truth, 0});
  }

  void run() {
    while (!moments_.empty() && moments_.top().t <= path_.duration()) {
      const Moment moment = moments_.top();
      moments_.pop();
      switch (moment.source) {
        case Source::frame:
          sendFrame(moment);
          break;
        case Source::fix:
          giveFix(moment.t);
          break;
        case Source::truth:
          tellTruth(moment.t);
          break;
      }
    }
  }

 private:
  void sendFrame(const Moment& moment) {
    const auto& beacon = world_.beacons()[moment.index];
    auto& channel = channels_[moment.index];
    const auto& receiver = world_.receiver();
    // Every frame draws the same count of numbers, heard or not, so that the sender keeps its rhythm wherever one
    // walks.
    const double fading = world_.propagation().fadingSigma * channel.random.normal();
    const bool lost = channel.random.chance(receiver.frameLoss);
    const double next = moment.t + beacon.interval + channel.random.uniform(0.0, kAdvertisingDelay);
    moments_.push({next, Source::frame, moment.index});
    if (lost) return;
    const Pose pose = path_.poseAt(moment.t);
    const double strength = world_.meanRssi(beacon, pose) + channel.shadowing.at(pose.ground, pose.elevation) + fading;
    if (strength < receiver.sensitivity) return;
    const int rssi = std::min(-1, static_cast<int>(std::lround(strength)));
    listener_.frame(moment.t, {beacon.identity, rssi, beacon.advertisedPower}, beacon);
  }

  void giveFix(double t) {
    const auto& source = *world_.fixes();
    moments_.push({t + source.interval, Source::fix, 0});
    const double east = eastError_->next(fixRandom_);
    const double north = northError_->next(fixRandom_);
    const Pose pose = path_.poseAt(t);
    if (std::find(source.mapIds.begin(), source.mapIds.end(), pose.place.mapId) == source.mapIds.end()) return;
    const GroundPoint fix{pose.ground.east + east, pose.ground.north + north};
    listener_.fix(t, frame_.coordinate(fix), source.accuracy);
  }

  void tellTruth(double t) {
    moments_.push({t + 1.0, Source::truth, 0});
    listener_.truth(t, path_.poseAt(t).place);
  }

  const RadioWorld& world_;
  const WalkPath& path_;
  const VenueFrame& frame_;
  const RadioListener& listener_;
  SeededRandom fixRandom_;
  std::optional<DriftingError> eastError_;
  std::optional<DriftingError> northError_;
  std::vector<Channel> channels_;
  std::priority_queue<Moment, std::vector<Moment>, std::greater<>> moments_;
};

}  // namespace

void simulateRadio(const RadioWorld& world, const WalkPath& path, const VenueFrame& frame, std::uint64_t seed,
                   const RadioListener& listener) {
  Simulation(world, path, frame, seed, listener).run();
}

}  // namespace wayloom::sim
