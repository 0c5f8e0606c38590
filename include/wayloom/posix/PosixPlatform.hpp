// The Platform of an ordinary Linux process: real time, files, the network; no radio.
//
//   auto loop = std::make_shared<posix::MainLoop>();
//   auto platform = posix::makePlatform({.mainBundle = "/opt/kiosk/bundle", .documents = "/var/lib/kiosk", .loop =
//   loop}); TWLManager manager(*platform, &myDelegate); loop->run();
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/posix/CurlHttpClient.hpp"
#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::posix {

// Directories may be relative to the working directory.
struct PlatformOptions {
  std::string mainBundle = {};      // the host's resources: property lists, the built-in map document, map images
  std::string resourceBundle = {};  // the library's own resources, the map page; empty: see LibraryResources.hpp
  std::string documents = {};       // what the library keeps: made when it is missing
  std::string settings = {};        // user defaults and the device identifier; empty: ".settings" in `documents`
  CurlHttpOptions http = {};
  // Of a server's document; empty: a sixteenth of the memory that the process may have, up to the usual limits.
  std::optional<platform::DocumentLimits> documentLimits = {};
  std::shared_ptr<MainLoop> loop = {};  // empty: one of its own, which services.tasks then holds
  // What hears beacons, usually a RangerLocationServices that is made on `loop` and fed by a radio; empty: nothing
  // does, and region monitoring is not available.
  std::shared_ptr<platform::LocationServices> location = {};
  std::shared_ptr<platform::CBCentralManager> bluetooth = {};  // empty: unsupported
};

// Both logs go to standard error. A directory that can't be made is told in the log; what needs it then fails by
// itself. Throws std::system_error when the system gives no descriptors or threads.
platform::PlatformServices makeServices(const PlatformOptions& options);

// A Platform of these services. To replace or wrap some, make the Platform oneself.
std::unique_ptr<platform::Platform> makePlatform(const PlatformOptions& options);

}  // namespace wayloom::posix
