#include "wayloom/posix/PosixPlatform.hpp"

#include "wayloom/posix/DirectoryBundle.hpp"
#include "wayloom/posix/FileDeviceIdentity.hpp"
#include "wayloom/posix/FileUserDefaults.hpp"
#include "wayloom/posix/LibraryResources.hpp"
#include "wayloom/posix/NoBluetooth.hpp"
#include "wayloom/posix/PlistReader.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixFileManager.hpp"
#include "wayloom/posix/StreamLogSink.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"

namespace wayloom::posix {
namespace {

using platform::PlatformServices;

void addFiles(PlatformServices& services, const PlatformOptions& options) {
  services.files = std::make_shared<PosixFileManager>(options.documents);
  const auto documents = services.files->documentsDirectory();
  if (!services.files->fileExists(documents))
    services.systemLog->write("Documents directory cannot be made: " + documents);
  const auto settings = options.settings.empty() ? documents + "/.settings" : options.settings;
  services.userDefaults = std::make_shared<FileUserDefaults>(settings + "/defaults.json", services.systemLog);
  services.device = std::make_shared<FileDeviceIdentity>(settings + "/device", *services.systemLog);
}

void addBundles(PlatformServices& services, const PlatformOptions& options) {
  services.propertyLists = std::make_shared<PlistReader>();
  services.mainBundle = std::make_shared<DirectoryBundle>(options.mainBundle, *services.propertyLists);
  services.resourceBundle =
      std::make_shared<DirectoryBundle>(libraryResources(options.resourceBundle), *services.propertyLists);
}

// Without a radio: regions can be registered but not monitored.
std::shared_ptr<platform::LocationServices> silentLocationServices(const PlatformServices& services) {
  auto location = std::make_shared<ranging::RangerLocationServices>(*services.tasks, *services.monotonicClock);
  location->setMonitoringAvailable(false);
  return location;
}

}  // namespace

PlatformServices makeServices(const PlatformOptions& options) {
  PlatformServices services;
  services.console = std::make_shared<StreamLogSink>();
  services.systemLog = std::make_shared<StreamLogSink>();
  services.calendarClock = std::make_shared<PosixCalendarClock>();
  services.monotonicClock = std::make_shared<PosixMonotonicClock>();
  services.tasks = options.loop ? options.loop : std::make_shared<MainLoop>();
  addFiles(services, options);
  addBundles(services, options);
  services.http = std::make_shared<CurlHttpClient>(options.http);
  services.location = options.location ? options.location : silentLocationServices(services);
  services.bluetooth = options.bluetooth ? options.bluetooth : std::make_shared<NoBluetooth>(services.tasks);
  return services;
}

std::unique_ptr<platform::Platform> makePlatform(const PlatformOptions& options) {
  return std::make_unique<platform::Platform>(makeServices(options));
}

}  // namespace wayloom::posix
