// What the stores cost as their files grow: a ranging, while nothing else happens and while uploads are marked; marks
// themselves; the write-ahead log beside the file; and an upload of all that is due, in time and memory. Each is run on
// files of several sizes and ends with the slope over them ("BigO"). Run it in a directory on the disk in question.
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <thread>
#include <vector>

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/regions/TGFBeaconRegion.hpp"
#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFKit.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"

namespace {

using namespace wayloom;
using namespace std::chrono_literals;
using platform::Json;
using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kBeacons = 50;
const platform::UUID kUuid = *platform::UUID::parse("5A0E0000-0000-4000-8000-000000000001");

// Answers every post at once, on the queue that it was given.
class Answering : public platform::HttpClient {
 public:
  std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                           Handler handler) override {
    bytes += request.body.size();
    ++documents;
    queue.async([handler = std::move(handler)] { handler(answer()); });
    return std::make_unique<platform::HttpTask>();
  }

  std::atomic<std::size_t> documents = 0;
  std::atomic<std::size_t> bytes = 0;

 private:
  static platform::HttpResponse answer() {
    platform::HttpResponse response;
    response.status = 200;
    return response;
  }
};

class Host {
 public:
  Host() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    auto services = posix::makeServices({.mainBundle = folder_.string(), .documents = folder_.string()});
    services.http = http;
    platform_ = std::make_unique<platform::Platform>(services);
    TGFConfiguration::sharedConfiguration(*platform_)
        .configureWithDictionary({{"GFAnalyticsURL", "http://analytics.example/in"}});
  }
  ~Host() {
    platform_.reset();
    std::filesystem::remove_all(folder_);
  }

  operator platform::Platform&() { return *platform_; }
  std::string path(const char* file) const { return (folder_ / file).string(); }
  std::size_t size(const char* file) const {
    std::error_code failure;
    const auto bytes = std::filesystem::file_size(folder_ / file, failure);
    return failure ? 0 : bytes;
  }
  // `n` is the number of rows.
  void fill(const char* file, const std::string& statement, std::int64_t n) const {
    sqlite3* handle = nullptr;
    sqlite3_open(path(file).c_str(), &handle);
    const auto text = "with recursive c(n) as (select 1 union all select n + 1 from c where n < " + std::to_string(n) +
                      ") insert into " + statement;
    sqlite3_exec(handle, text.c_str(), nullptr, nullptr, nullptr);
    sqlite3_exec(handle, "pragma wal_checkpoint(truncate)", nullptr, nullptr, nullptr);  // that log is no store's
    sqlite3_close(handle);
  }

  std::shared_ptr<Answering> http = std::make_shared<Answering>();

 private:
  std::filesystem::path folder_ = std::filesystem::absolute("store-growth-benchmark");
  std::unique_ptr<platform::Platform> platform_;
};

constexpr const char* kAnalytics = "GeofoldAnalytics.sqlite";
constexpr const char* kStatus = "Pulsekeep.sqlite";

const std::string kRegionRows =
    "region_sessions (entered_at, exited_at, region_uuid, uploaded_at) select 1448106000.5 + n, 1448106001.5 + n, "
    "'5A0E0000-0000-4000-8000-000000000001', ";
const std::string kBeaconRows =
    "beacon_sessions (region_session_id, first_detected_at, last_detected_at, beacon_uuid, beacon_major, beacon_minor) "
    "select n % 200000, 1448106000.5 + n, 1448106001.5 + n, '5A0E0000-0000-4000-8000-000000000001', 1, n % 60000 from "
    "c";
const std::string kStatusRows =
    "beacon_sessions (first_detected_at, last_detected_at, beacon_uuid, beacon_major, beacon_minor, uploaded_at) "
    "select "
    "1448106000.5 + n, 1448106001.5 + n, '5A0E0000-0000-4000-8000-000000000001', n / 60000 + 2, n % 60000, ";

std::vector<platform::CLBeacon> beacons() {
  std::vector<platform::CLBeacon> made;
  for (std::uint16_t minor = 0; minor < kBeacons; ++minor)
    made.push_back({.proximityUUID = kUuid, .major = 1, .minor = minor, .rssi = -60, .accuracy = 2.0});
  return made;
}

// Milliseconds of each call of an operation that is timed one by one.
class Calls {
 public:
  template <class Operation>
  void time(benchmark::State& state, const Operation& operation) {
    const auto begin = Clock::now();
    operation();
    const std::chrono::duration<double> took = Clock::now() - begin;
    state.SetIterationTime(took.count());
    milliseconds_.push_back(took.count() * 1000.0);
  }
  void report(benchmark::State& state) {
    std::sort(milliseconds_.begin(), milliseconds_.end());
    state.counters["p99_ms"] = milliseconds_[milliseconds_.size() * 99 / 100];
    state.counters["longest_ms"] = milliseconds_.back();
    state.SetComplexityN(state.range(0));
  }

 private:
  std::vector<double> milliseconds_;
};

