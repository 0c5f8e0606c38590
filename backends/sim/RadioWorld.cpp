#include "wayloom/sim/RadioWorld.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom::sim {
namespace {

using platform::Json;
using platform::member;

// Nearer than this the far-field law no longer holds.
constexpr double kNearestDistance = 0.3;

// Reads the members of one object of a radio.json, remembering the first that makes no sense.
class MemberReader {
 public:
  MemberReader(const Json* object, std::string name, std::string& error)
      : object_(object), name_(std::move(name)), error_(error) {}

  void read(const char* key, double lowest, double highest, double& value) {
    const Json* found = member(object_, key);
    if (found == nullptr) return;
    const double number = platform::doubleValue(found);
    if (number >= lowest && number <= highest)
      value = number;
    else if (error_.empty())
      error_ = name_ + ": \"" + key + "\" is out of range";
  }

 private:
  const Json* object_;
  std::string name_;
  std::string& error_;
};

Propagation readPropagation(const Json* object, std::string& error) {
  Propagation propagation;
  MemberReader reader(object, "propagation", error);
  reader.read("path_loss_exponent", 0.5, 10.0, propagation.pathLossExponent);
  reader.read("shadowing_sigma_db", 0.0, 50.0, propagation.shadowingSigma);
  reader.read("shadowing_correlation_m", 0.01, 1e4, propagation.shadowingCorrelation);
  reader.read("fading_sigma_db", 0.0, 50.0, propagation.fadingSigma);
  reader.read("body_blocking_db", 0.0, 100.0, propagation.bodyBlocking);
  reader.read("floor_attenuation_db", 0.0, 200.0, propagation.floorAttenuation);
  return propagation;
}

Receiver readReceiver(const Json* object, std::string& error) {
  Receiver receiver;
  MemberReader reader(object, "receiver", error);
  reader.read("height_m", 0.0, 100.0, receiver.height);
  reader.read("gain_db", -100.0, 100.0, receiver.gain);
  reader.read("sensitivity_dbm", -150.0, 0.0, receiver.sensitivity);
  reader.read("frame_loss", 0.0, 1.0, receiver.frameLoss);
  return receiver;
}

FixSource readFixes(const Json* object, std::string& error) {
  FixSource fixes;
  MemberReader reader(object, "location_fixes", error);
  reader.read("interval_s", 0.05, 1e5, fixes.interval);
  reader.read("accuracy_m", 0.1, 1e5, fixes.accuracy);
  reader.read("error_sigma_m", 0.0, 1e5, fixes.errorSigma);
  reader.read("error_correlation_s", 0.01, 1e6, fixes.errorCorrelation);
  if (const Json* mapIds = member(object, "map_ids"); mapIds != nullptr && mapIds->is_array())
    for (const auto& mapId : *mapIds)
      if (auto text = platform::stringValue(&mapId)) fixes.mapIds.push_back(std::move(*text));
  return fixes;
}

void readWalls(const Json* walls, const std::string& mapId, const VenueFrame& frame, std::vector<Wall>& out) {
  if (walls == nullptr || !walls->is_array()) return;
  for (const auto& wall : *walls) {
    if (!wall.is_array() || wall.size() < 5) continue;
    const auto number = [&](std::size_t i) { return platform::doubleValue(&wall[i]); };
    out.push_back({frame.groundPoint({mapId, number(0), number(1)}), frame.groundPoint({mapId, number(2), number(3)}),
                   number(4)});
  }
}

std::optional<RadioBeacon> readBeacon(const Json& value, const std::string& name, std::string& error) {
  RadioBeacon beacon;
  const auto uuid = platform::UUID::parse(platform::stringValue(member(value, "uuid")).value_or(""));
  const auto mapId = platform::stringValue(member(value, "map_id"));
  if (!uuid || !mapId) {
    error = name + " needs a uuid and a map_id";
    return std::nullopt;
  }
  double major = 0.0;
  double minor = 0.0;
  double advertised = beacon.advertisedPower;
  MemberReader reader(&value, name, error);
  reader.read("major", 0, 65535, major);
  reader.read("minor", 0, 65535, minor);
  reader.read("x", -1e7, 1e7, beacon.place.x);
  reader.read("y", -1e7, 1e7, beacon.place.y);
  reader.read("height_m", -100.0, 1000.0, beacon.height);
  reader.read("power_at_1m_dbm", -128.0, 30.0, beacon.powerAtOneMetre);
  reader.read("advertised_power_dbm", -128.0, 127.0, advertised);
  reader.read("advertising_interval_s", 0.02, 1e4, beacon.interval);
  if (!error.empty()) return std::nullopt;
  beacon.identity = {*uuid, static_cast<std::uint16_t>(major), static_cast<std::uint16_t>(minor)};
  beacon.advertisedPower = static_cast<int>(std::lround(advertised));
  beacon.place.mapId = *mapId;
  beacon.address = platform::stringValue(member(value, "address")).value_or("");
  return beacon;
}

double cross(const GroundPoint& o, const GroundPoint& a, const GroundPoint& b) {
  return (a.east - o.east) * (b.north - o.north) - (a.north - o.north) * (b.east - o.east);
}

// Whether the two segments cross; one that only touches a wall's end does not.
bool crosses(const GroundPoint& a, const GroundPoint& b, const Wall& wall) {
  return cross(a, b, wall.from) * cross(a, b, wall.to) < 0.0 &&
         cross(wall.from, wall.to, a) * cross(wall.from, wall.to, b) < 0.0;
}

}  // namespace

