// wayloom maps: brings a Documents directory's maps up to date, lists them, judges a venue's documents.
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>

#include "wayloom/maps/TWLConfig.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "backends/sim/JsonText.hpp"
#include "tools/check/VenueCheck.hpp"
#include "tools/common/Command.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/common/VenueTroubles.hpp"
#include "tools/maps/MapList.hpp"
#include "tools/maps/UpdateDisplay.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription = "Brings the maps of a Documents directory up to date, lists them, checks a venue.";

constexpr const char* kFooter =
    R"(update   fetches the map configuration and the images that are newer on the server, as an application with this
         bundle would, and installs them; how far it is shows on standard error
list     the maps as an application has them: size, image and its date, updated or built in
check    what is wrong with a venue folder, each with its place: unreadable files, maps without a scale, beacons
         without a map, off it or on one that isn't there, identities and identifiers used twice, missing images

Examples:
  wayloom maps check --venue examples/venue
  wayloom maps update --venue examples/venue --documents state
  wayloom maps list --venue examples/venue --documents state --json

Exit status: 0 when all is well, 1 when something failed or the check found errors or warnings, 2 for wrong options.)";

constexpr double kPatience = 600.0;  // seconds

struct Options {
  std::string action = "list";
  std::string venue;
  std::string documents;
  double timeLimit = kPatience;
  bool isJson = false;
  bool isVerbose = false;
};

void printJson(const platform::Json& json) { standardOutput().write(sim::jsonText(json, 2) + "\n"); }

// One update over the network, on a main loop of its own.
class Update {
 public:
  explicit Update(const Options& options)
      : options_(options),
        loop_(std::make_shared<posix::MainLoop>()),
        documents_(posix::absolutePath(options.documents)) {
    auto services = posix::makeServices(
        {.mainBundle = posix::absolutePath(options.venue) + "/bundle", .documents = documents_, .loop = loop_});
    if (!options.isVerbose)
      services.systemLog = services.console = std::make_shared<sim::CallbackLogSink>([](std::string_view) {});
    platform_ = std::make_unique<platform::Platform>(std::move(services));
  }

  int run() {
    if (tellTroubles(options_.venue, {VenuePart::addresses})) return kRunFailed;
    const DocumentsFolder folder(documents_);  // tells why it can't be used
    if (!TWLConfig(*platform_).WLMapConfigURL())
      return give(options_.venue + "/bundle/Wayloom.plist: there is no WLMapConfigURL to ask");
    TWLMapConfigRepo::sharedRepo(*platform_).setUpdateObserver([this](const MapUpdateStep& step) {
      display_.show(step);
      if (step.kind == MapUpdateStep::Kind::ended) loop_->stop();
    });
    const auto timer =
        platform_->tasks().startTimer(platform_->tasks().mainQueue(), platform::durationFromSeconds(options_.timeLimit),
                                      std::nullopt, [this] { giveUp(); });
    TWLUpdateManager::sharedUpdateManager(*platform_).update();
    loop_->run();
    if (!hasGivenUp_) checkInstalled();
    display_.clear();
    if (options_.isJson)
      printJson(display_.json());
    else
      standardOutput().print("{}\n", display_.summary());
    return display_.hasFailed() ? kRunFailed : kSucceeded;
  }

 private:
  static int give(const std::string& reason) {
    complain(reason);
    return kRunFailed;
  }

  void giveUp() {
    hasGivenUp_ = true;
    display_.fail(fmt::format("the update has not ended within {} s; the next one goes on", options_.timeLimit));
    loop_->stop();
  }

  // Failures of the last steps, on this disk, are only logged.
  void checkInstalled() {
    const TWLMapsFileManager files(*platform_);
    const auto waiting = platform_->files().listDirectory(files.mapDownloadPath()).value_or(std::vector<std::string>());
    const auto isWhole = [](const std::string& name) { return !name.starts_with('.'); };
    if (const auto count = std::count_if(waiting.begin(), waiting.end(), isWhole); count > 0)
      display_.fail(
          fmt::format("{} images can't be moved to their place, and wait in {}", count, files.mapDownloadPath()));
    if (platform_->files().fileExists(documents_ + "/map_update_to_complete"))
      display_.fail("the map configuration can't be saved in " + documents_);
    if (!platform_->files().fileExists(files.mapHtmlFilePath()))
      display_.fail("the map page is not installed: " + files.mapHtmlFilePath());
  }

  const Options& options_;
  std::shared_ptr<posix::MainLoop> loop_;
  std::string documents_;
  UpdateDisplay display_;
  bool hasGivenUp_ = false;
  std::unique_ptr<platform::Platform> platform_;
};

int list(const Options& options) {
  std::string error;
  const auto maps =
      listMaps(posix::absolutePath(options.venue) + "/bundle", posix::absolutePath(options.documents), error);
  if (!maps) {
    complain(error);
    return kRunFailed;
  }
  if (options.isJson)
    printJson(jsonOf(*maps));
  else
    standardOutput().write(textOf(*maps));
  if (maps->updateWasStopped) complain("an update was stopped before its end; the next start completes it");
  return kSucceeded;
}

int check(const Options& options) {
  const auto findings = checkVenue(options.venue);
  const auto count = [&](Severity severity) {
    return std::count_if(findings.begin(), findings.end(), [&](const auto& f) { return f.severity == severity; });
  };
  if (options.isJson) {
    auto lines = platform::Json::array();
    for (const auto& finding : findings) lines.push_back(jsonOf(finding));
    printJson(lines);
  } else {
    for (const auto& finding : findings) standardOutput().print("{}\n", textOf(finding));
    standardOutput().print("{}: {} errors, {} warnings, {} notes\n", options.venue, count(Severity::error),
                           count(Severity::warning), count(Severity::note));
  }
  const bool isGood = count(Severity::error) + count(Severity::warning) == 0;
  return isGood ? kSucceeded : kRunFailed;
}

int run(const Options& options) {
  if (options.action == "check") return check(options);
  if (options.documents.empty()) failForMissing("--documents");
  return options.action == "update" ? Update(options).run() : list(options);
}

}  // namespace

void registerMaps(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("maps", kDescription, kFooter);
  command.add("ACTION", options->action, "What to do: update, list or check")
      .oneOf({"update", "list", "check"})
      .showsDefault();
  command.addVenue(options->venue, "Venue folder, with bundle/ and, for check, server/").required();
  command.add("--documents", options->documents, "The application's Documents directory; check needs none")
      .named("DIR");
  command.add("--time-limit", options->timeLimit, "Seconds after which an update is given up")
      .positive()
      .named("SECONDS")
      .showsDefault();
  command.add("--json", options->isJson, "Print the result as JSON");
  command.add("--verbose", options->isVerbose, "Show the library's log, too");
  command.runs([options] { return run(*options); });
}

}  // namespace wayloom::tools
