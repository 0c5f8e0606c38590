// What recording a ranging of 50 beacons costs in both stores. Beside each, a plain loop over SQLite's C API on a file
// with the same settings and indexes, issuing the same statements.
// `recordedHour` is an hour of such rangings through the region manager, back to back, on real time and threads. Run it
// in a directory on the disk in question: the files go there.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sqlite3.h>
#include <sstream>
#include <string>
#include <vector>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"
#include "wayloom/status/TPLStatusManager.hpp"

namespace {

using namespace wayloom;
using platform::Json;

constexpr std::uint16_t kBeacons = 50;
constexpr int kWarmUps = 20;  // until the rows have found their pages
const platform::UUID kUuid = *platform::UUID::parse("5A0E0000-0000-4000-8000-000000000001");
const std::string kUuidText = kUuid.string();

class Folder {
 public:
  Folder() : path_(std::filesystem::absolute("storage-benchmark")) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    std::ofstream(path_ / "Info.plist") << R"(<?xml version="1.0"?><plist version="1.0"><dict>
        <key>NSLocationAlwaysUsageDescription</key><string>x</string></dict></plist>)";
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

std::vector<platform::CLBeacon> beacons() {
  std::vector<platform::CLBeacon> made;
  for (std::uint16_t minor = 0; minor < kBeacons; ++minor)
    made.push_back({.proximityUUID = kUuid, .major = 1, .minor = minor, .rssi = -60, .accuracy = 2.0});
  return made;
}

// Bytes given to write() and the like since the process began.
double bytesWritten() {
  std::ifstream file("/proc/self/io");
  for (std::string name, value; file >> name >> value;)
    if (name == "wchar:") return std::stod(value);
  return 0.0;
}

class WriteCounter {
 public:
  explicit WriteCounter(benchmark::State& state) : state_(state) {}
  ~WriteCounter() {
    state_.SetItemsProcessed(state_.iterations() * kBeacons);
    state_.counters["bytes_per_ranging"] = (bytesWritten() - before_) / static_cast<double>(state_.iterations());
  }

 private:
  benchmark::State& state_;
  double before_ = bytesWritten();
};

// --- The stores ---

void analyticsRanging(benchmark::State& state) {
  Folder folder;
  const auto platform = posix::makePlatform({.mainBundle = folder.path(), .documents = folder.path()});
  TGFAnalytics analytics(*platform);
  const TGFBeaconRegion region(Json{{"identifier", "r"}, {"uuid", kUuidText}, {"major", nullptr}, {"minor", nullptr}});
  const auto kit = TGFAPIDeserializer::buildKit(*platform, std::make_shared<const Json>(Json{{"id", 1}}));
  const auto ranged = kit->getIBeaconsForCLBeacons(beacons());
  analytics.openSessionWithRegion(region);
  for (int i = 0; i < kWarmUps; ++i) analytics.updateSessionWithRegionAndBeacons(region, ranged);
  const WriteCounter counter(state);
  for (auto _ : state) analytics.updateSessionWithRegionAndBeacons(region, ranged);
}
BENCHMARK(analyticsRanging)->UseRealTime();

void statusRanging(benchmark::State& state) {
  Folder folder;
  const auto platform = posix::makePlatform({.mainBundle = folder.path(), .documents = folder.path()});
  TPLStatusDatabase db(*platform);
  const auto ranged = beacons();
  for (int i = 0; i < kWarmUps; ++i) db.rangedBeacons(ranged);
  const WriteCounter counter(state);
  for (auto _ : state) db.rangedBeacons(ranged);
}
BENCHMARK(statusRanging)->UseRealTime();

// --- The plain loops ---

double now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The file that a store has made, in the hands of somebody who knows that nothing ever fails.
class PlainFile {
 public:
  explicit PlainFile(const std::string& path) {
    sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    run(prepare("pragma synchronous = normal"));
  }
  ~PlainFile() {
    for (auto* statement : statements_) sqlite3_finalize(statement);
    sqlite3_close(handle);
  }
  sqlite3_stmt* prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v3(handle, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    return statements_.emplace_back(statement);
  }
  static sqlite3_int64 run(sqlite3_stmt* statement) {
    const auto value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
    sqlite3_reset(statement);
    return value;
  }

  sqlite3* handle = nullptr;

