// The window on a live radio, which a fake Bluetooth service is.
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "tests/linux/FakeBluez.hpp"
#include "tests/linux/PrivateBus.hpp"
#include "tests/sim/SimVenue.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/Shell.hpp"

namespace wayloom::gtk {
namespace {

using namespace std::chrono_literals;

// The kit comes from the venue folder, the beacon over the bus: what they make together is recorded.
TEST(LiveView, FollowsWhatBluetoothHears) {
  const platform::BeaconIdentity foyer{*platform::UUID::parse("7D3A1C52-94E8-4B0F-A6D1-2E5B8C90F417"), 1, 14};
  const tests::PrivateBus bus;
  tests::FakeBluez bluez(bus.address());
  bluez.every(100ms, [&](tests::FakeBluez& fake) { fake.sight(1, foyer, -65, -58); });
  const sim::TestFolder folder;
  const auto documents = folder.path() + "/documents";
  ChildProcess view({WAYLOOM_COMMAND, "view", "--venue", WAYLOOM_SOURCE_DIR "/examples/venue", "--live", "--bus",
                     bus.address(), "--documents", documents});
  const auto isRecorded = [&] {
    const auto dump = runShell(std::string(WAYLOOM_COMMAND) + " dump " + documents + " 2>&1").output;
    return dump.find(" 14 | " + foyer.uuid.string()) != dump.npos;
  };
  for (int i = 0; i < 100 && !isRecorded(); ++i) std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(isRecorded());
  EXPECT_EQ(view.end(SIGTERM), 0);
}

}  // namespace
}  // namespace wayloom::gtk
