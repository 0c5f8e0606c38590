#include "wayloom/sim/SimPlatform.hpp"

#include <utility>

#include "wayloom/posix/DirectoryBundle.hpp"
#include "wayloom/posix/FileUserDefaults.hpp"
#include "wayloom/posix/PlistReader.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "backends/sim/DatedFileManager.hpp"
#include "backends/sim/FreshFolder.hpp"

namespace wayloom::sim {
namespace {

using platform::CBCentralManagerState;

constexpr std::string_view kUserDefaultsFile = "/user_defaults.json";

class FixedDeviceIdentity : public platform::DeviceIdentity {
 public:
  explicit FixedDeviceIdentity(const platform::UUID& identifier) : identifier_(identifier) {}
  platform::UUID identifierForVendor() const override { return identifier_; }

 private:
  platform::UUID identifier_;
};

std::string absoluteOrEmpty(const std::string& path) { return path.empty() ? path : posix::absolutePath(path); }

std::shared_ptr<platform::LogSink> makeLog(const SimOptions& options, LogChannel channel) {
  return std::make_shared<CallbackLogSink>([log = options.log, channel](std::string_view line) {
    if (log) log(channel, line);
  });
}

// A bundle without a folder is the empty one.
std::shared_ptr<platform::Bundle> makeBundle(const std::string& path, const platform::PropertyListReader& reader) {
  return std::make_shared<posix::DirectoryBundle>(path.empty() ? "/nonexistent" : path, reader);
}

}  // namespace

SimPlatform::SimPlatform(const SimOptions& options)
    : time_(options.start),
      freshFolder_(options.documents.empty() ? std::make_unique<FreshFolder>() : nullptr),
      venue_(absoluteOrEmpty(options.venue)),
      resourceBundle_(absoluteOrEmpty(options.resourceBundle)),
      documents_(posix::absolutePath(freshFolder_ ? freshFolder_->path() : options.documents)) {
  auto services = makeServices(options);
  if (options.decorate) options.decorate(services);
  platform_ = std::make_unique<platform::Platform>(std::move(services));
}

SimPlatform::~SimPlatform() = default;

platform::PlatformServices SimPlatform::makeServices(const SimOptions& options) {
  platform::PlatformServices services;
  services.console = makeLog(options, LogChannel::engine);
  services.systemLog = makeLog(options, LogChannel::system);
  services.calendarClock = time_.calendarClock();
  services.monotonicClock = time_.monotonicClock();
  services.tasks = time_.scheduler();
  services.files = std::make_shared<DatedFileManager>(documents_, services.calendarClock);
  services.propertyLists = std::make_shared<posix::PlistReader>();
  services.mainBundle = makeBundle(venue_.empty() ? "" : venue_ + "/bundle", *services.propertyLists);
  services.resourceBundle = makeBundle(resourceBundle_, *services.propertyLists);
  services.userDefaults =
      std::make_shared<posix::FileUserDefaults>(documents_ + std::string(kUserDefaultsFile), services.systemLog);
  services.device = std::make_shared<FixedDeviceIdentity>(options.device);
  server_ = std::make_shared<VenueHttpServer>(services.tasks, services.files, venue_, *services.propertyLists);
  services.http = server_;
  location_ = std::make_shared<ranging::RangerLocationServices>(*services.tasks, *services.monotonicClock);
  services.location = location_;
  bluetooth_ = std::make_shared<SimBluetooth>(services.tasks);
  services.bluetooth = bluetooth_;
  widgets_ = std::make_shared<SimWidgetFactory>(services.tasks);
  services.widgets = widgets_;
  return services;
}

void SimPlatform::setBluetoothState(CBCentralManagerState state) {
  bluetooth_->setState(state);
  location_->setScanning(state == CBCentralManagerState::poweredOn);
}

void SimPlatform::receive(const ranging::IBeaconFrame& frame) {
  if (bluetooth_->state() == CBCentralManagerState::poweredOn) location_->receive(frame);
}

}  // namespace wayloom::sim
