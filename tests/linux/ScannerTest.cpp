// What comes of what is received, well-formed and not.
#include <gmock/gmock.h>
#include <random>

#include "tests/linux/RadioWorld.hpp"

namespace wayloom::tests {
namespace {

using linux_::RadioCondition;
using testing::ElementsAre;

const platform::UUID kForeign = *platform::UUID::parse("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0");

class Scanner : public RadioTest {
 protected:
  void SetUp() override {
    listen();
    services->setReportObserver([this](std::span<const linux_::BeaconReport> heard) {
      reports.insert(reports.end(), heard.begin(), heard.end());
    });
  }

  void scan() {
    watchVenue();
    runUntil([&] { return is(RadioCondition::scanning); });
  }

  // Runs until everything before this has arrived, and returns the strengths reported until then.
  std::vector<int> strengths() {
    bluez.sight(9999, {kForeign, 0, 0}, -1);
    runUntil([&] { return !reports.empty() && reports.back().frame.identity.uuid == kForeign; });
    reports.pop_back();
    std::vector<int> result;
    for (const auto& report : reports) result.push_back(report.frame.rssi);
    reports.clear();
    return result;
  }

  static Properties strength(int rssi) { return {{"RSSI", sdbus::Variant(static_cast<std::int16_t>(rssi))}}; }

