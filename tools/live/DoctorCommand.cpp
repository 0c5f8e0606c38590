// wayloom doctor: what is wrong, and how to mend it.
#include <fmt/format.h>
#include <memory>
#include <stdexcept>

#include "wayloom/posix/CurlHttpClient.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"

#include "backends/sim/JsonText.hpp"
#include "tools/common/Command.hpp"
#include "tools/live/Checkup.hpp"
#include "tools/live/LiveLoop.hpp"
#include "tools/live/LiveOptions.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription = "Says what keeps positions away, and how to mend it.";

constexpr const char* kFooter =
    "Looks at the clock and the radio; with --venue at its kit, with --network at the servers that its bundle names,\n"
    "with --fixes at the location service. Listens for --for seconds (16 by default: a scan counts as silent after "
    "13).\n\n"
    "Exit status: 0 when nothing is wrong; else that of the first thing that is:\n"
    "  10 no bus  11 no Bluetooth service  12 no adapter  13 blocked  14 off  15 not allowed  16 scan silent\n"
    "  17 service fails  18 beacons heard too seldom  20 no location service  21 no agent  22 no permission for fixes  "
    "23 no fix  30 clock not set\n"
    "  40 kit server unreachable  41 token refused  42 map server unreachable  43 server not configured\n"
    "  50 venue unusable  51 no beacon on a map; 1 and 2 as for the other commands.";

constexpr double kUsualSeconds = 16.0;

struct Options {
  LiveOptions live;
  std::string venue;
  bool network = false;
  bool fixes = false;
  bool json = false;
  std::string kernel = "/sys/class";
};

class Doctor : private linux_::ScannerListener, private linux_::FixListener {
 public:
  explicit Doctor(const Options& options) : options_(options) {}

  int run() {
    report(checkClock(posix::PosixCalendarClock().now()));
    listen();
    if (!options_.venue.empty()) visit();
    return static_cast<int>(first_);
  }

 private:
  void heard(std::span<const linux_::BeaconReport> reports) override { rates_.add(reports); }
  void fixed(const platform::CLLocation&) override {}

  void listen() {
    LiveLoop loop;
    linux_::BluezScanner scanner(*loop.tasks(), options_.live.bluez(), *this);
    linux_::GeoClueFixes fixes(*loop.tasks(), options_.live.geoClue(), *this);
    scanner.setWanted(true);
    if (options_.fixes) fixes.setWanted(true);
    loop.run(options_.live.seconds.value_or(kUsualSeconds));
    report(checkRadio(scanner.status(), options_.kernel, rates_, posix::PosixMonotonicClock().now()));
    if (options_.fixes) report(checkFixes(fixes.status()));
  }

  void visit() {
    try {
      const KitNames venue(options_.venue);
      report(checkKit(venue));
      if (!options_.network) return;
      posix::MainLoop tasks;
      posix::CurlHttpClient http;
      for (const auto& result : checkServers(http, tasks, TWLConfig(*venue.platform()))) report(result);
    } catch (const std::runtime_error& error) {
      report({"venue", Diagnosis::venueUnusable, error.what(), "See docs/venue.md for what a venue folder holds."});
    }
  }

  void report(const CheckResult& result) {
    const bool isFine = result.diagnosis == Diagnosis::fine;
    if (!isFine && first_ == Diagnosis::fine) first_ = result.diagnosis;
    if (options_.json) {
      sim::JsonText text;
      text.beginObject()
          .member("check", result.check)
          .member("ok", isFine)
          .member("code", static_cast<int>(result.diagnosis))
          .member("text", result.text)
          .member("advice", isFine ? std::nullopt : std::optional(result.advice));
      text.endObject().endLine();
      standardOutput().write(text.text());
    } else {
      standardOutput().print("{:5} {:10} {}\n", isFine ? "ok" : "WRONG", result.check, result.text);
      if (!isFine && !result.advice.empty()) standardOutput().print("      {:10} -> {}\n", "", result.advice);
    }
    standardOutput().flush();
  }

  const Options& options_;
  Diagnosis first_ = Diagnosis::fine;
  FrameRates rates_;
};

}  // namespace

void registerDoctor(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("doctor", kDescription, kFooter);
  command.add("--venue", options->venue, "Venue folder to look at").named("DIR");
  command.add("--network", options->network, "Ask the servers that the venue's bundle names");
  command.add("--fixes", options->fixes, "Look for geographic fixes, too");
  command.add("--json", options->json, "One JSON line a check");
  command.add("--kernel", options->kernel, "Where the kernel tells of its devices, by class")
      .named("DIR")
      .showsDefault();
  options->live.addTo(command);
  command.runs([options] { return Doctor(*options).run(); });
}

}  // namespace wayloom::tools
