#include "tests/linux/FakeBluez.hpp"

#include <condition_variable>
#include <fmt/format.h>
#include <poll.h>

namespace wayloom::tests {
namespace {

constexpr const char* kDevice = "org.bluez.Device1";
constexpr const char* kAdapter = "org.bluez.Adapter1";
constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* kMonitorManager = "org.bluez.AdvertisementMonitorManager1";
constexpr const char* kMonitor = "org.bluez.AdvertisementMonitor1";

std::string adapterPath(const std::string& name) { return "/org/bluez/" + name; }

std::string devicePath(int device) {
  return fmt::format("/org/bluez/hci0/dev_C0_00_00_00_{:02X}_{:02X}", device / 256, device % 256);
}

void answer(sdbus::MethodCall& call) { call.createReply().send(); }
void refuse(sdbus::MethodCall& call, const std::string& name) {
  call.createErrorReply(sdbus::Error(name, "as told")).send();
}

}  // namespace

std::vector<std::uint8_t> beaconData(const platform::BeaconIdentity& identity, int power) {
  std::vector<std::uint8_t> data = {0x02, 0x15};
  const auto& uuid = identity.uuid.bytes();
  data.insert(data.end(), uuid.begin(), uuid.end());
  for (const int number : {identity.major >> 8, identity.major & 255, identity.minor >> 8, identity.minor & 255, power})
    data.push_back(static_cast<std::uint8_t>(number));
  return data;
}

sdbus::Variant manufacturerData(const std::vector<std::uint8_t>& bytes, std::uint16_t company) {
  return sdbus::Variant(std::map<std::uint16_t, sdbus::Variant>{{company, sdbus::Variant(bytes)}});
}

FakeBluez::FakeBluez(const std::string& busAddress, Monitors monitors)
    : connection_(sdbus::createSessionBusConnectionWithAddress(busAddress)), monitors_(monitors) {
  // What all variants share is made with the first. The library guards that, where the thread sanitizer can't see it:
  // better before there are threads.
  const sdbus::Variant first(true);
  connection_->addObjectManager("/", sdbus::floating_slot);
  exportAdapter(adapterPath("hci0"));
  connection_->requestName("org.bluez");
  thread_ = std::thread([this] { run(); });
}

FakeBluez::~FakeBluez() {
  ending_ = true;
  loop_.mainQueue().async([] {});
  thread_.join();
}

void FakeBluez::run() {
  try {
    while (!ending_) {
      while (!faults_.hangs && connection_->processPendingRequest()) {
      }
      const auto data = connection_->getEventLoopPollData();
      pollfd watched[2] = {{loop_.wakeDescriptor(), POLLIN, 0}, {data.fd, data.events, 0}};
      ::poll(watched, faults_.hangs ? 1 : 2, data.getPollTimeout());
      loop_.runDue();
    }
  } catch (const sdbus::Error&) {
    while (!ending_) loop_.runDue();  // the bus has gone
  }
  repeating_.reset();
  monitoring_.reset();
  adapters_.clear();
  remembered_.clear();
  connection_.reset();
}

void FakeBluez::onThread(const std::function<void()>& work) {
  if (isOnThread()) return work();
  std::mutex mutex;
  std::condition_variable condition;
  bool done = false;
  loop_.mainQueue().async([&] {
    work();
    const std::lock_guard lock(mutex);
    done = true;
    condition.notify_one();
  });
  std::unique_lock lock(mutex);
  condition.wait(lock, [&] { return done; });
}

// True when the call is not to be worked off.
bool FakeBluez::spoil(sdbus::MethodCall& call) {
  if (faults_.error.empty()) return false;
  refuse(call, faults_.error);
  return true;
}

void FakeBluez::exportAdapter(const std::string& path) {
  auto object = sdbus::createObject(*connection_, path);
  object->registerMethod(kAdapter, "SetDiscoveryFilter", "a{sv}", "", [this](sdbus::MethodCall call) {
    if (spoil(call)) return;
    Properties filter;
    call >> filter;
    {
      const std::lock_guard lock(mutex_);
      filter_ = fmt::format("{} {} {}", filter.at("Transport").get<std::string>(),
                            filter.at("DuplicateData").get<bool>(), filter.at("RSSI").get<std::int16_t>());
    }
    answer(call);
  });
  object->registerMethod(kAdapter, "StartDiscovery", "", "",
                         [this, path](sdbus::MethodCall call) { startDiscovery(std::move(call), path); });
  object->registerMethod(kAdapter, "StopDiscovery", "", "",
                         [this, path](sdbus::MethodCall call) { stopDiscovery(std::move(call), path); });
  const auto property = [&](const char* name, const std::function<bool()>& value) {
    object->registerProperty(kAdapter, name, "b", [this, value](sdbus::PropertyGetReply& reply) {
      if (!faults_.error.empty()) throw sdbus::Error(faults_.error, "as told");
      reply << value();
    });
  };
  property("Powered", [this, path] { return adapters_.at(path).powered; });
  property("Discovering", [this] { return discovering_.load(); });
  if (monitors_ == Monitors::taken) exportMonitorManager(*object);
  object->finishRegistration();
  adapters_[path] = {true, std::move(object)};
}

void FakeBluez::exportMonitorManager(sdbus::IObject& object) {
  object.registerMethod(kMonitorManager, "RegisterMonitor", "o", "", [this](sdbus::MethodCall call) {
    if (spoil(call)) return;
    sdbus::ObjectPath root;
    call >> root;
    if (faults_.refusesMonitors) return refuse(call, "org.bluez.Error.Failed");
    if (!monitor().empty()) return refuse(call, "org.bluez.Error.AlreadyExists");
    lookAtMonitor(root, std::move(call));
  });
  object.registerMethod(kMonitorManager, "UnregisterMonitor", "o", "", [this](sdbus::MethodCall call) {
    const std::lock_guard lock(mutex_);
    if (std::exchange(monitor_, {}).empty()) return refuse(call, "org.bluez.Error.DoesNotExist");
    answer(call);
  });
  object.registerProperty(kMonitorManager, "SupportedMonitorTypes", "as",
                          [](sdbus::PropertyGetReply& reply) { reply << std::vector<std::string>{"or_patterns"}; });
}

// As the real one does before it answers: lists what there is below the root, and tells the monitor that it is active.
void FakeBluez::lookAtMonitor(const sdbus::ObjectPath& root, sdbus::MethodCall call) {
  const auto client = call.getSender();
  using Pattern = sdbus::Struct<std::uint8_t, std::uint8_t, std::vector<std::uint8_t>>;
  using Objects = std::map<sdbus::ObjectPath, std::map<std::string, Properties>>;
  monitoring_ = sdbus::createProxy(*connection_, client, root);
  monitoring_->callMethodAsync("GetManagedObjects")
      .onInterface(kObjectManager)
      .uponReplyInvoke([this, client, held = std::make_shared<sdbus::MethodCall>(std::move(call))](
                           const sdbus::Error* error, const Objects& objects) {
        if (error != nullptr) return refuse(*held, "org.bluez.Error.Failed");
        for (const auto& [path, interfaces] : objects) {
          const auto found = interfaces.find(kMonitor);
          if (found == interfaces.end()) continue;
          const auto pattern = found->second.at("Patterns").get<std::vector<Pattern>>().at(0);
          std::string content;
          for (const int byte : pattern.get<2>()) content += fmt::format("{:02X}", byte);
          const std::lock_guard lock(mutex_);
          monitor_ = fmt::format("{} {} {} {}", found->second.at("Type").get<std::string>(), pattern.get<0>(),
                                 pattern.get<1>(), content);
          sdbus::createProxy(*connection_, client, path)
              ->callMethod("Activate")
              .onInterface(kMonitor)
              .dontExpectReply();
        }
        answer(*held);
      });
}

void FakeBluez::startDiscovery(sdbus::MethodCall call, const std::string& path) {
  if (spoil(call)) return;
  if (!adapters_.at(path).powered) return refuse(call, "org.bluez.Error.NotReady");
  if (discovering_) return refuse(call, "org.bluez.Error.InProgress");
  answer(call);
  ++starts_;
  faults_.silentUntilRestart = false;
  reported_.clear();
  scanStart_ = std::chrono::steady_clock::now();
  setDiscovering(path, true);
}

void FakeBluez::stopDiscovery(sdbus::MethodCall call, const std::string& path) {
  if (spoil(call)) return;
  if (!discovering_) return refuse(call, "org.bluez.Error.Failed");
  answer(call);
  ++stops_;
  setDiscovering(path, false);
  for (const auto& [device, properties] : std::exchange(devices_, {})) emitRemoved(devicePath(device), kDevice);
}

void FakeBluez::setDiscovering(const std::string& path, bool discovering) {
  if (discovering_.exchange(discovering) != discovering)
    emitChanged(path, kAdapter, {{"Discovering", sdbus::Variant(discovering)}});
}

void FakeBluez::setFaults(const Faults& faults) {
  onThread([&] { faults_ = faults; });
}

void FakeBluez::addAdapter(const std::string& name, bool powered) {
  onThread([&] {
    exportAdapter(adapterPath(name));
    adapters_[adapterPath(name)].powered = powered;
    std::map<std::string, Properties> interfaces = {
        {kAdapter, {{"Powered", sdbus::Variant(powered)}, {"Discovering", sdbus::Variant(false)}}}};
    if (monitors_ == Monitors::taken)
      interfaces[kMonitorManager] = {
          {"SupportedMonitorTypes", sdbus::Variant(std::vector<std::string>{"or_patterns"})}};
    emitAdded(adapterPath(name), interfaces);
  });
}

void FakeBluez::removeAdapter(const std::string& name) {
  onThread([&] {
    discovering_ = false;
    devices_.clear();
    adapters_.erase(adapterPath(name));
    {
      const std::lock_guard lock(mutex_);
      monitor_.clear();
    }
    emitRemoved(adapterPath(name), kAdapter);
  });
}

void FakeBluez::setPowered(bool powered, const std::string& name) {
  onThread([&] {
    adapters_.at(adapterPath(name)).powered = powered;
    emitChanged(adapterPath(name), kAdapter, {{"Powered", sdbus::Variant(powered)}});
    if (!powered) setDiscovering(adapterPath(name), false);
  });
}

void FakeBluez::endDiscovery() {
  onThread([&] { setDiscovering(adapterPath("hci0"), false); });
}

void FakeBluez::remember(int device, const platform::BeaconIdentity& identity, int rssi) {
  onThread([&] {
    auto object = sdbus::createObject(*connection_, devicePath(device));
    object->registerProperty(kDevice, "RSSI", "n",
                             [rssi](sdbus::PropertyGetReply& reply) { reply << static_cast<std::int16_t>(rssi); });
    object->registerProperty(kDevice, "ManufacturerData", "a{qv}", [identity](sdbus::PropertyGetReply& reply) {
      reply << std::map<std::uint16_t, sdbus::Variant>{{0x004C, sdbus::Variant(beaconData(identity))}};
    });
    object->finishRegistration();
    remembered_[device] = std::move(object);
    devices_[device] = {};
  });
}

bool FakeBluez::sight(int device, const platform::BeaconIdentity& identity, int rssi, int power) {
  return sight(device, Properties{{"RSSI", sdbus::Variant(static_cast<std::int16_t>(rssi))},
                                  {"ManufacturerData", manufacturerData(beaconData(identity, power))}});
}

bool FakeBluez::sight(int device, const Properties& properties) {
  bool isTold = false;
  onThread([&] {
    if (!discovering_ || faults_.silent || faults_.silentUntilRestart || isDuplicate(device)) return;
    isTold = true;
    const auto [known, isNew] = devices_.try_emplace(device, properties);
    if (isNew) return emitAdded(devicePath(device), {{kDevice, properties}});
    known->second = properties;
    emitChanged(devicePath(device), kDevice, properties);
  });
  return isTold;
}

bool FakeBluez::isDuplicate(int device) {
  if (faults_.duplicateWindow == platform::Duration::zero() || !monitor().empty()) return false;
  const auto window = (std::chrono::steady_clock::now() - scanStart_) / faults_.duplicateWindow;
  const auto [known, isNew] = reported_.try_emplace(device, window);
  return !isNew && std::exchange(known->second, window) == window;
}

void FakeBluez::change(int device, const Properties& properties, const std::vector<std::string>& invalidated) {
  onThread([&] { emitChanged(devicePath(device), kDevice, properties, invalidated); });
}

void FakeBluez::forget(int device) {
  onThread([&] {
    devices_.erase(device);
    emitRemoved(devicePath(device), kDevice);
  });
}

void FakeBluez::every(platform::Duration interval, std::function<void(FakeBluez&)> work) {
  onThread([&] {
    repeating_ =
        loop_.startTimer(loop_.mainQueue(), interval, interval, [this, work = std::move(work)] { work(*this); });
  });
}

std::string FakeBluez::filter() const {
  const std::lock_guard lock(mutex_);
  return filter_;
}

std::string FakeBluez::monitor() const {
  const std::lock_guard lock(mutex_);
  return monitor_;
}

void FakeBluez::signal(const std::string& path, const std::string& interface, const std::string& name,
                       const std::function<void(sdbus::Signal&)>& fill) {
  const auto object = sdbus::createObject(*connection_, path);
  auto message = object->createSignal(interface, name);
  fill(message);
  object->emitSignal(message);
}

void FakeBluez::emitChanged(const std::string& path, const std::string& interface, const Properties& changed,
                            const std::vector<std::string>& invalidated) {
  signal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged",
         [&](sdbus::Signal& message) { message << interface << changed << invalidated; });
}

void FakeBluez::emitAdded(const std::string& path, const std::map<std::string, Properties>& interfaces) {
  signal("/", kObjectManager, "InterfacesAdded",
         [&](sdbus::Signal& message) { message << sdbus::ObjectPath(path) << interfaces; });
}

void FakeBluez::emitRemoved(const std::string& path, const std::string& interface) {
  signal("/", kObjectManager, "InterfacesRemoved",
         [&](sdbus::Signal& message) { message << sdbus::ObjectPath(path) << std::vector<std::string>{interface}; });
}

}  // namespace wayloom::tests
