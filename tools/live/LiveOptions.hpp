#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/linux/GeoClueFixes.hpp"

namespace wayloom::tools {

// What the commands that listen have in common.
struct LiveOptions {
  std::string bus;
  std::string adapter;
  std::optional<double> seconds;

  void addTo(CLI::App& command) {
    command.add_option("--adapter", adapter, "The Bluetooth adapter, such as hci1; by default the first that is on")
        ->type_name("NAME");
    command.add_option("--bus", bus, "D-Bus address of the bus with the Bluetooth service; by default the system's")
        ->type_name("ADDRESS");
    command.add_option("--for", seconds, "End after this many seconds; by default with Ctrl-C")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
  }

  linux_::GeoClueOptions geoClue() const {
    linux_::GeoClueOptions options;
    options.bus = bus;
    return options;
  }
  linux_::BluezOptions bluez() const { return {.bus = bus, .adapter = adapter}; }
};

}  // namespace wayloom::tools
