// A region manager in a small world, where everything that happens around it is written down in one list.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {

using Events = std::vector<std::string>;

// Location services that do nothing but write down what is asked of them, and answer as they are told.
class NotedLocation : public platform::LocationServices {
 public:
  explicit NotedLocation(Events& events) : events_(events) {}

  std::unique_ptr<platform::CLLocationManager> makeLocationManager() override {
    return std::make_unique<Manager>(*this);
  }
  platform::CLAuthorizationStatus authorizationStatus() const override { return status; }
  std::optional<bool> isMonitoringAvailable() const override { return available; }
  bool regionMonitoringAvailable() const override { return oldAvailable; }

  platform::CLAuthorizationStatus status = platform::CLAuthorizationStatus::authorizedAlways;
  std::optional<bool> available = true;
  bool oldAvailable = true;
  std::vector<platform::CLRegionPtr> monitored;
  std::vector<platform::CLBeaconRegionPtr> ranged;
  std::optional<platform::CLLocation> fix;

 private:
  class Manager : public platform::CLLocationManager {
   public:
    explicit Manager(NotedLocation& world) : world_(world) {}
    void setDelegate(platform::CLLocationManagerDelegate*) override {}
    void requestAlwaysAuthorization() override { note("authorize"); }
    void startMonitoringForRegion(platform::CLRegionPtr region) override {
      note("monitor " + region->identifier());
      world_.monitored.push_back(std::move(region));
    }
    void stopMonitoringForRegion(const platform::CLRegionPtr& region) override {
      note("unmonitor " + region->identifier());
      std::erase(world_.monitored, region);
    }
    void requestStateForRegion(const platform::CLRegionPtr& region) override { note("state " + region->identifier()); }
    std::vector<platform::CLRegionPtr> monitoredRegions() const override { return world_.monitored; }
    void startRangingBeaconsInRegion(platform::CLBeaconRegionPtr region) override {
      note("range " + region->identifier());
      world_.ranged.push_back(std::move(region));
    }
    void stopRangingBeaconsInRegion(const platform::CLBeaconRegionPtr& region) override {
      note("unrange " + region->identifier());
      std::erase(world_.ranged, region);
    }
    std::vector<platform::CLBeaconRegionPtr> rangedRegions() const override { return world_.ranged; }
    void setDesiredAccuracy(double) override {}
    void setDistanceFilter(double) override {}
    void startUpdatingLocation() override {}
    void stopUpdatingLocation() override {}
    std::optional<platform::CLLocation> location() const override { return world_.fix; }

   private:
    void note(std::string event) { world_.events_.push_back(std::move(event)); }
    NotedLocation& world_;
  };

  Events& events_;
};

// Writes down what the manager tells its host, then does what a test wants at that moment.
struct NotedDelegate : TGFManagerDelegate, platform::CLLocationManagerDelegate {
  explicit NotedDelegate(Events& noted) : events(noted) {}

  void geofoldDidSync(TGFManager&) override { note("did sync"); }
  void geofoldDidEnter(TGFManager&, const TGFRegionPtr& region) override { note("did enter " + *region->identifier()); }
  void geofoldDidExit(TGFManager&, const TGFRegionPtr& region) override { note("did exit " + *region->identifier()); }
  void geofoldDidDetermineStateForRegion(TGFManager&, platform::CLRegionState state,
                                         const TGFRegionPtr& region) override {
    note("did determine " + std::to_string(static_cast<int>(state)) + " " + *region->identifier());
  }
  void geofoldDidRangeBeaconsInRegion(TGFManager&, const TGFBeaconList& beacons,
                                      const TGFBeaconRegionPtr& region) override {
    std::string text = "did range " + *region->identifier() + ":";
    for (const auto& beacon : beacons) text += " " + beacon->identifier().value_or("-");
    note(text);
  }
  void geofoldDidFailWithError(TGFManager&, const platform::Error& error) override {
    note("did fail " + error.domain + " " + std::to_string(error.code) + " " + error.description);
  }

  void locationManagerDidEnterRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override {
    note("raw enter");
  }
  void locationManagerDidFailWithError(platform::CLLocationManager* manager, const platform::Error& error) override {
    note(std::string(manager ? "raw fail " : "raw own fail ") + std::to_string(error.code));
  }
  void locationManagerDidRangeBeaconsInRegion(platform::CLLocationManager*, std::span<const platform::CLBeacon>,
                                              const platform::CLBeaconRegionPtr&) override {
    note("raw range");
  }
  bool locationManagerShouldDisplayHeadingCalibration(platform::CLLocationManager*) override { return true; }

  void note(const std::string& event) {
    events.push_back(event);
    if (then && event.starts_with(thenAt)) std::exchange(then, nullptr)();
  }

  Events& events;
  std::string thenAt;
  std::function<void()> then;
};

class ManagerWorld {
 public:
  static constexpr auto kUrl = "https://kits.example/7";
  static constexpr auto kUUID = "5A0E1C9E-0000-4B7E-8000-000000000001";

  ManagerWorld() : location(std::make_shared<NotedLocation>(events)), delegate(events) {
    auto services = world.services();
    services.location = location;
    platform = std::make_unique<platform::Platform>(services);
  }

  void serve(const std::string& body) {
    platform::HttpResponse response;
    response.status = 200;
    response.body = body;
    world.http->answer(std::string("GET ") + kUrl, response);
  }
  void goOffline() {
    platform::HttpResponse response;
    response.error = platform::Error{"HTTP", 7, "no route"};
    world.http->answer(std::string("GET ") + kUrl, response);
  }

  static platform::Json configuration() { return {{"GFKitURL", kUrl}, {"GFAPIToken", "secret"}}; }

  void makeManager() {
    TGFManagerServices services;
    services.makeAnalytics = [this](platform::Platform&, TGFManager&) { return std::make_unique<Analytics>(events); };
    services.makeStatus = [this](platform::Platform&, const std::string& url, const std::string& token) {
      return std::make_unique<Status>(events, url + " " + token);
    };
    manager = std::make_unique<TGFManager>(*platform, &delegate, configuration(), services);
    manager->setLocationManagerDelegate(&delegate);
  }

  // What happened since the last call.
  Events take() { return std::exchange(events, {}); }

  Events takeAfter(platform::Duration duration) {
    world.time.advanceBy(duration);
    return take();
  }

  Events events;
  test::TestPlatform world;
  std::shared_ptr<NotedLocation> location;
  NotedDelegate delegate;
  std::unique_ptr<platform::Platform> platform;
  std::unique_ptr<TGFManager> manager;

 private:
  struct Analytics : AnalyticsRecorder {
    explicit Analytics(Events& noted) : events(noted) {}
    void startLogging() override { events.push_back("analytics start"); }
    void stopLogging() override { events.push_back("analytics stop"); }
    void uploadAnalyticsToServer() override { events.push_back("analytics upload"); }
    Events& events;
  };
  struct Status : StatusReporter {
    Status(Events& noted, const std::string& server) : events(noted) { events.push_back("status for " + server); }
    ~Status() override { events.push_back("status gone"); }
    void rangedBeacon(const platform::CLBeacon& beacon) override {
      events.push_back("status " + std::to_string(beacon.major) + "/" + std::to_string(beacon.minor));
    }
    Events& events;
  };
};

}  // namespace wayloom
