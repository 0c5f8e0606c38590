#include "wayloom/sim/Replayer.hpp"

#include <utility>

#include "wayloom/analytics/TGFAnalyticsEvent.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/RefinedPositions.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/regions/TGFNotifications.hpp"
#include "wayloom/view/TWLMapView.hpp"

#include "backends/sim/TellingManager.hpp"

namespace wayloom::sim {
namespace {

using platform::CLBeaconRegion;

}  // namespace

// Everything that exists from the first event on. `listener` is null again when the end has begun.
struct Replayer::World {
  World(const ReplayOptions& options, const RecordedEvent& first, ReplayListener& listenerToTell);
  ~World();

  // The line's own double as long as its moment lasts: a text such as 0.1 stays what it was.
  double now() const {
    const auto time = sim.time().calendarNow();
    return time == lineTime ? lineT : platform::secondsSince1970(time);
  }
  template <class... Parameters, class... Arguments>
  void tell(void (ReplayListener::*operation)(double, Parameters...), Arguments&&... arguments) const {
    if (listener != nullptr) (listener->*operation)(now(), std::forward<Arguments>(arguments)...);
  }

  SimOptions worldOptions(const ReplayOptions& options, platform::CalendarTime start);
  void observe(const ReplayOptions& options);
  void showView(const ReplayOptions& options);
  void refine();
  void gather(const TGFBeaconList& beacons);
  void tellRefined();
  void loadMap();
  void pass(const RecordedEvent& event);
  void hand(const RecordedEvent& event);

