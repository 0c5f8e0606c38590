#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeaconRegion.hpp"
#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/RecordingWriter.hpp"

namespace wayloom::sim {
namespace {

const std::string kUuid = "5A0E6D0C-7B1F-4E57-9C3D-0B2A4F86E913";
const std::string kRegion = R"("region":{"identifier":"r","uuid":")" + kUuid + R"(","major":null})";

std::string beacon(const std::string& rest) {
  return R"({"uuid":")" + kUuid + R"(","major":1,"minor":4,)" + rest + "}";
}
std::string ranging(double t, const std::string& beacons) {
  return R"({"t":)" + platform::Json(t).dump() + R"(,"type":"ranging",)" + kRegion + R"(,"beacons":[)" + beacons +
         "]}\n";
}

// "LINE: reason" of the error, or the number of events when there is none.
std::string outcome(const std::string& text) {
  auto reader = RecordingReader::ofText(text);
  int events = 0;
  while (reader.next() != nullptr) ++events;
  if (!reader.error()) return std::to_string(events);
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_EQ(reader.error()->reason.find('\n'), std::string::npos);
  return std::to_string(reader.error()->line) + ": " + reader.error()->reason;
}

TEST(RecordingReader, refusesMalformedLinesAndSaysWhy) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"t":1,"type":"truth")", "1: not JSON"},
      {"[1]", "1: not a JSON object"},
      {"1e", "1: not JSON"},
      {R"({"t":1})", R"(1: "type" is missing)"},
      {R"({"t":1,"type":7})", R"(1: "type" must be a text)"},
      {R"({"type":"new"})", R"(1: "t" is missing)"},
      {R"({"t":"1","type":"new"})", R"(1: "t" must be a number)"},
      {R"({"t":1e300,"type":"new"})", R"(1: "t" is out of range)"},
      {R"({"t":1e999,"type":"new"})", "1: not JSON"},
      {R"({"t":NaN,"type":"new"})", "1: not JSON"},
      {"{\"t\":2,\"type\":\"new\"}\n\n{\"t\":1.5,\"type\":\"new\"}", R"(3: "t" goes back in time)"},
      {"{\"t\":0,\"type\":\"new\"}\n{\"t\":1.7e9,\"type\":\"new\"}", R"(2: "t" is more than a year after)"},
      {"{\"t\":0,\"type\":\"new\"}\n{\"t\":3e7,\"type\":\"new\"}\n{\"t\":6e7,\"type\":\"new\"}",
       R"(3: "t" is more than a year after the first line's)"},
      {R"({"type":"header","version":2})", "1: a recording of version 2"},
      {R"({"type":"header","version":"1"})", R"(1: "version" must be an integer)"},
      {R"({"t":1,"type":"ranging","beacons":[]})", R"(1: "region" is missing)"},
      {R"({"t":1,"type":"ranging","region":{"identifier":"r"},"beacons":[]})", R"(1: "region": "uuid" is missing)"},
      {R"({"t":1,"type":"enter","region":{"uuid":"x","identifier":"r"}})", R"(1: "region": "uuid" is no UUID)"},
      {R"({"t":1,"type":"enter","region":{"uuid":"","identifier":"r"}})", R"(1: "region": "uuid" is no UUID)"},
      {R"({"t":1,"type":"exit","region":"r"})", R"(1: "region" must be an object)"},
      {R"({"t":1,"type":"state","state":3,"region":{"identifier":"r"}})",
       R"(1: "state" must be an integer from 0 to 2)"},
      {R"({"t":1,"type":"ranging",)" + kRegion + R"(,"beacons":{}})", R"(1: "beacons" must be an array)"},
      {ranging(1, beacon(R"("rssi":-7,"accuracy":1)") + ",3"), R"(1: "beacons"[1]: must be an object)"},
      {ranging(1, beacon(R"("rssi":"-7","accuracy":1)")), R"(1: "beacons"[0]: "rssi" must be a number)"},
      {ranging(1, beacon(R"("rssi":-7)")), R"(1: "beacons"[0]: "accuracy" is missing)"},
      {ranging(1, beacon(R"("major":65536,"rssi":-7,"accuracy":1)")),
       R"(1: "beacons"[0]: "major" must be an integer from 0 to 65535)"},
      {R"({"t":1,"type":"location","latitude":null,"longitude":1,"accuracy":1})", R"(1: "latitude" must be a number)"},
      {R"({"t":1,"type":"network","up":1})", R"(1: "up" must be true or false)"},
      {R"({"t":1,"type":"bluetooth","state":6})", R"(1: "state" must be an integer from 0 to 5)"},
      {R"({"t":1,"type":"truth","map_id":"m","x":1})", R"(1: "y" is missing)"},
      {R"({"t":1,"type":"event","event_type":["x"]})", R"(1: "event_type" must be a text)"},
      {"{\"t\":1,\"type\":\"truth\",\"map_id\":\"\xFF\"}", "1: not JSON"},
      {std::string("{\"t\":1,\0\"type\":\"new\"}", 21), "1: not JSON"},
      {std::string(RecordingReader::kLongestLine * 2, ' '), "1: longer than 16777216 bytes"},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(outcome(text).substr(0, expected.size()), expected) << text.substr(0, 200);
}

