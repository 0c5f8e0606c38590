// The live commands as their users run them, on a fake service.
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

#include "wayloom/platform/Json.hpp"
#include "wayloom/sim/RecordingReader.hpp"

#include "tests/linux/FakeBluez.hpp"
#include "tests/linux/PrivateBus.hpp"
#include "tests/support/Shell.hpp"

namespace wayloom::tests {
namespace {

using namespace std::chrono_literals;
using platform::Json;
using testing::HasSubstr;
using testing::Not;

const std::string kCommand = std::string(WAYLOOM_BINARY_DIR) + "/wayloom ";
const std::string kVenueFolder = std::string(WAYLOOM_SOURCE_DIR) + "/examples/venue";
// The sample venue's foyer.
const platform::BeaconIdentity kFoyer{*platform::UUID::parse("7D3A1C52-94E8-4B0F-A6D1-2E5B8C90F417"), 1, 14};

class LiveCommands : public testing::Test {
 protected:
  void SetUp() override {
    bluez.every(100ms, [](FakeBluez& fake) { fake.sight(1, kFoyer, -65, -58); });
  }

  // Runs a shell line with the bus given to the command at its beginning; what is typed is a shell line, too.
  std::string run(const std::string& arguments, const std::string& typing = "") {
    const auto line =
        (typing.empty() ? "" : typing + " | ") + kCommand + arguments + " --bus " + bus.address() + " 2>&1";
    const auto outcome = runShell(line);
    status = outcome.status;
    return outcome.output;
  }

  // The sample venue with servers where nobody listens.
  std::string unreachableVenue() const {
    const auto venue = folder / "venue";
    std::filesystem::copy(kVenueFolder, venue, std::filesystem::copy_options::recursive);
    std::ofstream(venue + "/bundle/Wayloom.plist")
        << R"(<?xml version="1.0"?><plist version="1.0"><dict><key>GFKitURL</key><string>http://127.0.0.1:9/kit</string>)"
        << R"(<key>GFAPIToken</key><string>t</string></dict></plist>)";
    return venue;
  }

  // A copy of the sample venue that can be spoilt.
  std::string venueCopy() const {
    const auto venue = folder / "copy";
    std::filesystem::remove_all(venue);
    std::filesystem::copy(kVenueFolder, venue, std::filesystem::copy_options::recursive);
    return venue;
  }

  static std::vector<Json> linesOf(const std::string& output) {
    std::vector<Json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
      if (line.starts_with("{")) lines.push_back(Json::parse(line));
    return lines;
  }

