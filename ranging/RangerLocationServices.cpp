#include "wayloom/ranging/RangerLocationServices.hpp"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"

#include "ranging/BeaconRanger.hpp"
#include "ranging/GeofenceMonitor.hpp"

namespace wayloom::ranging {
namespace {

using platform::CLAuthorizationStatus;
using platform::CLBeacon;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using platform::CLCircularRegion;
using platform::CLLocation;
using platform::CLLocationManager;
using platform::CLLocationManagerDelegate;
using platform::CLRegionPtr;
using platform::CLRegionState;
using platform::Duration;
using platform::Error;
using platform::MonotonicClock;
using platform::MonotonicTime;
using platform::TaskScheduler;
using platform::TaskScope;
using platform::Timer;

// Fixes are told at least this often, however near they are to one another.
constexpr Duration kLongestFixSilence = std::chrono::minutes(1);

// A location manager as the services see it. The delegate belongs to the main thread, the rest to the services' mutex.
struct Client {
  CLLocationManager* manager = nullptr;
  std::weak_ptr<TaskScope::State> scope;
  CLLocationManagerDelegate* delegate = nullptr;
  FixRequest fixRequest;
  bool updatesLocation = false;
  std::optional<CLLocation> toldFix{};  // main thread, as is the next
  MonotonicTime toldFixAt{};
};

using Clients = std::vector<std::shared_ptr<Client>>;

template <class Region>
void removeByIdentifier(std::vector<Region>& regions, const std::string& identifier) {
  std::erase_if(regions, [&](const Region& region) { return region->identifier() == identifier; });
}

CLBeaconRegionPtr beaconRegion(const CLRegionPtr& region) {
  return std::dynamic_pointer_cast<const CLBeaconRegion>(region);
}

CLCircularRegionPtr circularRegion(const CLRegionPtr& region) {
  return std::dynamic_pointer_cast<const CLCircularRegion>(region);
}

bool isPlausible(const CLLocation& fix) {
  return std::abs(fix.coordinate.latitude) <= 90.0 && std::abs(fix.coordinate.longitude) <= 180.0 &&
         std::isfinite(fix.horizontalAccuracy) && fix.horizontalAccuracy > 0.0;
}

}  // namespace

struct RangerLocationServices::State : BeaconRangerDelegate, std::enable_shared_from_this<State> {
  State(TaskScheduler& tasksToUse, const MonotonicClock& clockToUse) : tasks(tasksToUse), clock(clockToUse) {}

  // Any thread.

  // Runs `change` on the lists at once and `follow` on the main queue, both in one order for all callers.
  template <class Change, class Follow>
  void change(Change change, Follow follow) {
    const std::lock_guard lock(mutex);
    if (!open) return;
    change();
    tasks.mainQueue().async([weak = weak_from_this(), follow = std::move(follow)] {
      if (const auto state = weak.lock()) follow(*state);
    });
  }

  void addClient(std::shared_ptr<Client> client) {
    const std::lock_guard lock(mutex);
    auto changed = std::make_shared<Clients>(*clients);
    changed->push_back(std::move(client));
    clients = std::move(changed);
  }

  void removeClient(const std::shared_ptr<Client>& client) {
    const auto forget = [&] {
      auto changed = std::make_shared<Clients>(*clients);
      std::erase(*changed, client);
      clients = std::move(changed);
    };
    change(forget, [](State& state) { state.updateFixRequest(); });
  }

  bool allowed() const {
    const std::lock_guard lock(mutex);
    return authorization != CLAuthorizationStatus::denied && authorization != CLAuthorizationStatus::restricted;
  }

  // Main thread.

  template <class Call>
  void tellDelegates(Call call) {
    tellClients([&](Client& client) {
      if (client.delegate != nullptr) call(*client.delegate, client.manager);
    });
  }

  // The list is held, not copied: managers come and go inside the calls.
  template <class Call>
  void tellClients(Call call) {
    std::unique_lock lock(mutex);
    const auto held = clients;
    lock.unlock();
    for (const auto& client : *held) {
      const TaskScope::Guard guard(client->scope);
      if (guard) call(*client);
    }
  }

  void ranged(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) override {
    tellDelegates([&](auto& delegate, auto* manager) {
      delegate.locationManagerDidRangeBeaconsInRegion(manager, beacons, region);
    });
    observeDelivery();
  }
  void entered(const CLBeaconRegionPtr& region) override { tellEntry(region); }
  void exited(const CLBeaconRegionPtr& region) override { tellExit(region); }
  void determinedState(CLRegionState state, const CLBeaconRegionPtr& region) override { tellState(state, region); }

