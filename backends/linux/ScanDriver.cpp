#include "backends/linux/ScanDriver.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

namespace wayloom::linux_ {
namespace {

using platform::Duration;

constexpr std::size_t kMostDevices = 4096;  // about 1 MB
constexpr auto kHearAll = std::int16_t{ranging::kWeakestRssi};
constexpr const char* kBusDriver = "org.freedesktop.DBus";
constexpr const char* kBusDriverPath = "/org/freedesktop/DBus";
constexpr std::string_view kPathPrefix = "/org/bluez/";
// A scan that the service itself ended is begun again after this; sooner, the news may be that of our own restart.
constexpr Duration kAfterEndOfScan = std::chrono::milliseconds(500);

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

RadioCondition conditionFor(const BusFailure& failure) {
  const auto ends = [&](std::string_view end) { return failure.name.ends_with(end); };
  if (ends(".AccessDenied") || ends(".NotAuthorized") || ends(".NotPermitted")) return RadioCondition::refused;
  if (ends(".NotReady")) return RadioCondition::unpowered;
  return RadioCondition::failing;
}

void fillFilter(sdbus::Message& message) {
  message << std::map<std::string, sdbus::Variant>{{"Transport", sdbus::Variant(std::string("le"))},
                                                   {"DuplicateData", sdbus::Variant(true)},
                                                   {"RSSI", sdbus::Variant(kHearAll)}};
}

}  // namespace

ScanDriver::ScanDriver(BluezOptions options, ScanCallbacks callbacks)
    : options_(std::move(options)),
      callbacks_(std::move(callbacks)),
      signalled_{[this](const auto& path, const auto& update) { adapterTold(path, update); },
                 [this](const auto& path, const auto& update) { deviceTold(path, update); }},
      devices_(kMostDevices),
      retryDelay_(options_.firstRetry),
      bus_({options_.bus, options_.gathering, options_.longestRetry}, *this) {
  bus_.start(matches());
}

void ScanDriver::Adapter::take(const AdapterUpdate& update) {
  powered = update.powered.value_or(powered);
  discovering = update.discovering.value_or(discovering);
  hasMonitors = update.hasMonitors.value_or(hasMonitors);
}

// What the bus tells.

std::vector<BusMatch> ScanDriver::matches() {
  const std::string sender = "type='signal',sender='org.bluez',";
  const std::string changed =
      sender + "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',path_namespace='/org/bluez'";
  const auto properties = [this](sdbus::Message& message) { onProperties(message); };
  return {{"type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
           "arg0='org.bluez'",
           [this](sdbus::Message& message) { onOwnerChanged(message); }},
          {sender + "path='/',interface='org.freedesktop.DBus.ObjectManager'",
           [this](sdbus::Message& message) { onObjects(message); }},
          {changed + ",arg0='org.bluez.Device1'", properties},
          {changed + ",arg0='org.bluez.Adapter1'", properties}};
}

bool ScanDriver::isFromDaemon(const sdbus::Message& message) const {
  return !owner_.empty() && message.getSender() == owner_;
}

bool ScanDriver::isOnAdapter(const std::string& path) const {
  return !adapter_.empty() && path.size() > adapter_.size() && path.starts_with(adapter_) &&
         path[adapter_.size()] == '/';
}

// Transitions are tasks: a handler must not end the proxies.
void ScanDriver::onOwnerChanged(sdbus::Message& message) {
  std::string name;
  std::string before;
  std::string owner;
  message >> name >> before >> owner;
  bus_.tasks().mainQueue().async([this, owner] {
    if (calls_.isOpen()) owner.empty() ? daemonWent() : daemonCame(owner);
  });
}

void ScanDriver::onObjects(sdbus::Message& message) {
  if (!isFromDaemon(message)) return;
  if (message.getMemberName() == "InterfacesAdded") return readInterfacesAdded(message, signalled_);
  if (message.getMemberName() != "InterfacesRemoved") return;
  const auto path = readInterfacesRemoved(message);
  devices_.remove(path);
  if (adapters_.erase(path) == 0) return;
  if (path == adapter_) status_.hasMonitor = false;  // another of its name may come before this is reconsidered
  reconsiderSoon();
}

void ScanDriver::onProperties(sdbus::Message& message) {
  if (isFromDaemon(message)) readPropertiesChanged(message, message.getPath(), signalled_);
}

void ScanDriver::adapterTold(const std::string& path, const AdapterUpdate& update) {
  if (!path.starts_with(kPathPrefix)) return;
  adapters_[path].take(update);
  reconsiderSoon();
}

void ScanDriver::deviceTold(const std::string& path, const DeviceUpdate& update) {
  if (!isOnAdapter(path) || update.isEmpty()) return;
  const auto at = now();
  if (update.rssi || update.mentionsData) lastHeard_ = at;
  if (const auto report = devices_.update(path, update, at); report && wanted_) reports_.push_back(*report);
  if (isQuiet_ && update.rssi && status_.listening) {
    isQuiet_ = false;
    setStatus(RadioCondition::scanning);
  }
}

void ScanDriver::messagesRead() {
  if (!reports_.empty()) callbacks_.heard(reports_);
  reports_.clear();
}

// The steps.

void ScanDriver::setWanted(bool wanted) {
  bus_.tasks().mainQueue().async([this, wanted] {
    if (std::exchange(wanted_, wanted) != wanted) reconsider();
  });
}

void ScanDriver::busOpened(sdbus::IConnection& connection) {
  calls_.open(connection);
  try {
    monitor_.emplace(connection);
  } catch (const sdbus::Error&) {
    monitor_.reset();  // it can be done without
  }
  findDaemon();
}

void ScanDriver::busLost() {
  forgetDaemon();
  calls_.close();
  monitor_.reset();
  setStatus(RadioCondition::noBus, "the connection was lost");
}

void ScanDriver::busUnavailable(const std::string& reason) { setStatus(RadioCondition::noBus, reason); }

void ScanDriver::findDaemon() {
  calls_.abandon();
  calls_.call(
      {kBusDriver, kBusDriverPath, kBusDriver, "GetNameOwner"}, options_.callTimeout,
      [](sdbus::Message& call) { call << kBluez; },
      [this](sdbus::Message& reply) {
        std::string owner;
        reply >> owner;
        return [this, owner] { daemonCame(owner); };
      },
      [this](const BusFailure& failure) {
        if (failure.name.ends_with(".NameHasNoOwner")) return daemonWent();
        // The bus itself does not answer: calls would only pile up.
        setStatus(RadioCondition::noBus, failure.text);
        bus_.reopen();
      });
}

void ScanDriver::daemonCame(const std::string& owner) {
  if (owner == owner_) return;
  forgetDaemon();
  owner_ = owner;
  retryDelay_ = options_.firstRetry;
  listObjects();
}

void ScanDriver::daemonWent() {
  forgetDaemon();
  setStatus(RadioCondition::noDaemon);
}

void ScanDriver::forgetDaemon() {
  stopListening();
  calls_.abandon();
  owner_.clear();
  adapters_.clear();
  isListed_ = false;
  status_.hasMonitor = false;
  adapter_.clear();
  devices_.clear();
}

void ScanDriver::listObjects() {
  stopListening();
  calls_.abandon();
  isListed_ = false;
  calls_.call(
      {kBluez, "/", kObjectManagerInterface, "GetManagedObjects"}, options_.callTimeout, {},
      [this](sdbus::Message& reply) {
        std::map<std::string, Adapter> adapters;
        devices_.clear();
        readManagedObjects(
            reply, {[&](const std::string& path, const AdapterUpdate& update) {
                      if (path.starts_with(kPathPrefix)) adapters[path].take(update);
                    },
                    [&](const std::string& path, const DeviceUpdate& update) { devices_.remember(path, update); }});
        adapters_ = std::move(adapters);
        isListed_ = true;
        return [this] { reconsider(); };
      },
      [this](const BusFailure& failure) { fail("its objects can't be listed", failure); });
}

// Several properties of one adapter often change together.
void ScanDriver::reconsiderSoon() {
  if (std::exchange(isReconsidering_, true)) return;
  bus_.tasks().mainQueue().async([this] {
    isReconsidering_ = false;
    reconsider();
  });
}

std::string ScanDriver::chooseAdapter() const {
  if (!options_.adapter.empty()) {
    const auto path = std::string(kPathPrefix) + options_.adapter;
    return adapters_.contains(path) ? path : std::string();
  }
  const auto usable = [](const auto& adapter) { return adapter.second.powered; };
  if (const auto current = adapters_.find(adapter_); current != adapters_.end() && usable(*current)) return adapter_;
  const auto powered = std::find_if(adapters_.begin(), adapters_.end(), usable);
  if (powered != adapters_.end()) return powered->first;
  return adapters_.empty() ? std::string() : adapters_.begin()->first;
}

// Compares what is with what should be. Called whenever one of them has changed. Before the service has told what
// there is, nothing can be said of it.
void ScanDriver::reconsider() {
  if (owner_.empty() || !isListed_) return;
  const auto chosen = chooseAdapter();
  if (std::exchange(adapter_, chosen) != chosen) {
    status_.hasMonitor = false;
    stopListening();
  }
  status_.adapter = lastComponent(adapter_);
  if (adapter_.empty()) return setStatus(RadioCondition::noAdapter, options_.adapter);
  const auto& adapter = adapters_[adapter_];
  if (!adapter.powered) {
    stopListening();
    calls_.abandon();
    return setStatus(RadioCondition::unpowered);
  }
  if (!wanted_) return stopScan();
  if (isStarting_) return;
  if (!status_.listening) return startScan();
  if (!adapter.discovering)
    later(kAfterEndOfScan, [this] {
      if (!adapters_[adapter_].discovering) return startScan();
      watch();
    });
}

void ScanDriver::callAdapter(const char* method, const BusCalls::Fill& fill, platform::Task next, BusCalls::Fail fail) {
  calls_.call(
      {kBluez, adapter_, kAdapterInterface, method}, options_.callTimeout, fill,
      [next = std::move(next)](sdbus::Message&) { return next; }, std::move(fail));
}

void ScanDriver::callMonitors(const char* method, platform::Task next, BusCalls::Fail fail) {
  calls_.call(
      {kBluez, adapter_, kMonitorManagerInterface, method}, options_.callTimeout,
      [](sdbus::Message& call) { call << sdbus::ObjectPath(AdvertisementMonitor::kRoot); },
      [next = std::move(next)](sdbus::Message&) { return next; }, std::move(fail));
}

// The way from here takes a fraction of a second. A scan that is restarted counts as listening meanwhile: if every
// restart interrupted the silence of a region, none would be left where restarts are frequent.
void ScanDriver::startScan() {
  timer_.reset();
  isStarting_ = true;
  calls_.abandon();
  if (monitor_ && adapters_[adapter_].hasMonitors && !status_.hasMonitor) return registerMonitor();
  endEarlierScan();
}

// Before the scan, because the controller is told when a scan begins whether to drop duplicates. The scan does without
// a monitor where there can be none.
void ScanDriver::registerMonitor() {
  const auto goOn = [this](bool isRegistered) {
    status_.hasMonitor = isRegistered;
    endEarlierScan();
  };
  callMonitors(
      "RegisterMonitor", [goOn] { goOn(true); },
      [goOn](const BusFailure& failure) { goOn(failure.name.ends_with(".AlreadyExists")); });
}

// A scan of ours that still runs would make the service refuse another, so it is ended first; that there is none is no
// failure. With the end of a scan the service forgets the beacons of it, and tells each as a new object when it is
// heard again.
void ScanDriver::endEarlierScan() {
  callAdapter(
      "StopDiscovery", {}, [this] { setFilter(); },
      [this](const BusFailure& failure) {
        if (conditionFor(failure) == RadioCondition::refused) return fail("scanning is not allowed", failure);
        setFilter();
      });
}

void ScanDriver::setFilter() {
  callAdapter(
      "SetDiscoveryFilter", fillFilter, [this] { startDiscovery(); },
      [this](const BusFailure& failure) { fail("the scan's filter can't be set", failure); });
}

void ScanDriver::startDiscovery() {
  callAdapter(
      "StartDiscovery", {}, [this] { scanStarted(); },
      [this](const BusFailure& failure) { fail("the scan can't be started", failure); });
}

void ScanDriver::scanStarted() {
  isStarting_ = false;
  retryDelay_ = options_.firstRetry;
  lastHeard_ = now();
  // The service tells the change of the property later; until it does, the scan counts as running.
  adapters_[adapter_].discovering = true;
  status_.listening = true;
  setStatus(isQuiet_ ? RadioCondition::silent : RadioCondition::scanning);
  watch();
}

void ScanDriver::stopScan() {
  if (status_.listening || isStarting_) {
    stopListening();
    calls_.abandon();
    callAdapter("StopDiscovery", {}, {}, [](const BusFailure&) {});
  }
  if (std::exchange(status_.hasMonitor, false)) callMonitors("UnregisterMonitor", {}, [](const BusFailure&) {});
  setStatus(RadioCondition::resting);
}

void ScanDriver::stopListening() {
  timer_.reset();
  isStarting_ = false;
  isQuiet_ = false;
  status_.listening = false;
  tell();
}

// Restarts a scan that hears nothing at all: scans do fall silent while they claim to run. Most often, though, nothing
// is there, and regions have to be left in time: neither the silence nor the restart is an interruption.
void ScanDriver::watch() {
  later(std::max(lastHeard_ + options_.watchdog - now(), Duration::zero()), [this] {
    if (now() < lastHeard_ + options_.watchdog) return watch();
    isQuiet_ = true;
    setStatus(RadioCondition::silent);
    startScan();
  });
}

void ScanDriver::fail(const char* doing, const BusFailure& failure) {
  stopListening();
  const auto condition = conditionFor(failure);
  setStatus(condition, std::string(doing) + ": " + failure.name + ": " + failure.text);
  later(retryDelay_, [this] { listObjects(); });
  retryDelay_ = std::min(retryDelay_ * 2, options_.longestRetry);
}

void ScanDriver::later(Duration delay, platform::Task task) {
  timer_ = bus_.tasks().startTimer(bus_.tasks().mainQueue(), delay, std::nullopt, std::move(task));
}

void ScanDriver::setStatus(RadioCondition condition, std::string detail) {
  status_.condition = condition;
  status_.detail = std::move(detail);
  if (condition == RadioCondition::noBus || condition == RadioCondition::noDaemon) status_.adapter.clear();
  // A detail alone is no news: attempts that fail one after the other are told once.
  tell();
}

void ScanDriver::tell() {
  const auto gist = [](const RadioStatus& status) {
    return std::tie(status.condition, status.listening, status.hasMonitor, status.adapter);
  };
  if (gist(status_) == gist(told_)) return;
  told_ = status_;
  callbacks_.changed(status_);
}

platform::MonotonicTime ScanDriver::now() const { return posix::PosixMonotonicClock().now(); }

}  // namespace wayloom::linux_
