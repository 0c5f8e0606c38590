#include "tools/live/Checkup.hpp"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

#include "tools/common/VenuePlans.hpp"

namespace wayloom::tools {
namespace {

using linux_::FixCondition;
using linux_::RadioCondition;

constexpr double kBeforeThisProject = 1.7e9;  // seconds since 1970: November 2023
constexpr platform::Duration kServerPatience = std::chrono::seconds(10);
// Frames a second of the beacon that is heard best. A beacon is given up after 5 s of silence, so that rooms take turns
// where each is heard in one second out of five.
constexpr double kRareFrames = 0.5;

std::string firstLine(const std::filesystem::path& file) {
  std::string line;
  std::ifstream stream(file);
  std::getline(stream, line);
  return line;
}

// "soft", "hard", or empty when no Bluetooth radio is blocked.
std::string bluetoothBlock(const std::string& kernel) {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(kernel + "/rfkill", failure)) {
    if (firstLine(entry.path() / "type") != "bluetooth") continue;
    for (const char* kind : {"hard", "soft"})
      if (firstLine(entry.path() / kind) == "1") return kind;
  }
  return {};
}

Diagnosis findingOf(RadioCondition condition) {
  switch (condition) {
    case RadioCondition::noBus:
      return Diagnosis::noBus;
    case RadioCondition::noDaemon:
      return Diagnosis::noBluetoothService;
    case RadioCondition::noAdapter:
      return Diagnosis::noAdapter;
    case RadioCondition::unpowered:
      return Diagnosis::unpowered;
    case RadioCondition::refused:
      return Diagnosis::bluetoothRefused;
    case RadioCondition::silent:
      return Diagnosis::scanSilent;
    case RadioCondition::starting:
    case RadioCondition::resting:
    case RadioCondition::failing:
      return Diagnosis::bluetoothFailing;
    case RadioCondition::scanning:
      return Diagnosis::fine;
  }
  return Diagnosis::bluetoothFailing;
}

std::string withDetail(std::string_view text, const std::string& detail) {
  return detail.empty() ? fmt::format("{}.", text) : fmt::format("{} ({}).", text, detail);
}

CheckResult checkFrames(const linux_::RadioStatus& status, const FrameRates& heard, platform::MonotonicTime now,
                        std::string text) {
  text += fmt::format(" {}: {} beacons heard", status.adapter, heard.beacons());
  const auto rates = heard.at(now);
  if (!rates.empty())
    text += fmt::format(", {:.1f} frames a second of each in the median, {:.1f} of the one heard best",
                        rates[rates.size() / 2], rates.back());
  text += status.hasMonitor ? "; with an advertisement monitor." : ".";
  if (rates.empty() || rates.back() >= kRareFrames) return {"radio", Diagnosis::fine, std::move(text), ""};
  text += " That is too seldom to tell rooms apart.";
  return {
      "radio", Diagnosis::framesRare, std::move(text),
      status.hasMonitor
          ? "Set the beacons to send oftener, or try another adapter."
          : "Most likely the adapter drops repeated frames. Have the service take advertisement monitors, with which "
            "it does not (BlueZ 5.66: bluetoothd --experimental), or try another adapter."};
}

CheckResult checkServer(platform::HttpClient& http, platform::TaskScheduler& tasks, const char* name,
                        Diagnosis unreachable, const std::optional<std::string>& url,
                        const std::optional<std::string>& token) {
  if (!url)
    return {name, Diagnosis::serverNotConfigured, "Wayloom.plist names no address for it.",
            "Add the address (docs/venue.md)."};
  platform::HttpRequest request{.url = *url, .timeout = kServerPatience};
  if (token) request.headers.emplace_back("AUTHORIZATION", "Token token=\"" + *token + "\"");
  const auto response = platform::sendSynchronously(http, tasks, std::move(request));
  if (response.error)
    return {name, unreachable, fmt::format("{}: {}.", *url, response.error->description),
            "See whether the device has a network and the address is right; `wayloom serve` is a server to try with."};
  if (response.status == 401 || response.status == 403)
    return {name, Diagnosis::tokenRefused, fmt::format("{}: the token is refused ({}).", *url, response.status),
            "Put the venue's token into Wayloom.plist as GFAPIToken."};
  if (response.status != 200)
    return {name, unreachable, fmt::format("{}: the server answers {}.", *url, response.status),
            "See whether the address is right."};
  return {name, Diagnosis::fine, fmt::format("{} answers.", *url), ""};
}

}  // namespace

