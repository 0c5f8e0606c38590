// wayloom simulate: a recording of a walk that nobody took.

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <ostream>
#include <streambuf>
#include <system_error>
#include <unistd.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/sim/RadioSimulator.hpp"
#include "wayloom/sim/RecordingWriter.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "backends/posix/FileDescriptor.hpp"
#include "backends/posix/PosixFiles.hpp"
#include "tools/common/Command.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/common/VenuePlans.hpp"
#include "tools/common/VenueTroubles.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;
using platform::Platform;

constexpr const char* kDescription =
    "Writes a recording, with the truth in it, of a walk through a simulated radio world.";

constexpr const char* kFooter =
    R"(The venue's radio.json says how its beacons really send and what stands in their way; without one, the kit's beacons
send as the kit says, in a world without walls. --walk names a walk document; without one, somebody wanders from beacon
to beacon. The same venue, walk and seed give the same bytes. docs/radio.md has both formats.

Examples:
  wayloom simulate --venue examples/venue --seed 1 --walk examples/venue/walks/tour.json > tour.jsonl
  wayloom evaluate --venue examples/venue tour.jsonl)";

struct Options {
  std::string venue;
  std::string walk;
  std::string output = "-";
  std::uint64_t seed = 1;
  double start = 1.75e9;
  std::size_t stops = 20;
};

constexpr double kLongestWalk = 7 * 86'400.0;  // seconds

struct CommandError {
  std::string reason;
};

// The document in a file; nothing when there is no such file and it may be missing.
std::optional<Json> readDocument(Platform& platform, const std::string& path, bool mayBeMissing) {
  const auto text = platform.files().readFile(path);
  if (!text && mayBeMissing && !platform.files().fileExists(path)) return std::nullopt;
  if (!text) throw CommandError{path + ": can't be read"};
  auto parsed = platform::parseJson(*text);
  if (!parsed.value) throw CommandError{path + ": " + parsed.error};
  return std::move(*parsed.value);
}

std::vector<sim::RadioBeacon> beaconsOfKit(Platform& platform, const std::string& venue) {
  std::string error;
  const auto kit = readKit(platform, venue, error);
  if (!kit) throw CommandError{error};
  std::vector<sim::RadioBeacon> beacons;
  for (const auto& placed : placedBeacons(platform, *kit)) {
    sim::RadioBeacon beacon;
    beacon.identity = placed.identity;
    beacon.place = {placed.place.mapId, placed.place.x, placed.place.y};
    if (const auto power = placed.measuredPower; power && *power >= -128 && *power < 0) {
      beacon.powerAtOneMetre = static_cast<double>(*power);
      beacon.advertisedPower = static_cast<int>(*power);
    }
    beacons.push_back(std::move(beacon));
  }
  return beacons;
}

sim::RadioWorld readWorld(Platform& platform, const std::string& venue, const sim::VenueFrame& frame) {
  const std::string path = venue + "/radio.json";
  const auto document = readDocument(platform, path, true);
  if (!document) return sim::RadioWorld::open(beaconsOfKit(platform, venue), frame);
  std::string error;
  const auto knowsMap = [&](const std::string& mapId) {
    return TWLMapConfigRepo::sharedRepo(platform).forMapId(mapId) != nullptr;
  };
  auto world = sim::RadioWorld::fromJson(*document, frame, knowsMap, error);
  if (!world) throw CommandError{path + ": " + error};
  if (world->beacons().empty()) throw CommandError{path + ": there are no \"beacons\" in it"};
  return std::move(*world);
}

sim::Walk readWalk(Platform& platform, const Options& options, const sim::RadioWorld& world) {
  if (options.walk.empty()) {
    std::vector<sim::MapPoint> places;
    for (const auto& beacon : world.beacons()) places.push_back(beacon.place);
    // A stream far above those of the beacons.
    sim::SeededRandom random(options.seed, ~std::uint64_t{0});
    sim::Walk walk = sim::Walk::random(places, options.stops, random);
    walk.start = options.start;
    if (walk.waypoints.empty()) throw CommandError{options.venue + ": there is no beacon on a map to walk to"};
    return walk;
  }
  std::string error;
  auto walk = sim::Walk::fromJson(*readDocument(platform, options.walk, false), error);
  if (!walk) throw CommandError{options.walk + ": " + error};
  for (const auto& waypoint : walk->waypoints)
    if (TWLMapConfigRepo::sharedRepo(platform).forMapId(waypoint.place.mapId) == nullptr)
      throw CommandError{options.walk + ": the venue has no map \"" + waypoint.place.mapId + "\""};
  return std::move(*walk);
}

// A stream into an output; it has failed once nothing more can be written there or is wanted.
class OutputStream : private std::streambuf, public std::ostream {
 public:
  explicit OutputStream(Output& output) : std::ostream(this), output_(output) {}

 private:
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    output_.write({bytes, static_cast<std::size_t>(count)});
    return output_.flush() ? count : 0;
  }

  Output& output_;
};

// The walk may be long: it ends with the output.
struct OutputEnded {};

