#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "wayloom/platform/LocationServices.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/FixRequest.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"

namespace wayloom::ranging {

class LocationHub;

// Location services on top of the beacon ranger: what every backend whose radio delivers raw frames shares. It keeps
// the application's monitored and ranged regions, drives the ranger once a second on the main queue from the first
// frame on while any region is ranged or monitored, and calls every location manager's delegate.
//
// Location managers may be used from any thread (the sets change at once, the ranger follows on the main queue in the
// same order). Everything below the constructor is for the main thread, and calls the delegates before it returns,
// except that a tick delivers one region's ranging a main-queue task, so that what one ranging sets off on other queues
// can run before the next.
class RangerLocationServices : public platform::LocationServices {
 public:
  RangerLocationServices(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock);
  ~RangerLocationServices() override;

  std::unique_ptr<platform::CLLocationManager> makeLocationManager() override;
  platform::CLAuthorizationStatus authorizationStatus() const override;
  std::optional<bool> isMonitoringAvailable() const override;
  bool regionMonitoringAvailable() const override;

  // One received frame, now or at an earlier moment of the clock. Denied or restricted authorisation drops it.
  void receive(const IBeaconFrame& frame);
  void receive(const IBeaconFrame& frame, platform::MonotonicTime receivedAt);
  // One fix of a receiver, as it comes. It may enter and leave monitored circles; each manager that updates locations
  // is told it when it lies beyond the manager's distance filter, when the manager has been told none for a minute (so
  // that who stands still does not grow old), or when it is fresher by 2 s than the one told last was then (so that a
  // remembered first fix does not hide those that follow). One that can't be (coordinates out of range, an accuracy
  // that is no positive number) is dropped.
  void receiveFix(const platform::CLLocation& fix);
  // Whether the scanner works, as far as is known (initially true). Say false only of what keeps advertisements away
  // for certain: it is off, gone, refused, or resting. A scan that is restarted because little or nothing was heard
  // works; otherwise regions would never be left where restarts are frequent. While it does not work, silence ends no
  // region.
  void setScanning(bool scanning);
  // How long nothing must be heard of a region before it counts as left, whatever else is heard; default 30 s. Deaf
  // time of the scanner, and of a process that was suspended, does not count and takes back as much of the silence
  // before it.
  void setExitSilence(platform::Duration silence);

  // What a platform, or a recording of one, reports by itself; handed to the delegates as it is.
  void deliverRanging(std::span<const platform::CLBeacon> beacons, const platform::CLBeaconRegionPtr& region);
  void deliverFix(const platform::CLLocation& fix);
  void deliverEnter(const platform::CLRegionPtr& region);
  void deliverExit(const platform::CLRegionPtr& region);
  void deliverState(platform::CLRegionState state, const platform::CLRegionPtr& region);
  void deliverFailure(const platform::Error& error);
  void setAuthorizationStatus(platform::CLAuthorizationStatus status);  // tells the delegates when it changes
  void setMonitoringAvailable(bool available);

  // Called after each ranging and each fix, when all delegates have had it.
  void setDeliveryObserver(std::function<void()> observer);
  // Called on the main queue when what the managers want changes: nothing once no manager updates locations. A
  // manager's requests never hold back a fix that is delivered all the same.
  void setFixRequestObserver(std::function<void(const std::optional<FixRequest>&)> observer);
  // Called on the main queue with whether any beacon region is ranged or monitored, when that changes (initially it is
  // not): a radio may rest meanwhile.
  void setBeaconRequestObserver(std::function<void(bool)> observer);

 private:
  std::shared_ptr<LocationHub> hub_;
};

}  // namespace wayloom::ranging
