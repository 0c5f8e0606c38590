// Everything that the library needs from the system under it, as one object that the host builds and hands over.
//
//   auto platform = posix::makePlatform({.mainBundle = "/opt/kiosk/bundle", .documents = "/var/lib/kiosk"});
//   TWLManager manager(*platform, &myDelegate);
//
// A process normally has one Platform; tests and simulations have many, side by side.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

#include "wayloom/platform/Bundle.hpp"
#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/DeviceIdentity.hpp"
#include "wayloom/platform/FileManager.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/LocationServices.hpp"
#include "wayloom/platform/LogSink.hpp"
#include "wayloom/platform/NotificationCenter.hpp"
#include "wayloom/platform/NotificationQueue.hpp"
#include "wayloom/platform/PropertyListReader.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/platform/UserDefaults.hpp"
#include "wayloom/platform/WidgetFactory.hpp"

namespace wayloom::platform {

// The services a Platform is made of; all must be set, save the last two. To inject faults or to record, wrap one
// before the Platform is made: services.http = std::make_shared<SlowHttpClient>(services.http). They are destroyed in
// reverse order.
struct PlatformServices {
  std::shared_ptr<LogSink> console;    // the engine's levelled log
  std::shared_ptr<LogSink> systemLog;  // plain lines of the positioning and map classes
  std::shared_ptr<CalendarClock> calendarClock;
  std::shared_ptr<MonotonicClock> monotonicClock;
  std::shared_ptr<TaskScheduler> tasks;
  std::shared_ptr<FileManager> files;
  std::shared_ptr<PropertyListReader> propertyLists;
  std::shared_ptr<Bundle> mainBundle;
  std::shared_ptr<Bundle> resourceBundle;
  std::shared_ptr<UserDefaults> userDefaults;
  std::shared_ptr<DeviceIdentity> device;
  std::shared_ptr<HttpClient> http;
  std::shared_ptr<LocationServices> location;
  std::shared_ptr<CBCentralManager> bluetooth;
  std::shared_ptr<WidgetFactory> widgets = nullptr;  // null where there is no screen: a host then makes no map view
  // Of a server's document, be it a kit, a map configuration or an answer: a larger one is an error.
  DocumentLimits documentLimits = {};
};

// Destroy every object made on a Platform before the Platform itself.
class Platform {
 public:
  explicit Platform(PlatformServices services);
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  LogSink& console() { return *services_.console; }
  LogSink& systemLog() { return *services_.systemLog; }
  const CalendarClock& calendarClock() const { return *services_.calendarClock; }
  const MonotonicClock& monotonicClock() const { return *services_.monotonicClock; }
  TaskScheduler& tasks() { return *services_.tasks; }
  FileManager& files() { return *services_.files; }
  const PropertyListReader& propertyLists() const { return *services_.propertyLists; }
  const Bundle& mainBundle() const { return *services_.mainBundle; }
  const Bundle& resourceBundle() const { return *services_.resourceBundle; }
  UserDefaults& userDefaults() { return *services_.userDefaults; }
  const DeviceIdentity& device() const { return *services_.device; }
  HttpClient& http() { return *services_.http; }
  LocationServices& location() { return *services_.location; }
  CBCentralManager& bluetooth() { return *services_.bluetooth; }
  const DocumentLimits& documentLimits() const { return services_.documentLimits; }
  WidgetFactory* widgets() { return services_.widgets.get(); }  // null where there is no screen
  NotificationCenter& notificationCenter() { return notificationCenter_; }
  NotificationQueue& notificationQueue() { return *notificationQueue_; }

  // The one instance of T of this Platform: made on the first call by `make` (returning std::unique_ptr<T>), owned by
  // the Platform, destroyed in reverse order of making. Any thread; `make` may ask for other instances.
  //
  // What an instance keeps a reference to, its constructor asks for, so that it is made before and goes after. Plain
  // values (trivially destructible) go after all others: those may be asked for at any time, also while others end.
  template <class T, class Make>
  T& shared(Make&& make) {
    return *static_cast<T*>(sharedInstance(typeid(T), std::is_trivially_destructible_v<T>,
                                           [&]() -> std::shared_ptr<void> { return std::forward<Make>(make)(); }));
  }

 private:
  void* sharedInstance(std::type_index type, bool outlivesOthers, const std::function<std::shared_ptr<void>()>& make);
  std::shared_ptr<void> takeLastInstance();

  PlatformServices services_;
  NotificationCenter notificationCenter_;
  std::unique_ptr<NotificationQueue> notificationQueue_;
  std::recursive_mutex sharedMutex_;
  std::vector<std::pair<std::type_index, std::shared_ptr<void>>> sharedInstances_;
};

}  // namespace wayloom::platform