TEST(RecordingReader, takesWhatIsUnusualButNotMalformed) {
  const std::string deep = std::string(10'000, '[') + std::string(10'000, ']');
  const std::string line = R"({"t":1,"type":"network","up":true,"extra":)";
  EXPECT_EQ(outcome(line + deep + "}"), "1");
  EXPECT_EQ(outcome(line + "1" + std::string(400, '0') + "}").substr(0, 11), "1: not JSON");  // beyond any double
  EXPECT_EQ(outcome(line + "123456789012345678901234567890}\n" + line + deep + "}\r\n" + line + "{}}"), "3");
  EXPECT_EQ(outcome("\xEF\xBB\xBF{\"type\":\"header\"}\n \r\n{\"t\":1,\"type\":\"new\",\"beacons\":7}\n\n"), "2");
  EXPECT_EQ(outcome(line + R"(0,"up":false,"status":{}})"), "1");
  EXPECT_EQ(outcome(line + '"' + std::string(3'000'000, 'x') + "\"}\n" + line + "1}"), "2");
  EXPECT_EQ(outcome(""), "0");
}

TEST(RecordingReader, boundsWhatHasNoMeaningBeyondItsBounds) {
  auto reader = RecordingReader::ofText(R"({"t":1,"type":"advertisement","uuid":")" + kUuid +
                                        R"(","major":1,"minor":4,"rssi":-1e30,"power":1000})"
                                        "\n" +
                                        ranging(2, beacon(R"("rssi":99999999999999999999,"accuracy":1e300)") + "," +
                                                       beacon(R"("rssi":-70.6,"accuracy":-1,"proximity":null)")));
  const auto* event = reader.next();
  ASSERT_NE(event, nullptr) << reader.error()->reason;
  EXPECT_EQ(event->frame.rssi, -std::numeric_limits<int>::max());
  EXPECT_EQ(event->frame.power, 127);
  event = reader.next();
  ASSERT_NE(event, nullptr) << reader.error()->reason;
  EXPECT_EQ(event->beacons[0].rssi, std::numeric_limits<int>::max());
  EXPECT_EQ(event->beacons[0].accuracy, 1e300);
  EXPECT_EQ(event->beacons[1].rssi, -71);
  EXPECT_EQ(event->beacons[1].proximity, platform::CLProximity::unknown);
}

TEST(RecordingReader, sharesRegionsAndTellsTheirKindsApart) {
  auto reader = RecordingReader::ofText(ranging(1, "") + ranging(2, "") +
                                        R"({"t":3,"type":"enter","region":{"identifier":"r"}})"
                                        "\n" +
                                        R"({"t":4,"type":"exit",)" + kRegion.substr(0, kRegion.size() - 5) + "7}}\n");
  const auto first = reader.next()->region;
  EXPECT_EQ(reader.next()->region, first);
  const auto plain = reader.next()->region;
  EXPECT_EQ(dynamic_cast<const platform::CLBeaconRegion*>(plain.get()), nullptr);
  EXPECT_EQ(plain->identifier(), "r");
  const auto* event = reader.next();
  ASSERT_NE(event, nullptr) << reader.error()->reason;
  EXPECT_EQ(dynamic_cast<const platform::CLBeaconRegion&>(*event->region).major(), 7);
}

