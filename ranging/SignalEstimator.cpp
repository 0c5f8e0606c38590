#include "wayloom/ranging/SignalEstimator.hpp"

#include <algorithm>
#include <cmath>

namespace wayloom::ranging {
namespace {

using platform::CLProximity;
using platform::MonotonicTime;
using platform::secondsOf;

constexpr double kPeakVariance = SignalEstimator::kPeakDeviation * SignalEstimator::kPeakDeviation;

// The variance that a reading `innovation` dB off the level is given.
double readingVariance(double innovation, double levelVariance) {
  const double limit = SignalEstimator::kOutlierDeviations * std::sqrt(levelVariance + kPeakVariance);
  const double size = std::abs(innovation);
  const double variance = size > limit ? kPeakVariance * size / limit : kPeakVariance;
  return innovation < 0.0 ? variance * SignalEstimator::kFadeVarianceRatio : variance;
}

}  // namespace

void SignalEstimator::add(int rssi, MonotonicTime when) {
  if (variance_ == 0.0 || when - heard_ > kMemory) return startAfresh(rssi, when);
  if (when > heard_) {
    variance_ += kDriftVariance * secondsOf(when - heard_);
    heard_ = when;
  }
  const double innovation = rssi - level_;
  deepFades_ = innovation < -kDeepFade ? deepFades_ + 1 : 0;
  if (deepFades_ == kDeepFades) return startAfresh(rssi, heard_);
  const double gain = variance_ / (variance_ + readingVariance(innovation, variance_));
  level_ += gain * innovation;
  variance_ *= 1.0 - gain;
}

void SignalEstimator::startAfresh(int rssi, MonotonicTime when) {
  level_ = rssi;
  variance_ = kPeakVariance;
  heard_ = when;
  deepFades_ = 0;
}

double SignalEstimator::level(MonotonicTime now) const {
  return level_ - kSilenceLoss * std::max(0.0, secondsOf(now - heard_));
}

double SignalEstimator::distance(double level, int power) {
  return std::clamp(std::pow(10.0, (plausiblePower(power) - level) / 20.0), kNearest, kFarthest);
}

int SignalEstimator::plausiblePower(int claimed) { return claimed < -100 || claimed > -20 ? kTypicalPower : claimed; }

CLProximity SignalEstimator::proximity(double metres) {
  if (!(metres >= 0.0)) return CLProximity::unknown;
  if (metres <= 0.5) return CLProximity::immediate;
  return metres <= 3.0 ? CLProximity::near : CLProximity::far;
}

}  // namespace wayloom::ranging
