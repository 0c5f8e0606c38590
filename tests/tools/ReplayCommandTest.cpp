// The replay command as its users run it: golden recordings, restarts, hostile input, exit statuses.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/platform/Json.hpp"

#include "tests/sim/SimVenue.hpp"
#include "tests/support/Shell.hpp"

namespace wayloom::tools {
namespace {

const std::string kCommand = std::string(WAYLOOM_BINARY_DIR) + "/wayloom ";
const std::string kData = std::string(WAYLOOM_SOURCE_DIR) + "/tests/tools/data/";
const std::string kReplay = kCommand + "replay --venue " + kData + "venue ";

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Without the lines whose wording or detail is tested elsewhere.
std::string withoutLogsAndElections(const std::string& output) {
  std::istringstream lines(output);
  std::string kept;
  for (std::string line; std::getline(lines, line);)
    if (line.find(R"("event":"log")") == line.npos && line.find(R"("event":"election")") == line.npos)
      kept += line + "\n";
  return kept;
}

TEST(ReplayCommand, printsWhatWasWorkedOutByHand) {
  const std::vector<std::array<std::string, 2>> cases = {
      {"lag-and-dwell", ""},
      {"expiry", ""},
      {"fallback-fix", ""},
      {"own-distance", "--use-own-distance "},
      {"network-down", "--events all "},
      {"regions", "--events all "},
  };
  for (const auto& [name, options] : cases) {
    const auto outcome = runShell(kReplay + options + kData + name + ".jsonl");
    EXPECT_EQ(outcome.status, 0) << name;
    EXPECT_EQ(withoutLogsAndElections(outcome.output), contentOf(kData + name + ".expected")) << name;
  }
}

// Refined positions are told once an instant, also when its regions come in lines of their own, and what was printed
// without them stays as it was.
TEST(ReplayCommand, addsRefinedPositionsOnly) {
  for (const std::string name : {"lag-and-dwell", "expiry", "own-distance"}) {
    const auto plain = runShell(kReplay + "--events all " + kData + name + ".jsonl");
    const auto refined = runShell(kReplay + "--refined --events all " + kData + name + ".jsonl");
    ASSERT_EQ(refined.status, 0) << name;
    std::istringstream lines(refined.output);
    std::string others;
    std::vector<std::string> instants;
    for (std::string line; std::getline(lines, line);)
      if (line.find(R"("event":"refined")") == line.npos)
        others += line + "\n";
      else
        instants.push_back(line.substr(0, line.find(',')));
    EXPECT_EQ(others, plain.output) << name;
    EXPECT_FALSE(instants.empty()) << name;
    EXPECT_EQ(std::adjacent_find(instants.begin(), instants.end()), instants.end()) << name;
  }
}

// A view without a screen moves its dot to every position on its map, and hides it for those elsewhere.
TEST(ReplayCommand, showsAMapInAView) {
  const auto outcome = runShell(kReplay + "--events all --view-map lobby " + kData + "lag-and-dwell.jsonl");
  ASSERT_EQ(outcome.status, 0);
  std::istringstream lines(outcome.output);
  std::vector<std::string> scripts, expected;
  for (std::string line; std::getline(lines, line);) {
    const auto event = platform::Json::parse(line);
    if (event["event"] == "script") scripts.push_back(event["text"]);
    if (event["event"] != "location" || event["map_id"].is_null()) continue;
    const auto whole = [&](const char* member) { return std::to_string(truncated(event[member].get<double>())); };
    expected.push_back(event["map_id"] == "lobby" ? "setDotPosition(" + whole("x") + "," + whole("y") + "," +
                                                        whole("uncertainty_px") + ", true)"
                                                  : "hideDot()");
  }
  EXPECT_EQ(scripts, expected);
  EXPECT_EQ(std::set(scripts.begin(), scripts.end()).size(), 2U) << "a dot on the map, and one elsewhere";
  const auto nowhere = runShell(kReplay + "--view-map nowhere " + kData + "lag-and-dwell.jsonl 2>&1");
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_EQ(nowhere.output, kData + "venue: the venue has no map \"nowhere\" to show\n");
}

TEST(ReplayCommand, explainsElections) {
  const auto outcome = runShell(kReplay + "--events all " + kData + "lag-and-dwell.jsonl | grep '\"election\"'");
  std::istringstream lines(outcome.output);
  std::vector<std::string> rules;
  for (std::string line; std::getline(lines, line);) {
    const auto at = line.find(R"("rule":")") + 8;
    rules.push_back(line.substr(at, line.find('"', at) - at));
  }
  EXPECT_EQ(rules, (std::vector<std::string>{"first election", "dwell not over", "dwell not over", "replaced",
                                             "dwell not over"}));
}

TEST(ReplayCommand, theSameRunPrintsTheSameBytes) {
  const sim::TestFolder documents;
  const std::string options = "--events all --documents " + documents.path();
  for (const char* name : {"network-down", "regions", "expiry"}) {
    const auto recording = kData + name + ".jsonl";
    const auto fresh = runShell(kReplay + "--events all " + recording).output;
    EXPECT_EQ(runShell(kReplay + "--events all - < " + recording).output, fresh) << name;
    EXPECT_EQ(fresh.find(documents.path()), fresh.npos);
    EXPECT_EQ(fresh.find("/tmp"), fresh.npos) << fresh;
  }
  EXPECT_EQ(runShell(kReplay + options + " " + kData + "expiry.jsonl").status, 0);
  // A restart without a network lives on the kit of the first run.
  const auto restarted = runShell(
      R"(printf '{"t":1,"type":"network","up":false}\n{"t":2,"type":"enter","region":{"identifier":"hall-door"}}\n' | )" +
      kReplay + options + " -");
  EXPECT_EQ(restarted.status, 0);
  EXPECT_NE(restarted.output.find(R"({"t":2.0,"event":"enter","identifier":"hall-door"})"), std::string::npos);
}

TEST(ReplayCommand, saysWhereARecordingIsMalformedAndKeepsWhatWasPrinted) {
  const sim::TestFolder folder;
  const auto cut = runShell("head -c 500 " + kData + "lag-and-dwell.jsonl | " + kReplay + "- 2>" + folder.path() +
                            "/error; cat " + folder.path() + "/error");
  EXPECT_NE(cut.output.find(R"({"t":100.0,"event":"location","map_id":null})"), std::string::npos);
  EXPECT_NE(cut.output.find("<stdin>:3: not JSON"), std::string::npos) << cut.output;

  folder.write("bad.jsonl",
               "{\"t\":1,\"type\":\"truth\",\"map_id\":\"m\",\"x\":1,\"y\":2}\n{\"t\":2,\"type\":\"network\"}\n");
  const auto bad = runShell(kReplay + folder.path() + "/bad.jsonl 2>&1");
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.output, folder.path() + "/bad.jsonl:2: \"up\" is missing\n");

