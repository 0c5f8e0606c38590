// wayloom evaluate: how well the positions of a replay fit the truth in the recordings.

#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/Replayer.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "tools/common/Command.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/common/Progress.hpp"
#include "tools/common/VenuePlans.hpp"
#include "tools/common/VenueTroubles.hpp"
#include "tools/evaluate/Evaluation.hpp"
#include "tools/evaluate/EvaluationReport.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription = "Replays recordings that know the truth and judges the positions, once a second.";

constexpr const char* kFooter = R"(The figures:
  fix     share of the seconds with known truth that have a position
  map     of those, on the right map
  hit     of those, at the beacon that is nearest to the truth
  median, p90   metres from the position to the truth
  sw/min  changes of the reported beacon a minute
  bad/min of those, to a beacon farther from the truth than the one left

Example:
  wayloom evaluate --venue examples/venue tour.jsonl --report report.html)";

struct Options {
  std::string venue;
  std::vector<std::string> recordings;
  std::string report;
  bool useOwnDistance = false;
};

std::string readBytes(platform::Platform& platform, const std::string& path) {
  return platform.files().readFile(path).value_or("");
}

ReportPlan planOf(platform::Platform& platform, const TWLMapConfig& map) {
  ReportPlan plan{.mapId = map.mapId(),
                  .name = map.name().value_or(map.mapId()),
                  .imageType = {},
                  .imageBytes = {},
                  .width = static_cast<double>(map.scaledMapPixelWidth()),
                  .height = static_cast<double>(map.scaledMapPixelHeight())};
  constexpr std::pair<const char*, const char*> kTypes[] = {
      {"svg", "image/svg+xml"}, {"png", "image/png"}, {"jpg", "image/jpeg"}};
  for (const auto& [extension, type] : kTypes) {
    const auto path = platform.mainBundle().pathForResource(map.mapId(), extension);
    if (!path) continue;
    plan.imageType = type;
    plan.imageBytes = readBytes(platform, *path);
    break;
  }
  return plan;
}

void printRow(const std::string& name, const Figures& f) {
  standardOutput().print("{:<32.32} {:>7} {:>6} {:>6} {:>6} {:>8} {:>8} {:>7} {:>8}\n", name, f.seconds,
                         figureText(f.fixShare(), 1, 100), figureText(f.rightMapShare(), 1, 100),
                         figureText(f.hitShare(), 1, 100), figureText(f.errorQuantile(0.5), 2),
                         figureText(f.errorQuantile(0.9), 2), figureText(f.switchesPerMinute(), 1),
                         figureText(f.badSwitchesPerMinute(), 2));
}

void printTable(const ReportInput& input) {
  standardOutput().print("{:<32} {:>7} {:>6} {:>6} {:>6} {:>8} {:>8} {:>7} {:>8}\n", "recording", "seconds", "fix %",
                         "map %", "hit %", "median m", "p90 m", "sw/min", "bad/min");
  for (const auto& walk : input.walks) printRow(walk.name, walk.figures);
  if (input.walks.size() > 1) printRow("all", input.total);
}

ReportInput describeVenue(const Options& options) {
  const DocumentsFolder documents("", StopSignals::endTheProgram);
  sim::SimPlatform device({.venue = options.venue, .documents = documents.path()});
  platform::Platform& platform = device.platform();
  std::string error;
  const auto kit = readKit(platform, device.venue(), error);
  if (!kit) throw std::runtime_error(error);
  ReportInput input;
  input.venueName = kit->name().value_or(options.venue);
  for (const auto& beacon : placedBeacons(platform, *kit)) input.beacons.push_back({beacon.label, beacon.place});
  for (const auto& map : TWLMapConfigRepo::sharedRepo(platform).maps()) input.plans.push_back(planOf(platform, *map));
  return input;
}

// Keeps what was reported.
class WalkListener : public sim::ReplayListener {
 public:
  void located(double t, const TWLMapLocationPtr& location) override {
    ReportedPosition report{.t = t};
    if (location) {
      report.place = PlanPoint{location->mapId(), location->pixelCoords().x, location->pixelCoords().y};
      report.uncertaintyMeters = location->uncertaintyRadiusMeters();
    }
    walk.reported.push_back(std::move(report));
  }