  void tellEntry(const CLRegionPtr& region) {
    tellDelegates([&](auto& delegate, auto* manager) { delegate.locationManagerDidEnterRegion(manager, region); });
  }
  void tellExit(const CLRegionPtr& region) {
    tellDelegates([&](auto& delegate, auto* manager) { delegate.locationManagerDidExitRegion(manager, region); });
  }
  void tellState(CLRegionState determined, const CLRegionPtr& region) {
    tellDelegates([&](auto& delegate, auto* manager) {
      delegate.locationManagerDidDetermineStateForRegion(manager, determined, region);
    });
  }

  void observeDelivery() {
    if (const auto observer = deliveryObserver) (*observer)();
  }

  void receive(const IBeaconFrame& frame, MonotonicTime receivedAt) {
    if (!allowed()) return;
    ranger.receive(frame, receivedAt);
    if (!timer) keepTicking();
  }

  // The timer runs while there is something to range or to monitor, and something has been heard.
  void keepTicking() {
    const auto next = ranger.nextTick();
    if (!next || closed()) return timer.reset();
    if (timer) return;
    const auto untilTick = std::max(*next - clock.now(), Duration::zero());
    timer = tasks.startTimer(tasks.mainQueue(), untilTick, BeaconRanger::kTickInterval, [weak = weak_from_this()] {
      if (const auto state = weak.lock()) state->tick();
    });
  }

  void tick() {
    ranger.tick(clock.now());
    keepTicking();
    if (!delivering) deliverNext();
  }

  // One region now, the next in a task of its own.
  void deliverNext() {
    delivering = !closed() && allowed() && ranger.deliverNextRanging();
    if (!delivering || closed()) return;
    tasks.mainQueue().async([weak = weak_from_this()] {
      if (const auto state = weak.lock()) state->deliverNext();
    });
  }

  void receiveFix(const CLLocation& fix) {
    if (!isPlausible(fix) || !allowed()) return;
    {
      const std::lock_guard lock(mutex);
      lastFix = fix;
    }
    const auto now = clock.now();
    for (const auto& news : geofences.receive(fix, now)) tell(news);
    bool isTold = false;
    tellClients([&](Client& client) {
      if (!client.delegate || !isDue(client, fix, now)) return;
      client.toldFix = fix;
      client.toldFixAt = now;
      isTold = true;
      client.delegate->locationManagerDidUpdateLocations(client.manager, {&fix, 1});
    });
    if (isTold) observeDelivery();
  }

  bool isDue(const Client& client, const CLLocation& fix, MonotonicTime now) const {
    const std::lock_guard lock(mutex);
    if (!client.updatesLocation) return false;
    return !client.toldFix || now - client.toldFixAt >= kLongestFixSilence ||
           metresBetween(client.toldFix->coordinate, fix.coordinate) >= client.fixRequest.distanceFilter;
  }

  void tell(const GeofenceNews& news) {
    switch (news.kind) {
      case GeofenceNews::Kind::entered:
        return tellEntry(news.region);
      case GeofenceNews::Kind::exited:
        return tellExit(news.region);
      case GeofenceNews::Kind::state:
        return tellState(news.state, news.region);
    }
  }

  void updateScanning() { ranger.setScanning(scanning && allowed(), clock.now()); }

  std::optional<FixRequest> mergedFixRequest() const {
    const std::lock_guard lock(mutex);
    std::optional<FixRequest> merged;
    if (std::any_of(monitoredRegions.begin(), monitoredRegions.end(),
                    [](const auto& region) { return circularRegion(region); }))
      merged = FixRequest{};
    for (const auto& client : *clients) {
      if (!client->updatesLocation) continue;
      if (!merged) merged = client->fixRequest;
      merged->desiredAccuracy = std::min(merged->desiredAccuracy, client->fixRequest.desiredAccuracy);
      merged->distanceFilter = std::min(merged->distanceFilter, client->fixRequest.distanceFilter);
    }
    return merged;
  }

  void updateFixRequest() {
    const auto merged = mergedFixRequest();
    if (merged == fixRequest) return;
    fixRequest = merged;
    if (const auto observer = fixRequestObserver) (*observer)(merged);
  }

  void updateBeaconRequest() {
    std::unique_lock lock(mutex);
    const bool wanted = !rangedRegions.empty() || std::any_of(monitoredRegions.begin(), monitoredRegions.end(),
                                                              [](const auto& region) { return beaconRegion(region); });
    lock.unlock();
    if (std::exchange(beaconsWanted, wanted) == wanted) return;
    if (const auto observer = beaconRequestObserver) (*observer)(wanted);
  }

  bool closed() const {
    const std::lock_guard lock(mutex);
    return !open;
  }

  void close() {
    {
      const std::lock_guard lock(mutex);
      open = false;
    }
    timer.reset();
    deliveryObserver.reset();
    fixRequestObserver.reset();
    beaconRequestObserver.reset();
  }