  PrivateBus bus;
  FakeBluez bluez{bus.address()};
  posix::TemporaryDirectory folder;
  int status = -1;
};

TEST_F(LiveCommands, ScanListsWhatIsHeard) {
  const auto lines = linesOf(run("scan --json --for 2.5 --venue " + kVenueFolder));
  EXPECT_EQ(status, 0);
  ASSERT_FALSE(lines.empty());
  const auto& last = lines.back();
  EXPECT_EQ(last["minor"], 14);
  EXPECT_EQ(last["name"], "Foyer");
  EXPECT_EQ(last["address"], "C0:00:00:00:00:01");
  EXPECT_NEAR(last["rssi"].get<double>(), -65.0, 1.0);
  EXPECT_NEAR(last["rate"].get<double>(), 8.0, 6.0);
  EXPECT_LT(last["age"].get<double>(), 1.0);
  EXPECT_THAT(run("scan --for 1 --venue " + kVenueFolder), HasSubstr("Foyer"));

  bluez.setPowered(false);
  EXPECT_THAT(run("scan --for 0.5"), HasSubstr("bluetoothctl power on"));
  EXPECT_EQ(status, 1);
}

TEST_F(LiveCommands, WhatIsMissingOrBrokenIsSaidBeforehand) {
  const auto refuses = [&](const std::string& arguments, const std::string& text) {
    EXPECT_THAT(run(arguments + " --for 0.1"), HasSubstr(text)) << arguments;
    EXPECT_NE(status, 0) << arguments;
  };
  for (const auto& command :
       {std::string("scan"), std::string("run"), "record " + (folder / "r.jsonl"), std::string("doctor")})
    for (const char* file : {"server/kit.json", "bundle/Geofold.plist", "bundle/Wayloom.plist", "bundle/Info.plist"}) {
      const auto venue = venueCopy();
      std::filesystem::remove(venue + "/" + file);
      // The other list has all that is needed.
      if (file != std::string("bundle/Geofold.plist")) refuses(command + " --venue " + venue, file);
      std::ofstream(venue + "/" + file) << "{<";
      refuses(command + " --venue " + venue, file);
    }
  std::ofstream(folder / "file") << "in the way";
  refuses("run --venue " + kVenueFolder + " --documents " + (folder / "file") + "/documents", "/documents: ");
  for (const char* seconds : {"nan", "inf", "-1"}) {
    EXPECT_THAT(run(std::string("scan --for ") + seconds), HasSubstr("--for")) << seconds;
    EXPECT_EQ(status, 2) << seconds;
  }
  refuses("record --map lobby --at nan,nan " + (folder / "r.jsonl"), "--at");
}

// A name is whatever somebody wrote into a kit.
TEST_F(LiveCommands, NamesReachTheTerminalWithoutTheirControlCharacters) {
  const auto venue = venueCopy();
  std::ifstream file(venue + "/server/kit.json");
  std::string kit(std::istreambuf_iterator<char>(file), {});
  kit.replace(kit.find("\"Foyer\""), 7, R"("Fo\u001b[2J\u009byer")");
  std::ofstream(venue + "/server/kit.json") << kit;
  const auto table = run("scan --for 1 --venue " + venue);
  EXPECT_THAT(table, HasSubstr("Fo?[2J??yer"));
  EXPECT_THAT(table, Not(HasSubstr("\x1B")));
}

TEST_F(LiveCommands, RunPrintsPositions) {
  const auto lines = linesOf(run("run --for 5.5 --venue " + kVenueFolder));
  EXPECT_EQ(status, 0);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back()["event"], "location");
  EXPECT_EQ(lines.back()["map_id"], "ground-floor");
  const auto all = run("run --for 2 --events all --venue " + kVenueFolder);
  for (const char* event : {"sync", "request", "ranged", "enter", "election"})
    EXPECT_THAT(all, HasSubstr("\"event\":\"" + std::string(event) + "\""));
}

TEST_F(LiveCommands, RecordingsCanBeJudged) {
  const auto file = folder / "spot.jsonl";
  run("record --for 3 --map ground-floor --at 100,150 --venue " + kVenueFolder + " " + file);
  EXPECT_EQ(status, 0);
  int frames = 0;
  int truths = 0;
  auto reader = sim::RecordingReader::ofFile(file);
  while (const auto* event = reader.next()) {
    frames += event->type == sim::RecordedType::advertisement ? 1 : 0;
    if (event->type != sim::RecordedType::truth) continue;
    ++truths;
    EXPECT_EQ(event->truth.x, 100.0);
  }
  EXPECT_FALSE(reader.error());
  EXPECT_GT(frames, 15);
  EXPECT_GE(truths, 3);
  EXPECT_EQ(runShell(kCommand + "evaluate --venue " + kVenueFolder + " " + file).status, 0);

  EXPECT_THAT(run("record --for 1 --map nowhere --at 1,1 --venue " + kVenueFolder + " " + file), HasSubstr("nowhere"));
  EXPECT_EQ(status, 1);
}

TEST_F(LiveCommands, WalkedWaypointsBecomeTruth) {
  const auto walk = folder / "walk.json";
  const auto file = folder / "walk.jsonl";
  std::ofstream(walk) << R"({"start": 0, "waypoints": [
    {"map_id": "ground-floor", "x": 100, "y": 100}, {"map_id": "ground-floor", "x": 200, "y": 100, "pause_s": 5},
    {"map_id": "upper-floor", "x": 10, "y": 10}]})";
  // Two seconds to the second waypoint, one there, one to the third.
  const auto said = run("record --walk " + walk + " --venue " + kVenueFolder + " " + file,
                        "(sleep 0.5; echo; sleep 2; echo; sleep 1; echo; sleep 1; echo; sleep 0.3; echo q)");
  EXPECT_EQ(status, 0) << said;
  EXPECT_THAT(said, HasSubstr("The walk is over"));
  std::vector<sim::RecordedTruth> truth;
  auto reader = sim::RecordingReader::ofFile(file);
  while (const auto* event = reader.next())
    if (event->type == sim::RecordedType::truth) truth.push_back(event->truth);
  EXPECT_FALSE(reader.error());
  ASSERT_GE(truth.size(), 5U);
  EXPECT_EQ(truth.front().x, 100.0);
  EXPECT_GT(truth[1].x, 100.0);
  EXPECT_LT(truth[1].x, 200.0);
  EXPECT_EQ(truth.back().mapId, "upper-floor");
}

TEST_F(LiveCommands, DoctorTellsWhatIsWrongByItsExitStatus) {
  const auto expect = [&](int code, const std::string& arguments, const char* text, const char* seconds = "1.5") {
    EXPECT_THAT(run("doctor --for " + std::string(seconds) + " " + arguments), HasSubstr(text));
    EXPECT_EQ(status, code) << arguments;
  };
  expect(0, "--venue " + kVenueFolder, "1 beacons heard");
  expect(0, "", "frames a second of each in the median", "2.5");
  bluez.setFaults({.duplicateWindow = 1h});
  expect(18, "", "bluetoothd --experimental", "3");
  bluez.setFaults({});
  expect(40, "--network --json --venue " + unreachableVenue(), R"("code":40)");
  expect(20, "--fixes", "apt-get install geoclue-2.0");
  const auto withoutKit = venueCopy();
  std::filesystem::remove(withoutKit + "/server/kit.json");
  expect(50, "--venue " + withoutKit, "kit.json");
  bluez.setPowered(false);
  expect(14, "", "bluetoothctl power on");
  const auto kernel = folder / "kernel";
  std::filesystem::create_directories(kernel + "/rfkill/rfkill0");
  std::ofstream(kernel + "/rfkill/rfkill0/type") << "bluetooth\n";
  std::ofstream(kernel + "/rfkill/rfkill0/soft") << "1\n";
  expect(13, "--kernel " + kernel, "rfkill unblock");
  bluez.removeAdapter();
  std::ofstream(kernel + "/rfkill/rfkill0/soft") << "0\n";
  expect(12, "--kernel " + kernel, "modprobe");
  std::filesystem::create_directories(kernel + "/bluetooth");
  expect(12, "--kernel " + kernel, "Plug one in");
  bus.stop();
  expect(10, "", "system message bus");
}

}  // namespace
}  // namespace wayloom::tests
