// A simulated world whose databases are real files, and which writes down what is posted and logged.
#pragma once

#include <sqlite3.h>
#include <string>
#include <vector>

#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/sim/SimPlatform.hpp"

namespace wayloom::test {

using Lines = std::vector<std::string>;

struct StoreWorld {
  explicit StoreWorld(double start = 1448106000.5)
      : sim({.start = platform::calendarTimeFromSeconds(start),
             .log = [this](sim::LogChannel, std::string_view line) { log.emplace_back(line); }}) {
    sim.server().setRequestObserver([this](const platform::HttpRequest& request) { requests.push_back(request); });
  }

  operator platform::Platform&() { return sim.platform(); }
  void wait(double seconds) { sim.time().advanceBy(platform::durationFromSeconds(seconds)); }
  void configure(const platform::Json& configuration) {
    TGFConfiguration::sharedConfiguration(sim.platform()).configureWithDictionary(configuration);
  }

  // The rows of a query, read by SQLite itself, each with " | " between the values; null is "-".
  Lines rows(const std::string& file, const std::string& query) const {
    Lines result;
    sqlite3* handle = nullptr;
    sqlite3_open_v2((sim.documents() + "/" + file).c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
    const auto add = [](void* lines, int count, char** values, char**) {
      std::string line;
      for (int i = 0; i < count; ++i) line += std::string(i > 0 ? " | " : "") + (values[i] ? values[i] : "-");
      static_cast<Lines*>(lines)->push_back(line);
      return 0;
    };
    char* error = nullptr;
    sqlite3_exec(handle, query.c_str(), add, &result, &error);
    if (error != nullptr) result.push_back(error);
    sqlite3_free(error);
    sqlite3_close(handle);
    return result;
  }

  // Done to the file by somebody else.
  void execute(const std::string& file, const std::string& statements) const {
    sqlite3* handle = nullptr;
    sqlite3_open((sim.documents() + "/" + file).c_str(), &handle);
    sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr);
    sqlite3_close(handle);
  }

  Lines takeLog() { return std::exchange(log, {}); }
  std::vector<platform::HttpRequest> takeRequests() { return std::exchange(requests, {}); }

  Lines log;
  std::vector<platform::HttpRequest> requests;
  sim::SimPlatform sim;
};

}  // namespace wayloom::test
