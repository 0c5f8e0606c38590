#include "positioning/BeaconLevel.hpp"

#include <algorithm>
#include <cmath>

namespace wayloom {

using platform::MonotonicTime;
using ranging::SignalEstimator;

namespace {

// The mean of a second's frames scatters less than a frame, and less to one side.
constexpr double kMeanDeviation = 3.5;  // dB
constexpr double kMeanVariance = kMeanDeviation * kMeanDeviation;
constexpr double kMeanFadeRatio = 4.0;
constexpr double kMeanDrift = 20.0;  // dB^2 a second

// The ranger's filter on frames lies above the same filter on means by up to so much; more comes from another estimate
// of distance or another power, and is left alone.
constexpr double kMostLostPeaks = 6.0;    // dB
constexpr double kMostGainedPeaks = 3.0;  // dB
constexpr int kImpliedPowers = 60;        // rangings over which an implied power is averaged

bool isInside(double value, double low, double high) { return value > low && value < high; }

}  // namespace

void BeaconLevel::add(const platform::CLBeacon& beacon, double kitPower, MonotonicTime at) {
  if (beacon.rssi >= 0 || beacon.rssi < -127) return;
  kitPower_ = kitPower;
  quick_.add(beacon.rssi, at, kMeanDrift);
  steady_.add(beacon.rssi, at, SignalEstimator::kDriftVariance);
  compare(beacon);
}

void BeaconLevel::Follower::add(int rssi, MonotonicTime at, double drift) {
  const bool fresh = variance == 0.0 || at - heard > SignalEstimator::kMemory;
  if (!fresh) variance += drift * platform::secondsOf(at - heard);
  heard = at;
  const double innovation = rssi - level;
  deepFades = !fresh && innovation < -SignalEstimator::kDeepFade ? deepFades + 1 : 0;
  if (fresh || deepFades == SignalEstimator::kDeepFades) {
    level = rssi;
    variance = kMeanVariance;
    deepFades = 0;
    return;
  }
  const double limit = SignalEstimator::kOutlierDeviations * std::sqrt(variance + kMeanVariance);
  double reading = kMeanVariance * std::max(1.0, std::abs(innovation) / limit);
  if (innovation < 0.0) reading *= kMeanFadeRatio;
  const double gain = variance / (variance + reading);
  level += gain * innovation;
  variance *= 1.0 - gain;
}

void BeaconLevel::compare(const platform::CLBeacon& beacon) {
  lostPeaks_ = 0.0;
  if (!isInside(beacon.accuracy, SignalEstimator::kNearest, SignalEstimator::kFarthest)) return;
  const double loss = 20.0 * std::log10(beacon.accuracy);
  const double ofMeans = steady_.level;
  if (impliedPowers_ < kImpliedPowers) ++impliedPowers_;
  impliedPower_ += (std::clamp(ofMeans + loss, -100.0, -20.0) - impliedPower_) / impliedPowers_;
  if (std::isnan(kitPower_)) return;
  const double lost = kitPower_ - loss - ofMeans;
  if (isInside(lost, -kMostGainedPeaks, kMostLostPeaks)) lostPeaks_ = lost;
}

double BeaconLevel::gain(MonotonicTime now) const {
  const double silence = std::max(0.0, platform::secondsOf(now - quick_.heard));
  return quick_.level + lostPeaks_ - SignalEstimator::kSilenceLoss * silence - power();
}

double BeaconLevel::power() const {
  if (!std::isnan(kitPower_)) return kitPower_;
  return impliedPowers_ > 0 ? impliedPower_ : SignalEstimator::kTypicalPower;
}

}  // namespace wayloom
