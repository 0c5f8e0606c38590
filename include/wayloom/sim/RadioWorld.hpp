#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/sim/SeededRandom.hpp"
#include "wayloom/sim/VenueFrame.hpp"
#include "wayloom/sim/WalkPath.hpp"

namespace wayloom::sim {

// How a signal weakens on its way; docs/radio.md says more of each number.
struct Propagation {
  double pathLossExponent = 2.2;
  double shadowingSigma = 3.5;        // dB
  double shadowingCorrelation = 3.0;  // metres to a correlation of 1/e
  double fadingSigma = 3.0;           // dB, independent for each frame
  double bodyBlocking = 6.0;          // dB straight behind the person
  double floorAttenuation = 15.0;     // dB a floor
};

struct Receiver {
  double height = 1.1;         // metres above the floor
  double gain = 0.0;           // dB
  double sensitivity = -97.0;  // dBm
  double frameLoss = 0.1;      // share of the audible frames that goes missing, 0 to 1
};

// The platform's own positions.
struct FixSource {
  std::vector<std::string> mapIds;  // where there are any
  double interval = 2.0;            // seconds
  double accuracy = 6.0;            // metres, as claimed
  double errorSigma = 2.5;          // metres along each axis, truly
  double errorCorrelation = 20.0;   // seconds to a correlation of 1/e
};

struct Wall {
  GroundPoint from;
  GroundPoint to;
  double loss = 0.0;  // dB
};

struct Floor {
  int number = 0;
  double elevation = 0.0;  // metres
};

struct RadioBeacon {
  platform::BeaconIdentity identity;
  std::string address;
  MapPoint place;
  GroundPoint ground{};
  double height = 2.5;             // metres above its floor
  double powerAtOneMetre = -59.0;  // dBm, really
  int advertisedPower = -59;       // dBm, as its frames say
  double interval = 0.3;           // seconds between two frames
};

// What is true in a simulated venue: beacons, walls, and how signals spread among them. Immutable once made.
class RadioWorld {
 public:
  // Reads a radio.json. Nothing, and the reason in `error`, when a number is impossible or a beacon can't be placed.
  // `knowsMap` tells which maps the venue has.
  static std::optional<RadioWorld> fromJson(const platform::Json& document, const VenueFrame& frame,
                                            const std::function<bool(const std::string&)>& knowsMap,
                                            std::string& error);

  // A world without walls around these beacons, all maps on one floor: for a venue that has no radio.json.
  static RadioWorld open(std::vector<RadioBeacon> beacons, const VenueFrame& frame);

  const std::vector<RadioBeacon>& beacons() const { return beacons_; }
  const Propagation& propagation() const { return propagation_; }
  const Receiver& receiver() const { return receiver_; }
  const std::optional<FixSource>& fixes() const { return fixes_; }
  Floor floorOf(const std::string& mapId) const;

  // The mean strength in dBm at which somebody hears the beacon: everything but shadowing and fading.
  double meanRssi(const RadioBeacon& beacon, const Pose& pose) const;

 private:
  double wallLoss(const RadioBeacon& beacon, const GroundPoint& listener) const;
  double bodyLoss(const RadioBeacon& beacon, const Pose& pose) const;

  Propagation propagation_;
  Receiver receiver_;
  std::optional<FixSource> fixes_;
  std::map<std::string, Floor> floors_;
  std::map<int, std::vector<Wall>> walls_;  // by floor number
  std::vector<RadioBeacon> beacons_;
};

// What furniture and reflections add to one beacon's signal at each place: a Gaussian random field whose correlation
// falls as exp(-distance / length), made of random cosine waves (Rahimi and Recht: Random Features for Large-Scale
// Kernel Machines, 2007), so that coming back to a place finds the same value.
class ShadowingField {
 public:
  ShadowingField(double sigma, double correlationLength, SeededRandom random);
  double at(const GroundPoint& point, double elevation) const;  // dB

 private:
  struct Wave {
    double east;
    double north;
    double up;
    double phase;
  };
  double amplitude_;
  std::vector<Wave> waves_;
};

}  // namespace wayloom::sim
