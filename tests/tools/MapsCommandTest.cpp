// wayloom maps as its users run it: what check finds and where, updates from a server, what list tells.
#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "wayloom/platform/JsonParser.hpp"

#include "tests/sim/SimVenue.hpp"
#include "tests/support/ServeProcess.hpp"
#include "tests/support/Shell.hpp"
#include "tools/check/JsonPlaces.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// The output is standard output and, behind it, error.
Outcome runMaps(const std::string& arguments) {
  return runShell(WAYLOOM_BINARY_DIR "/wayloom maps " + arguments + " 2>&1");
}

const std::string kUuid = sim::kVenueUuid;

std::string entry(const std::string& identifier, const std::string& numbers, const std::string& attributes,
                  const std::string& uuid = kUuid) {
  return R"({"identifier":")" + identifier + R"(","uuid":")" + uuid + R"(",)" + numbers + R"(,"attributes":{)" +
         attributes + "}}";
}

std::string map(const std::string& path, const std::string& scale = R"("pixels_per_meter":5)") {
  return R"({"name":"m","file_path":")" + path + R"(","latitude":50.1,"longitude":8.6,)" + scale +
         R"(,"map_pixel_width":500,"map_pixel_height":500,"map_corner_offset_x":50,"map_corner_offset_y":25})";
}

const std::string kInLobby = R"("map_id":"lobby","latitude":50.1,"longitude":8.6)";

// A venue without a fault: one beacon in the lobby, whose map is 100 m square.
struct Venue : sim::TestFolder {
  Venue() {
    const std::string texts =
        "<key>GFKitURL</key><string>https://kit.example/kits/1</string>\n<key>GFAPIToken</key><string>t</string>\n"
        "<key>GFAnalyticsURL</key><string>https://a.example/</string>\n";
    write("bundle/Geofold.plist", sim::propertyList(texts));
    write("bundle/Wayloom.plist",
          sim::propertyList(texts + "<key>WLMapConfigURL</key><string>https://m.example/maps/c.json</string>"));
    write("bundle/Info.plist", sim::propertyList("<key>NSLocationAlwaysUsageDescription</key><string>x</string>"));
    writeMaps(R"({"lobby":)" + map("plans/l.svg") + "}");
    write("bundle/lobby.svg", "<svg/>");
    write("server/maps/plans/l.svg", "<svg new='1'/>");
    writeKit({entry("b1", R"("major":1,"minor":1)", kInLobby)});
  }

  void writeMaps(const std::string& document) const {
    write("bundle/map_config.json", document);
    write("server/maps/c.json", document);
  }
  // Each entry on a line of its own, the first on line 2.
  void writeKit(const std::vector<std::string>& entries, const std::string& more = "") const {
    std::string lines;
    for (const auto& line : entries) lines += (lines.empty() ? "" : ",\n") + line;
    write("server/kit.json", "{\"kit\":{\"id\":1,\"ibeacons\":[\n" + lines + "]" + more + "}}");
  }
  Outcome check(const std::string& options = "") const { return runMaps("check --venue " + path() + " " + options); }
  // The findings, without the venue's path and the line that counts them.
  std::vector<std::string> findings() const {
    std::istringstream output(check().output);
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);)
      if (line.starts_with(path() + "/")) lines.push_back(line.substr(path().size() + 1));
    return lines;
  }
};

testing::Matcher<std::string> finding(const std::string& place, const std::string& what) {
  return testing::AllOf(StartsWith(place + ":"), HasSubstr(what));
}

TEST(MapsCommand, findsNothingWhereNothingIsWrong) {
  const auto sample = runMaps("check --venue " WAYLOOM_SOURCE_DIR "/examples/venue");
  EXPECT_EQ(sample.status, 0) << sample.output;
  EXPECT_THAT(sample.output, HasSubstr("0 errors, 0 warnings, 0 notes"));
  const Venue venue;
  EXPECT_EQ(venue.check().status, 0) << venue.check().output;
  EXPECT_THAT(venue.findings(), IsEmpty());
  EXPECT_EQ(venue.check("--json").output, "[]\n");
}

