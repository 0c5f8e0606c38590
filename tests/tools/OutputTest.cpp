// What becomes of the commands' output when nobody takes it, and what of strangers' text reaches a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "wayloom/platform/JsonParser.hpp"

#include "backends/sim/JsonText.hpp"
#include "tests/sim/SimVenue.hpp"
#include "tests/support/Shell.hpp"
#include "tools/common/Output.hpp"

namespace wayloom::tools {
namespace {

using testing::HasSubstr;

const std::string kWayloom = std::string(WAYLOOM_BINARY_DIR) + "/wayloom ";
const std::string kVenue = std::string(WAYLOOM_SOURCE_DIR) + "/tests/tools/data/venue";
const std::string kRecording = std::string(WAYLOOM_SOURCE_DIR) + "/tests/tools/data/expiry.jsonl";

// The line's own status, whatever it is piped into.
Outcome run(const std::string& line) { return runShell("bash -o pipefail -c '" + line + "'"); }

TEST(Output, LossesAreToldApart) {
  const sim::TestFolder folder;
  sim::writeVenue(folder);
  folder.write("truth.jsonl", "{\"t\":1,\"type\":\"truth\",\"map_id\":\"lobby\",\"x\":1,\"y\":2}\n");
  const std::string venue = " --venue " + folder.path() + " ";
  const std::string replay = kWayloom + "replay --venue " + kVenue + " --events all " + kRecording;
  const std::string evaluate = kWayloom + "evaluate" + venue + folder.path() + "/truth.jsonl";
  const std::string simulate = kWayloom + "simulate" + venue + "--seed 1 --stops 10000";
  const std::string update =
      kWayloom + "maps update --time-limit 5 --documents " + folder.path() + "/documents" + venue;
  struct Case {
    std::string line;
    int status;
    std::string said;  // on standard error
  };
  const std::string full = "standard output: No space left on device";
  const std::string notOpen = "standard output: Bad file descriptor";
  const std::vector<Case> cases = {
      {replay + " >/dev/full", 1, full},
      {replay + " >&-", 1, notOpen},
      {replay + " | head -1", 0, ""},
      {kWayloom + "replay --venue " + kVenue + " nosuch 2>/dev/full", 1, ""},
      {kWayloom + "replay --venue " + kVenue + " nosuch 2>&-", 1, ""},
      {evaluate, 0, ""},
      {evaluate + " >/dev/full", 1, full},
      {evaluate + " | true", 0, ""},
      {simulate + " | head -1", 0, ""},
      {simulate + " >/dev/full", 1, full},
      {simulate + " -o /dev/full", 1, "/dev/full: No space left on device"},
      {kWayloom + "maps check" + venue + ">/dev/full", 1, full},
      {update + "2>/dev/full", 1, ""},
      {kWayloom + "--help >/dev/full", 1, full},
      {kWayloom + "oops >/dev/full 2>/dev/full", 2, ""},
  };
  for (const auto& [line, status, said] : cases) {
    EXPECT_EQ(run("{ " + line + "; } 2>" + folder.path() + "/said").status, status) << line;
    const auto heard = runShell("cat " + folder.path() + "/said").output;
    EXPECT_TRUE(said.empty() ? heard.empty() : heard.find(said) != heard.npos) << line << ": " << heard;
  }
}

TEST(Output, WrongWordsAreAnsweredWithTheNearest) {
  const auto said = [](const std::string& arguments) { return runShell(kWayloom + arguments + " 2>&1").output; };
  EXPECT_THAT(said("repaly x"), HasSubstr("There is no repaly. Did you mean replay?\n"));
  EXPECT_THAT(said("evalaute"), HasSubstr("Did you mean evaluate?\n"));
  EXPECT_THAT(said("replay --venue " + kVenue + " --evnts=all x"), HasSubstr("Did you mean --events?\n"));
  EXPECT_THAT(said("serve --prot 1 --venue " + kVenue), HasSubstr("Did you mean --port?\n"));
  EXPECT_THAT(said("zzzzzz"), testing::Not(HasSubstr("Did you mean")));
}

TEST(Output, StrangersDontReachTheTerminal) {
  EXPECT_EQ(printable("a\tb\033[31m\nc\x7F"), "a?b?[31m?c?");
  EXPECT_EQ(printable("caf\u00e9 \U0001F600 \u0085\u009b2J \u00a0"), "caf\u00e9 \U0001F600 ????2J \u00a0");
  EXPECT_EQ(printable("\x9B\xC3(\xE2\x82"),
            "?"
            "?(?"
            "?")
      << "what is no UTF-8";
  const sim::TestFolder folder;
  folder.write("\033[31m.jsonl", "{}\n");
  EXPECT_THAT(runShell(kWayloom + "replay --venue " + kVenue + " " + folder.path() + "/*.jsonl 2>&1").output,
              testing::AllOf(HasSubstr("?[31m.jsonl:1: "), testing::Not(HasSubstr("\033"))));
  // JSON has them as escapes, the same whoever writes it.
  const std::string text = "a\n\x7F\u0085\u009f\u00a0\u00e9";
  const std::string json = R"("a\n\u007f\u0085\u009f)"
                           "\u00a0\u00e9\"";
  EXPECT_EQ(sim::jsonText(text), json);
  EXPECT_EQ(sim::JsonText().value(text).text(), json);
  EXPECT_EQ(platform::parseJson(json).value, platform::Json(text));
}

}  // namespace
}  // namespace wayloom::tools
