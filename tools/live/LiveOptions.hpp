#pragma once

#include <optional>
#include <string>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/linux/GeoClueFixes.hpp"

#include "tools/common/CommandLine.hpp"

namespace wayloom::tools {

// What the commands that listen have in common.
struct LiveOptions {
  std::string bus;
  std::string adapter;
  std::optional<double> seconds;

  void addTo(Arguments command) {
    command.add("--adapter", adapter, "The Bluetooth adapter, such as hci1; by default the first that is on")
        .named("NAME");
    command.add("--bus", bus, "D-Bus address of the bus with the Bluetooth service; by default the system's")
        .named("ADDRESS");
    command.add("--for", seconds, "End after this many seconds; by default with Ctrl-C").positive().named("SECONDS");
  }

  linux_::GeoClueOptions geoClue() const {
    linux_::GeoClueOptions options;
    options.bus = bus;
    return options;
  }
  linux_::BluezOptions bluez() const { return {.bus = bus, .adapter = adapter}; }
};

}  // namespace wayloom::tools