TEST(MapsCommand, findsFaultsInTheKit) {
  const Venue venue;
  const std::string wildcards = R"("major":null,"minor":null)";
  std::string lowerCase = kUuid;
  std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), ::tolower);
  venue.writeKit(
      {entry("b1", R"("major":1,"minor":1)", kInLobby), entry("b3", R"("major":1,"minor":"1")", kInLobby, lowerCase),
       entry("b4", R"("major":1,"minor":4)", R"("measured_power":-59)"),
       entry("b5", R"("major":1,"minor":5)", R"("map_id":"attic","latitude":50.1,"longitude":8.6)"),
       entry("b6", R"("major":1,"minor":6)", R"("map_id":"lobby","latitude":50.101,"longitude":8.6)"),
       entry("b7", R"("major":1,"minor":7)", R"("map_id":"lobby","latitude":50.1)"),
       entry("b6", R"("major":1,"minor":null)", ""), entry("b9", wildcards, kInLobby),
       entry("b10", R"("major":null,"minor":7)", ""), entry("b11", R"("major":65536,"minor":-1)", ""),
       entry("b12", R"("major":1)", kInLobby), entry("b13", R"("major":"x","minor":1)", kInLobby),
       entry("b14", wildcards, "", "0000-11"), "7", entry("", wildcards, "", "5A0E6D0C-7B1F-4E57-9C3D-0B2A4F86E914")},
      R"(,"map":{"overlays":[
{"type":"star"},
{"type":"circle","identifier":"b4","radius":5,"center":[1,2]},
{"type":"circle","identifier":"c2","radius":0,"center":[1]}]})");
  EXPECT_EQ(venue.check().status, 1);
  const auto in = [](int line) { return "server/kit.json:" + std::to_string(line); };
  EXPECT_THAT(
      venue.findings(),
      ElementsAre(finding(in(3) + ":1", "major 1, minor 1: /kit/ibeacons/0 no longer counts [/kit/ibeacons/1]"),
                  finding(in(4), "warning: beacon \"b4\" has no map"),
                  finding(in(5) + ":100", "on map \"attic\", which is not there [/kit/ibeacons/3/attributes/map_id]"),
                  finding(in(6), "off map \"lobby\", 106.2 m beyond its edge"), finding(in(7), "no longitude"),
                  finding(in(8), "identifier \"b6\" is used twice: /kit/ibeacons/4"),
                  finding(in(9), "a map for many beacons"), finding(in(10) + ":1", "any, minor any: /kit/ibeacons/7"),
                  finding(in(10), "a minor without a major"), finding(in(11), "the major is not a number"),
                  finding(in(11), "the minor is not a number"), finding(in(12), "\"minor\": null for any"),
                  finding(in(13), "the major is not"), finding(in(14), "no readable uuid"),
                  finding(in(15) + ":1", "not an object"), finding(in(16), "no identifier"),
                  finding(in(17), "note: neither circle nor"), finding(in(18), "\"b4\" is used twice: /kit/ibeacons/2"),
                  finding(in(19), "without a radius"), finding(in(19), "without a center")));
}

TEST(MapsCommand, tellsWhenRegionsBecomeGeneral) {
  const Venue venue;
  std::vector<std::string> entries;
  for (int i = 0; i < 20; ++i)
    entries.push_back(entry("b" + std::to_string(i), R"("major":1,"minor":)" + std::to_string(i), kInLobby));
  venue.writeKit(entries);
  EXPECT_THAT(venue.findings(), IsEmpty());
  entries.push_back(entry("last", R"("major":1,"minor":20)", kInLobby));
  venue.writeKit(entries);
  EXPECT_THAT(venue.findings(), ElementsAre(finding("server/kit.json:22:1", "note: with this entry there are more")));
  EXPECT_EQ(venue.check().status, 0) << "a note is no reproach";
}

TEST(MapsCommand, findsFaultsInMapsAndImages) {
  const Venue venue;
  venue.write("server/maps/c.json",
              "{\"lobby\":" + map("plans/l.svg") + ",\n\"flat\":" + map("plans/l.svg", R"("pixels_per_meter":0)") +
                  ",\n\"bare\":{\"file_path\":\"plans/l.svg\"}" + ",\n\"gone\":" + map("plans/none.svg") +
                  ",\n\"../up\":" + map("plans/l.svg") + ",\n\"out\":" + map("../l.svg") +
                  ",\n\"text\":\"x\",\n\"lobby\":" + map("plans/l.svg") + "}");
  std::filesystem::remove(venue.path() + "/bundle/lobby.svg");
  std::vector<std::string> found = venue.findings();
  std::erase_if(found, [](const auto& line) { return line.find(": note: ") != line.npos; });
  const auto in = [](int line) { return "server/maps/c.json:" + std::to_string(line); };
  EXPECT_THAT(found,
              ElementsAre(finding("bundle/map_config.json:1:2", "warning: map \"lobby\" has no image before"),
                          finding(in(2), "\"flat\" has no scale"), finding(in(3), "has no scale"),
                          finding(in(3), "no width"), finding(in(3), "no height"), finding(in(3), "no latitude"),
                          finding(in(3), "no longitude"), finding(in(4) + ":20", "there is no file "),
                          finding(in(5), "holds \"..\""), finding(in(6), "leads out of the document's directory"),
                          finding(in(7), "is not an object"), finding(in(8) + ":1", "\"lobby\" is given twice")));
  venue.writeMaps("{}");
  EXPECT_THAT(venue.findings(), testing::Contains(finding("server/maps/c.json:1:1", "holds no map")));
}

