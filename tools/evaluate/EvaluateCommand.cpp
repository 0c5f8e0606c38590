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
#include "tools/common/Progress.hpp"
#include "tools/common/VenuePlans.hpp"
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
  standardOutput().print("{:<32.32} {:>7} {:>6.1f} {:>6.1f} {:>6.1f} {:>8.2f} {:>8.2f} {:>7.1f} {:>8.2f}\n", name,
                         f.seconds, 100 * f.fixShare(), 100 * f.rightMapShare(), 100 * f.hitShare(),
                         f.errorQuantile(0.5), f.errorQuantile(0.9), f.switchesPerMinute(), f.badSwitchesPerMinute());
}

void printTable(const ReportInput& input) {
  standardOutput().print("{:<32} {:>7} {:>6} {:>6} {:>6} {:>8} {:>8} {:>7} {:>8}\n", "recording", "seconds", "fix %",
                         "map %", "hit %", "median m", "p90 m", "sw/min", "bad/min");
  for (const auto& walk : input.walks) printRow(walk.name, walk.figures);
  if (input.walks.size() > 1) printRow("all", input.total);
}

ReportInput describeVenue(const Options& options) {
  sim::SimPlatform device({.venue = options.venue});
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

// Keeps the truth of a replayed recording beside what was reported.
class WalkListener : public sim::ReplayListener {
 public:
  void delivering(const sim::RecordedEvent& event) override {
    if (event.type == sim::RecordedType::truth) truth_.emplace_back(event.t, event.truth);
  }

  void located(double t, const TWLMapLocationPtr& location) override {
    ReportedPosition report{.t = t};
    if (location) {
      report.place = PlanPoint{location->mapId(), location->pixelCoords().x, location->pixelCoords().y};
      report.uncertaintyMeters = location->uncertaintyRadiusMeters();
    }
    walk_.reported.push_back(std::move(report));
  }

  // Truth in degrees needs the maps, which the replayed world has.
  Walk take(platform::Platform& platform) {
    for (const auto& [t, truth] : truth_) {
      PlanPoint place{truth.mapId, truth.x, truth.y};
      if (truth.geographic) {
        const auto location =
            TWLLocationUtils::mapLocationForGeolocationForMapId(platform, truth.coordinate, truth.mapId);
        place = {truth.mapId, location->pixelCoords().x, location->pixelCoords().y};
      }
      walk_.truth.push_back({t, std::move(place)});
    }
    return std::move(walk_);
  }

 private:
  std::vector<std::pair<double, sim::RecordedTruth>> truth_;
  Walk walk_;
};

std::string errorText(const std::string& recording, const sim::RecordingError& error) {
  return error.line == 0 ? fmt::format("{}: {}", recording, error.reason)
                         : fmt::format("{}:{}: {}", recording, error.line, error.reason);
}

void evaluateRecording(const Options& options, const std::string& recording, ReportInput& input) {
  WalkListener listener;
  sim::Replayer replayer({.venue = options.venue, .useOwnDistance = options.useOwnDistance}, listener);
  auto reader = sim::RecordingReader::ofFile(recording);
  if (const auto error = replayer.run(reader)) throw std::runtime_error(errorText(recording, *error));
  platform::Platform& platform = replayer.world()->platform();
  const Walk walk = listener.take(platform);
  if (walk.truth.empty()) throw std::runtime_error(recording + ": there is no line of type \"truth\" to compare with");
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
