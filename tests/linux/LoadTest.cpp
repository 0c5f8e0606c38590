// Many beacons, and what they cost. The service runs in a process of its own, so that this one's use is the library's.
#include <fstream>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/linux/RadioWorld.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define WAYLOOM_SANITIZED true
#else
#define WAYLOOM_SANITIZED false
#endif

namespace wayloom::tests {
namespace {

#ifdef NDEBUG
constexpr double kSlowness = 1.0;
#else
constexpr double kSlowness = 2.0;
#endif

using testing::AllOf;
using testing::Ge;
using testing::Le;

double processSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Bytes.
std::size_t residentMemory() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * 4096;
}

// A fork that plays the service until it goes.
class BluezProcess {
 public:
  template <class Play>
  BluezProcess(const std::string& bus, Play play) : id_(::fork()) {
    if (id_ != 0) return;
    FakeBluez bluez(bus);
    play(bluez);
    ::pause();
    ::_exit(0);
  }
  ~BluezProcess() {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  BluezProcess(const BluezProcess&) = delete;
  BluezProcess& operator=(const BluezProcess&) = delete;

 private:
  pid_t id_;
};

class Load : public RadioTest {
 protected:
  // Each beacon ten times a second, in ten portions.
  static auto beacons(int number) {
    return [number](FakeBluez& bluez) {
      bluez.every(10ms, [number, turn = 0](FakeBluez& fake) mutable {
        for (int i = turn; i < number; i += 10) fake.sight(i, {kVenue, 1, static_cast<std::uint16_t>(i)}, -50 - i % 40);
        turn = (turn + 1) % 10;
      });
    };
  }

  void watch(int regions) {
    listen(linux_::BluezOptions{.bus = bus.address()});
    for (int major = 1; major <= regions; ++major)
      manager->startRangingBeaconsInRegion(std::make_shared<platform::CLBeaconRegion>(
          kVenue, static_cast<std::uint16_t>(major), std::nullopt, std::to_string(major)));
    runUntil([&] { return rangedBeacons > 0; });
  }

  // What a second of running takes of one core.
  double share(std::chrono::milliseconds time) {
    const double before = processSeconds();
    runFor(time);
    return (processSeconds() - before) / std::chrono::duration<double>(time).count();
  }
};

TEST_F(Load, OneRangingASecondForEachRegionWithAnyNumberOfBeacons) {
  for (const int number : {1, 50, 500}) {
    const BluezProcess bluez(bus.address(), beacons(number));
    watch(3);
    rangings.clear();
    rangedBeacons = 0;
    const double used = share(4s);
    for (const char* region : {"1", "2", "3"}) EXPECT_THAT(rangings[region], AllOf(Ge(3), Le(5))) << number;
    EXPECT_THAT(rangedBeacons, AllOf(Ge(3U * static_cast<unsigned>(number)), Le(5U * static_cast<unsigned>(number))));
    std::printf("%d beacons, 10 reports a second each: %.2f %% of a core\n", number, 100.0 * used);
    if (!WAYLOOM_SANITIZED) {
      EXPECT_LT(used, (number > 50 ? 0.3 : 0.03) * kSlowness);
    }
    manager.reset();
    services.reset();
  }
}

TEST_F(Load, RandomAddressesComeAndGoInBoundedMemory) {
  // Ten thousand a round, each with an identity of its own that is in a ranged region, gone again soon.
  const BluezProcess bluez(bus.address(), [](FakeBluez& fake) {
    fake.every(1ms, [device = 0](FakeBluez& service) mutable {
      for (int i = 0; i < 5; ++i, device = (device + 1) % 10'000) {
        service.sight(device, {kVenue, 1, static_cast<std::uint16_t>(device)});
        service.forget((device + 9'000) % 10'000);
      }
      service.sight(20'000, {kVenue, 2, 1});
    });
  });
  watch(2);
  std::size_t reports = 0;
  services->setReportObserver([&](auto heard) { reports += heard.size(); });
  runUntil([&] { return reports >= 10'000; }, 20s);
  const auto before = residentMemory();
  runUntil([&] { return reports >= 30'000; }, 40s);
  const auto after = residentMemory();
  if (!WAYLOOM_SANITIZED) {
    EXPECT_LT(after, before + (4U << 20U));
  }
  // The beacon that keeps sending is still ranged among them.
  rangings.clear();
  runUntil([&] { return rangings["2"] > 1; });
}

}  // namespace
}  // namespace wayloom::tests
