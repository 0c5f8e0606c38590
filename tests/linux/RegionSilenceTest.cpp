// Regions are left 30 to 45 s after their last frame, whatever else is on the air and whatever becomes of the scan.
#include <atomic>

#include "tests/linux/RadioWorld.hpp"

namespace wayloom::tests {
namespace {

using Clock = std::chrono::steady_clock;
using platform::Duration;

// A fifth of the times that hosts get, so that a tick of the ranger, a second, counts for five.
int shortening() { return hasRealTimes() ? 1 : 5; }
Duration scaled(std::chrono::milliseconds time) { return time / shortening(); }
Duration sinceStart() { return Clock::now().time_since_epoch(); }

const platform::UUID kStranger = *platform::UUID::parse("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0");

struct Surroundings {
  const char* name;
  int strangers = 0;
  std::chrono::milliseconds strangersEvery{1000};
  std::chrono::milliseconds duplicateWindow{0};
  std::chrono::milliseconds scanEndsEvery{0};  // by the service
  bool startsOver = false;                     // the service falls silent until the scan is restarted
};

// One device in a venue whose only beacon goes, beside all the others: each has a bus and a service of its own.
class Leaver : private platform::CLLocationManagerDelegate, private platform::LogSink {
 public:
  Leaver(const std::shared_ptr<posix::MainLoop>& loop, const Surroundings& surroundings)
      : surroundings_(surroundings), services_(loop, noLog(), radio()) {
    bluez_.setFaults({.duplicateWindow = scaled(surroundings.duplicateWindow)});
    bluez_.every(std::chrono::milliseconds(20), [this](FakeBluez& fake) { play(fake); });
    services_.setExitSilence(scaled(std::chrono::seconds(30)));
    manager_->setDelegate(this);
    const auto region = std::make_shared<platform::CLBeaconRegion>(kVenue, std::nullopt, std::nullopt, "venue");
    manager_->startMonitoringForRegion(region);
    manager_->startRangingBeaconsInRegion(region);
  }

  const char* name() const { return surroundings_.name; }
  bool isInside() const { return entries_ > 0; }
  bool isOutside() const { return exits_ > 0; }
  int entries() const { return entries_; }
  int starts() const { return bluez_.starts(); }
  void leave() { isBeaconOn_ = false; }
  // From the last frame to the exit, in seconds of a host's times.
  double silence() const { return std::chrono::duration<double>(exitAt_ - lastFrame_.load()).count() * shortening(); }

 private:
  static std::shared_ptr<platform::LogSink> noLog() {
    struct NoLog : platform::LogSink {
      void write(std::string_view) override {}
    };
    return std::make_shared<NoLog>();
  }

  linux_::BluezOptions radio() const {
    linux_::BluezOptions options{.bus = bus_.address()};
    options.watchdog /= shortening();
    return options;
  }

  // On the service's thread, fifty times a second.
  void play(FakeBluez& fake) {
    if (isBeaconOn_ && isDue(beaconDue_, scaled(std::chrono::milliseconds(500)))) {
      if (fake.sight(1, {kVenue, 1, 1})) lastFrame_ = sinceStart();
    }
    if (surroundings_.strangers > 0 && isDue(strangersDue_, scaled(surroundings_.strangersEvery)))
      for (int i = 0; i < surroundings_.strangers; ++i) fake.sight(100 + i, {kStranger, 1, 1});
    if (surroundings_.scanEndsEvery.count() > 0 && isDue(endDue_, scaled(surroundings_.scanEndsEvery)))
      fake.endDiscovery();
    if (surroundings_.startsOver && isDue(endDue_, scaled(std::chrono::seconds(20))))
      fake.setFaults({.silentUntilRestart = true});
  }

  static bool isDue(Duration& due, Duration interval) {
    if (sinceStart() < due) return false;
    due = sinceStart() + interval;
    return true;
  }

  void write(std::string_view) override {}
  void locationManagerDidEnterRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override {
    ++entries_;
  }
  void locationManagerDidExitRegion(platform::CLLocationManager*, const platform::CLRegionPtr&) override {
    ++exits_;
    exitAt_ = sinceStart();
  }

  const Surroundings surroundings_;
  PrivateBus bus_;
  FakeBluez bluez_{bus_.address()};
  linux_::LinuxLocationServices services_;
  std::unique_ptr<platform::CLLocationManager> manager_ = services_.makeLocationManager();
  int entries_ = 0;
  int exits_ = 0;
  Duration exitAt_{};
  std::atomic<bool> isBeaconOn_ = true;
  std::atomic<Duration> lastFrame_ = Duration::zero();
  Duration beaconDue_{};  // the service's thread, as are the next two
  Duration strangersDue_{};
  Duration endDue_{};
};

TEST(RegionSilence, EndsARegionInTimeWhateverElseIsHeard) {
  using namespace std::chrono_literals;
  const Surroundings all[] = {
      {.name = "nobody else"},
      {.name = "a stranger every 8 s", .strangers = 1, .strangersEvery = 8s},
      {.name = "a stranger every 15 s", .strangers = 1, .strangersEvery = 15s},
      {.name = "a stranger every 25 s", .strangers = 1, .strangersEvery = 25s},
      {.name = "forty strangers", .strangers = 40},
      {.name = "duplicates filtered, nobody else", .duplicateWindow = 10240ms},
      {.name = "duplicates filtered, three strangers", .strangers = 3, .duplicateWindow = 10240ms},
      {.name = "a scan that the service ends every 12 s", .scanEndsEvery = 12s},
      {.name = "a scan that falls silent every 20 s", .strangers = 1, .strangersEvery = 5s, .startsOver = true},
  };
  const auto loop = std::make_shared<posix::MainLoop>();
  const auto runUntil = [&](Duration limit, auto done) {
    const auto end = Clock::now() + limit;
    while (!done() && Clock::now() < end) {
      pollfd wake{loop->wakeDescriptor(), POLLIN, 0};
      ::poll(&wake, 1, 20);
      loop->runDue();
    }
  };
  std::vector<std::unique_ptr<Leaver>> devices;
  for (const auto& each : all) devices.push_back(std::make_unique<Leaver>(loop, each));
  const auto all_of = [&](auto has) { return std::all_of(devices.begin(), devices.end(), has); };
  runUntil(scaled(30s) + 10s, [&] { return all_of([](const auto& device) { return device->isInside(); }); });
  runUntil(scaled(25s), [] { return false; });  // where frames are rare, they must not end it
  for (const auto& device : devices) {
    EXPECT_FALSE(device->isOutside()) << device->name();
    device->leave();
  }
  runUntil(scaled(60s), [&] { return all_of([](const auto& device) { return device->isOutside(); }); });
  for (const auto& device : devices) {
    ASSERT_TRUE(device->isOutside()) << device->name();
    EXPECT_EQ(device->entries(), 1) << device->name();
    EXPECT_GE(device->silence(), 30.0) << device->name();
    EXPECT_LE(device->silence(), 45.0) << device->name();
    std::printf("%-42s left after %4.1f s, %d scans\n", device->name(), device->silence(), device->starts());
  }
}

}  // namespace
}  // namespace wayloom::tests
