#include "wayloom/ranging/RangerLocationServices.hpp"

#include <utility>

#include "ranging/LocationHub.hpp"

namespace wayloom::ranging {
namespace {

class Manager : public platform::CLLocationManager {
 public:
  explicit Manager(std::shared_ptr<LocationHub> hub) : hub_(std::move(hub)) {
    client_->manager = this;
    hub_->addClient(client_);
  }
  ~Manager() override {
    client_->delegate.set(nullptr);
    hub_->removeClient(client_);
  }

  void setDelegate(platform::CLLocationManagerDelegate* delegate) override { client_->delegate.set(delegate); }

  // There is nobody to ask on these systems: the status is what setAuthorizationStatus() says.
  void requestAlwaysAuthorization() override {}

  void startMonitoringForRegion(platform::CLRegionPtr region) override {
    if (region) hub_->startMonitoring(region);
  }
  void stopMonitoringForRegion(const platform::CLRegionPtr& region) override {
    if (region) hub_->stopMonitoring(region);
  }
  void requestStateForRegion(const platform::CLRegionPtr& region) override {
    if (region) hub_->requestState(region);
  }
  std::vector<platform::CLRegionPtr> monitoredRegions() const override { return hub_->monitoredRegions(); }

  void startRangingBeaconsInRegion(platform::CLBeaconRegionPtr region) override {
    if (region) hub_->startRanging(region);
  }
  void stopRangingBeaconsInRegion(const platform::CLBeaconRegionPtr& region) override {
    if (region) hub_->stopRanging(region);
  }
  std::vector<platform::CLBeaconRegionPtr> rangedRegions() const override { return hub_->rangedRegions(); }

  void changeInOneStep(const std::function<void()>& changes) override {
    struct Step {
      explicit Step(std::shared_ptr<LocationHub> itsHub) : hub(std::move(itsHub)) { hub->beginStep(); }
      ~Step() { hub->endStep(); }
      const std::shared_ptr<LocationHub> hub;
    };
    const Step step(hub_);
    changes();
  }

  void setDesiredAccuracy(double metres) override {
    hub_->changeFixRequest(*client_, [metres](LocationClient& client) { client.fixRequest.desiredAccuracy = metres; });
  }
  void setDistanceFilter(double metres) override {
    hub_->changeFixRequest(*client_, [metres](LocationClient& client) { client.fixRequest.distanceFilter = metres; });
  }
  void startUpdatingLocation() override {
    hub_->changeFixRequest(*client_, [](LocationClient& client) { client.updatesLocation = true; });
  }
  void stopUpdatingLocation() override {
    hub_->changeFixRequest(*client_, [](LocationClient& client) { client.updatesLocation = false; });
  }
  std::optional<platform::CLLocation> location() const override { return hub_->lastFix(); }

 private:
  std::shared_ptr<LocationHub> hub_;
  LocationClientPtr client_ = std::make_shared<LocationClient>();
};

}  // namespace

RangerLocationServices::RangerLocationServices(platform::TaskScheduler& tasks, const platform::MonotonicClock& clock)
    : hub_(LocationHub::make(tasks, clock)) {}

RangerLocationServices::~RangerLocationServices() { hub_->close(); }

std::unique_ptr<platform::CLLocationManager> RangerLocationServices::makeLocationManager() {
  return std::make_unique<Manager>(hub_);
}

platform::CLAuthorizationStatus RangerLocationServices::authorizationStatus() const { return hub_->authorization(); }

std::optional<bool> RangerLocationServices::isMonitoringAvailable() const { return hub_->isMonitoringAvailable(); }

bool RangerLocationServices::regionMonitoringAvailable() const { return hub_->isMonitoringAvailable(); }

void RangerLocationServices::setScanning(bool scanning) { hub_->setScanning(scanning); }

void RangerLocationServices::setExitSilence(platform::Duration silence) { hub_->setExitSilence(silence); }

void RangerLocationServices::setMonitoringAvailable(bool available) { hub_->setMonitoringAvailable(available); }

void RangerLocationServices::setDeliveryObserver(std::function<void()> observer) {
  hub_->setDeliveryObserver(std::move(observer));
}

void RangerLocationServices::setFixRequestObserver(std::function<void(const std::optional<FixRequest>&)> observer) {
  hub_->setFixRequestObserver(std::move(observer));
}

void RangerLocationServices::setBeaconRequestObserver(std::function<void(bool)> observer) {
  hub_->setBeaconRequestObserver(std::move(observer));
}

// Each of these holds the hub while it runs, because a delegate may destroy the services.

void RangerLocationServices::receive(const IBeaconFrame& frame) { std::shared_ptr(hub_)->receive(frame, {}); }

void RangerLocationServices::receive(const IBeaconFrame& frame, platform::MonotonicTime receivedAt) {
  std::shared_ptr(hub_)->receive(frame, receivedAt);
}

void RangerLocationServices::receiveFix(const platform::CLLocation& fix) { std::shared_ptr(hub_)->receiveFix(fix); }

void RangerLocationServices::deliverRanging(std::span<const platform::CLBeacon> beacons,
                                            const platform::CLBeaconRegionPtr& region) {
  std::shared_ptr(hub_)->tellRanging(beacons, region);
}

void RangerLocationServices::deliverFix(const platform::CLLocation& fix) { std::shared_ptr(hub_)->tellFix(fix); }

void RangerLocationServices::deliverEnter(const platform::CLRegionPtr& region) {
  std::shared_ptr(hub_)->tellEntry(region);
}

void RangerLocationServices::deliverExit(const platform::CLRegionPtr& region) {
  std::shared_ptr(hub_)->tellExit(region);
}

void RangerLocationServices::deliverState(platform::CLRegionState state, const platform::CLRegionPtr& region) {
  std::shared_ptr(hub_)->tellState(state, region);
}

void RangerLocationServices::deliverFailure(const platform::Error& error) { std::shared_ptr(hub_)->tellFailure(error); }

void RangerLocationServices::setAuthorizationStatus(platform::CLAuthorizationStatus status) {
  std::shared_ptr(hub_)->setAuthorization(status);
}

}  // namespace wayloom::ranging
