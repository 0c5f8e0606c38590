#include "wayloom/positioning/RefinedPositions.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "wayloom/maps/TWLMapConfigRepo.hpp"

#include "positioning/BeaconChoice.hpp"
#include "positioning/BeaconLevel.hpp"
#include "positioning/BeaconPlan.hpp"
#include "positioning/MapChoice.hpp"
#include "positioning/PositionPosterior.hpp"
#include "positioning/PositionTrack.hpp"

namespace wayloom {

using platform::Duration;
using platform::MonotonicTime;

namespace {

constexpr Duration kHeardFor = ranging::SignalEstimator::kMemory;
constexpr double kLongestStep = 60.0;  // seconds; nothing is left of what was known before
// More than these say little more, and crowds must not cost more.
constexpr std::size_t kMostHeard = 4096;  // beacons that are followed at a time
constexpr std::size_t kMostLevels = 24;   // of the strongest, whose levels count
constexpr std::size_t kMostSilent = 24;   // of the nearest to the centre, whose silence counts
constexpr double kSilentReach = 40.0;     // metres: beyond, silence is no news
constexpr std::size_t kOfCentre = 6;      // strongest beacons between which one looks
constexpr double kBesideBeacons = 0.85;   // metres: the device is among the beacons or so near

// The circle of 68 %: its radius grows with the distance at which the strongest beacon is expected, because what
// throws a level off throws the distance off in proportion, and with the posterior's spread.
constexpr double kRadiusVariance = 1.0;  // square metres
constexpr double kOfSpread = 0.01;
constexpr double kOfSquare = 1.5;
constexpr double kOfFourthPower = 0.1;   // for each square metre
constexpr double kFarthestBeacon = 6.0;  // metres

double squared(double value) { return value * value; }

}  // namespace

class RefinedPositions::State {
 public:
  explicit State(platform::Platform& platform) : repo_(TWLMapConfigRepo::sharedRepo(platform)) {}

  void setKit(TGFKitPtr kit) { kit_ = std::move(kit); }

  void ranged(const TGFBeaconList& beacons, MonotonicTime at) {
    prepare();
    now_ = std::max(now_, at);
    rangedSince_ = true;
    for (const auto& beacon : beacons)
      if (beacon && beacon->beacon()) hear(*beacon->beacon());
  }

  const RefinedPosition* update(MonotonicTime at) {
    if (!std::exchange(rangedSince_, false)) return nullptr;
    prepare();
    now_ = std::max(now_, at);
    forgetSilent();
    if (heard_.empty()) return tellNothing();
    const double seconds = std::clamp(platform::secondsOf(now_ - updated_), 0.0, kLongestStep);
    updated_ = now_;
    chooseMap(seconds);
    look();
    follow(seconds);
    chooseBeacon(seconds);
    describe();
    return &position_;
  }

 private:
  struct HeardBeacon {
    std::uint32_t number;
    BeaconLevel level;
  };
  struct Candidate {
    std::uint32_t number;
    double rank;  // dB of gain, or square metres from the centre
  };

  // --- What is heard ---

  void hear(const platform::CLBeacon& beacon) {
    const auto number = plan_->find(beacon.identity());
    if (number == BeaconPlan::kNone || !(beacon.rssi < 0)) return;
    auto& slot = slots_[number];
    if (slot == BeaconPlan::kNone) {
      if (heard_.size() == kMostHeard) return;
      slot = static_cast<std::uint32_t>(heard_.size());
      heard_.push_back({number, {}});
    }
    heard_[slot].level.add(beacon, plan_->beacon(number).power, now_);
  }

  void forgetSilent() {
    for (std::size_t i = 0; i < heard_.size();) {
      const auto& level = heard_[i].level;
      if (level.everHeard() && now_ - level.lastHeard() <= kHeardFor) {
        ++i;
        continue;
      }
      slots_[heard_[i].number] = BeaconPlan::kNone;
      if (i + 1 < heard_.size()) {
        heard_[i] = heard_.back();
        slots_[heard_[i].number] = static_cast<std::uint32_t>(i);
      }
      heard_.pop_back();
    }
  }

  const RefinedPosition* tellNothing() {
    mapChoice_.clear();
    map_ = BeaconPlan::kNone;
    if (std::exchange(toldNothing_, true)) return nullptr;
    position_ = {};
    position_.time = now_;
    return &position_;
  }

  // --- The plan of kit and maps ---

