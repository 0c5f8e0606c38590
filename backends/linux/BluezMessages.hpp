// What the messages of the Bluetooth service say, as plain values. Everything here throws sdbus::Error when a message
// is not of the shape that the service's interfaces have; a property of a wrong type counts as missing.
#pragma once

#include <functional>
#include <optional>
#include <sdbus-c++/sdbus-c++.h>
#include <string>

#include "backends/linux/DeviceTable.hpp"

namespace wayloom::linux_ {

inline constexpr const char* kBluez = "org.bluez";
inline constexpr const char* kAdapterInterface = "org.bluez.Adapter1";
inline constexpr const char* kDeviceInterface = "org.bluez.Device1";
inline constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
inline constexpr const char* kObjectManagerInterface = "org.freedesktop.DBus.ObjectManager";

// Properties that a message tells of an adapter.
struct AdapterUpdate {
  std::optional<bool> powered;
  std::optional<bool> discovering;
  std::optional<bool> hasMonitors{};  // takes advertisement monitors
};

struct ObjectListener {
  std::function<void(const std::string& path, const AdapterUpdate&)> adapter;
  std::function<void(const std::string& path, const DeviceUpdate&)> device;
};

// The arguments of PropertiesChanged, of InterfacesAdded, and of the answer to GetManagedObjects.
void readPropertiesChanged(sdbus::Message& message, const std::string& path, const ObjectListener& listener);
void readInterfacesAdded(sdbus::Message& message, const ObjectListener& listener);
void readManagedObjects(sdbus::Message& message, const ObjectListener& listener);

// The path of an adapter or device that InterfacesRemoved tells the end of; empty when it is about something else.
std::string readInterfacesRemoved(sdbus::Message& message);

}  // namespace wayloom::linux_
