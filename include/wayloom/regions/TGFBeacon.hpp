#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/regions/BeaconConstraint.hpp"
#include "wayloom/regions/SignalMeasurementList.hpp"
#include "wayloom/regions/TGFRegion.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// One beacon: as the kit describes it, or as it was just ranged, with what the kit says of its identity.
//
// A value. What the region manager hands out is immutable and safe to read from any thread; whoever follows a beacon's
// signal works on copies of its own. No operation reads a clock.
class TGFBeacon : public TGFRegion {
 public:
  // From a kit entry; wrong types read as absent.
  explicit TGFBeacon(const platform::Json& dictionary);
  // A ranged beacon; `match` must not be null.
  TGFBeacon(const platform::CLBeacon& beacon, BeaconMatchPtr match);

  const std::optional<platform::UUID>& uuid() const { return constraint_.uuid; }
  std::optional<std::int64_t> major() const { return constraint_.major; }
  std::optional<std::int64_t> minor() const { return constraint_.minor; }
  bool hasMajor() const { return constraint_.hasMajor; }
  bool hasMinor() const { return constraint_.hasMinor; }

  // Of a ranged beacon; otherwise 0, 0 and unknown.
  int rssi() const { return beacon_ ? beacon_->rssi : 0; }               // dBm, negative; 0: not measured
  double accuracy() const { return beacon_ ? beacon_->accuracy : 0.0; }  // metres; -1: unknown
  platform::CLProximity proximity() const { return beacon_ ? beacon_->proximity : platform::CLProximity::unknown; }
  const std::optional<platform::CLBeacon>& beacon() const { return beacon_; }

  const BeaconMatch& match() const { return static_cast<const BeaconMatch&>(details()); }

  // Equality looks only at the major and minor that this beacon has: deliberately not symmetric.
  bool isEqual(const TGFRegion& other) const override;
  bool isEqualToGFIBeacon(const TGFBeacon* other) const;
  std::size_t hash() const override { return constraint_.hash(); }

  // --- The signal extension ---

  // Takes over the history of the object that stood for this beacon before (null at first sight), then adds this
  // ranging's sample and recalculates.
  void applyRssiMeasurements(const TGFBeacon* previous, platform::MonotonicTime now,
                             platform::Duration secondsToAverage);
  // Marks the beacon as detected now, and adds a sample unless the signal was not measured.
  void addCurrentRssiMeasurement(platform::MonotonicTime now);
  // Drops the samples older than the window and averages the rest.
  void recalculate(platform::MonotonicTime now, platform::Duration window);

  // Length of the averaging window in seconds, 5 by default: one setting for all beacons of a Platform. It takes effect
  // with each beacon's next ranging. Any thread.
  static double secondsToAverage(platform::Platform& platform);
  static void secondsToAverage(platform::Platform& platform, double seconds);
  static void setSecondsToAverage(platform::Platform& platform, double seconds) { secondsToAverage(platform, seconds); }

  // Metres, from the running average and the measured power; -1 when unknown.
  double distance() const;
  // Metres at which a beacon of `power` (dBm at one metre) is received with `rssi` (dBm); -1 when `rssi` is 0.
  static double distanceForRSSIForPower(double rssi, std::int64_t power);

  std::optional<platform::MonotonicTime> lastDetected() const { return lastDetected_; }
  std::optional<platform::MonotonicTime> lastCalculated() const { return lastCalculated_; }
  std::span<const TWLSignalMeasurement> signalMeasurements() const { return signalMeasurements_.all(); }
  double runningAverageRssi() const { return runningAverageRssi_; }  // dBm; 0 when there is no sample

 private:
  BeaconConstraint constraint_;
  std::optional<platform::CLBeacon> beacon_;

  std::optional<platform::MonotonicTime> lastDetected_;
  std::optional<platform::MonotonicTime> lastCalculated_;
  double runningAverageRssi_ = 0.0;
  SignalMeasurementList signalMeasurements_;
};

using TGFBeaconPtr = std::shared_ptr<const TGFBeacon>;
// The beacons of one ranging; they may share one allocation.
using TGFBeaconList = std::vector<TGFBeaconPtr>;

}  // namespace wayloom