  void prepare() {
    auto catalogue = repo_.configRepo();
    if (plan_ && kit_ == plannedKit_ && catalogue == plannedCatalogue_) return;
    plannedKit_ = kit_;
    plannedCatalogue_ = catalogue;
    const auto old = std::exchange(plan_, std::make_shared<const BeaconPlan>(kit_.get(), std::move(catalogue)));
    slots_.assign(plan_->size(), BeaconPlan::kNone);
    candidates_.reserve(plan_->size());
    auto heard = std::exchange(heard_, {});
    heard_.reserve(std::min(plan_->size(), kMostHeard));
    mapChoice_.setMaps(plan_->maps().size());
    map_ = BeaconPlan::kNone;
    if (old) carryOver(*old, heard);
  }

  // A venue's kit and maps are fetched again and again: who is there before and after goes on as before.
  void carryOver(const BeaconPlan& old, const std::vector<HeardBeacon>& heard) {
    for (const auto& beacon : heard) {
      const auto number = plan_->find(old.name(beacon.number).identity);
      if (number == BeaconPlan::kNone) continue;
      slots_[number] = static_cast<std::uint32_t>(heard_.size());
      heard_.push_back({number, beacon.level});
    }
    if (!position_.map) return;
    for (std::uint32_t i = 0; i < plan_->maps().size(); ++i)
      if (plan_->maps()[i].map.config->mapId() == position_.map->mapId()) keepMap(i);
  }

  void keepMap(std::uint32_t map) {
    map_ = map;
    mapChoice_.favour(map);
    beaconChoice_.clear();
  }

  // --- The map ---

  void chooseMap(double seconds) {
    mapChoice_.begin();
    for (const auto& beacon : heard_) mapChoice_.add(plan_->beacon(beacon.number).map, beacon.level.gain(now_));
    const auto map = mapChoice_.choose(toldNothing_ ? kLongestStep : seconds);
    fresh_ = std::exchange(map_, map) != map || toldNothing_;
    toldNothing_ = false;
    if (fresh_) beaconChoice_.clear();
  }

  const BeaconPlan::Map& map() const { return plan_->maps()[map_]; }

  // --- The posterior of this instant ---

  void look() {
    rankHeard();
    centre_ = centreOfHeard();
    near_.clear();
    levels_.clear();
    for (const auto& [number, gain] : candidates_) {
      const Point at = fromCentre(number);
      near_.push_back(number);
      levels_.push_back({static_cast<float>(at.x), static_cast<float>(at.y), static_cast<float>(gain)});
    }
    strongest_ = candidates_.front().rank;
    rankSilent();
    silent_.clear();
    for (const auto& candidate : candidates_) {
      const Point at = fromCentre(candidate.number);
      near_.push_back(candidate.number);
      silent_.push_back({static_cast<float>(at.x), static_cast<float>(at.y), reachOf(candidate.number)});
    }
    const auto& box = map();
    seen_ = posterior_.evaluate(levels_, silent_,
                                {.left = box.topLeft.x - kBesideBeacons - centre_.x,
                                 .top = box.topLeft.y - kBesideBeacons - centre_.y,
                                 .right = box.bottomRight.x + kBesideBeacons - centre_.x,
                                 .bottom = box.bottomRight.y + kBesideBeacons - centre_.y});
  }

  Point fromCentre(std::uint32_t number) const {
    const auto& beacon = plan_->beacon(number);
    return {beacon.x - centre_.x, beacon.y - centre_.y};
  }

  float reachOf(std::uint32_t number) const {
    const double power = plan_->beacon(number).power;
    return PositionPosterior::reach(std::isnan(power) ? ranging::SignalEstimator::kTypicalPower : power);
  }

  // The map's beacons that are heard, strongest first; one order for any order of rangings.
  void rankHeard() {
    candidates_.clear();
    for (const auto& beacon : heard_)
      if (plan_->beacon(beacon.number).map == map_) candidates_.push_back({beacon.number, beacon.level.gain(now_)});
    keepFirst(kMostLevels, [](const Candidate& a, const Candidate& b) {
      return a.rank != b.rank ? a.rank > b.rank : a.number < b.number;
    });
  }

  void rankSilent() {
    candidates_.clear();
    const auto range = plan_->between(map(), centre_.x - kSilentReach, centre_.x + kSilentReach);
    for (auto number = range.first; number < range.end; ++number) {
      const Point at = fromCentre(number);
      const double distance = squared(at.x) + squared(at.y);
      if (slots_[number] == BeaconPlan::kNone && distance <= squared(kSilentReach))
        candidates_.push_back({number, distance});
    }
    keepFirst(kMostSilent, [](const Candidate& a, const Candidate& b) {
      return a.rank != b.rank ? a.rank < b.rank : a.number < b.number;
    });
  }

