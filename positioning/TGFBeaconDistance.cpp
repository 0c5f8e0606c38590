// The signal extension of TGFBeacon: a short history of samples, their average, and a distance from it.
#include <cmath>

#include "wayloom/regions/TGFBeacon.hpp"

#include "positioning/AveragingPeriod.hpp"
#include "positioning/BeaconPlace.hpp"

namespace wayloom {
namespace {

// The product's calibrated path-loss curve: distance = a ratio^b + c at and beyond one metre, ratio^d nearer.
constexpr double kFarFactor = 2.922026;
constexpr double kFarExponent = 6.672908;
constexpr double kFarOffset = -1.767203;
constexpr double kNearExponent = 10.0;
constexpr double kUnknownDistance = -1.0;

}  // namespace

double TGFBeacon::secondsToAverage(platform::Platform& platform) {
  return AveragingPeriod::shared(platform).seconds.load();
}

void TGFBeacon::secondsToAverage(platform::Platform& platform, double seconds) {
  AveragingPeriod::shared(platform).seconds.store(seconds);
}

void TGFBeacon::applyRssiMeasurements(const TGFBeacon* previous, platform::MonotonicTime now,
                                      platform::Duration secondsToAverage) {
  if (previous) {
    for (const auto& sample : previous->signalMeasurements()) signalMeasurements_.append(sample);
  } else {
    lastCalculated_ = platform::MonotonicTime();
    runningAverageRssi_ = 0.0;
  }
  addCurrentRssiMeasurement(now);
  recalculate(now, secondsToAverage);
}

void TGFBeacon::addCurrentRssiMeasurement(platform::MonotonicTime now) {
  lastDetected_ = now;
  if (rssi() < 0) signalMeasurements_.append({.rssi = static_cast<double>(rssi()), .timestamp = now});
}

void TGFBeacon::recalculate(platform::MonotonicTime now, platform::Duration window) {
  signalMeasurements_.retain([&](const TWLSignalMeasurement& sample) { return now - sample.timestamp <= window; });
  double sum = 0.0;
  for (const auto& sample : signalMeasurements_.all()) sum += sample.rssi;
  runningAverageRssi_ = signalMeasurements_.empty() ? 0.0 : sum / static_cast<double>(signalMeasurements_.size());
}

double TGFBeacon::distance() const {
  const auto& power = BeaconPlace::of(*this).measuredPower;
  return power ? distanceForRSSIForPower(runningAverageRssi_, *power) : kUnknownDistance;
}

double TGFBeacon::distanceForRSSIForPower(double rssi, std::int64_t power) {
  if (rssi == 0.0) return kUnknownDistance;
  const double ratio = rssi * 1.0 / static_cast<double>(power);
  if (ratio < 1.0) return std::pow(ratio, kNearExponent);
  return kFarFactor * std::pow(ratio, kFarExponent) + kFarOffset;
}

}  // namespace wayloom
