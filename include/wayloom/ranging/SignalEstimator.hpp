// How far away is a beacon, given the strengths of its frames?
//
// A scalar Kalman filter follows the beacon's level in dBm, frame by frame, with two changes that radio asks for:
// fades are trusted less than peaks, and a reading far off is given less weight. Between frames the filter grows
// unsure, so that the next frame counts for more, and the reported level sinks, so that silence counts against a
// beacon. docs/ranging.md has the measurements behind the constants; all of them may be doubled or halved without harm.
//
//   SignalEstimator signal;
//   signal.add(-67, clock.now());
//   double metres = SignalEstimator::distance(signal.level(clock.now()), frame.power);
#pragma once

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::ranging {

// One beacon's signal: 32 bytes, constant time a frame, no allocation. Not thread-safe. Times are those of receipt on
// the monotonic clock; one that lies before an earlier one counts as the earlier one.
class SignalEstimator {
 public:
  // Standard deviation, in dB, by which a reading exceeds the level at a fixed place: what is left of fading upwards
  // (the 90th percentile of Rayleigh fading is 3.6 dB above the mean power, the 99th 6.6 dB) together with the gain
  // differences of the three advertising channels.
  static constexpr double kPeakDeviation = 5.0;

  // Fades reach further than peaks: around the mean power the percentiles of Rayleigh fading are 10th -9.8 dB against
  // 90th +3.6 dB, and 1st -20.0 dB against 99th +6.6 dB (power distributed exponentially; Rappaport, Wireless
  // Communications, 2nd edition, section 5.6). That is 2.7 to 3 times as far, so a reading below the level has about 8
  // times the variance of one above. The level then follows the local mean power, which is also what a beacon's power
  // at one metre states, instead of the mean of the decibels some 2.5 dB below it.
  static constexpr double kFadeVarianceRatio = 8.0;

  // How fast the true level wanders, in dB^2 a second. Somebody who walks past at 1.2 m/s and 4 m changes the level by
  // 8.7 dB x 1.2 / 4 = 2.6 dB in a second; standing still changes it by next to nothing. 5 is 2.2 dB in a second.
  static constexpr double kDriftVariance = 5.0;

  // Beyond this many standard deviations a reading's weight falls in proportion (Huber, Annals of Mathematical
  // Statistics 35, 1964: 1.345 keeps 95 % of the efficiency on clean normal data).
  static constexpr double kOutlierDeviations = 1.5;

  // A fade this deep has a probability of 6 % in Rayleigh fading; kDeepFades of them in a row, 1 in 70 000. Then it was
  // no fade: somebody shut a door or turned a corner, and the filter starts afresh from the last reading.
  static constexpr double kDeepFade = 12.0;  // dB below the level
  static constexpr int kDeepFades = 4;

  // A beacon loses this many dB for each second of silence. After kMemory that is kPeakDeviation: by the time it is
  // given up it has lost one standard deviation against a neighbour that is still heard.
  static constexpr double kSilenceLoss = 0.5;

  // Silence after which nothing that was heard before says anything about now: a walker is 12 m on.
  static constexpr platform::Duration kMemory = std::chrono::seconds(10);

  // Takes in one reading in dBm, -127 to -1.
  void add(int rssi, platform::MonotonicTime when);

  // The level in dBm that the beacon is to be judged by now. Only after add().
  double level(platform::MonotonicTime now) const;

  // Distance in metres at which free space would give `level`, for a beacon of `power` dBm at one metre:
  // 10^((power - level) / 20) (Friis, Proceedings of the IRE 34, 1946), kept between kNearest and kFarthest. Indoors
  // exponents from 1.6 (corridors) to 3 (offices) occur and a known map would be needed to tell; with 2, the median
  // of estimated to true distance lay between 0.7 and 2 in four buildings.
  static double distance(double level, int power);
  static constexpr double kNearest = 0.05;
  static constexpr double kFarthest = 500.0;

  // What a frame claims as its power, or kTypicalPower where the claim is beyond -100 to -20 dBm, which no beacon has
  // at one metre: a beacon set up wrongly must neither win everywhere nor vanish.
  static int plausiblePower(int claimed);
  static constexpr int kTypicalPower = -59;

  // Up to 0.5 m immediate, up to 3 m near, then far; unknown for a negative distance.
  static platform::CLProximity proximity(double metres);

 private:
  void startAfresh(int rssi, platform::MonotonicTime when);

  double level_ = 0.0;     // dBm
  double variance_ = 0.0;  // dB^2; 0 before the first reading
  platform::MonotonicTime heard_;
  int deepFades_ = 0;  // in a row
};

}  // namespace wayloom::ranging
