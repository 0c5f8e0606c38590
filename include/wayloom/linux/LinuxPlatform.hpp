// The Platform of a Linux host with Bluetooth:
//
//   auto loop = std::make_shared<posix::MainLoop>();
//   linux_::PlatformOptions options;
//   options.posix = {.mainBundle = "bundle", .documents = "/var/lib/kiosk", .loop = loop};
//   auto platform = linux_::makePlatform(options);
//   TWLManager manager(*platform, &myDelegate);
//   loop->run();
#pragma once

#include <memory>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/linux/GeoClueFixes.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/posix/PosixPlatform.hpp"

namespace wayloom::linux_ {

struct PlatformOptions {
  posix::PlatformOptions posix = {};  // `location` and `bluetooth` are not looked at
  BluezOptions bluez = {};
  GeoClueOptions geoClue = {};
};

// As posix::makeServices(), with `location` a LinuxLocationServices and `bluetooth` its radio. A host without a bus, a
// service or an adapter gets the same, working but for the radio; the log says what is missing.
platform::PlatformServices makeServices(const PlatformOptions& options);
std::unique_ptr<platform::Platform> makePlatform(const PlatformOptions& options);

}  // namespace wayloom::linux_
