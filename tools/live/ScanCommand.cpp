// wayloom scan: the beacons around, live.
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <memory>

#include "wayloom/posix/PosixClocks.hpp"

#include "backends/sim/JsonText.hpp"
#include "tools/common/Command.hpp"
#include "tools/live/BeaconBoard.hpp"
#include "tools/live/KitNames.hpp"
#include "tools/live/LiveLoop.hpp"
#include "tools/live/LiveOptions.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription = "Lists the beacons that Bluetooth hears, once a second.";

constexpr const char* kFooter =
    "Level and distance are estimated as rangings are (docs/ranging.md); rate is reports a second, age the seconds\n"
    "since the last one. On a terminal the table is drawn afresh each second; otherwise it is printed once, at the\n"
    "end. Examples:\n"
    "  wayloom scan --venue venue --sort rate\n"
    "  wayloom scan --json --for 60 | grep '\"minor\":14'\n\n"
    "Exit status: 0 when the radio listened at the end; 1 when it did not, and `wayloom doctor` says why.";

const std::map<std::string, BoardOrder> kOrders = {
    {"identity", BoardOrder::identity}, {"name", BoardOrder::name}, {"rssi", BoardOrder::rssi},
    {"distance", BoardOrder::distance}, {"rate", BoardOrder::rate}, {"age", BoardOrder::age}};

struct Options {
  LiveOptions live;
  std::string venue;
  std::string order = "rssi";
  bool json = false;
};

std::vector<std::string> columns() {
  std::vector<std::string> names;
  names.reserve(kOrders.size());
  for (const auto& [name, order] : kOrders) names.push_back(name);
  return names;
}

class Scan : public linux_::ScannerListener {
 public:
  explicit Scan(const Options& options)
      : options_(options),
        names_(options.venue),
        board_([this](const auto& identity) { return names_.nameOf(identity); }),
        isTerminal_(standardOutput().isTerminal() && !options.json),
        scanner_(*loop_.tasks(), options.live.bluez(), *this) {}

  int run() {
    scanner_.setWanted(true);
    const auto tick = loop_.tasks()->startTimer(loop_.tasks()->mainQueue(), std::chrono::seconds(1),
                                                std::chrono::seconds(1), [this] { show(); });
    loop_.run(options_.live.seconds);
    if (!isTerminal_ && !options_.json) standardOutput().write(table());
    return scanner_.status().listening ? kSucceeded : kRunFailed;
  }

  void heard(std::span<const linux_::BeaconReport> reports) override { board_.add(reports); }

  void radioChanged(const linux_::RadioStatus& status) override {
    if (linux_::isTrouble(status.condition) && !isTerminal_)
      complain(fmt::format("{}. {}", linux_::description(status.condition), linux_::advice(status.condition)));
  }

 private:
  void show() {
    if (options_.json) standardOutput().write(json());
    if (isTerminal_) standardOutput().write("\033[H\033[2J" + table());  // from an empty screen
    if (!standardOutput().flush()) loop_.stop();
  }

  std::vector<BoardRow> rows() { return board_.rows(posix::PosixMonotonicClock().now(), kOrders.at(options_.order)); }

  // Names come out of a document, and the adapter's from the service.
  std::string table() {
    const auto status = scanner_.status();
    const auto found = rows();
    std::string text;
    const auto out = std::back_inserter(text);
    fmt::format_to(out, "{}{}{}. {} beacons.\n", printable(status.adapter), status.adapter.empty() ? "" : ": ",
                   linux_::description(status.condition), found.size());
    if (linux_::isTrouble(status.condition)) fmt::format_to(out, "{}\n", linux_::advice(status.condition));
    fmt::format_to(out, "{:36} {:>5} {:>5} {:20} {:>6} {:>7} {:>5} {:>5}\n", "uuid", "major", "minor", "name", "dBm",
                   "m", "1/s", "age");
    for (const auto& row : found)
      fmt::format_to(out, "{:36} {:>5} {:>5} {:20.20} {:>6.1f} {:>7.2f} {:>5.1f} {:>5.1f}\n",
                     row.identity.uuid.string(), row.identity.major, row.identity.minor, printable(row.name), row.rssi,
                     row.distance, row.rate, row.age);
    return text;
  }

  std::string json() {
    sim::JsonText text;
    const double t = platform::secondsSince1970(posix::PosixCalendarClock().now());
    for (const auto& row : rows()) {
      text.beginObject()
          .member("t", t)
          .member("uuid", row.identity.uuid.string())
          .member("major", row.identity.major)
          .member("minor", row.identity.minor)
          .member("name", row.name.empty() ? std::nullopt : std::optional(row.name))
          .member("address", row.sender)
          .member("power", row.power)
          .member("rssi", row.rssi)
          .member("distance", row.distance)
          .member("rate", row.rate)
          .member("age", row.age);
      text.endObject().endLine();
    }
    return std::string(text.text());
  }

  const Options& options_;
  LiveLoop loop_;
  KitNames names_;
  BeaconBoard board_;
  bool isTerminal_;
  linux_::BluezScanner scanner_;
};

}  // namespace

void registerScan(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("scan", kDescription, kFooter);
  command.addVenue(options->venue, "Venue folder whose kit gives the beacons names");
  command.add("--sort", options->order, "Which column gives the order").oneOf(columns()).showsDefault().named("COLUMN");
  command.add("--json", options->json, "One JSON line for each beacon each second");
  options->live.addTo(command);
  command.runs([options] { return Scan(*options).run(); });
}

}  // namespace wayloom::tools
