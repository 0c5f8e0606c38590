// What survives when a host is killed at any moment while it records and uploads: see recorder/Recorder.cpp.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <sqlite3.h>
#include <thread>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/sim/SeededRandom.hpp"

#include "tests/killed/Numbered.hpp"
#include "tests/sim/SimVenue.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tools/serve/BundleWriter.hpp"
#include "tools/serve/DevelopmentServer.hpp"

namespace wayloom {
namespace {

using platform::Json;

constexpr const char* kRecorder = WAYLOOM_BINARY_DIR "/tests/wayloom_killed_recorder";
constexpr int kRuns = 15;                // unless WAYLOOM_KILLS says otherwise
constexpr int kNumbersOfARun = 100'000;  // more than a run can need

// What the server does in one run after the other; "gone" is a port where nobody listens.
constexpr const char* kFaults[] = {
    "", "slow=20ms,chance=0.5", "cut=0,chance=0.5", "gone",    "garbage;garbage=all",   "fail=503,chance=0.5",
    "", "hang,chance=0.2",      "cut=30",           "slow=2s", "garbage=all,chance=0.5"};

// A database as another client than the library sees it.
class Database {
 public:
  explicit Database(const std::string& path) {
    sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr);
  }
  ~Database() { sqlite3_close(handle_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  using Row = std::vector<std::string>;  // a null is empty
  std::vector<Row> rows(const char* query) {
    std::vector<Row> rows;
    const auto add = [](void* target, int count, char** values, char**) {
      auto& row = static_cast<std::vector<Row>*>(target)->emplace_back();
      for (int i = 0; i < count; ++i) row.emplace_back(values[i] == nullptr ? "" : values[i]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle_, query, add, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(handle_);
    return rows;
  }

 private:
  sqlite3* handle_ = nullptr;
};

struct Session {
  bool isUploaded = false;
  bool isClosed = false;
  int beacons = 0;  // seen more than once
};
struct Stored {
  std::map<std::string, Session> regions;                 // by UUID
  std::map<int, bool> events;                             // whether uploaded
  std::map<std::pair<std::string, int>, bool> sightings;  // by UUID and minor
};

// The file, which must be sound; null when it, or its table, is missing: a process that is killed early leaves no more.
std::unique_ptr<Database> open(const std::string& path, const char* table) {
  if (!std::filesystem::exists(path)) return nullptr;
  auto database = std::make_unique<Database>(path);
  EXPECT_EQ(database->rows("pragma integrity_check"), (std::vector<Database::Row>{{"ok"}}));
  const auto tables = database->rows("select name from sqlite_master");
  return std::find(tables.begin(), tables.end(), Database::Row{table}) == tables.end() ? nullptr : std::move(database);
}

Stored readStores(const std::string& folder) {
  Stored stored;
  if (const auto analytics = open(folder + "/GeofoldAnalytics.sqlite", "geo_region_sessions")) {
    std::map<std::string, int> beacons;
    for (const auto& row : analytics->rows(
             "select region_session_id, count(last_detected_at) from beacon_sessions group by region_session_id"))
      beacons[row[0]] = std::stoi(row[1]);
    for (const auto& row : analytics->rows("select id, region_uuid, uploaded_at, exited_at from region_sessions")) {
      EXPECT_EQ(stored.regions.count(row[1]), 0U) << "recorded twice: " << row[1];
      stored.regions[row[1]] = {!row[2].empty(), !row[3].empty(), beacons[row[0]]};
    }
    for (const auto& row : analytics->rows("select cast(event_details as text), uploaded_at from events"))
      stored.events[platform::parseJson(row[0]).value.value_or(Json())["n"].get<int>()] = !row[1].empty();
  }
  if (const auto status = open(folder + "/Pulsekeep.sqlite", "beacon_sessions")) {
    for (const auto& row : status->rows("select beacon_uuid, beacon_minor, uploaded_at from beacon_sessions")) {
      const auto isNew = stored.sightings.emplace(std::pair(row[0], std::stoi(row[1])), !row[2].empty()).second;
      EXPECT_TRUE(isNew) << "recorded twice: " << row[0];
    }
  }
  return stored;
}

// Of a journal's line.
Json bodyOf(const std::string& line) { return platform::parseJson(line).value.value_or(Json())["body"]; }

class KilledTest : public testing::Test {
 protected:
  KilledTest() {
    venue_.write("bundle/Geofold.plist", sim::propertyList("<key>GFAPIToken</key><string>token</string>"));
    venue_.write("server/kit.json", R"({"kit":{"status_token":"s"}})");
  }

  void startServer() {
    std::string error;
    server_ = tools::DevelopmentServer::start({.venue = venue_.path(), .keep = venue_.path() + "/kept"}, error);
    ASSERT_NE(server_, nullptr) << error;
    ASSERT_EQ(tools::writeBundle(server_->endpoints(), server_->url(), bundle()), "");
    ASSERT_EQ(tools::writeBundle(server_->endpoints(), kNobody, deadBundle()), "");
  }

  std::vector<std::string> recorder(bool isServerGone, const std::string& task) const {
    const auto& url = isServerGone ? kNobody : server_->url();
    return {kRecorder, isServerGone ? deadBundle() : bundle(), documents(), server_->endpoints().statusUrl(url), "s",
            task};
  }

  // Records from that number on until it is killed.
  void runAndKill(int first, const std::string& faults) {
    const bool isGone = faults == "gone";
    ASSERT_EQ(server_->setFaults(isGone ? "" : faults), "");
    ChildProcess child(recorder(isGone, std::to_string(first)), {.errors = log(), .environment = {}});
    std::string line;
    // A third is killed while it starts and opens what the last one left.
    if (random_.chance(0.3)) {
      std::this_thread::sleep_for(std::chrono::microseconds(random_.index(80'000)));
    } else {
      for (auto left = random_.index(300); left > 0 && child.readLine(line, 30'000); --left) acknowledge(line);
      std::this_thread::sleep_for(std::chrono::microseconds(random_.index(4'000)));
    }
    ASSERT_EQ(child.end(SIGKILL), -SIGKILL) << "ended by itself";
    while (child.readLine(line)) acknowledge(line);
  }

  void acknowledge(const std::string& line) {
    const auto blank = line.find(' ');
    acknowledged_[line.substr(0, blank)].insert(std::stoi(line.substr(blank + 1)));
  }

  // What the server has received since it was asked last.
  void readJournals() {
    for (std::string line; std::getline(analyticsJournal_, line);) {
      const auto document = bodyOf(line);
      for (const auto& session : document["geofold_kit_events"][0]["region_sessions"]) {
        EXPECT_EQ(session["beacon_sessions"].size(), kBeaconsOfARegion);
        received_.regions[session["region_uuid"]].isClosed = session.contains("exited_at");
      }
      if (const auto* events = platform::member(document, "step"); events != nullptr)
        for (const auto& event : *events) received_.events[event["n"].get<int>()] = true;
    }
    for (std::string line; std::getline(statusJournal_, line);) {
      const auto document = bodyOf(line);
      for (const auto& event : document["beacon_status_events"])
        received_.sightings[{event["uuid"], event["minor"]}] = true;
    }
    analyticsJournal_.clear();
    statusJournal_.clear();
  }

  // Every acknowledged record is there, and none counts as uploaded that the server has not received.
  void expectNothingLost(const Stored& stored) {
    readJournals();
    const auto session = [&](int number) {
      const auto found = stored.regions.find(numberedUuid(number));
      return found == stored.regions.end() ? Session{false, false, -1} : found->second;
    };
    for (const int number : acknowledged_["enter"]) EXPECT_GE(session(number).beacons, 0) << "enter " << number;
    for (const int number : acknowledged_["range"]) EXPECT_EQ(session(number).beacons, kBeaconsOfARegion) << number;
    for (const int number : acknowledged_["exit"]) EXPECT_TRUE(session(number).isClosed) << "exit " << number;
    for (const int number : acknowledged_["event"]) EXPECT_EQ(stored.events.count(number), 1U) << number;
    for (const int number : acknowledged_["status"])
      for (int minor = 0; minor < kBeaconsOfARegion; ++minor)
        EXPECT_EQ(stored.sightings.count({numberedUuid(number), minor}), 1U) << "status " << number;
    for (const auto& [uuid, found] : stored.regions)
      EXPECT_TRUE(!found.isUploaded || received_.regions[uuid].isClosed) << uuid;
    for (const auto& [number, isUploaded] : stored.events)
      EXPECT_TRUE(!isUploaded || received_.events.count(number) == 1) << "event " << number;
    for (const auto& [beacon, isUploaded] : stored.sightings)
      EXPECT_TRUE(!isUploaded || received_.sightings.count(beacon) == 1) << "status " << beacon.first;
  }

  void drain() {
    server_->setFaults("");
    EXPECT_EQ(ChildProcess(recorder(false, "drain"), {.errors = log(), .environment = {}}).wait(), 0);
    const auto stored = readStores(documents());
    expectNothingLost(stored);
    for (const auto& [uuid, session] : stored.regions) EXPECT_EQ(session.isUploaded, session.isClosed) << uuid;
    for (const auto& [number, isUploaded] : stored.events) EXPECT_TRUE(isUploaded) << "event " << number;
    for (const auto& [beacon, isUploaded] : stored.sightings) EXPECT_TRUE(isUploaded) << "status " << beacon.first;
  }

  std::string bundle() const { return venue_.path() + "/to-server"; }
  std::string deadBundle() const { return venue_.path() + "/to-nobody"; }
  std::string log() const { return venue_.path() + "/log"; }
  std::string documents() const { return venue_.path() + "/documents"; }

  // The files as the killed process left them. Looking into them would tidy them up before the next run sees them.
  std::string copyOfDocuments() const {
    auto copy = venue_.path() + "/copy";
    std::filesystem::remove_all(copy);
    std::filesystem::create_directory(copy);
    if (!std::filesystem::exists(documents())) return copy;
    for (const auto& entry : std::filesystem::directory_iterator(documents()))
      if (entry.path().filename().string().find(".sqlite") != std::string::npos)
        std::filesystem::copy(entry.path(), std::filesystem::path(copy) / entry.path().filename());
    return copy;
  }

  const std::string kNobody = "http://127.0.0.1:1";
  sim::TestFolder venue_;
  std::unique_ptr<tools::DevelopmentServer> server_;
  std::ifstream analyticsJournal_;
  std::ifstream statusJournal_;
  sim::SeededRandom random_{static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()), 0};
  std::map<std::string, std::set<int>> acknowledged_;  // numbers, by what was done with them
  Stored received_;
};

TEST_F(KilledTest, NothingThatWasCommittedIsLost) {
  startServer();
  analyticsJournal_.open(venue_.path() + "/kept/analytics.jsonl");
  statusJournal_.open(venue_.path() + "/kept/status.jsonl");
  const char* wanted = std::getenv("WAYLOOM_KILLS");
  const int runs = wanted == nullptr ? kRuns : std::atoi(wanted);
  for (int run = 0; run < runs && !HasFailure(); ++run) {
    const auto* faults = kFaults[static_cast<std::size_t>(run) % std::size(kFaults)];
    SCOPED_TRACE(testing::Message() << "run " << run << ", faults: " << faults);
    runAndKill(run * kNumbersOfARun, faults);
    expectNothingLost(readStores(copyOfDocuments()));
    // Every other time the next run records on, over what is due.
    if (run % 2 == 1) drain();
  }
  drain();
  std::ifstream log(this->log());
  for (std::string line; std::getline(log, line);)
    EXPECT_TRUE(line.starts_with("Failed uploading events: ")) << "the log says: " << line;
  std::printf("%d kills: %zu sessions, %zu events, %zu sightings acknowledged\n", runs, acknowledged_["enter"].size(),
              acknowledged_["event"].size(), acknowledged_["status"].size());
  EXPECT_GT(acknowledged_["exit"].size(), static_cast<std::size_t>(runs));
}

}  // namespace
}  // namespace wayloom
