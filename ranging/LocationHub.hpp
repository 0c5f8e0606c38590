// What RangerLocationServices and the location managers that it makes share.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "wayloom/platform/CLLocationManagerDelegate.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/ranging/FixRequest.hpp"

#include "ranging/ApplicationRegions.hpp"
#include "ranging/GeofenceMonitor.hpp"
#include "ranging/LocationClients.hpp"
#include "ranging/RangingDriver.hpp"

namespace wayloom::ranging {

// Joins the parts: regions and fix requests change at once and on any thread; the ranger, the geofences and the
// observers follow on the main queue in the same order; what they find out goes to the clients.
//
// A delegate or an observer may destroy the services, so whoever calls one holds the hub meanwhile.
class LocationHub : private BeaconRangerDelegate {
 public:
  using FixRequestObserver = std::function<void(const std::optional<FixRequest>&)>;
  using BeaconRequestObserver = std::function<void(bool)>;

  static std::shared_ptr<LocationHub> make(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock);

  // Any thread.
  void startMonitoring(const platform::CLRegionPtr& region);
  void stopMonitoring(const platform::CLRegionPtr& region);
  void requestState(const platform::CLRegionPtr& region);
  void startRanging(const platform::CLBeaconRegionPtr& region);
  void stopRanging(const platform::CLBeaconRegionPtr& region);
  // Between the two, changes wait, to be taken in together.
  void beginStep();
  void endStep();
  std::vector<platform::CLRegionPtr> monitoredRegions() const;
  std::vector<platform::CLBeaconRegionPtr> rangedRegions() const;
  std::optional<platform::CLLocation> lastFix() const;
  void addClient(LocationClientPtr client) { clients_.add(std::move(client)); }
  void removeClient(const LocationClientPtr& client);
  template <class Change>
  void changeFixRequest(LocationClient& client, Change change) {
    clients_.changeFixRequest(client, change);
    followFixRequest();
  }
  platform::CLAuthorizationStatus authorization() const;
  bool isMonitoringAvailable() const;
  void setMonitoringAvailable(bool available);

  // Main thread.
  void receive(const IBeaconFrame& frame, std::optional<platform::MonotonicTime> receivedAt);
  void receiveFix(const platform::CLLocation& fix);
  void setScanning(bool scanning) { driver_.setScanning(scanning); }
  void setExitSilence(platform::Duration silence) { driver_.setExitSilence(silence); }
  void setAuthorization(platform::CLAuthorizationStatus status);
  void tellRanging(std::span<const platform::CLBeacon> beacons, const platform::CLBeaconRegionPtr& region);
  void tellFix(const platform::CLLocation& fix);  // to every client
  void tellEntry(const platform::CLRegionPtr& region);
  void tellExit(const platform::CLRegionPtr& region);
  void tellState(platform::CLRegionState state, const platform::CLRegionPtr& region);
  void tellFailure(const platform::Error& error);
  void setDeliveryObserver(std::function<void()> observer) { deliveryObserver_ = shared(std::move(observer)); }
  void setFixRequestObserver(FixRequestObserver observer) { fixRequestObserver_ = shared(std::move(observer)); }
  void setBeaconRequestObserver(BeaconRequestObserver observer) {
    beaconRequestObserver_ = shared(std::move(observer));
  }
  // The services go: nothing is told any more, and nothing changes.
  void close();

 private:
  LocationHub(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock)
      : tasks_(tasks), clock_(clock), driver_(tasks, clock, *this) {}

  // An observer may replace itself, so a call holds it.
  template <class Observer>
  static std::shared_ptr<const Observer> shared(Observer observer) {
    return observer ? std::make_shared<const Observer>(std::move(observer)) : nullptr;
  }

  // Runs `change` on the regions at once and `then` on the main queue, both in one order for all callers.
  template <class Change, class Then>
  void changeRegions(Change change, Then then);
  template <class Then>
  void follow(Then then);
  void takeInLater(std::size_t count);
  void takeIn(std::size_t count);
  void followFixRequest();

  void ranged(std::span<const platform::CLBeacon> beacons, const platform::CLBeaconRegionPtr& region) override {
    tellRanging(beacons, region);
  }
  void entered(const platform::CLBeaconRegionPtr& region) override { tellEntry(region); }
  void exited(const platform::CLBeaconRegionPtr& region) override { tellExit(region); }
  void determinedState(platform::CLRegionState state, const platform::CLBeaconRegionPtr& region) override {
    tellState(state, region);
  }
  void tell(const GeofenceNews& news);
  void observeDelivery() const;
  void updateFixRequest();
  void updateBeaconRequest();

  platform::TaskScheduler& tasks_;
  const platform::MonotonicClock& clock_;
  std::weak_ptr<LocationHub> self_;
  LocationClients clients_;

  mutable std::mutex mutex_;  // for what follows
  bool isOpen_ = true;
  ApplicationRegions regions_;
  platform::CLAuthorizationStatus authorization_ = platform::CLAuthorizationStatus::authorizedAlways;
  bool isMonitoringAvailable_ = true;
  std::optional<platform::CLLocation> lastFix_;
  std::deque<std::function<void(LocationHub&)>> changes_;  // to be taken in on the main queue, in this order
  std::size_t openSteps_ = 0;
  std::size_t heldBack_ = 0;  // changes that wait for the end of the open steps

  // Main thread.
  RangingDriver driver_;
  GeofenceMonitor geofences_;
  bool isAllowed_ = true;  // by authorization_
  bool areBeaconsWanted_ = false;
  std::optional<FixRequest> fixRequest_;
  std::shared_ptr<const std::function<void()>> deliveryObserver_;
  std::shared_ptr<const FixRequestObserver> fixRequestObserver_;
  std::shared_ptr<const BeaconRequestObserver> beaconRequestObserver_;
};

}  // namespace wayloom::ranging
