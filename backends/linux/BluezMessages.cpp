#include "backends/linux/BluezMessages.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "backends/linux/AdvertisementMonitor.hpp"
#include "backends/linux/BusValues.hpp"

namespace wayloom::linux_ {
namespace {

// The a{qv} of companies and their bytes.
void readManufacturerData(sdbus::Message& message, DeviceUpdate& update) {
  if (variantContent(message) != "a{qv}") return skipVariant(message);
  message.enterVariant("a{qv}").enterContainer("{qv}");
  std::vector<std::uint8_t> bytes;
  while (message && message.enterDictEntry("qv")) {
    std::uint16_t company = 0;
    message >> company;
    bytes.clear();
    if (readVariant(message, "ay", bytes)) update.addManufacturerData(company, bytes);
    message.exitDictEntry();
  }
  message.clearFlags();
  message.exitContainer().exitVariant();
}

DeviceUpdate readDevice(sdbus::Message& message) {
  DeviceUpdate update;
  forEachProperty(message, [&](std::string_view key) {
    std::int16_t rssi = 0;
    if (key == "RSSI" && readVariant(message, "n", rssi)) return update.setRssi(rssi);
    if (key == "RSSI") return;
    if (key == "ManufacturerData") return readManufacturerData(message, update);
    if (key == "ServiceData" || key == "AdvertisingData") update.addOtherData();
    skipVariant(message);
  });
  return update;
}

AdapterUpdate readAdapter(sdbus::Message& message) {
  AdapterUpdate update;
  forEachProperty(message, [&](std::string_view key) {
    auto* property = key == "Powered" ? &update.powered : key == "Discovering" ? &update.discovering : nullptr;
    if (property == nullptr) return skipVariant(message);
    bool value = false;
    if (readVariant(message, "b", value)) *property = value;
  });
  return update;
}

AdapterUpdate readMonitorManager(sdbus::Message& message) {
  AdapterUpdate update;
  forEachProperty(message, [&](std::string_view key) {
    std::vector<std::string> types;
    if (key != "SupportedMonitorTypes") return skipVariant(message);
    if (readVariant(message, "as", types))
      update.hasMonitors = std::find(types.begin(), types.end(), kMonitorType) != types.end();
  });
  return update;
}

void readInterface(sdbus::Message& message, const std::string& interface, const std::string& path,
                   const ObjectListener& listener) {
  if (interface == kDeviceInterface)
    listener.device(path, readDevice(message));
  else if (interface == kAdapterInterface)
    listener.adapter(path, readAdapter(message));
  else if (interface == kMonitorManagerInterface)
    listener.adapter(path, readMonitorManager(message));
  else
    forEachProperty(message, [&](std::string_view) { skipVariant(message); });
}

// An a{sa{sv}}.
void readInterfaces(sdbus::Message& message, const std::string& path, const ObjectListener& listener) {
  message.enterContainer("{sa{sv}}");
  while (message && message.enterDictEntry("sa{sv}")) {
    std::string interface;
    message >> interface;
    readInterface(message, interface, path, listener);
    message.exitDictEntry();
  }
  message.clearFlags();
  message.exitContainer();
}

}  // namespace

void readPropertiesChanged(sdbus::Message& message, const std::string& path, const ObjectListener& listener) {
  std::string interface;
  message >> interface;
  if (interface == kAdapterInterface) return listener.adapter(path, readAdapter(message));
  if (interface != kDeviceInterface) return;
  auto update = readDevice(message);
  std::vector<std::string> invalidated;
  message >> invalidated;
  update.rssiGone = std::find(invalidated.begin(), invalidated.end(), "RSSI") != invalidated.end();
  listener.device(path, update);
}

void readInterfacesAdded(sdbus::Message& message, const ObjectListener& listener) {
  sdbus::ObjectPath path;
  message >> path;
  readInterfaces(message, path, listener);
}

void readManagedObjects(sdbus::Message& message, const ObjectListener& listener) {
  message.enterContainer("{oa{sa{sv}}}");
  while (message && message.enterDictEntry("oa{sa{sv}}")) {
    readInterfacesAdded(message, listener);
    message.exitDictEntry();
  }
  message.clearFlags();
  message.exitContainer();
}

std::string readInterfacesRemoved(sdbus::Message& message) {
  sdbus::ObjectPath path;
  std::vector<std::string> interfaces;
  message >> path >> interfaces;
  const bool known = std::any_of(interfaces.begin(), interfaces.end(), [](const std::string& interface) {
    return interface == kDeviceInterface || interface == kAdapterInterface;
  });
  return known ? std::string(path) : std::string();
}

}  // namespace wayloom::linux_