  ReplayListener* listener;
  double lineT;
  platform::CalendarTime lineTime;
  bool hasClock = false;  // that is, whether `sim` has been made
  SimPlatform sim;
  std::unique_ptr<TellingManager<const World>> manager;
  std::unique_ptr<TWLMapView> view;
  std::unique_ptr<RefinedPositions> refined;
  std::unique_ptr<platform::NotificationCenter::Observation> rangings;
  std::optional<platform::MonotonicTime> gathered;  // the instant of the rangings that wait for the others of it
  double gatheredT = 0.0;
  std::string mapToShow;  // until the catalogue has it
};

Replayer::World::World(const ReplayOptions& options, const RecordedEvent& first, ReplayListener& listenerToTell)
    : listener(&listenerToTell), lineT(first.t), lineTime(first.time), sim(worldOptions(options, first.time)) {
  hasClock = true;
  listener->began(sim);
  observe(options);
  if (!options.viewMap.empty()) showView(options);
  if (options.refined) refine();
}

Replayer::World::~World() { listener = nullptr; }

SimOptions Replayer::World::worldOptions(const ReplayOptions& options, platform::CalendarTime start) {
  SimOptions world;
  world.venue = options.venue;
  world.resourceBundle = options.resourceBundle;
  world.documents = options.documents;
  world.start = start;
  world.decorate = options.decorate;
  world.log = [this](LogChannel channel, std::string_view line) {
    if (listener != nullptr) listener->logged(hasClock ? now() : lineT, channel, line);
  };
  return world;
}

void Replayer::World::observe(const ReplayOptions& options) {
  sim.server().setRequestObserver(
      [this](const platform::HttpRequest& request) { tell(&ReplayListener::requested, request); });
  sim.location().setDeliveryObserver([this] { tell(&ReplayListener::located, manager->currentMapLocation()); });
  manager = std::make_unique<TellingManager<const World>>(sim.platform(), *this);
  auto& tracker = manager->locationTracker();
  tracker.setUseCoreLocationRanging(!options.useOwnDistance);
  if (options.explainElections)
    tracker.setElectionObserver([this](const ElectionTrace& trace) { tell(&ReplayListener::elected, trace); });
  manager->updateMaps();
}

// In a simulated window of the size of a telephone's screen.
void Replayer::World::showView(const ReplayOptions& options) {
  sim.widgets().setScriptObserver([this](std::string_view script) { tell(&ReplayListener::scripted, script); });
  view = std::make_unique<TWLMapView>(sim.platform());
  view->setLocationManager(manager.get());
  mapToShow = options.viewMap;
  SimWidgetFactory::enterWindow(view->view(), 400, 700);
}

// The position for an instant waits until time goes on: several lines, and several regions of a tick, may belong to it.
void Replayer::World::refine() {
  refined = std::make_unique<RefinedPositions>(sim.platform());
  rangings = sim.platform().notificationCenter().addObserver(
      TGFManagerDidRangeBeaconsInRegionNotification, &manager->gfManager(),
      [this](const platform::Notification& notification) {
        if (const auto* beacons = notification.userInfo.get<TGFBeaconList>(TGFManagerNotificationBeaconsKey))
          gather(*beacons);
      });
}

void Replayer::World::gather(const TGFBeaconList& beacons) {
  const auto instant = sim.time().now();
  if (gathered && *gathered != instant) tellRefined();
  refined->setKit(manager->gfManager().kit());
  refined->ranged(beacons, instant);
  gathered = instant;
  gatheredT = now();
}

void Replayer::World::tellRefined() {
  if (!gathered) return;
  const auto instant = *std::exchange(gathered, std::nullopt);
  const auto* position = refined->update(instant);
  if (position != nullptr && listener != nullptr) listener->refined(gatheredT, *position);
}

void Replayer::World::loadMap() {
  if (mapToShow.empty()) return;
  const auto map = TWLMapConfigRepo::sharedRepo(sim.platform()).forMapId(mapToShow);
  if (!map) return;
  mapToShow.clear();
  view->loadMap(map);
}

void Replayer::World::pass(const RecordedEvent& event) {
  auto& time = sim.time();
  if (event.time > lineTime) tellRefined();
  lineT = event.t;
  lineTime = event.time;
  loadMap();
  time.advanceTo(time.monotonicAt(event.time));
  if (listener != nullptr) listener->delivering(event);
  hand(event);
  time.runReady();
}

void Replayer::World::hand(const RecordedEvent& event) {
  auto& location = sim.location();
  switch (event.type) {
    case RecordedType::advertisement:
      return sim.receive(event.frame);
    case RecordedType::ranging:
      return location.deliverRanging(event.beacons, std::static_pointer_cast<const CLBeaconRegion>(event.region));
    case RecordedType::location:
      return location.deliverFix(event.fix);
    case RecordedType::enter:
      return location.deliverEnter(event.region);
    case RecordedType::exit:
      return location.deliverExit(event.region);
    case RecordedType::state:
      return location.deliverState(event.state, event.region);
    case RecordedType::authorization:
      return location.setAuthorizationStatus(event.authorization);
    case RecordedType::bluetooth:
      return sim.setBluetoothState(event.bluetooth);
    case RecordedType::network:
      return sim.server().setNetworkUp(event.networkUp);
    case RecordedType::updateMaps:
      return manager->updateMaps();
    case RecordedType::event:
      return TGFAnalyticsEvent::postEventWithDetails(sim.platform(), event.eventType, event.details);
    case RecordedType::header:
    case RecordedType::truth:
    case RecordedType::unknown:
      return;
  }
}

Replayer::Replayer(ReplayOptions options, ReplayListener& listener)
    : options_(std::move(options)), listener_(listener) {}

Replayer::~Replayer() = default;

void Replayer::deliver(const RecordedEvent& event) {
  if (event.type == RecordedType::header) return;
  if (!world_) world_ = std::make_unique<World>(options_, event, listener_);
  world_->pass(event);
}

void Replayer::finish() {
  if (world_) world_->tellRefined();
}

std::optional<RecordingError> Replayer::run(RecordingReader& reader) {
  while (const auto* event = reader.next()) deliver(*event);
  finish();
  if (reader.error()) return reader.error();
  if (!world_) return RecordingError{0, "there is no event in it"};
  return std::nullopt;
}

SimPlatform* Replayer::world() { return world_ ? &world_->sim : nullptr; }
TWLManager* Replayer::manager() { return world_ ? world_->manager.get() : nullptr; }

}  // namespace wayloom::sim