  TaskScheduler& tasks;
  const MonotonicClock& clock;

  mutable std::mutex mutex;  // for what follows
  bool open = true;
  std::vector<CLRegionPtr> monitoredRegions;
  std::vector<CLBeaconRegionPtr> rangedRegions;
  std::shared_ptr<const Clients> clients = std::make_shared<Clients>();
  CLAuthorizationStatus authorization = CLAuthorizationStatus::authorizedAlways;
  bool monitoringAvailable = true;
  std::optional<CLLocation> lastFix;

  // Main thread.
  BeaconRanger ranger{*this};
  GeofenceMonitor geofences;
  std::unique_ptr<Timer> timer;
  bool scanning = true;
  bool delivering = false;
  bool beaconsWanted = false;
  std::optional<FixRequest> fixRequest;
  std::shared_ptr<const std::function<void()>> deliveryObserver;
  std::shared_ptr<const std::function<void(const std::optional<FixRequest>&)>> fixRequestObserver;
  std::shared_ptr<const std::function<void(bool)>> beaconRequestObserver;
};

class RangerLocationServices::Manager : public CLLocationManager {
 public:
  explicit Manager(std::shared_ptr<State> state) : state_(std::move(state)), client_(std::make_shared<Client>()) {
    client_->manager = this;
    client_->scope = scope_.weak();
    state_->addClient(client_);
  }

  ~Manager() override { state_->removeClient(client_); }

  void setDelegate(CLLocationManagerDelegate* delegate) override { client_->delegate = delegate; }

  // There is nobody to ask on these systems: the status is what setAuthorizationStatus() says.
  void requestAlwaysAuthorization() override {}

  void startMonitoringForRegion(CLRegionPtr region) override {
    if (!region) return;
    const auto replace = [&] {
      removeByIdentifier(state_->monitoredRegions, region->identifier());
      state_->monitoredRegions.push_back(region);
    };
    state_->change(replace, [region](State& state) {
      if (const auto beacons = beaconRegion(region)) state.ranger.startMonitoring(beacons, state.clock.now());
      if (const auto circle = circularRegion(region)) state.geofences.start(circle);
      state.keepTicking();
      state.updateBeaconRequest();
      state.updateFixRequest();
      state.tellDelegates(
          [&](auto& delegate, auto* manager) { delegate.locationManagerDidStartMonitoringForRegion(manager, region); });
    });
  }

  void stopMonitoringForRegion(const CLRegionPtr& region) override {
    if (!region) return;
    state_->change([&] { removeByIdentifier(state_->monitoredRegions, region->identifier()); },
                   [region](State& state) {
                     if (const auto beacons = beaconRegion(region)) state.ranger.stopMonitoring(beacons);
                     state.geofences.stop(region->identifier());
                     state.updateBeaconRequest();
                     state.updateFixRequest();
                   });
  }

  // Of a circle nothing is told until a received fix has decided where the device is.
  void requestStateForRegion(const CLRegionPtr& region) override {
    if (!region) return;
    state_->change([] {},
                   [region](State& state) {
                     if (const auto beacons = beaconRegion(region))
                       return state.ranger.requestState(beacons, state.clock.now());
                     if (const auto news = state.geofences.requestState(region->identifier())) state.tell(*news);
                   });
  }

  std::vector<CLRegionPtr> monitoredRegions() const override {
    const std::lock_guard lock(state_->mutex);
    return state_->monitoredRegions;
  }

  void startRangingBeaconsInRegion(CLBeaconRegionPtr region) override {
    if (!region) return;
    const auto replace = [&] {
      removeByIdentifier(state_->rangedRegions, region->identifier());
      state_->rangedRegions.push_back(region);
    };
    state_->change(replace, [region](State& state) {
      state.ranger.startRanging(region, state.clock.now());
      state.keepTicking();
      state.updateBeaconRequest();
    });
  }

  void stopRangingBeaconsInRegion(const CLBeaconRegionPtr& region) override {
    if (!region) return;
    state_->change([&] { removeByIdentifier(state_->rangedRegions, region->identifier()); },
                   [region](State& state) {
                     state.ranger.stopRanging(region);
                     state.updateBeaconRequest();
                   });
  }

  std::vector<CLBeaconRegionPtr> rangedRegions() const override {
    const std::lock_guard lock(state_->mutex);
    return state_->rangedRegions;
  }

  void setDesiredAccuracy(double metres) override {
    changeFixRequest([this, metres] { client_->fixRequest.desiredAccuracy = metres; });
  }
  void setDistanceFilter(double metres) override {
    changeFixRequest([this, metres] { client_->fixRequest.distanceFilter = metres; });
  }
  void startUpdatingLocation() override {
    changeFixRequest([this] { client_->updatesLocation = true; });
  }
  void stopUpdatingLocation() override {
    changeFixRequest([this] { client_->updatesLocation = false; });
  }