// Turns what the simulator tells into recorded events, times to the millisecond.
class WalkRecorder {
 public:
  WalkRecorder(double start, std::ostream& out) : start_(start), out_(out), writer_(out) {}

  sim::RadioListener listener() {
    return {.frame = [this](double t, const ranging::IBeaconFrame& frame,
                            const sim::RadioBeacon& beacon) { record(t, frame, beacon); },
            .fix = [this](double t, const platform::CLLocationCoordinate2D& coordinate,
                          double accuracy) { record(t, coordinate, accuracy); },
            .truth = [this](double t, const sim::MapPoint& place) { record(t, place); }};
  }

  void begin(std::uint64_t seed) { writer_.header({{"source", "wayloom simulate"}, {"seed", seed}}); }
  void end() { writer_.flush(); }

 private:
  sim::RecordedEvent& begin(sim::RecordedType type, double t) {
    event_.type = type;
    event_.t = std::round((start_ + t) * 1000.0) / 1000.0;
    event_.time = platform::calendarTimeFromSeconds(event_.t);
    return event_;
  }

  void record(double t, const ranging::IBeaconFrame& frame, const sim::RadioBeacon& beacon) {
    auto& event = begin(sim::RecordedType::advertisement, t);
    event.frame = frame;
    event.address = beacon.address;
    write();
  }

  void record(double t, const platform::CLLocationCoordinate2D& coordinate, double accuracy) {
    auto& event = begin(sim::RecordedType::location, t);
    // Seven decimals of a degree are a centimetre.
    const auto rounded = [](double degrees) { return std::round(degrees * 1e7) / 1e7; };
    event.fix = {{rounded(coordinate.latitude), rounded(coordinate.longitude)}, accuracy, event.time};
    write();
  }

  void record(double t, const sim::MapPoint& place) {
    auto& event = begin(sim::RecordedType::truth, t);
    const auto rounded = [](double pixels) { return std::round(pixels * 1000.0) / 1000.0; };
    event.truth = {
        .mapId = place.mapId, .geographic = false, .coordinate = {}, .x = rounded(place.x), .y = rounded(place.y)};
    write();
  }

  void write() {
    writer_.write(event_);
    if (!out_) throw OutputEnded();
  }

  double start_;
  std::ostream& out_;
  sim::RecordingWriter writer_;
  sim::RecordedEvent event_;
};

// The Platform's files go by absolute paths.
Options withAbsolutePaths(Options options) {
  options.venue = posix::absolutePath(options.venue);
  if (!options.walk.empty()) options.walk = posix::absolutePath(options.walk);
  return options;
}

void simulate(const Options& options) {
  const DocumentsFolder documents("", StopSignals::endTheProgram);
  sim::SimPlatform device({.venue = options.venue, .documents = documents.path()});
  Platform& platform = device.platform();
  const sim::VenueFrame frame = venueFrame(platform);
  const sim::RadioWorld world = readWorld(platform, options.venue, frame);
  const sim::Walk walk = readWalk(platform, options, world);
  const sim::WalkPath path(walk, frame, [&](const std::string& mapId) { return world.floorOf(mapId).elevation; });
  if (!(path.duration() <= kLongestWalk))
    throw CommandError{(options.walk.empty() ? options.venue : options.walk) +
                       ": the walk takes more than a week, which is no walk: see its waypoints and speeds"};
  const auto record = [&](Output& output) {
    OutputStream stream(output);
    WalkRecorder recorder(walk.start, stream);
    recorder.begin(options.seed);
    sim::simulateRadio(world, path, frame, options.seed, recorder.listener());
    recorder.end();
  };
  if (options.output == "-") return record(standardOutput());
  const posix::FileDescriptor file(::open(options.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file) throw CommandError{options.output + ": " + std::generic_category().message(errno)};
  Output output(file.get(), Output::Buffering::none);
  try {
    record(output);
  } catch (const OutputEnded&) {
  }
  if (output.failure() != 0)
    throw CommandError{options.output + ": " + std::generic_category().message(output.failure())};
}

int run(const Options& given) {
  if (tellTroubles(given.venue, {VenuePart::addresses, VenuePart::builtInMaps, VenuePart::kit})) return kRunFailed;
  try {
    simulate(withAbsolutePaths(given));
    return kSucceeded;
  } catch (const OutputEnded&) {
    return kSucceeded;  // why, is looked at where all commands end
  } catch (const CommandError& error) {
    complain(error.reason);
    return kRunFailed;
  }
}

}  // namespace

void registerSimulate(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("simulate", kDescription, kFooter);
  command.addVenue(options->venue).required();
  command.add("--seed", options->seed, "What chance begins with; the same seed gives the same recording").required();
  command.add("--walk", options->walk, "A walk document; without it a random walk").existingFile();
  command.add("--stops", options->stops, "How many places a random walk visits").between(1, 10000).showsDefault();
  command.add("--start", options->start, "When a random walk begins, seconds since 1970")
      .between(0.0, 4e9)
      .showsDefault();
  command.add("-o,--output", options->output, "The recording to write; - is standard output")
      .named("FILE")
      .showsDefault();
  command.runs([options] { return run(*options); });
}

}  // namespace wayloom::tools
