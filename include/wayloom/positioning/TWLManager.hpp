// The object that a host makes to get indoor positions:
//
//   struct Dot : TWLManagerDelegate {
//     void locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr& location) override { ... }
//   } dot;
//   TWLManager manager(*platform, &dot);
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/maps/TWLMapLocation.hpp"
#include "wayloom/platform/CLLocationManagerDelegate.hpp"
#include "wayloom/platform/DelegateSlot.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/positioning/TWLManagerDelegate.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/regions/TGFManagerDelegate.hpp"

namespace wayloom {

class TWLLocationTracker;
template <class Listener>
class ListenerList;

// Wires the layers together: it makes and starts the region engine, feeds rangings and geographic fixes into the shared
// location tracker, and after each of them tells the current map position to its listeners and its delegate.
//
// Main thread, except where an operation says otherwise. The tracker merges a ranging in the background, so the
// position told right after a ranging is that of the moment before it. Errors of the engine are not passed on. The
// Platform must outlive the manager.
//
// A host may derive from it to observe the callbacks; calls at the end of a kit download (geofoldDidSync,
// geofoldDidFailWithError) can arrive on another thread as soon as the engine has been started, that is, during
// construction. Its destructor calls shutDown() first, so that no callback finds it half gone.
class TWLManager : public TGFManagerDelegate, public platform::CLLocationManagerDelegate {
 public:
  static std::unique_ptr<TWLManager> manager(platform::Platform& platform);
  static std::unique_ptr<TWLManager> managerWithDelegate(platform::Platform& platform, TWLManagerDelegate* delegate);

  // Starts the engine, with the settings of the Wayloom property list. `services` go to the engine. Throws
  // MissingUsageDescription, as TGFManager does; so do the two above.
  explicit TWLManager(platform::Platform& platform, TWLManagerDelegate* delegate = nullptr,
                      TGFManagerServices services = {});
  // Stops the engine and the geographic fixes; no callback follows, and one under way on another thread is waited for.
  // A delegate or listener may do it in a callback.
  ~TWLManager() override;
  TWLManager(const TWLManager&) = delete;
  TWLManager& operator=(const TWLManager&) = delete;

  // The engine.
  void start();
  void stop();

  // Geographic fixes of the platform, off at first: used where no beacon is elected.
  void startGeolocation() { startStandardUpdates(); }
  void stopGeolocation() { stopStandardUpdates(); }
  void startStandardUpdates();  // the best accuracy, a fix every 10 metres
  void stopStandardUpdates();

  // A listener is in the set once, is told every position in the order of adding, and the current one when it is added,
  // even when there is none. All that happens under the listeners' lock; there a listener may add and remove listeners,
  // itself too. The set keeps a listener alive that was given by shared pointer; one given by reference alone must be
  // removed before its destruction. When removeListener returns, it is not called any more, and no call of it is under
  // way on another thread. Any thread.
  void addListener(const std::shared_ptr<TWLManagerDelegate>& listener);
  void addListener(TWLManagerDelegate& listener);
  void removeListener(TWLManagerDelegate& listener);
  std::vector<std::shared_ptr<TWLManagerDelegate>> listeners() const;  // those given by reference are not owned

  // Computes the position and tells it, also when it has not changed; when there is none, nobody is told. Any thread.
  void updateLocation();
  // The last one told; null when the last computation gave none. Any thread.
  TWLMapLocationPtr currentMapLocation() const;

  // Asks for a map update: TWLUpdateManager::update(). Any thread.
  void updateMaps();
  // The maps, once an update has come as far as to know them: it asks every 50 ms, without end, so somebody must have
  // called updateMaps(). Any thread; in virtual time, time passes meanwhile. Throws platform::AbandonedWait when the
  // scheduler shuts down.
  std::vector<TWLMapConfigPtr> maps();

  // Not owned; told after the listeners, outside their lock. May be null. When setDelegate returns, the one before is
  // not called any more, and no call of it is under way on another thread. Any thread.
  TWLManagerDelegate* delegate() const { return delegate_.get(); }
  void setDelegate(TWLManagerDelegate* delegate) { delegate_.set(delegate); }
  // There as long as this manager, in its last callbacks too.
  TGFManager& gfManager() { return *gfManager_; }
  // Kept for the host, not owned and never called.
  TGFManagerDelegate* gfManagerDelegate() const { return gfManagerDelegate_; }
  void setGfManagerDelegate(TGFManagerDelegate* delegate) { gfManagerDelegate_ = delegate; }
  // The map that the host has chosen: kept only, positions don't depend on it. Any thread.
  std::optional<std::string> mapId() const;
  void setMapId(std::optional<std::string> mapId);

  TWLLocationTracker& locationTracker() { return *locationTracker_; }

  // Callbacks of the engine and of its location manager.
  void geofoldDidSync(TGFManager& manager) override;
  void geofoldDidRangeBeaconsInRegion(TGFManager& manager, const TGFBeaconList& beacons,
                                      const TGFBeaconRegionPtr& region) override;
  void geofoldDidFailWithError(TGFManager& manager, const platform::Error& error) override;
  void locationManagerDidUpdateLocations(platform::CLLocationManager* manager,
                                         std::span<const platform::CLLocation> locations) override;

 protected:
  // What the destructor does, earlier. A class that derives and observes callbacks calls it first in its own.
  void shutDown();

 private:
  platform::Platform& platform_;
  platform::DelegateSlot<TWLManagerDelegate> delegate_;
  std::atomic<TGFManagerDelegate*> gfManagerDelegate_ = nullptr;
  std::shared_ptr<ListenerList<TWLManagerDelegate>> listeners_;
  TWLLocationTracker* locationTracker_ = nullptr;  // the Platform's
  mutable std::mutex mutex_;                       // guards the two below
  std::optional<std::string> mapId_;
  TWLMapLocationPtr currentMapLocation_;
  std::unique_ptr<TGFManager> gfManager_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
