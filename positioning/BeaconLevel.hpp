#pragma once

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/SignalEstimator.hpp"

namespace wayloom {

// How strongly one beacon is received, from a ranging a second: the ranger's filter, made quicker. What the mean of a
// second's frames has lost, above all their peaks, comes back through the ranging's accuracy, in which the ranger has
// filtered every frame. 100 bytes, constant time a ranging, no allocation.
class BeaconLevel {
 public:
  // Readings of an RSSI of 0 or more are no measurements and change nothing. `kitPower` in dBm at one metre, or NaN.
  void add(const platform::CLBeacon& beacon, double kitPower, platform::MonotonicTime at);

  // dB over the beacon's power at one metre. Silence counts against a beacon as it does in the ranger.
  double gain(platform::MonotonicTime now) const;
  // dBm at one metre: the kit's, else what rangings imply that frames say, else the usual.
  double power() const;

  bool everHeard() const { return quick_.variance > 0.0; }
  platform::MonotonicTime lastHeard() const { return quick_.heard; }

 private:
  // The ranger's filter with the constants of means.
  struct Follower {
    void add(int rssi, platform::MonotonicTime at, double drift);

    double level = 0.0;     // dBm
    double variance = 0.0;  // dB^2; 0 before the first reading
    platform::MonotonicTime heard;
    int deepFades = 0;  // in a row
  };

  void compare(const platform::CLBeacon& beacon);

  Follower quick_;
  Follower steady_;         // as slow as the ranger's, to compare with
  double lostPeaks_ = 0.0;  // dB
  double kitPower_ = 0.0;   // NaN: none
  double impliedPower_ = 0.0;
  int impliedPowers_ = 0;
};

}  // namespace wayloom