  template <class Before>
  void keepFirst(std::size_t count, Before before) {
    const auto kept = static_cast<std::ptrdiff_t>(std::min(count, candidates_.size()));
    std::partial_sort(candidates_.begin(), candidates_.begin() + kept, candidates_.end(), before);
    candidates_.resize(static_cast<std::size_t>(kept));
  }

  Point centreOfHeard() const {
    Point sum;
    double weights = 0.0;
    for (std::size_t i = 0; i < std::min(kOfCentre, candidates_.size()); ++i) {
      const auto& beacon = plan_->beacon(candidates_[i].number);
      const double weight = std::pow(10.0, candidates_[i].rank / 10.0);
      sum = {sum.x + weight * beacon.x, sum.y + weight * beacon.y};
      weights += weight;
    }
    return {sum.x / weights, sum.y / weights};
  }

  // --- What is told ---

  void follow(double seconds) {
    const Point mean{centre_.x + seen_.mean.x, centre_.y + seen_.mean.y};
    if (fresh_)
      track_.begin(mean, seen_.variance);
    else
      track_.follow(mean, seen_.variance, seconds);
  }

  void chooseBeacon(double seconds) {
    places_.clear();
    for (const auto number : near_) places_.push_back(fromCentre(number));
    shares_.resize(near_.size());
    posterior_.nearest(places_, shares_);
    beaconChoice_.update(near_, shares_, seconds);
  }

  void describe() {
    position_.time = now_;
    position_.map = map().map.config;
    position_.metres = track_.place();
    position_.pixels = {position_.metres.x * BeaconPlan::kPixelsPerMetre,
                        position_.metres.y * BeaconPlan::kPixelsPerMetre};
    position_.coordinate = map().map.projection.coordinateOf(position_.pixels);
    position_.radius = radius();
    position_.mapProbability = mapChoice_.probability();
    position_.beacon = RefinedBeaconPtr(plan_, &plan_->name(beaconChoice_.beacon()));
    position_.beaconProbability = beaconChoice_.probability();
    position_.speed = track_.speed();
  }

  double radius() const {
    const double square = squared(std::min(kFarthestBeacon, PositionPosterior::distance(strongest_)));
    return std::sqrt(kRadiusVariance + kOfSpread * seen_.spread + kOfSquare * square +
                     kOfFourthPower * squared(square));
  }

  TWLMapConfigRepo& repo_;
  TGFKitPtr kit_;
  TGFKitPtr plannedKit_;
  std::shared_ptr<const MapCatalogue> plannedCatalogue_;
  std::shared_ptr<const BeaconPlan> plan_;

  MonotonicTime now_ = MonotonicTime::min();
  MonotonicTime updated_;
  bool rangedSince_ = false;
  bool toldNothing_ = false;
  std::vector<std::uint32_t> slots_;  // of the plan's beacons in heard_
  std::vector<HeardBeacon> heard_;

  MapChoice mapChoice_;
  std::uint32_t map_ = BeaconPlan::kNone;
  bool fresh_ = true;  // the map has changed: the track begins anew

  std::vector<Candidate> candidates_;
  std::vector<std::uint32_t> near_;  // whose levels or silence count
  std::vector<PositionPosterior::Heard> levels_;
  std::vector<PositionPosterior::Silent> silent_;
  Point centre_;            // metres on the map
  double strongest_ = 0.0;  // dB over power
  PositionPosterior posterior_;
  PositionPosterior::Summary seen_{};
  PositionTrack track_;
  std::vector<Point> places_;
  std::vector<double> shares_;
  BeaconChoice beaconChoice_;
  RefinedPosition position_;
};

std::string RefinedBeacon::text() const {
  if (identifier) return *identifier;
  if (name) return *name;
  return identity.uuid.string() + ' ' + std::to_string(identity.major) + ' ' + std::to_string(identity.minor);
}

RefinedPositions::RefinedPositions(platform::Platform& platform) : state_(std::make_unique<State>(platform)) {}

RefinedPositions::~RefinedPositions() = default;

void RefinedPositions::setKit(TGFKitPtr kit) { state_->setKit(std::move(kit)); }

void RefinedPositions::ranged(const TGFBeaconList& beacons, MonotonicTime at) { state_->ranged(beacons, at); }

const RefinedPosition* RefinedPositions::update(MonotonicTime at) { return state_->update(at); }

}  // namespace wayloom
