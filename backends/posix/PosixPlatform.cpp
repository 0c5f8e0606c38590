#include "wayloom/posix/PosixPlatform.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

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

#include "backends/posix/PosixFiles.hpp"

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
  std::error_code failure;
  if (!options.mainBundle.empty() && !std::filesystem::is_directory(options.mainBundle, failure))
    services.systemLog->write("The main bundle is no directory that can be read: " + absolutePath(options.mainBundle));
  services.propertyLists = std::make_shared<PlistReader>();
  services.mainBundle = std::make_shared<DirectoryBundle>(options.mainBundle, *services.propertyLists);
  services.resourceBundle =
      std::make_shared<DirectoryBundle>(libraryResources(options.resourceBundle), *services.propertyLists);
}

// A host of 64 MB gets 4 MiB and 100 000 values: beside it, a document that uses them up leaves room to live.
platform::DocumentLimits limitsForMemory(std::uint64_t bytes) {
  const platform::DocumentLimits usual;
  return {static_cast<std::size_t>(std::clamp<std::uint64_t>(bytes / 16, 1U << 20U, usual.bytes)),
          static_cast<std::size_t>(std::clamp<std::uint64_t>(bytes / 640, 10'000, usual.elements))};
}

// What the process may have: the machine's, or less when somebody has set it a limit.
std::uint64_t availableMemory() {
  auto bytes =
      static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
    rlimit limit{};
    if (::getrlimit(resource, &limit) == 0) bytes = std::min<std::uint64_t>(bytes, limit.rlim_cur);
  }
  std::uint64_t ofGroup = 0;
  if (std::ifstream("/sys/fs/cgroup/memory.max") >> ofGroup) bytes = std::min(bytes, ofGroup);
  return bytes;
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
  services.documentLimits = options.documentLimits ? *options.documentLimits : limitsForMemory(availableMemory());
  services.location = options.location ? options.location : silentLocationServices(services);
  services.bluetooth = options.bluetooth ? options.bluetooth : std::make_shared<NoBluetooth>(services.tasks);
  return services;
}

std::unique_ptr<platform::Platform> makePlatform(const PlatformOptions& options) {
  return std::make_unique<platform::Platform>(makeServices(options));
}

}  // namespace wayloom::posix
