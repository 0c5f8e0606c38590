// wayloom record: what Bluetooth hears, into a recording, with where the operator stands.
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>

#include "wayloom/linux/LinuxLocationServices.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/posix/StreamLogSink.hpp"

#include "tools/common/Command.hpp"
#include "tools/live/KitNames.hpp"
#include "tools/live/LiveLoop.hpp"
#include "tools/live/LiveOptions.hpp"
#include "tools/live/LiveRecorder.hpp"
#include "tools/live/WalkTruth.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription = "Records what Bluetooth hears, and where the operator really is.";

constexpr const char* kFooter =
    "Every iBeacon frame is recorded, of whatever UUID, and with --fixes the geographic fixes. To have `wayloom\n"
    "evaluate` judge the recording, say where you are: with --map and --at when you stand still, or walk the\n"
    "waypoints of a walk document (docs/radio.md) and press Enter at each; between two of them you are taken to walk\n"
    "straight and steadily. At a waypoint with a pause, press Enter on arriving and on leaving. Examples:\n"
    "  wayloom record --venue venue --map lobby --at 120.5,44 --for 60 spot1.jsonl\n"
    "  wayloom record --venue venue --walk venue/walks/tour.json tour.jsonl\n"
    "  wayloom evaluate --venue venue tour.jsonl\n\n"
    "Exit status: 0 when frames were recorded; 1 when none was heard or the file can't be written.";

struct Options {
  LiveOptions live;
  std::string venue;
  std::string map;
  std::vector<double> at;
  std::string walk;
  bool fixes = false;
  std::string file;
};

std::optional<WalkTruth> readWalk(const std::string& path, const KitNames& venue) {
  if (path.empty()) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  const auto document = platform::parseJson(std::string(std::istreambuf_iterator<char>(file), {}));
  if (!document.value) throw std::runtime_error(path + ": " + document.error);
  std::string error;
  auto walk = sim::Walk::fromJson(*document.value, error);
  if (!walk) throw std::runtime_error(path + ": " + error);
  for (const auto& waypoint : walk->waypoints)
    if (venue.platform() && !TWLMapConfigRepo::sharedRepo(*venue.platform()).forMapId(waypoint.place.mapId))
      throw std::runtime_error(path + ": the venue has no map \"" + waypoint.place.mapId + "\"");
  return WalkTruth(std::move(*walk));
}

class Record : private platform::CLLocationManagerDelegate {
 public:
  explicit Record(const Options& options)
      : options_(options),
        venue_(options.venue),
        walk_(readWalk(options.walk, venue_)),
        file_(options.file, std::ios::binary | std::ios::trunc),
        recorder_(file_),
        services_(std::make_shared<linux_::LinuxLocationServices>(
            loop_.tasks(), std::make_shared<posix::StreamLogSink>(), options.live.bluez(), options.live.geoClue())),
        bluetooth_(services_->bluetooth()),
        manager_(services_->makeLocationManager()) {
    if (!options.map.empty() && venue_.platform() &&
        !TWLMapConfigRepo::sharedRepo(*venue_.platform()).forMapId(options.map))
      throw std::runtime_error(options.venue + ": there is no map \"" + options.map + "\"");
  }

  int run() {
    if (!file_) return fail("can't be written");
    listen();
    const auto& tasks = loop_.tasks();
    const auto second = tasks->startTimer(tasks->mainQueue(), platform::Duration::zero(), std::chrono::seconds(1),
                                          [this] { passSecond(); });
    loop_.run(options_.live.seconds);
    recorder_.release({});
    file_.flush();
    if (!file_) return fail("can't be written");
    standardError().print("{} frames of {} beacons, {} lines in {}\n", frames_, identities_.size(), recorder_.count(),
                          options_.file);
    return frames_ > 0 ? kSucceeded : fail("no frame was heard; `wayloom doctor` may know why");
  }

 private:
  int fail(const char* why) {
    complain(fmt::format("{}: {}", options_.file, why));
    return kRunFailed;
  }

