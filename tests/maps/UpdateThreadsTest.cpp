// Updates on real threads: who may start a run, and what readers see meanwhile.
#include <atomic>
#include <gmock/gmock.h>
#include <latch>
#include <thread>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/positioning/TWLLocationUtils.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/sim/CallbackLogSink.hpp"
#include "wayloom/sim/VenueHttpServer.hpp"

#include "tests/maps/UpdateVenue.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using test::UpdateVenue;

// Calls back when a run looks for a built-in image, and counts the runs that do so at the same time.
class WatchedBundle : public platform::Bundle {
 public:
  explicit WatchedBundle(std::shared_ptr<platform::Bundle> bundle) : bundle_(std::move(bundle)) {}

  std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const override {
    if (type == "svg" && name == "lobby") {
      most = std::max(most.load(), ++active);
      ++runs;
      if (whileRunning) whileRunning();
      --active;
    }
    return bundle_->pathForResource(name, type);
  }
  const platform::Json& infoDictionary() const override { return bundle_->infoDictionary(); }

  std::function<void()> whileRunning;  // set before use
  mutable std::atomic<int> runs = 0;
  mutable std::atomic<int> active = 0;
  mutable std::atomic<int> most = 0;

 private:
  std::shared_ptr<platform::Bundle> bundle_;
};

// A device on real time whose server is the venue's folder.
struct ThreadedHost {
  explicit ThreadedHost(const UpdateVenue& venue) : loop(std::make_shared<posix::MainLoop>()) {
    auto services =
        posix::makeServices({.mainBundle = venue.path() + "/bundle", .documents = documents.path(), .loop = loop});
    services.console = services.systemLog = std::make_shared<sim::CallbackLogSink>([](std::string_view) {});
    services.http =
        std::make_shared<sim::VenueHttpServer>(services.tasks, services.files, venue.path(), *services.propertyLists);
    services.mainBundle = bundle = std::make_shared<WatchedBundle>(services.mainBundle);
    platform = std::make_unique<platform::Platform>(std::move(services));
  }
  ~ThreadedHost() {
    loop->stop();
    if (main.joinable()) main.join();
  }
  void start() {
    main = std::thread([this] { loop->run(); });
  }
  TWLUpdateManager& updates() { return TWLUpdateManager::sharedUpdateManager(*platform); }

  sim::TestFolder documents;
  std::shared_ptr<posix::MainLoop> loop;
  std::shared_ptr<WatchedBundle> bundle;
  std::unique_ptr<platform::Platform> platform;
  std::thread main;
};

TEST(UpdateThreads, AHundredCallsAtOnceStartOneRun) {
  const UpdateVenue venue;
  ThreadedHost host(venue);
  std::latch called(100);
  host.bundle->whileRunning = [&] { called.wait(); };
  host.start();
  std::vector<std::thread> callers;
  for (int i = 0; i < 100; ++i)
    callers.emplace_back([&] {
      host.updates().update();
      called.count_down();
    });
  for (auto& caller : callers) caller.join();
  host.updates().waitUntilCompleted();
  EXPECT_EQ(host.bundle->runs, 1);
  EXPECT_TRUE(host.updates().mapReady());

  host.bundle->whileRunning = [] { std::this_thread::sleep_for(2ms); };
  callers.clear();
  for (int i = 0; i < 8; ++i)
    callers.emplace_back([&] {
      for (int n = 0; n < 20; ++n, std::this_thread::yield()) host.updates().update();
      host.updates().waitUntilCompleted();
    });
  for (auto& caller : callers) caller.join();
  EXPECT_GT(host.bundle->runs, 1);
  EXPECT_EQ(host.bundle->most, 1) << "runs take turns";
}

TEST(UpdateThreads, MapsReturnsSoonAfterTheMenuIsReady) {
  const UpdateVenue venue;
  ThreadedHost host(venue);
  auto& updates = host.updates();
  std::chrono::steady_clock::time_point ready;
  host.bundle->whileRunning = [&] {
    EXPECT_TRUE(updates.menuReady());
    EXPECT_FALSE(updates.mapReady());
    ready = std::chrono::steady_clock::now();
  };
  TWLManager manager(*host.platform);
  host.start();
  std::thread later([&] {
    std::this_thread::sleep_for(120ms);
    manager.updateMaps();
  });
  EXPECT_EQ(manager.maps().size(), 1U);
  const auto returned = std::chrono::steady_clock::now();
  later.join();
  updates.waitUntilCompleted();
  EXPECT_LT(returned - ready, 100ms);
  std::latch stopped(1);
  host.loop->mainQueue().async([&] {
    manager.stop();
    stopped.count_down();
  });
  stopped.wait();
}

TEST(UpdateThreads, UpdatesReloadsAndReadersGoTogether) {
  const UpdateVenue venue;
  venue.put("bundle/lobby.svg", "built in", 500);
  venue.publish({{"lobby", "l.svg"}, {"hall", "h.svg"}}, 2'000);
  ThreadedHost host(venue);
  auto& repo = TWLMapConfigRepo::sharedRepo(*host.platform);
  std::atomic<int> ended = 0;
  repo.setUpdateObserver([&](const MapUpdateStep& step) { ended += step.kind == MapUpdateStep::Kind::ended ? 1 : 0; });
  host.start();
  std::atomic<bool> isOver = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i)
    threads.emplace_back([&] {
      while (!isOver) {
        const auto map = repo.forMapId("lobby");
        EXPECT_TRUE(map && (map->latitude() == 0 || map->latitude() == 2'000));
        const auto location = TWLLocationUtils::mapLocationForGeolocationForMapId(*host.platform, {50, 8}, "lobby");
        EXPECT_EQ(location->uncertaintyRadiusPixels(), 0);
      }
    });
  threads.emplace_back([&] {
    while (!isOver) {
      repo.load();
      repo.setUpdateUrl(repo.updateUrl());
      std::this_thread::sleep_for(1ms);
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (ended < 15 && std::chrono::steady_clock::now() < deadline) {
    host.platform->userDefaults().setInteger(MAP_CONFIG_UPDATE_TIME_KEY, 1'500);  // as if the document were new
    host.updates().update();
    host.updates().waitUntilCompleted();
  }
  isOver = true;
  for (auto& thread : threads) thread.join();
  EXPECT_GE(ended, 15);
}

// A Platform may go while a run, its downloads and a waiting caller are under way.
TEST(UpdateThreads, EverythingMayEndInTheMiddle) {
  const UpdateVenue venue;
  venue.publish({{"lobby", "l.svg"}, {"hall", "h.svg"}}, 2'000);
  for (int i = 0; i < 20; ++i) {
    ThreadedHost host(venue);
    host.start();
    host.updates().update();
    std::this_thread::sleep_for(std::chrono::microseconds(i * 150));
    host.loop->stop();
    host.main.join();
    host.platform.reset();
  }
}

}  // namespace
}  // namespace wayloom
