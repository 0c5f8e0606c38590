// `wayloom view` as a person would use it.
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

#include "wayloom/platform/Json.hpp"

#include "tests/gtk/Screen.hpp"
#include "tests/sim/SimVenue.hpp"
#include "tests/support/Shell.hpp"

namespace wayloom::gtk {
namespace {

using testing::HasSubstr;

const std::string kView = std::string(WAYLOOM_COMMAND) + " view --venue " WAYLOOM_SOURCE_DIR "/examples/venue ";

Outcome run(const std::string& line) { return runShell(line + " 2>&1"); }

// Somebody in the garden, for that many seconds.
std::string recording(int seconds) {
  std::ostringstream lines;
  for (int second = 0; second < seconds; ++second)
    lines << R"({"t":)" << 1000 + second
          << R"(,"type":"location","latitude":48.21352,"longitude":-27.46826,"accuracy":4})"
          << "\n";
  return lines.str();
}

TEST(ViewCommand, FollowsARecordingToItsEnd) {
  const sim::TestFolder folder;
  folder.write("walk.jsonl", recording(60));
  const auto path = folder.path() + "/walk.jsonl";
  const auto outcome = run(kView + "--exit-at-end --speed 60 " + path);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  folder.write("broken.jsonl", recording(3) + "{\n");
  EXPECT_THAT(run(kView + "--exit-at-end --speed 100 " + folder.path() + "/broken.jsonl").output,
              HasSubstr("broken.jsonl:4: "));
  for (const std::string& line :
       {kView + "/nonexistent.jsonl", kView + "/dev/null", "DISPLAY= WAYLAND_DISPLAY= " + kView + path}) {
    const auto failed = run("GDK_BACKEND=x11 " + line);
    EXPECT_EQ(failed.status, 1) << line;
    EXPECT_THAT(failed.output, testing::StartsWith("wayloom: ")) << line;
  }
  const auto unknown = run(kView + "--map nosuch " + path);
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.output, HasSubstr("wayloom: there is no map nosuch"));
  for (const std::string arguments : {"", "--speed 0 x", "--live x", "--network x"})
    EXPECT_EQ(run(kView + arguments).status, 2) << arguments;
}

// Without a bus there is no radio, which is said; the map is shown all the same.
TEST(ViewCommand, ShowsTheMapWhileThereIsNoRadio) {
  const sim::TestFolder folder;
  const auto outcome = run("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent timeout 3 " + kView + "--live --documents " +
                           folder.path() + "/documents");
  if (outcome.status == 1) {
    EXPECT_EQ(outcome.output,
              "wayloom: there is no radio in this build: it was made without the backend for Bluetooth\n");
    return;
  }
  EXPECT_EQ(outcome.status, 124);  // it had to be stopped
  EXPECT_THAT(outcome.output, HasSubstr("message bus"));
  EXPECT_THAT(outcome.output, HasSubstr("Loading map from " + folder.path() + "/documents/maps/map.html"));
  EXPECT_THAT(outcome.output, testing::Not(HasSubstr("failed to load")));
}

// The mouse goes to the middle of the map, and the command prints where that is.
TEST(ViewCommand, PrintsTapsInMetres) {
  const sim::TestFolder folder;
  folder.write("walk.jsonl", recording(600));
  const auto taps = folder.path() + "/taps";
  const auto started = "exec " + kView + "--map garden " + folder.path() + "/walk.jsonl > " + taps;
  const pid_t viewer = ::fork();
  if (viewer == 0) ::execl("/bin/sh", "sh", "-c", started.c_str(), nullptr);
  std::string tap;
  for (int attempt = 0; attempt < 20 && tap.empty(); ++attempt) {
    run("sleep 0.5; xdotool mousemove 450 360 click 1");
    std::ifstream file(taps);
    std::getline(file, tap);
  }
  ::kill(viewer, SIGTERM);
  ::waitpid(viewer, nullptr, 0);
  ASSERT_NE(tap, "");
  const auto line = platform::Json::parse(tap);
  EXPECT_EQ(line["map_id"], "garden");
  // The plan is 68 m by 52 m, its overlay origin at 20 m, 11.5 m.
  EXPECT_NEAR(line["x_m"].get<double>(), 68.0 / 2 - 20.0, 1.0);
  EXPECT_NEAR(line["y_m"].get<double>(), 52.0 / 2 - 11.5, 2.5);
}

}  // namespace
}  // namespace wayloom::gtk