TEST(MapsCommand, findsWhatCannotBeRead) {
  const Venue venue;
  venue.write("server/kit.json", "{\"kit\": {\n  \"id\": 1,\n  \"ibeacons\": [oops]}}");
  venue.write("server/maps/c.json", std::string(100'000, '['));
  std::filesystem::remove(venue.path() + "/bundle/map_config.json");
  venue.write("bundle/Geofold.plist", "<plist");
  venue.write("bundle/Wayloom.plist",
              sim::propertyList("\n<key>GFKitURL</key><string>kit example</string>\n<key>GFAPIToken</key><integer>3"
                                "</integer><key>WLMapConfigURL</key><string>https://m.example/maps/c.json</string>"));
  std::filesystem::remove(venue.path() + "/bundle/Info.plist");
  EXPECT_THAT(
      venue.findings(),
      ElementsAre(finding("bundle/Geofold.plist", "is not a property list"),
                  finding("bundle/Wayloom.plist:2", "GFKitURL is no address of a server: \"kit example\""),
                  finding("bundle/Wayloom.plist:3", "GFAPIToken is not a text"),
                  finding("bundle/Wayloom.plist", "note: GFAnalyticsURL is missing"),
                  finding("bundle/Info.plist", "NSLocationAlwaysUsageDescription"),
                  finding("bundle/map_config.json", "warning: can't be read"),
                  finding("server/kit.json:3:16", "is not JSON"), finding("server/maps/c.json:1:1", "nested deeper")));
  const auto lines = platform::parseJson(venue.check("--json").output).value.value_or(Json());
  ASSERT_EQ(lines.size(), 8U);
  EXPECT_EQ(lines[6]["line"], 3);
  EXPECT_EQ(lines[6]["severity"], "error");
  EXPECT_TRUE(lines[0]["line"].is_null());
}

TEST(JsonPlaces, findsPlacesInAnyText) {
  const std::string text =
      "\xEF\xBB\xBF{\"a\\u0062/~\":\n [1, {\"x]\":\"\\\"}\",\"y\" : null}],\n\"d\":{\"e\":1},\"d\":{\"e\":2}}";
  JsonPlaces places(text);
  const JsonPath deep = {"ab/~", "1", "y"};
  for (const JsonPath& path : std::vector<JsonPath>{deep, {"ab/~", "0"}, {"ab/~", "2", "z"}, {"d", "e"}})
    places.want(path);
  places.find();
  const auto begins = [&](const JsonPath& path) { return text.substr(places.offsetOf(path), 4); };
  EXPECT_EQ(jsonPointer(deep), "/ab~1~0/1/y");
  EXPECT_EQ(begins(deep), "\"y\" ");
  EXPECT_EQ(begins({"ab/~", "0"}), "1, {");
  EXPECT_EQ(begins({"ab/~", "2", "z"}), "\"a\\u") << "the innermost that is there";
  EXPECT_EQ(begins({"d", "e"}) + text.substr(places.offsetOf({"d", "e"}) + 4, 1), "\"e\":2");
  EXPECT_EQ(places.placeOf(places.offsetOf(deep)).line, 2U);
  EXPECT_EQ(places.placeOf(places.offsetOf(deep)).column, 18U);
  ASSERT_EQ(places.repeated().size(), 1U);
  EXPECT_EQ(places.repeated()[0].path, JsonPath({"d"}));

  // No text that isn't JSON holds it up or leads it astray.
  const std::string seed = "{\"a\":[1,\"b\\\\\",{}],\"a\":null}";
  for (std::size_t length = 0; length <= seed.size(); ++length) {
    for (const char wrong : {'"', '[', '{', '}', ']', ',', '\\', '\0'}) {
      const std::string broken = seed.substr(0, length) + wrong + seed.substr(length / 2);
      JsonPlaces scanned(broken);
      scanned.want({"a", "2"});
      scanned.find();
      EXPECT_LE(scanned.offsetOf({"a", "2"}), broken.size());
    }
  }
}

// A venue's bundle that points to a server with the venue's files.
class MapsUpdateTest : public testing::Test {
 protected:
  MapsUpdateTest() : serve_(venue_.path(), {"--write-bundle", client_.path() + "/bundle"}) {
    // The built-in document is older than the server's.
    std::filesystem::last_write_time(
        client_.path() + "/bundle/map_config.json",
        std::filesystem::last_write_time(venue_.path() + "/server/maps/c.json") - std::chrono::hours(1));
  }
  Outcome maps(const std::string& action) const {
    return runMaps(action + " --venue " + client_.path() + " --documents " + documents_.path() + "/new");
  }

  Venue venue_;
  sim::TestFolder client_;
  sim::TestFolder documents_;
  ServeProcess serve_;
};

TEST_F(MapsUpdateTest, FetchesAndListsMaps) {
  auto outcome = maps("list");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("built-in  lobby.svg, missing; m"));
  EXPECT_FALSE(std::filesystem::exists(documents_.path() + "/new")) << "a list changes nothing";
  venue_.write("server/maps/c.json", R"({"lobby":)" + map("plans/l.svg") + R"(,"roof":)" + map("r.svg") + "}");
  venue_.write("server/maps/r.svg", "<svg/>");

  outcome = maps("update");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, HasSubstr("map roof: fetched, 6 bytes ("));
  EXPECT_THAT(outcome.output, HasSubstr("map configuration fetched; 2 maps: "));
  EXPECT_THAT(outcome.output, HasSubstr("; 0 failed; "));
  EXPECT_THAT(outcome.output, Not(HasSubstr("\033"))) << "nothing for terminals, where there is none";
  outcome = maps("update --json");
  const auto again = platform::parseJson(outcome.output.substr(outcome.output.find("{\n"))).value.value_or(Json());
  EXPECT_EQ(again["document"], "unchanged") << again.dump();
  EXPECT_EQ(again["failed"], 0);

  const auto list = platform::parseJson(maps("list --json").output).value.value_or(Json());
  EXPECT_EQ(list["source"], "updated");
  ASSERT_EQ(list["maps"].size(), 2U);
  EXPECT_EQ(list["maps"][1]["id"], "roof");
  EXPECT_EQ(list["maps"][1]["width_meters"], 100.0);
  EXPECT_EQ(list["maps"][1]["image"], documents_.path() + "/new/maps/roof.svg");
  EXPECT_THAT(list["maps"][1]["image_date"].get<std::string>(), StartsWith("20"));
}

TEST_F(MapsUpdateTest, TellsWhatFailed) {
  venue_.write("server/maps/c.json", R"({"lobby":)" + map("plans/l.svg") + R"(,"../up":)" + map("plans/l.svg") + "}");
  auto outcome = maps("update");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, testing::AllOf(HasSubstr("map ../up: its id holds"), HasSubstr("; 1 failed; ")));

  ServeProcess silent(venue_.path(), {"--write-bundle", client_.path() + "/bundle", "--fault", "maps:hang"});
  outcome = maps("update --time-limit 0.5");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, HasSubstr("has not ended within 0.5 s"));
  silent.end(SIGKILL);
  outcome = maps("update");
  EXPECT_EQ(outcome.status, 1) << "nobody is there";
  EXPECT_THAT(outcome.output, HasSubstr("map configuration failed; "));
}

TEST(MapsCommand, RefusesWrongOptions) {
  const Venue venue;
  const std::string ofVenue = " --venue " + venue.path();
  const std::vector<std::string> wrong = {
      "check",          "check --venue /none", "update" + ofVenue,
      "list" + ofVenue, "remove" + ofVenue,    "update --time-limit 0 --documents d" + ofVenue};
  for (const auto& arguments : wrong) EXPECT_EQ(runMaps(arguments).status, 2) << arguments;
  venue.write("taken", "");
  for (const char* action : {"update", "list"})
    EXPECT_EQ(runMaps(action + ofVenue + "/server --documents " + venue.path() + "/taken").status, 1) << action;
}

}  // namespace
}  // namespace wayloom::tools
