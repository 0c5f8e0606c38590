// A whole simulated world for one device: virtual time, a venue's servers, the radio's location services, logs.
//
//   sim::SimPlatform world({.venue = "examples/venue"});
//   TWLManager manager(world.platform());
//   world.time().runReady();  // the kit has arrived
//   world.location().deliverRanging(beacons, region);
//   world.time().advanceBy(1s);
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/sim/SimBluetooth.hpp"
#include "wayloom/sim/SimWidgets.hpp"
#include "wayloom/sim/VenueHttpServer.hpp"
#include "wayloom/sim/VirtualTime.hpp"

namespace wayloom::sim {

class FreshFolder;

enum class LogChannel { engine, system };

struct SimOptions {
  // Folder with bundle/ and server/. Empty: a host without resources and without servers.
  std::string venue{};
  // Folder of the library's own resources; may be empty.
  std::string resourceBundle{};
  // Where files are kept, user defaults among them: two worlds one after the other over one folder are a restart.
  // Empty: a fresh folder, removed with the world.
  std::string documents{};
  // What the calendar clock shows at first.
  platform::CalendarTime start{std::chrono::seconds(1'750'000'000)};
  platform::UUID device{{0x57, 0x61, 0x79, 0x6C, 0x6F, 0x6F, 0x4D, 0x00, 0x80, 0x00, 0, 0, 0, 0, 0, 1}};
  // Hears every log line, from the construction on.
  std::function<void(LogChannel, std::string_view)> log{};
  // Changes or wraps services before the Platform is made of them: the place for faults.
  std::function<void(platform::PlatformServices&)> decorate{};
};

// One thread uses it and all that comes from it. Worlds are independent: a process may have thousands, side by side.
// Destroy what was made on the Platform before the world. Throws std::runtime_error when the fresh folder can't be
// made.
class SimPlatform {
 public:
  explicit SimPlatform(const SimOptions& options = {});
  ~SimPlatform();
  SimPlatform(const SimPlatform&) = delete;
  SimPlatform& operator=(const SimPlatform&) = delete;

  platform::Platform& platform() { return *platform_; }
  VirtualTime& time() { return time_; }
  const VirtualTime& time() const { return time_; }
  // Delivers what the radio and the platform report. Regions and positions may be delivered at any time.
  ranging::RangerLocationServices& location() { return *location_; }
  VenueHttpServer& server() { return *server_; }
  // The screen, unless `decorate` has put another in its place.
  SimWidgetFactory& widgets() { return *widgets_; }

  const SimBluetooth& bluetooth() const { return *bluetooth_; }
  // The scanner hears only while Bluetooth is on: frames go to receive(), which drops them while it is not.
  void setBluetoothState(platform::CBCentralManagerState state);
  void receive(const ranging::IBeaconFrame& frame);

  // Absolute paths, without a trailing slash; empty when there is none.
  const std::string& venue() const { return venue_; }
  const std::string& resourceBundle() const { return resourceBundle_; }
  const std::string& documents() const { return documents_; }

 private:
  platform::PlatformServices makeServices(const SimOptions& options);

  VirtualTime time_;
  std::unique_ptr<FreshFolder> freshFolder_;
  std::string venue_;
  std::string resourceBundle_;
  std::string documents_;
  std::shared_ptr<ranging::RangerLocationServices> location_;
  std::shared_ptr<SimBluetooth> bluetooth_;
  std::shared_ptr<VenueHttpServer> server_;
  std::shared_ptr<SimWidgetFactory> widgets_;
  std::unique_ptr<platform::Platform> platform_;
};

}  // namespace wayloom::sim