 private:
  std::vector<sqlite3_stmt*> statements_;
};

void bindIdentity(sqlite3_stmt* statement, int first, int minor) {
  sqlite3_bind_text(statement, first, kUuidText.c_str(), -1, SQLITE_STATIC);
  sqlite3_bind_int64(statement, first + 1, 1);
  sqlite3_bind_int64(statement, first + 2, minor);
}

// Without a statement that searches, the update tells the beacons apart by itself.
void plainLoop(benchmark::State& state, PlainFile& file, const char* selectText, const char* updateText) {
  auto* begin = file.prepare("begin immediate");
  auto* select = selectText == nullptr ? nullptr : file.prepare(selectText);
  auto* update = file.prepare(updateText);
  auto* commit = file.prepare("commit");
  const WriteCounter counter(state);
  for (auto _ : state) {
    PlainFile::run(begin);
    for (int minor = 0; minor < kBeacons; ++minor) {
      sqlite3_bind_double(update, 1, now());
      if (select == nullptr) {
        bindIdentity(update, 2, minor);
      } else {
        bindIdentity(select, 1, minor);
        sqlite3_bind_int64(update, 2, PlainFile::run(select));
      }
      PlainFile::run(update);
    }
    PlainFile::run(commit);
  }
}

template <class Loop>
void onAnalyticsFile(Loop loop) {
  Folder folder;
  const auto platform = posix::makePlatform({.mainBundle = folder.path(), .documents = folder.path()});
  {
    TGFAnalytics analytics(*platform);
    const TGFBeaconRegion region(
        Json{{"identifier", "r"}, {"uuid", kUuidText}, {"major", nullptr}, {"minor", nullptr}});
    const auto kit = TGFAPIDeserializer::buildKit(*platform, std::make_shared<const Json>(Json{{"id", 1}}));
    analytics.openSessionWithRegion(region);
    for (int i = 0; i < kWarmUps; ++i)
      analytics.updateSessionWithRegionAndBeacons(region, kit->getIBeaconsForCLBeacons(beacons()));
  }
  PlainFile file(folder.path() + "/GeofoldAnalytics.sqlite");
  loop(file);
}

template <class Loop>
void onStatusFile(Loop loop) {
  Folder folder;
  const auto platform = posix::makePlatform({.mainBundle = folder.path(), .documents = folder.path()});
  {
    TPLStatusDatabase db(*platform);
    for (int i = 0; i < kWarmUps; ++i) db.rangedBeacons(beacons());
  }
  PlainFile file(folder.path() + "/Pulsekeep.sqlite");
  loop(file);
}

void plainAnalytics(benchmark::State& state) {
  onAnalyticsFile([&](PlainFile& file) {
    plainLoop(state, file,
              "select id from beacon_sessions where beacon_uuid = ? and beacon_major = ? and beacon_minor = ? and "
              "region_session_id = 1",
              "update beacon_sessions set last_detected_at = ? where id = ?;");
  });
}
BENCHMARK(plainAnalytics)->UseRealTime();

void plainStatus(benchmark::State& state) {
  onStatusFile([&](PlainFile& file) {
    plainLoop(state, file, nullptr,
              "update beacon_sessions set last_detected_at = ? where beacon_uuid = ? and beacon_major = ? and "
              "beacon_minor = ?;");
  });
}
BENCHMARK(plainStatus)->UseRealTime();

// --- An hour ---

double processSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

class Engine {
 public:
  Engine() {
    location_->setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
    platform_ = posix::makePlatform(
        {.mainBundle = folder_.path(), .documents = folder_.path(), .loop = loop_, .location = location_});
    std::ofstream(folder_.path() + "/geofold-kit.data") << Json{
        {"kit",
         {{"ibeacons",
           Json::array({{{"identifier", "r"}, {"uuid", kUuidText}, {"major", nullptr}, {"minor", nullptr}}})}}}};
    manager_ = std::make_unique<TGFManager>(*platform_, nullptr, Json{{"GFKitURL", "http://127.0.0.1:1/kit"}});
    status_ = std::make_unique<TPLStatusManager>(*platform_, Json::object());
    manager_->start();
    location_->deliverEnter(region_);
    range();
  }

  void range() {
    location_->deliverRanging(ranged_, region_);
    status_->rangedBeacons(ranged_);
    loop_->runDue();
  }

 private:
  Folder folder_;
  std::shared_ptr<posix::MainLoop> loop_ = std::make_shared<posix::MainLoop>();
  posix::PosixMonotonicClock clock_;
  std::shared_ptr<ranging::RangerLocationServices> location_ =
      std::make_shared<ranging::RangerLocationServices>(*loop_, clock_);
  std::unique_ptr<platform::Platform> platform_;
  std::unique_ptr<TGFManager> manager_;
  std::unique_ptr<TPLStatusManager> status_;
  platform::CLBeaconRegionPtr region_ =
      std::make_shared<const platform::CLBeaconRegion>(kUuid, std::nullopt, std::nullopt, "r");
  std::vector<platform::CLBeacon> ranged_ = beacons();
};

// `core_share_percent`: the main thread's time in these calls, waits included, and the CPU time of all other threads,
// of one hour.
void recordedHour(benchmark::State& state) {
  constexpr int kRangings = 3600;
  std::vector<double> milliseconds;
  Engine engine;
  const double written = bytesWritten();
  const double cpuBefore = processSeconds();
  double blocked = 0.0;
  for (auto _ : state) {
    for (int i = 0; i < kRangings; ++i) {
      const double begin = now();
      engine.range();
      milliseconds.push_back((now() - begin) * 1000.0);
      blocked += milliseconds.back() / 1000.0;
    }
  }
  std::sort(milliseconds.begin(), milliseconds.end());
  const auto rangings = static_cast<double>(milliseconds.size());
  state.counters["p50_ms"] = milliseconds[milliseconds.size() / 2];
  state.counters["p99_ms"] = milliseconds[milliseconds.size() * 99 / 100];
  state.counters["longest_ms"] = milliseconds.back();
  state.counters["core_share_percent"] = std::max(blocked, processSeconds() - cpuBefore) / rangings * 100.0;
  state.counters["bytes_per_ranging"] = (bytesWritten() - written) / rangings;
}
BENCHMARK(recordedHour)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
