// wayloom run: the whole system on a live radio.
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <mutex>

#include "wayloom/linux/LinuxLocationServices.hpp"
#include "wayloom/linux/LinuxPlatform.hpp"
#include "wayloom/positioning/RefinedPositionUpdates.hpp"
#include "wayloom/positioning/TWLLocationTracker.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"
#include "wayloom/sim/VenueHttpServer.hpp"

#include "backends/sim/TellingManager.hpp"
#include "tools/common/Command.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/common/EngineOptions.hpp"
#include "tools/common/VenueTroubles.hpp"
#include "tools/live/LiveLoop.hpp"
#include "tools/live/LiveOptions.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Runs the whole system on what Bluetooth hears, and prints one JSON line for each output.";

constexpr const char* kFooter =
    "The lines are those of `wayloom replay` (docs/replay.md). Requests are answered from the venue folder; with\n"
    "--network they go to the servers that its bundle names. Examples:\n"
    "  wayloom run --venue venue\n"
    "  wayloom run --venue venue --events all --documents state --network\n\n"
    "Exit status: 0 when ended by the user or by --for; 1 when the venue or the documents folder can't be used.";

struct Options {
  EngineOptions engine;
  LiveOptions live;
  bool network = false;
  bool geolocation = false;
};

// The printer, for calls from all the system's threads.
class LivePrinter {
 public:
  LivePrinter(ReplayPrinter& printer, LiveLoop& loop) : printer_(printer), loop_(loop) {}

  template <class... Parameters, class... Arguments>
  void tell(void (sim::ReplayListener::*operation)(double, Parameters...), Arguments&&... arguments) {
    const std::lock_guard lock(mutex_);
    (static_cast<sim::ReplayListener&>(printer_).*operation)(platform::secondsSince1970(clock_.now()),
                                                             std::forward<Arguments>(arguments)...);
    if (!printer_.flush()) loop_.tasks()->mainQueue().async([this] { loop_.stop(); });
  }

 private:
  ReplayPrinter& printer_;
  LiveLoop& loop_;
  posix::PosixCalendarClock clock_;
  std::mutex mutex_;
};

// Shows requests on their way to another client.
class ShownHttpClient : public platform::HttpClient {
 public:
  ShownHttpClient(std::shared_ptr<platform::HttpClient> client, LivePrinter& printer)
      : client_(std::move(client)), printer_(printer) {}

  std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                           Handler handler) override {
    printer_.tell(&sim::ReplayListener::requested, request);
    return client_->send(std::move(request), queue, std::move(handler));
  }

 private:
  std::shared_ptr<platform::HttpClient> client_;
  LivePrinter& printer_;
};

class Run {
 public:
  explicit Run(const Options& options)
      : options_(options),
        venue_(std::filesystem::absolute(options.engine.venue).lexically_normal().string()),
        documents_(options.engine.documents),
        printer_(standardOutput(), options.engine.printed(), {documents_.path(), venue_}),
        shown_(printer_, loop_) {}

  int run() {
    makePlatform();
    manager_ = std::make_unique<sim::TellingManager<LivePrinter>>(*platform_, shown_);
    location_->setDeliveryObserver(
        [this] { shown_.tell(&sim::ReplayListener::located, manager_->currentMapLocation()); });
    auto& tracker = manager_->locationTracker();
    tracker.setUseCoreLocationRanging(!options_.engine.useOwnDistance);
    if (options_.engine.printsAll())
      tracker.setElectionObserver(
          [this](const ElectionTrace& trace) { shown_.tell(&sim::ReplayListener::elected, trace); });
    if (options_.engine.refined)
      refined_ = std::make_unique<RefinedPositionUpdates>(
          *platform_, *manager_,
          [this](const RefinedPosition& position) { shown_.tell(&sim::ReplayListener::refined, position); });
    manager_->updateMaps();
    if (options_.geolocation) manager_->startGeolocation();
    loop_.run(options_.live.seconds);
    location_->setDeliveryObserver({});
    tracker.setElectionObserver({});
    return printer_.flush() ? kSucceeded : kRunFailed;
  }

 private:
  void makePlatform() {
    auto services = linux_::makeServices(
        {.posix = {.mainBundle = venue_ + "/bundle", .documents = documents_.path(), .loop = loop_.tasks()},
         .bluez = options_.live.bluez(),
         .geoClue = options_.live.geoClue()});
    location_ = std::dynamic_pointer_cast<linux_::LinuxLocationServices>(services.location);
    // Without --events all, what is wrong with the radio is still told, on standard error.
    if (options_.engine.printsAll()) {
      services.console = log(sim::LogChannel::engine);
      services.systemLog = log(sim::LogChannel::system);
    }
    if (!options_.network)
      services.http =
          std::make_shared<sim::VenueHttpServer>(services.tasks, services.files, venue_, *services.propertyLists);
    services.http = std::make_shared<ShownHttpClient>(services.http, shown_);
    platform_ = std::make_unique<platform::Platform>(std::move(services));
  }

  std::shared_ptr<platform::LogSink> log(sim::LogChannel channel) {
    return std::make_shared<sim::CallbackLogSink>(
        [this, channel](std::string_view line) { shown_.tell(&sim::ReplayListener::logged, channel, line); });
  }

  const Options& options_;
  LiveLoop loop_;
  std::string venue_;
  DocumentsFolder documents_;
  ReplayPrinter printer_;
  LivePrinter shown_;
  std::shared_ptr<linux_::LinuxLocationServices> location_;
  std::unique_ptr<platform::Platform> platform_;
  std::unique_ptr<sim::TellingManager<LivePrinter>> manager_;
  std::unique_ptr<RefinedPositionUpdates> refined_;
};

int runLive(const Options& options) {
  const auto& venue = options.engine.venue;
  if (tellTroubles(venue, {VenuePart::addresses, VenuePart::usage})) return kRunFailed;
  // With a network the kit is not the folder's.
  if (!options.network && tellTroubles(venue, {VenuePart::kit})) return kRunFailed;
  return Run(options).run();
}

}  // namespace

void registerRun(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("run", kDescription, kFooter);
  options->engine.addTo(command);
  command.add("--network", options->network, "Talk to the servers that the bundle names");
  command.add("--geolocation", options->geolocation, "Use geographic fixes where no beacon is heard");
  options->live.addTo(command);
  command.runs([options] { return runLive(*options); });
}

}  // namespace wayloom::tools