std::optional<RadioWorld> RadioWorld::fromJson(const Json& document, const VenueFrame& frame,
                                               const std::function<bool(const std::string&)>& knowsMap,
                                               std::string& error) {
  RadioWorld world;
  world.propagation_ = readPropagation(member(document, "propagation"), error);
  world.receiver_ = readReceiver(member(document, "receiver"), error);
  if (const Json* fixes = member(document, "location_fixes")) world.fixes_ = readFixes(fixes, error);
  if (const Json* maps = member(document, "maps"); maps != nullptr && maps->is_object()) {
    for (const auto& [mapId, value] : maps->items()) {
      if (!knowsMap(mapId)) {
        error = "maps: the venue has no map \"" + mapId + "\"";
        return std::nullopt;
      }
      const auto number = platform::integerValue(member(value, "floor"));
      const Floor floor{static_cast<int>(std::clamp<std::int64_t>(number, -1000, 1000)),
                        platform::doubleValue(member(value, "elevation_m"))};
      world.floors_[mapId] = floor;
      readWalls(member(value, "walls"), mapId, frame, world.walls_[floor.number]);
    }
  }
  if (const Json* beacons = member(document, "beacons"); beacons != nullptr && beacons->is_array()) {
    for (const auto& value : *beacons) {
      auto beacon = readBeacon(value, "beacon " + std::to_string(world.beacons_.size() + 1), error);
      if (!beacon) return std::nullopt;
      if (!knowsMap(beacon->place.mapId)) {
        error = "beacons: the venue has no map \"" + beacon->place.mapId + "\"";
        return std::nullopt;
      }
      beacon->ground = frame.groundPoint(beacon->place);
      world.beacons_.push_back(std::move(*beacon));
    }
  }
  if (!error.empty()) return std::nullopt;
  return world;
}

RadioWorld RadioWorld::open(std::vector<RadioBeacon> beacons, const VenueFrame& frame) {
  RadioWorld world;
  world.beacons_ = std::move(beacons);
  for (auto& beacon : world.beacons_) beacon.ground = frame.groundPoint(beacon.place);
  return world;
}

Floor RadioWorld::floorOf(const std::string& mapId) const {
  const auto it = floors_.find(mapId);
  return it != floors_.end() ? it->second : Floor{};
}

double RadioWorld::meanRssi(const RadioBeacon& beacon, const Pose& pose) const {
  const Floor floor = floorOf(beacon.place.mapId);
  const int floorsBetween = std::abs(floor.number - floorOf(pose.place.mapId).number);
  const double up = floor.elevation + beacon.height - pose.elevation - receiver_.height;
  const double distance = std::max(kNearestDistance, std::hypot(distanceBetween(beacon.ground, pose.ground), up));
  return beacon.powerAtOneMetre + receiver_.gain - 10.0 * propagation_.pathLossExponent * std::log10(distance) -
         wallLoss(beacon, pose.ground) - propagation_.floorAttenuation * floorsBetween - bodyLoss(beacon, pose);
}

double RadioWorld::wallLoss(const RadioBeacon& beacon, const GroundPoint& listener) const {
  const auto it = walls_.find(floorOf(beacon.place.mapId).number);
  if (it == walls_.end()) return 0.0;
  double loss = 0.0;
  for (const auto& wall : it->second)
    if (crosses(beacon.ground, listener, wall)) loss += wall.loss;
  return loss;
}

double RadioWorld::bodyLoss(const RadioBeacon& beacon, const Pose& pose) const {
  const double distance = distanceBetween(beacon.ground, pose.ground);
  if (distance <= 0.0) return 0.0;
  const double cosine = ((beacon.ground.east - pose.ground.east) * pose.facingEast +
                         (beacon.ground.north - pose.ground.north) * pose.facingNorth) /
                        distance;
  return propagation_.bodyBlocking * (1.0 - cosine) / 2.0;
}

ShadowingField::ShadowingField(double sigma, double correlationLength, SeededRandom random) {
  constexpr std::size_t kWaves = 96;
  amplitude_ = sigma * std::sqrt(2.0 / static_cast<double>(kWaves));
  waves_.reserve(kWaves);
  for (std::size_t i = 0; i < kWaves; ++i) {
    // The spectrum of an exponential correlation is the multivariate Cauchy distribution: a normal vector over the
    // size of one more normal number.
    const double scale = 1.0 / (std::max(1e-6, std::abs(random.normal())) * correlationLength);
    Wave wave{};
    wave.east = random.normal() * scale;
    wave.north = random.normal() * scale;
    wave.up = random.normal() * scale;
    wave.phase = random.uniform(0.0, 2.0 * std::numbers::pi);
    waves_.push_back(wave);
  }
}

double ShadowingField::at(const GroundPoint& point, double elevation) const {
  double sum = 0.0;
  for (const auto& wave : waves_)
    sum += std::cos(wave.east * point.east + wave.north * point.north + wave.up * elevation + wave.phase);
  return amplitude_ * sum;
}

}  // namespace wayloom::sim
