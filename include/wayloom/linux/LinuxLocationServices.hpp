#pragma once

#include <functional>
#include <memory>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/linux/GeoClueFixes.hpp"
#include "wayloom/linux/RadioStatus.hpp"
#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/LogSink.hpp"
#include "wayloom/platform/LogUser.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"

namespace wayloom::linux_ {

// Location services of a Linux host: beacons heard through BlueZ, geographic fixes of GeoClue.
//
// The radio scans while some beacon region is ranged or monitored. What keeps it from scanning is told once, in the log
// and to the delegates as an error of domain "Bluetooth" whose code is the RadioCondition; scanning goes on when the
// cause has ended. While it can't scan, no region is left. A host that is refused the use of Bluetooth has the
// authorisation status denied until it is allowed.
//
// GeoClue is asked for fixes while some manager updates locations or a circle is monitored; circles are entered and
// left by them. What keeps fixes away is told in the same way, in the domain "Location" with the FixCondition as code.
// It has no bearing on the authorisation status: beacons are heard without it.
//
// Made and destroyed on the main thread. The scheduler's main loop must be running for anything to be told.
class LinuxLocationServices : public ranging::RangerLocationServices, public platform::LogUser {
 public:
  LinuxLocationServices(const std::shared_ptr<platform::TaskScheduler>& tasks, std::shared_ptr<platform::LogSink> log,
                        BluezOptions bluez = {}, GeoClueOptions geoClue = {});
  ~LinuxLocationServices() override;

  // In the place of the constructor's log.
  void setLog(std::shared_ptr<platform::LogSink> log) override;

  // The state of the same radio. May outlive these services.
  std::shared_ptr<platform::CBCentralManager> bluetooth() const;

  // Scans whether or not there are regions, for an observer of reports. Main thread.
  void scanAlways();

  RadioStatus radioStatus() const;  // any thread
  FixStatus fixStatus() const;      // any thread
  // Called on the main queue with every change of it. Main thread.
  void setRadioObserver(std::function<void(const RadioStatus&)> observer);
  // Called on the main queue with what is heard, of whatever region, before the regions have it. Main thread.
  void setReportObserver(std::function<void(std::span<const BeaconReport>)> observer);

 private:
  class Radio;
  std::shared_ptr<Radio> radio_;
};

}  // namespace wayloom::linux_