  FakeBluez bluez{bus.address()};
  std::vector<linux_::BeaconReport> reports;
};

TEST_F(Scanner, HearsOnlyWhatIsReceivedNow) {
  bluez.remember(1, {kVenue, 1, 1}, -50);
  scan();
  EXPECT_EQ(bluez.filter(), "le true -127");
  EXPECT_THAT(strengths(), ElementsAre());
  EXPECT_EQ(count("enter venue"), 0);

  // Of a known device a strength alone is a sighting; of an unknown one it is not.
  bluez.change(1, strength(-61));
  bluez.change(2, strength(-62));
  bluez.sight(3, {kVenue, 1, 3}, -63);
  // A frame without a strength has the last one, until that is said to be gone.
  bluez.change(3, {{"ManufacturerData", manufacturerData(beaconData({kVenue, 1, 4}))}});
  bluez.change(3, {}, {"RSSI"});
  bluez.change(3, {{"ManufacturerData", manufacturerData(beaconData({kVenue, 1, 4}))}});
  bluez.change(3, strength(-64));
  EXPECT_THAT(strengths(), ElementsAre(-61, -63, -63, -64));

  // A device that sends other formats in turn: their strengths are not the iBeacon frame's, nor is a strength alone
  // that follows one; a frame whose strength is not mentioned has the one told last.
  const auto beacon = manufacturerData(beaconData({kVenue, 1, 3}));
  const auto service = sdbus::Variant(std::map<std::string, sdbus::Variant>{
      {"0000feaa-0000-1000-8000-00805f9b34fb", sdbus::Variant(std::vector<std::uint8_t>{0x10, 0, 3})}});
  for (const auto& [key, data] : {std::pair{"ServiceData", service},
                                  {"ManufacturerData", manufacturerData({1, 2, 3}, 0x0118)},
                                  {"ManufacturerData", manufacturerData({0x10, 5, 1})}}) {
    bluez.change(3, {{"ManufacturerData", beacon}, {"RSSI", sdbus::Variant(std::int16_t{-65})}});
    bluez.change(3, {{key, data}, {"RSSI", sdbus::Variant(std::int16_t{-80})}});
    bluez.change(3, strength(-81));
    bluez.change(3, {{"ManufacturerData", beacon}});
    bluez.change(3, strength(-66));
    EXPECT_THAT(strengths(), ElementsAre(-65, -81, -66)) << key;
  }
  EXPECT_EQ(count("enter venue"), 1);
}

TEST_F(Scanner, ReportsIdentityPowerAndSender) {
  scan();
  bluez.sight(0x0A0B, {kVenue, 513, 65535}, -70, -61);
  runUntil([&] { return !reports.empty(); });
  const auto& report = reports.front();
  EXPECT_EQ(report.frame.identity, (platform::BeaconIdentity{kVenue, 513, 65535}));
  EXPECT_EQ(report.frame.power, -61);
  EXPECT_EQ(report.sender.text(), "C0:00:00:00:0A:0B");
}

TEST_F(Scanner, RegionIsKeptWhenTheServiceForgetsADeviceAndLeftAfterItsSilence) {
  scan();
  beOn(bluez);
  runUntilTold("enter venue");
  services->setExitSilence(3s);
  bluez.every(1h, [](FakeBluez&) {});
  bluez.forget(1);
  runFor(1500ms);
  EXPECT_EQ(count("exit venue"), 0);
  bluez.every(100ms, [](FakeBluez& fake) { fake.sight(7, {kForeign, 1, 1}); });
  runUntilTold("exit venue");
  EXPECT_THAT(told, ElementsAre("enter venue", "exit venue"));
}

TEST_F(Scanner, RestsWithoutRegionsAndFollowsThePower) {
  using platform::CBCentralManagerState;
  std::vector<CBCentralManagerState> states;
  services->bluetooth()->setStateCallback([&](auto state) { states.push_back(state); });
  runUntil([&] { return is(RadioCondition::resting); });
  EXPECT_EQ(bluez.starts(), 0);
  beOn(bluez);
  scan();
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  manager->stopRangingBeaconsInRegion(manager->rangedRegions().front());
  watchVenue();  // so soon that the scan goes on
  runFor(100ms);
  EXPECT_EQ(bluez.stops(), 0);
  manager->stopMonitoringForRegion(manager->monitoredRegions().front());
  manager->stopRangingBeaconsInRegion(manager->rangedRegions().front());
  runUntil([&] { return bluez.stops() == 1; });
  bluez.setPowered(false);
  runUntil([&] { return is(RadioCondition::unpowered); });
  bluez.setPowered(true);
  runUntil([&] { return is(RadioCondition::resting); });
  EXPECT_EQ(bluez.starts(), 1);
  runFor(50ms);
  EXPECT_THAT(states, ElementsAre(CBCentralManagerState::unknown, CBCentralManagerState::poweredOn,
                                  CBCentralManagerState::poweredOff, CBCentralManagerState::poweredOn));
}

TEST_F(Scanner, UsesTheAdapterThatIsPoweredOrAskedFor) {
  bluez.setPowered(false);
  bluez.addAdapter("hci1");
  watchVenue();
  runUntil([&] { return services->radioStatus().adapter == "hci1" && services->radioStatus().listening; });

  auto options = radioOptions(bus.address());
  options.adapter = "hci7";
  listen(options);
  watchVenue();
  runUntil([&] { return is(RadioCondition::noAdapter); });
}

// Frames of every length and kind, and properties of wrong types.
TEST_F(Scanner, MalformedFramesAreDropped) {
  scan();
  const auto frame = beaconData({kVenue, 1, 1});
  std::mt19937 random(1);
  for (std::size_t length = 0; length <= 64; ++length) {
    auto data = frame;
    data.resize(length, 0x55);
    if (length != frame.size())
      bluez.sight(static_cast<int>(length),
                  {{"RSSI", sdbus::Variant(std::int16_t{-60})}, {"ManufacturerData", manufacturerData(data)}});
    for (auto& byte : data) byte = static_cast<std::uint8_t>(random());
    bluez.sight(static_cast<int>(length),
                {{"RSSI", sdbus::Variant(std::int16_t{-60})}, {"ManufacturerData", manufacturerData(data)}});
  }
  for (const int rssi : {0, 127, 1, -128, -32768, 32767}) bluez.sight(100, {kVenue, 1, 1}, rssi);
  const auto data = manufacturerData(frame);
  const std::vector<sdbus::Variant> wrong = {sdbus::Variant(-60),
                                             sdbus::Variant("-60"),
                                             sdbus::Variant(true),
                                             sdbus::Variant(std::vector<std::uint8_t>{1}),
                                             data,
                                             sdbus::Variant(std::map<std::uint16_t, sdbus::Variant>{{0x004C, data}}),
                                             sdbus::Variant(std::map<std::string, sdbus::Variant>{{"L", data}})};
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    bluez.sight(200, {{"RSSI", wrong[i]}, {"ManufacturerData", data}});
    bluez.forget(200);
    if (i != 4) bluez.sight(201, {{"RSSI", sdbus::Variant(std::int16_t{-60})}, {"ManufacturerData", wrong[i]}});
  }
  bluez.sight(202,
              {{"RSSI", sdbus::Variant(std::int16_t{-60})}, {"ManufacturerData", manufacturerData(frame, 0x0059)}});
  EXPECT_THAT(strengths(), ElementsAre());

  // An absurd power is bounded.
  rangedBeacons = 0;
  for (const int power : {127, 0, -128}) bluez.sight(300, {kVenue, 1, 1}, -60, power);
  EXPECT_THAT(strengths(), ElementsAre(-60, -60, -60));
  runUntil([&] { return rangedBeacons > 0; });
  EXPECT_GT(farthest, 0.0);
  EXPECT_LE(farthest, 500.0);
}

}  // namespace
}  // namespace wayloom::tests