  void listen() {
    services_->setReportObserver([this](std::span<const linux_::BeaconReport> reports) { record(reports); });
    services_->scanAlways();
    bluetooth_->setStateCallback([this](platform::CBCentralManagerState state) {
      auto event = begin(sim::RecordedType::bluetooth);
      event.bluetooth = state;
      recorder_.write(event);
    });
    manager_->setDelegate(this);
    if (options_.fixes) manager_->startUpdatingLocation();
    if (!walk_) return;
    loop_.setInputHandler([this](std::string_view typed) { press(typed); });
    prompt();
  }

  sim::RecordedEvent begin(sim::RecordedType type) const {
    sim::RecordedEvent event;
    event.type = type;
    event.t = recorder_.now();
    return event;
  }

  void record(std::span<const linux_::BeaconReport> reports) {
    auto event = begin(sim::RecordedType::advertisement);
    for (const auto& report : reports) {
      event.t = recorder_.timeOf(report.receivedAt);
      event.frame = report.frame;
      event.address = report.sender.text();
      recorder_.write(event);
      ++frames_;
      if (identities_.size() < kMostCounted) identities_.insert(report.frame.identity);
    }
  }

  void locationManagerDidUpdateLocations(platform::CLLocationManager*,
                                         std::span<const platform::CLLocation> fixes) override {
    auto event = begin(sim::RecordedType::location);
    for (const auto& fix : fixes) {
      event.fix = fix;
      recorder_.write(event);
    }
  }

  void locationManagerDidChangeAuthorizationStatus(platform::CLLocationManager*,
                                                   platform::CLAuthorizationStatus status) override {
    auto event = begin(sim::RecordedType::authorization);
    event.authorization = status;
    recorder_.write(event);
  }

  // Where the operator stands, and what there is to lose when the power goes.
  void passSecond() {
    if (!options_.at.empty()) {
      auto event = begin(sim::RecordedType::truth);
      event.truth = {
          .mapId = options_.map, .geographic = false, .coordinate = {}, .x = options_.at[0], .y = options_.at[1]};
      recorder_.write(event);
    }
    recorder_.flush();
    if (!file_) loop_.stop();
  }

  void press(std::string_view typed) {
    if (typed.empty() || typed.find('q') != typed.npos) return loop_.stop();
    for (const char c : typed)
      if (c == '\n' && !walk_->isOver()) {
        recorder_.release(walk_->mark(recorder_.now()));
        recorder_.hold();
        prompt();
      }
  }

  void prompt() {
    if (walk_->isOver())
      standardError().print("The walk is over. q and Enter end the recording.\n");
    else
      standardError().print("Press Enter {}\n", walk_->nextPlace());
    if (walk_->isOver()) recorder_.release({});
  }

  static constexpr std::size_t kMostCounted = 10'000;

  const Options& options_;
  LiveLoop loop_;
  KitNames venue_;
  std::optional<WalkTruth> walk_;
  std::ofstream file_;
  LiveRecorder recorder_;
  std::size_t frames_ = 0;
  std::set<platform::BeaconIdentity> identities_;
  std::shared_ptr<linux_::LinuxLocationServices> services_;
  std::shared_ptr<platform::CBCentralManager> bluetooth_;
  std::unique_ptr<platform::CLLocationManager> manager_;
};

int record(const Options& options) {
  if (!options.at.empty() && options.at.size() != 2) {
    complain("--at takes two numbers: X,Y");
    return kUsageError;
  }
  try {
    return Record(options).run();
  } catch (const std::runtime_error& error) {
    complain(error.what());
    return kRunFailed;
  }
}

}  // namespace

void registerRecord(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("record", kDescription, kFooter);
  command.addVenue(options->venue, "Venue folder, to check the names of maps against");
  auto map = command.add("--map", options->map, "The map that you stand on").named("MAPID");
  auto at = command.add("--at", options->at, "Where on it, in standard pixels (5 a metre)")
                .separatedBy(',')
                .named("X,Y")
                .needs(map);
  map.needs(at);
  command.add("--walk", options->walk, "Walk document whose waypoints you pass").existingFile().excludes(at);
  command.add("--fixes", options->fixes, "Record geographic fixes as well");
  command.add("FILE", options->file, "The recording to write").required();
  options->live.addTo(command);
  command.runs([options] { return record(*options); });
}

}  // namespace wayloom::tools
