#include "tests/linux/FakeBluez.hpp"

#include <condition_variable>
#include <fmt/format.h>
#include <poll.h>

namespace wayloom::tests {
namespace {

constexpr const char* kDevice = "org.bluez.Device1";
constexpr const char* kAdapter = "org.bluez.Adapter1";
constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";

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

FakeBluez::FakeBluez(const std::string& busAddress, bool hasAdapter)
    : connection_(sdbus::createSessionBusConnectionWithAddress(busAddress)) {
  connection_->addObjectManager("/", sdbus::floating_slot);
  if (hasAdapter) exportAdapter(adapterPath("hci0"));
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
  object->finishRegistration();
  adapters_[path] = {true, std::move(object)};
}

void FakeBluez::startDiscovery(sdbus::MethodCall call, const std::string& path) {
  if (spoil(call)) return;
  if (!adapters_.at(path).powered) return refuse(call, "org.bluez.Error.NotReady");
  if (discovering_) return refuse(call, "org.bluez.Error.InProgress");
  answer(call);
  ++starts_;
  faults_.silentUntilRestart = false;
  setDiscovering(path, true);
}

void FakeBluez::stopDiscovery(sdbus::MethodCall call, const std::string& path) {
  if (spoil(call)) return;
  if (!discovering_) return refuse(call, "org.bluez.Error.Failed");
  answer(call);
  ++stops_;
  setDiscovering(path, false);
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
    emitAdded(adapterPath(name), kAdapter,
              {{"Powered", sdbus::Variant(powered)}, {"Discovering", sdbus::Variant(false)}});
  });
}

void FakeBluez::removeAdapter(const std::string& name) {
  onThread([&] {
    discovering_ = false;
    devices_.clear();
    adapters_.erase(adapterPath(name));
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

void FakeBluez::sight(int device, const platform::BeaconIdentity& identity, int rssi, int power) {
  sight(device, Properties{{"RSSI", sdbus::Variant(static_cast<std::int16_t>(rssi))},
                           {"ManufacturerData", manufacturerData(beaconData(identity, power))}});
}

void FakeBluez::sight(int device, const Properties& properties) {
  onThread([&] {
    if (!discovering_ || faults_.silent || faults_.silentUntilRestart) return;
    const auto [known, isNew] = devices_.try_emplace(device, properties);
    if (isNew) return emitAdded(devicePath(device), kDevice, properties);
    known->second = properties;
    emitChanged(devicePath(device), kDevice, properties);
  });
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

void FakeBluez::emitAdded(const std::string& path, const std::string& interface, const Properties& properties) {
  signal("/", kObjectManager, "InterfacesAdded", [&](sdbus::Signal& message) {
    message << sdbus::ObjectPath(path) << std::map<std::string, Properties>{{interface, properties}};
  });
}

void FakeBluez::emitRemoved(const std::string& path, const std::string& interface) {
  signal("/", kObjectManager, "InterfacesRemoved",
         [&](sdbus::Signal& message) { message << sdbus::ObjectPath(path) << std::vector<std::string>{interface}; });
}

}  // namespace wayloom::tests