// An entry, which makes what is known of the tables old, and the ranging that follows, both on the main thread.
void analyticsRanging(benchmark::State& state) {
  Host host;
  TGFAnalytics analytics(host);
  TGFAnalytics uploads(host);
  host.fill(kAnalytics, kRegionRows + (state.range(1) ? "null from c" : "'1448106002.5' from c"), state.range(0) / 5);
  host.fill(kAnalytics, kBeaconRows, state.range(0));
  const TGFBeaconRegion region(Json{{"identifier", "r"}, {"uuid", kUuid.string()}, {"major", 1}, {"minor", nullptr}});
  const auto kit = TGFAPIDeserializer::buildKit(host, std::make_shared<const Json>(Json{{"id", 1}}));
  const auto ranged = kit->getIBeaconsForCLBeacons(beacons());
  Calls calls;
  for (auto _ : state) {
    if (state.range(1)) uploads.uploadAnalyticsToServer();
    calls.time(state, [&] {
      analytics.openSessionWithRegion(region);
      analytics.updateSessionWithRegionAndBeacons(region, ranged);
    });
    analytics.closeSessionWithRegion(region);
    std::this_thread::sleep_for(2ms);
  }
  calls.report(state);
}
BENCHMARK(analyticsRanging)
    ->ArgsProduct({{10'000, 100'000, 1'000'000}, {0}})
    ->Iterations(200)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();
BENCHMARK(analyticsRanging)
    ->Name("analyticsRangingWhileUploading")
    ->ArgsProduct({{10'000, 100'000, 1'000'000}, {1}})
    ->Iterations(200)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

// Another connection marks a row before each ranging.
void statusRanging(benchmark::State& state) {
  Host host;
  TPLStatusDatabase db(host);
  TPLStatusDatabase uploads(host);
  host.fill(kStatus, kStatusRows + "'1448106002.5' from c", state.range(0));
  const auto ranged = beacons();
  db.rangedBeacons(ranged);
  const auto due = uploads.beaconSessionsToBeUploaded();
  Calls calls;
  for (auto _ : state) {
    uploads.markBeaconSessionAsUploaded(due.front());
    calls.time(state, [&] { db.rangedBeacons(ranged); });
  }
  calls.report(state);
}
BENCHMARK(statusRanging)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Iterations(30)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

void markStatusRows(benchmark::State& state) {
  Host host;
  TPLStatusDatabase db(host);
  host.fill(kStatus, kStatusRows + "null from c", state.range(0));
  const auto due = db.beaconSessionsToBeUploaded();
  for (auto _ : state) db.markBeaconSessionsAsUploaded(due);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(markStatusRows)
    ->Arg(1'000)
    ->Arg(5'000)
    ->Arg(20'000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

// The log at its longest, in MB.
void markEvents(benchmark::State& state) {
  Host host;
  TGFAnalytics analytics(host);
  host.fill(kAnalytics,
            "events (event_type, event_details, triggered_at) select 'x', '{\"x\":\"' || hex(zeroblob(180)) "
            "|| '\"}', 1448106000.5 from c",
            state.range(0));
  const auto due = analytics.eventsToBeUploaded();
  std::atomic<bool> ended = false;
  std::size_t longest = 0;
  std::thread watch([&] {
    for (; !ended; std::this_thread::sleep_for(1ms))
      longest = std::max(longest, host.size("GeofoldAnalytics.sqlite-wal"));
  });
  for (auto _ : state) analytics.markEventsUploaded(due);
  ended = true;
  watch.join();
  state.counters["log_mb"] = static_cast<double>(longest) / 1e6;
  state.SetComplexityN(state.range(0));
}
BENCHMARK(markEvents)
    ->Arg(2'000)
    ->Arg(20'000)
    ->Arg(200'000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

double megabytes(const char* line) {
  std::ifstream file("/proc/self/status");
  for (std::string name; std::getline(file, name);)
    if (name.starts_with(line)) return std::stod(name.substr(name.find(':') + 1)) / 1000.0;
  return 0.0;
}

// Of sessions with five beacons each: until nothing is due. `memory_mb` is what it needs at most.
void uploadAll(benchmark::State& state) {
  Host host;
  TGFAnalytics analytics(host);
  host.fill(kAnalytics, kRegionRows + "null from c", state.range(0));
  host.fill(kAnalytics,
            "beacon_sessions (region_session_id, first_detected_at, last_detected_at, beacon_uuid, "
            "beacon_major, beacon_minor) select n / 5 + 1, 1448106000.5 + n, 1448106001.5 + n, "
            "'5A0E0000-0000-4000-8000-000000000001', 1, n % 5 from c",
            state.range(0) * 5);
  std::ofstream("/proc/self/clear_refs") << 5;
  const double before = megabytes("VmRSS");
  for (auto _ : state) {
    analytics.uploadAnalyticsToServer();
    const auto isDue = [&] {
      sqlite3* handle = nullptr;
      sqlite3_stmt* statement = nullptr;
      sqlite3_open_v2(host.path(kAnalytics).c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
      sqlite3_prepare_v2(handle, "select 1 from region_sessions where uploaded_at is null limit 1", -1, &statement,
                         nullptr);
      const bool due = sqlite3_step(statement) == SQLITE_ROW;
      sqlite3_finalize(statement);
      sqlite3_close(handle);
      return due;
    };
    while (isDue()) std::this_thread::sleep_for(50ms);
  }
  state.counters["memory_mb"] = megabytes("VmHWM") - before;
  state.counters["documents"] = static_cast<double>(host.http->documents);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(uploadAll)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

}  // namespace