TEST(RecordingReader, readsFromSourcesThatTrickleAndFail) {
  std::string text = ranging(1, beacon(R"("rssi":-70,"accuracy":1)")) + ranging(2, "") + ranging(3, "");
  text.pop_back();  // a last line without its end
  std::size_t at = 0;
  RecordingReader trickle([&](std::span<char> bytes) -> std::ptrdiff_t {
    if (at == text.size()) return 0;
    bytes[0] = text[at++];
    return 1;
  });
  while (trickle.next() != nullptr) {
  }
  EXPECT_FALSE(trickle.error());
  EXPECT_EQ(trickle.line(), 3);
  EXPECT_EQ(trickle.bytesRead(), text.size());

  auto missing = RecordingReader::ofFile("/nonexistent/recording");
  EXPECT_EQ(missing.next(), nullptr);
  EXPECT_EQ(missing.error()->reason, "can't be read");
  EXPECT_EQ(missing.error()->line, 0);
}

// Everything that the writer writes, the reader reads back, and writing that again gives the same text.
TEST(RecordingWriter, writesWhatReadsBackTheSame) {
  const std::string original =
      R"({"type":"header","version":1,"source":"hand \"held\""})"
      "\n"
      R"({"t":1749981600.31,"type":"advertisement","rssi":-71,"uuid":")" +
      kUuid +
      R"(","major":1,"minor":14,"power":-58,"address":"D3:AD"})"
      "\n" +
      R"({"t":1749981600.31,"type":"ranging","region":{"identifier":"r\u0007\u00e9","uuid":")" + kUuid +
      R"(","major":1,"minor":null},"beacons":[)" + beacon(R"("rssi":-70,"accuracy":0.1,"proximity":2)") + "]}\n" +
      R"({"t":1749981600.4,"type":"location","latitude":48.21345,"longitude":-27.46831,"accuracy":6.0,"timestamp":1749981601.8})"
      "\n"
      R"({"t":1749981601.0,"type":"enter","region":{"identifier":"circle"}})"
      "\n"
      R"({"t":1749981601.0,"type":"exit","region":{"identifier":"circle"}})"
      "\n"
      R"({"t":1749981601.0,"type":"state","state":1,"region":{"identifier":"circle"}})"
      "\n"
      R"({"t":1749981601.0,"type":"authorization","status":2})"
      "\n"
      R"({"t":1749981601.0,"type":"bluetooth","state":4})"
      "\n"
      R"({"t":1749981601.0,"type":"network","up":false})"
      "\n"
      R"({"t":1749981602.0,"type":"event","event_type":"door","details":{"n":1,"a":[null]}})"
      "\n"
      R"({"t":1749981602.0,"type":"update_maps"})"
      "\n"
      R"({"t":1749981602.0,"type":"truth","map_id":"m","latitude":1.5,"longitude":1e-07})"
      "\n"
      R"({"t":1749981603.0,"type":"truth","map_id":"m","x":0.0,"y":-2.25})"
      "\n";
  const auto copy = [](const std::string& text) {
    std::ostringstream out;
    auto reader = RecordingReader::ofText(text);
    {
      RecordingWriter writer(out);
      writer.header({{"source", "hand \"held\""}});
      while (const auto* event = reader.next()) writer.write(*event);
    }
    EXPECT_FALSE(reader.error()) << reader.error()->reason;
    return out.str();
  };
  const auto once = copy(original);
  EXPECT_EQ(std::count(once.begin(), once.end(), '\n'), std::count(original.begin(), original.end(), '\n'));
  EXPECT_EQ(once.substr(0, once.find("identifier")), original.substr(0, original.find("identifier")));
  EXPECT_EQ(once.substr(once.find(R"("rssi":-70)")), original.substr(original.find(R"("rssi":-70)")));
  EXPECT_EQ(copy(once), once);
}

}  // namespace
}  // namespace wayloom::sim
