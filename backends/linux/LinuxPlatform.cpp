#include "wayloom/linux/LinuxPlatform.hpp"

#include "wayloom/linux/LinuxLocationServices.hpp"

namespace wayloom::linux_ {

platform::PlatformServices makeServices(const PlatformOptions& options) {
  auto services = posix::makeServices(options.posix);
  const auto location =
      std::make_shared<LinuxLocationServices>(services.tasks, services.systemLog, options.bluez, options.geoClue);
  services.location = location;
  services.bluetooth = location->bluetooth();
  return services;
}

std::unique_ptr<platform::Platform> makePlatform(const PlatformOptions& options) {
  return std::make_unique<platform::Platform>(makeServices(options));
}

}  // namespace wayloom::linux_