CheckResult checkClock(platform::CalendarTime now) {
  if (platform::secondsSince1970(now) < kBeforeThisProject)
    return {"clock", Diagnosis::clockUnset,
            "The clock is not set: what is recorded gets wrong dates, certificates fail.",
            "Set it: timedatectl set-ntp true, or date -s; without a network, fit a battery-backed clock."};
  return {"clock", Diagnosis::fine, "The clock is set.", ""};
}

void FrameRates::add(std::span<const linux_::BeaconReport> reports) {
  for (const auto& report : reports) {
    if (heard_.size() >= kMostBeacons && !heard_.contains(report.frame.identity)) continue;
    auto& beacon = heard_[report.frame.identity];
    if (++beacon.frames == 1) beacon.first = report.receivedAt;
  }
}

std::vector<double> FrameRates::at(platform::MonotonicTime now) const {
  std::vector<double> rates;
  for (const auto& [identity, beacon] : heard_)
    if (const double seconds = platform::secondsOf(now - beacon.first); seconds >= 2.0)
      rates.push_back(beacon.frames / seconds);
  std::sort(rates.begin(), rates.end());
  return rates;
}

CheckResult checkRadio(const linux_::RadioStatus& status, const std::string& kernel, const FrameRates& heard,
                       platform::MonotonicTime now) {
  const auto diagnosis = findingOf(status.condition);
  const bool mayBeBlocked = diagnosis == Diagnosis::unpowered || diagnosis == Diagnosis::noAdapter;
  const auto block = mayBeBlocked ? bluetoothBlock(kernel) : std::string();
  if (block == "soft")
    return {"radio", Diagnosis::blocked, "Bluetooth is blocked.", "Unblock it: rfkill unblock bluetooth."};
  if (block == "hard")
    return {"radio", Diagnosis::blocked, "Bluetooth is blocked by a switch or the firmware.",
            "Find the device's switch, or enable Bluetooth in its firmware settings."};
  auto text = withDetail(linux_::description(status.condition), status.detail);
  if (diagnosis == Diagnosis::fine) return checkFrames(status, heard, now, std::move(text));
  // Without it the service does not even start, where systemd starts it.
  std::error_code failure;
  if ((diagnosis == Diagnosis::noBluetoothService || diagnosis == Diagnosis::noAdapter) &&
      !std::filesystem::exists(kernel + "/bluetooth", failure))
    return {"radio", diagnosis, text + " The kernel has no Bluetooth.",
            "Load its modules (modprobe btusb, or what your adapter needs) or take a kernel with CONFIG_BT; hand the "
            "adapter to a virtual machine, or run the service on a container's host."};
  return {"radio", diagnosis, std::move(text), std::string(linux_::advice(status.condition))};
}

CheckResult checkFixes(const linux_::FixStatus& status) {
  Diagnosis diagnosis = Diagnosis::noFix;
  if (status.condition == FixCondition::fixing) diagnosis = Diagnosis::fine;
  if (status.condition == FixCondition::noBus) diagnosis = Diagnosis::noBus;
  if (status.condition == FixCondition::noService) diagnosis = Diagnosis::noLocationService;
  if (status.condition == FixCondition::noAgent || status.condition == FixCondition::starting)
    diagnosis = Diagnosis::noLocationAgent;
  if (status.condition == FixCondition::refused) diagnosis = Diagnosis::locationRefused;
  const auto condition = diagnosis == Diagnosis::noLocationAgent ? FixCondition::noAgent : status.condition;
  return {"fixes", diagnosis, withDetail(linux_::description(condition), status.detail),
          std::string(linux_::advice(condition))};
}

CheckResult checkKit(const KitNames& venue) {
  const auto count = placedBeacons(*venue.platform(), *venue.kit()).size();
  if (count == 0)
    return {
        "kit", Diagnosis::noMappedBeacons,
        "No beacon of the kit stands on a map of the venue: there will be no position.",
        "Give beacons the attributes map_id, latitude and longitude (docs/venue.md), with map ids of map_config.json."};
  return {"kit", Diagnosis::fine, fmt::format("{} beacons of the kit stand on a map.", count), ""};
}

std::vector<CheckResult> checkServers(platform::HttpClient& http, platform::TaskScheduler& tasks,
                                      const TWLConfig& configuration) {
  return {checkServer(http, tasks, "kit server", Diagnosis::kitServerUnreachable, configuration.GFKitURL(),
                      configuration.GFAPIToken().value_or("")),
          checkServer(http, tasks, "map server", Diagnosis::mapServerUnreachable, configuration.WLMapConfigURL(),
                      std::nullopt)};
}

}  // namespace wayloom::tools