  std::optional<CLLocation> location() const override {
    const std::lock_guard lock(state_->mutex);
    return state_->lastFix;
  }

 private:
  template <class Change>
  void changeFixRequest(Change change) {
    state_->change(change, [](State& state) { state.updateFixRequest(); });
  }

  std::shared_ptr<State> state_;
  std::shared_ptr<Client> client_;
  TaskScope scope_;
};

RangerLocationServices::RangerLocationServices(TaskScheduler& tasks, const MonotonicClock& clock)
    : state_(std::make_shared<State>(tasks, clock)) {}

RangerLocationServices::~RangerLocationServices() { state_->close(); }

std::unique_ptr<CLLocationManager> RangerLocationServices::makeLocationManager() {
  return std::make_unique<Manager>(state_);
}

CLAuthorizationStatus RangerLocationServices::authorizationStatus() const {
  const std::lock_guard lock(state_->mutex);
  return state_->authorization;
}

std::optional<bool> RangerLocationServices::isMonitoringAvailable() const {
  const std::lock_guard lock(state_->mutex);
  return state_->monitoringAvailable;
}

bool RangerLocationServices::regionMonitoringAvailable() const { return isMonitoringAvailable().value_or(true); }

// Each of these holds the state while it runs, because a delegate may destroy the services.

void RangerLocationServices::receive(const IBeaconFrame& frame) { receive(frame, state_->clock.now()); }

void RangerLocationServices::receive(const IBeaconFrame& frame, MonotonicTime receivedAt) {
  const auto state = state_;
  state->receive(frame, receivedAt);
}

void RangerLocationServices::receiveFix(const CLLocation& fix) {
  const auto state = state_;
  state->receiveFix(fix);
}

void RangerLocationServices::setScanning(bool scanning) {
  state_->scanning = scanning;
  state_->updateScanning();
}

void RangerLocationServices::setExitSilence(Duration silence) { state_->ranger.setExitSilence(silence); }

void RangerLocationServices::deliverRanging(std::span<const CLBeacon> beacons, const CLBeaconRegionPtr& region) {
  const auto state = state_;
  state->ranged(beacons, region);
}

void RangerLocationServices::deliverFix(const CLLocation& fix) {
  const auto state = state_;
  {
    const std::lock_guard lock(state->mutex);
    state->lastFix = fix;
  }
  state->tellDelegates([&](auto& delegate, auto* manager) {
    delegate.locationManagerDidUpdateLocations(manager, {&fix, 1});
  });
  state->observeDelivery();
}

void RangerLocationServices::deliverEnter(const CLRegionPtr& region) {
  const auto state = state_;
  state->tellEntry(region);
}

void RangerLocationServices::deliverExit(const CLRegionPtr& region) {
  const auto state = state_;
  state->tellExit(region);
}

void RangerLocationServices::deliverState(CLRegionState determined, const CLRegionPtr& region) {
  const auto state = state_;
  state->tellState(determined, region);
}

void RangerLocationServices::deliverFailure(const Error& error) {
  const auto state = state_;
  state->tellDelegates(
      [&](auto& delegate, auto* manager) { delegate.locationManagerDidFailWithError(manager, error); });
}

void RangerLocationServices::setAuthorizationStatus(CLAuthorizationStatus status) {
  const auto state = state_;
  {
    const std::lock_guard lock(state->mutex);
    if (std::exchange(state->authorization, status) == status) return;
  }
  state->updateScanning();
  state->tellDelegates(
      [&](auto& delegate, auto* manager) { delegate.locationManagerDidChangeAuthorizationStatus(manager, status); });
}

void RangerLocationServices::setMonitoringAvailable(bool available) {
  const std::lock_guard lock(state_->mutex);
  state_->monitoringAvailable = available;
}

void RangerLocationServices::setDeliveryObserver(std::function<void()> observer) {
  state_->deliveryObserver = observer ? std::make_shared<const std::function<void()>>(std::move(observer)) : nullptr;
}

void RangerLocationServices::setFixRequestObserver(std::function<void(const std::optional<FixRequest>&)> observer) {
  using Observer = const std::function<void(const std::optional<FixRequest>&)>;
  state_->fixRequestObserver = observer ? std::make_shared<Observer>(std::move(observer)) : nullptr;
}

void RangerLocationServices::setBeaconRequestObserver(std::function<void(bool)> observer) {
  state_->beaconRequestObserver =
      observer ? std::make_shared<const std::function<void(bool)>>(std::move(observer)) : nullptr;
}

}  // namespace wayloom::ranging