  const auto empty = runShell(kReplay + "/dev/null 2>&1");
  EXPECT_EQ(empty.status, 1);
  EXPECT_EQ(empty.output, "/dev/null: there is no event in it\n");
  EXPECT_EQ(runShell(kReplay + folder.path() + " 2>&1").status, 1);
  EXPECT_EQ(runShell(kReplay + "/nonexistent 2>&1").output, "/nonexistent: No such file or directory\n");
}

// Whatever ends it, a replay leaves no folder behind.
TEST(ReplayCommand, leavesNothingInTheTemporaryDirectory) {
  const sim::TestFolder temporary;
  for (const char* end : {"kill -INT $!", "kill -TERM $!", "kill -HUP $!"}) {
    // A shell without job control starts what is in the background with SIGINT ignored.
    const auto line = "cd " + temporary.path() + "; mkfifo pipe; exec 3<>pipe; python3 -c \"import os,signal; " +
                      "signal.signal(signal.SIGINT, signal.SIG_DFL); os.execv(\\\"" + WAYLOOM_BINARY_DIR +
                      "/wayloom\\\", \\\"wayloom replay --venue " + kData + "venue pipe\\\".split())\" >out & " +
                      "echo \"{\\\"t\\\":1,\\\"type\\\":\\\"network\\\",\\\"up\\\":true}\" >&3; " +
                      "until ls -d wayloom-*; do sleep 0.05; done; " + end + "; wait $!; echo $?; rm pipe; ls";
    const auto outcome = runShell("TMPDIR=" + temporary.path() + " bash -c '" + line + "'");
    const auto status = outcome.output.find("\n") + 1;
    EXPECT_THAT(outcome.output.substr(status), testing::MatchesRegex("1[0-9]+\nout\n")) << end;
  }
  EXPECT_EQ(runShell("cd " + temporary.path() + "; TMPDIR=$PWD " + kReplay + "--events all " + kData +
                     "expiry.jsonl | head -1 >out; ls")
                .output,
            "out\n");
}

// What can't be used of a venue is told with its file, and ends the command with a status that says so.
TEST(Commands, tellWhatOfAVenueCannotBeUsed) {
  sim::TestFolder folder;
  const auto& path = folder.path();
  folder.write("truth.jsonl", "{\"t\":1,\"type\":\"truth\",\"map_id\":\"lobby\",\"x\":1,\"y\":2}\n");
  folder.write("nowhere.jsonl", "{\"t\":1,\"type\":\"network\",\"up\":true}\n" +
                                    std::string("{\"t\":2,\"type\":\"truth\",\"map_id\":\"x\",\"x\":1,\"y\":2}\n"));
  folder.write("far.json", R"({"waypoints":[{"map_id":"lobby","x":0,"y":0},{"map_id":"lobby","x":1e12,"y":0}]})");
  const std::string venue = " --venue " + path;
  const std::string replay = "replay" + venue + " " + path + "/truth.jsonl";
  const std::string evaluate = "evaluate" + venue + " " + path + "/truth.jsonl";
  const std::string simulate = "simulate" + venue + " --seed 1 -o /dev/null";
  const std::string serve = "serve" + venue + " --port 0";
  const std::string update = "maps update" + venue + " --documents " + path + "/documents --time-limit 1";
  std::string utf16;
  for (const char c : sim::propertyList("")) utf16.append({c, '\0'});
  struct Case {
    std::string file;
    std::string content;  // "-" for none
    std::vector<std::string> commands;
    std::string said;
  };
  const std::vector<Case> cases = {
      {"server/kit.json", "-", {replay, evaluate, simulate, serve}, "server/kit.json: can't be read"},
      {"server/kit.json", "{\"kit\":", {replay, evaluate, serve}, "server/kit.json: byte"},
      {"server/kit.json", "{\"kit\":[]}", {replay, simulate, serve}, "there is no object under \"kit\""},
      {"bundle/Wayloom.plist",
       "<plist",
       {replay, evaluate, simulate, serve, update},
       "Wayloom.plist: is not a property"},
      {"bundle/Wayloom.plist", utf16, {replay, serve, "maps check" + venue}, "UTF-16, which is not read"},
      {"bundle/Wayloom.plist", "-", {replay, evaluate, serve, update}, "Wayloom.plist: is missing"},
      {"bundle/Info.plist", sim::propertyList(""), {replay, evaluate}, "NSLocationAlwaysUsageDescription"},
      {"bundle/map_config.json", "-", {replay, evaluate, simulate}, "map_config.json: can't be read"},
      {"bundle/map_config.json", "[]", {replay, evaluate, simulate}, "no object with a map"},
      {"radio.json", "{\"beacons\":[]}", {simulate}, "radio.json: there are no \"beacons\" in it"},
      {"documents", "a file", {replay + " --documents " + path + "/documents", update}, "documents: Not a directory"},
      {"documents/x", "", {simulate + " --walk " + path + "/far.json"}, "far.json: the walk takes more than a week"},
      {"documents/y",
       "",
       {"evaluate" + venue + " " + path + "/nowhere.jsonl"},
       "nowhere.jsonl:2: the venue has no map"},
  };
  for (const auto& [file, content, commands, said] : cases) {
    std::filesystem::remove_all(path + "/radio.json");
    std::filesystem::remove_all(path + "/documents");
    sim::writeVenue(folder);
    folder.write(file, content);
    if (content == "-") std::filesystem::remove(path + "/" + file);
    for (const auto& command : commands) {
      const auto outcome = runShell("timeout 20 " + kCommand + command + " 2>&1");
      EXPECT_EQ(outcome.status, 1) << command << file;
      EXPECT_THAT(outcome.output, testing::HasSubstr(said)) << command;
    }
  }
}

TEST(ReplayCommand, exitStatuses) {
  EXPECT_EQ(runShell(kCommand + "--version").output, "wayloom 0.1.0\n");
  EXPECT_NE(runShell(kCommand + "--help").output.find("replay"), std::string::npos);
  EXPECT_NE(runShell(kCommand + "replay --help").output.find("Examples"), std::string::npos);
  EXPECT_EQ(runShell(kCommand + "replay --help").status, 0);
  EXPECT_EQ(runShell(kCommand + "2>&1").status, 2);
  EXPECT_EQ(runShell(kReplay + "2>&1").status, 2);
  EXPECT_EQ(runShell(kReplay + "--events some x 2>&1").status, 2);
  EXPECT_EQ(runShell(kCommand + "replay --venue /nonexistent x 2>&1").status, 2);
  EXPECT_EQ(runShell(kReplay + kData + "expiry.jsonl 2>&1 >/dev/full").status, 1);

  const sim::TestFolder venue;
  venue.write("bundle/Info.plist", sim::propertyList(""));
  const auto missing = runShell(kCommand + "replay --venue " + venue.path() + " " + kData + "expiry.jsonl 2>&1");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.output.find("NSLocationAlwaysUsageDescription"), std::string::npos);
}

}  // namespace
}  // namespace wayloom::tools