  Walk walk;
};

// A place where the device really was, and the line that says so.
struct TruthLine {
  std::uint64_t line;
  double t;
  sim::RecordedTruth truth;
};

std::string placeIn(const std::string& recording, std::uint64_t line) {
  return line == 0 ? recording : fmt::format("{}:{}", recording, line);
}

// Needs the maps, which the replayed world has. There is nothing to compare with on one that doesn't exist.
TruthPoint truthPoint(platform::Platform& platform, const std::string& recording, const TruthLine& line) {
  const auto& truth = line.truth;
  if (TWLMapConfigRepo::sharedRepo(platform).forMapId(truth.mapId) == nullptr)
    throw std::runtime_error(
        fmt::format("{}: the venue has no map \"{}\"", placeIn(recording, line.line), truth.mapId));
  if (!truth.geographic) return {line.t, {truth.mapId, truth.x, truth.y}};
  const auto location = TWLLocationUtils::mapLocationForGeolocationForMapId(platform, truth.coordinate, truth.mapId);
  return {line.t, {truth.mapId, location->pixelCoords().x, location->pixelCoords().y}};
}

// Replays the recording to its end.
std::vector<TruthLine> replayForTruth(const std::string& recording, sim::Replayer& replayer) {
  std::vector<TruthLine> truth;
  auto reader = sim::RecordingReader::ofFile(recording);
  while (const auto* event = reader.next()) {
    if (event->type == sim::RecordedType::truth) truth.push_back({reader.line(), event->t, event->truth});
    replayer.deliver(*event);
  }
  if (const auto& error = reader.error())
    throw std::runtime_error(placeIn(recording, error->line) + ": " + error->reason);
  if (truth.empty()) throw std::runtime_error(recording + ": there is no line of type \"truth\" to compare with");
  return truth;
}

void evaluateRecording(const Options& options, const std::string& recording, ReportInput& input) {
  const DocumentsFolder documents("", StopSignals::endTheProgram);
  WalkListener listener;
  sim::Replayer replayer(
      {.venue = options.venue, .documents = documents.path(), .useOwnDistance = options.useOwnDistance}, listener);
  const auto truth = replayForTruth(recording, replayer);
  platform::Platform& platform = replayer.world()->platform();
  auto& walk = listener.walk;
  for (const auto& line : truth) walk.truth.push_back(truthPoint(platform, recording, line));
  const PlanDistance distance = planDistance(platform);
  ReportWalk judged{.name = std::filesystem::path(recording).stem().string(),
                    .seconds = evaluateWalk(walk, input.beacons, distance),
                    .figures = {}};
  judged.figures = figuresOf(judged.seconds, input.beacons, distance);
  input.total.add(judged.figures);
  input.walks.push_back(std::move(judged));
}

void writeReport(const std::string& path, const ReportInput& input) {
  if (const auto error = posix::writeWholeFile(path, renderEvaluationReport(input)))
    throw std::runtime_error(error->description);
}

int run(const Options& options) {
  if (tellTroubles(options.venue, {VenuePart::addresses, VenuePart::usage, VenuePart::builtInMaps, VenuePart::kit}))
    return kRunFailed;
  ReportInput input = describeVenue(options);
  Progress progress;
  const auto count = options.recordings.size();
  for (const auto& recording : options.recordings) {
    if (count > 1) progress.show(fmt::format("{}/{} {}", input.walks.size() + 1, count, recording));
    evaluateRecording(options, recording, input);
  }
  progress.clear();
  printTable(input);
  if (!options.report.empty()) writeReport(options.report, input);
  return kSucceeded;
}

}  // namespace

void registerEvaluate(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("evaluate", kDescription, kFooter);
  command.addVenue(options->venue).required();
  command.add("RECORDINGS", options->recordings, "Recordings with truth lines").required().existingFile();
  command.add("--report", options->report, "Draw the walks and figures into this HTML file").named("FILE");
  command.add("--use-own-distance", options->useOwnDistance,
              "Compare the library's own distances instead of the platform's accuracies");
  command.runs([options] { return run(*options); });
}

}  // namespace wayloom::tools
