#include "wayloom/linux/RadioStatus.hpp"

namespace wayloom::linux_ {

bool isTrouble(RadioCondition condition) {
  return condition != RadioCondition::resting && condition != RadioCondition::starting &&
         condition != RadioCondition::scanning;
}

std::string_view description(RadioCondition condition) {
  switch (condition) {
    case RadioCondition::resting:
      return "Bluetooth is not scanning because nobody asked for it";
    case RadioCondition::starting:
      return "Bluetooth is being looked for";
    case RadioCondition::scanning:
      return "Bluetooth is scanning";
    case RadioCondition::silent:
      return "Bluetooth claims to scan, but no device at all is heard; the scan is being restarted";
    case RadioCondition::noBus:
      return "The system message bus (D-Bus) can't be reached";
    case RadioCondition::noDaemon:
      return "The Bluetooth service does not run";
    case RadioCondition::noAdapter:
      return "There is no Bluetooth adapter";
    case RadioCondition::unpowered:
      return "The Bluetooth adapter is off";
    case RadioCondition::refused:
      return "The use of Bluetooth is not allowed";
    case RadioCondition::failing:
      return "The Bluetooth service does not do what it is asked";
  }
  return "";
}

std::string_view advice(RadioCondition condition) {
  switch (condition) {
    case RadioCondition::silent:
      return "If there are Bluetooth devices around, restart the service (systemctl restart bluetooth) or replug the "
             "adapter; old firmware often is the reason.";
    case RadioCondition::noBus:
      return "Start it (systemctl start dbus); in a container, mount /run/dbus/system_bus_socket of the host.";
    case RadioCondition::noDaemon:
      return "Install and start it: apt-get install bluez; systemctl enable --now bluetooth.";
    case RadioCondition::noAdapter:
      return "Plug one in, or see whether the kernel knows it (lsusb, dmesg | grep -i bluetooth).";
    case RadioCondition::unpowered:
      return "Switch it on: bluetoothctl power on. To have it on after each start, set AutoEnable=true in "
             "/etc/bluetooth/main.conf.";
    case RadioCondition::refused:
      return "Put the user into the group bluetooth, or allow org.bluez in /etc/dbus-1/system.d.";
    case RadioCondition::failing:
      return "See what the service says (journalctl -u bluetooth), and restart it (systemctl restart bluetooth).";
    case RadioCondition::resting:
    case RadioCondition::starting:
    case RadioCondition::scanning:
      return "";
  }
  return "";
}

}  // namespace wayloom::linux_
